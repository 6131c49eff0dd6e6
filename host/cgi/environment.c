/* environment.exe: a program of the demonstration site, in C. Shows who asked, how, and for what, as its environment
   tells it. Of each value at most kLongest bytes are printed, so that the page stays within the 1024 that are read. */

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

enum { kLongest = 100 };

/* `c` as HTML shows it. */
static const char* escaped(char c) {
  static char plain[2];
  switch (c) {
    case '&':
      return "&amp;";
    case '<':
      return "&lt;";
    case '>':
      return "&gt;";
    default:
      plain[0] = c;
      return plain;
  }
}

static void print_value(const char* value) {
  size_t printed = 0;
  for (; *value != '\0'; ++value) {
    const char* text = escaped(*value);
    printed += strlen(text);
    if (printed > kLongest) return;
    fputs(text, stdout);
  }
}

int main(void) {
  static const char* const names[] = {"REQUEST_METHOD", "DOCUMENT_URI", "QUERY_STRING", "REMOTE_ADDR",
                                      "SERVER_NAME",    "SERVER_PORT",  "TIME"};
  fputs(
      "Content-Type: text/html\r\n\r\n<!DOCTYPE html><title>environment.exe</title>"
      "<link rel=stylesheet href=/style.css><main><h1>A program in C</h1><table>",
      stdout);
  for (size_t i = 0; i < sizeof names / sizeof names[0]; ++i) {
    const char* value = getenv(names[i]);
    printf("<tr><th>%s<td>", names[i]);
    print_value(value == NULL ? "" : value);
  }
  fputs("</table><p><a href=/live/programs.html>Back</a></main>\n", stdout);
  return 0;
}
