// The files that the control serves: pages of every kind, programs, a guarded folder.
#pragma once

#include <filesystem>
#include <string>

#include "tests/kit/TemporaryTree.h"

namespace TesselServer::Pretended {

// What plain.txt says.
inline constexpr const char* kPlainText = "nothing but text\r\n";

class Site {
 public:
  Site() {
    tree_.Write("plain.txt", kPlainText);
    tree_.Write("Spelled Otherwise.txt", "found all the same");
    tree_.Write("big.bin", std::string(70'000, 'b'));
    tree_.Write("index.html", "<html><%=REQUEST_METHOD%></html>");
    tree_.Write("page.html",
                "<!--#echovar=SERVER_NAME--><!--#include=plain.txt--><%=FunctionOne(x)%><%=FunctionTwo()%>");
    tree_.Write("name.html", "you are <%=REMOTE_HOST%>");
    tree_.Write("programs.html", "<!--#execcgi=tool.exe--><%=FunctionOne()%><!--#execcgi=tool.bat?a-->");
    tree_.Write("page.trp", "not for the host");
    tree_.Write("loop.html", "<!--#include=loop.html--><!--#include=page.html--><!--#include=run.exe-->");
    tree_.Write("guarded/htaccess.txt", "realm: here\r\nann:secret\r\n");
    tree_.Write("guarded/secret.txt", "secret text");
    tree_.Write("html/errors/http404.html", "<html><%=FunctionMissing()%>not there</html>");
    std::string tags;
    for (int i = 0; i < 200; ++i)
      tags += "<%=SERVER_PORT%><!--#includevirtual=missing" + std::to_string(i % 20) + "-->";
    tree_.Write("tags.html", tags);
    for (int i = 0; i < 40; ++i) tree_.Write("folder/file" + std::to_string(i) + ".txt", "x");
    tree_.MakeFolder("folder/inner");
    for (const char* program : {"run.exe", "scripts/tool.exe", "scripts/tool.bat"}) {
      std::filesystem::permissions(tree_.Write(program, "a program"), std::filesystem::perms(0755));
    }
  }

  std::string Root() const { return tree_.Text(); }

 private:
  Kit::TemporaryTree tree_;
};

}  // namespace TesselServer::Pretended
