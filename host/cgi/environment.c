/* environment.exe: a program of the demonstration site, in C. Shows who asked, how, and for what, as its environment
   tells it; values are cut to kLongest bytes, so that the page stays within the 1024 bytes that are read. */

#include <stdio.h>
#include <stdlib.h>

enum { kLongest = 60 };

/* Prints `text` so that HTML shows it as it is. */
static void print_escaped(const char* text) {
  for (int i = 0; i < kLongest && text[i] != '\0'; ++i) {
    switch (text[i]) {
      case '&':
        fputs("&amp;", stdout);
        break;
      case '<':
        fputs("&lt;", stdout);
        break;
      case '>':
        fputs("&gt;", stdout);
        break;
      default:
        putchar(text[i]);
    }
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
    print_escaped(value == NULL ? "" : value);
  }
  fputs("</table><p><a href=/live/programs.html>Back</a></main>\n", stdout);
  return 0;
}
