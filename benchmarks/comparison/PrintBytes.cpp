// The program that the comparison's servers run: prints a header and 200 bytes.
#include <cstdio>
#include <string>

int main() {
  const std::string text = "Content-Type: text/plain\r\n\r\n" + std::string(199, 'x') + "\n";
  return std::fwrite(text.data(), 1, text.size(), stdout) == text.size() ? 0 : 1;
}
