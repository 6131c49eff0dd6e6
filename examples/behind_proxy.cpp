// A host behind a proxy, which has to look at the X-Forwarded-For line to know its clients.
//
//   behind_proxy [PORT [FOLDER]]
//
// Serves the folder on 127.0.0.1, and /client itself: the client's address, the name it gave, and what it posted.

#include <algorithm>
#include <cctype>
#include <iostream>
#include <string>
#include <string_view>

#include <TesselServer/Tessel.h>

namespace {

constexpr std::string_view kProxy = "127.0.0.1";

bool EqualNames(std::string_view a, std::string_view b) {
  const auto equal = [](unsigned char x, unsigned char y) { return std::tolower(x) == std::tolower(y); };
  return std::equal(a.begin(), a.end(), b.begin(), b.end(), equal);
}

// The value of the header line `name`, "" when there is none. HTTPHeader(index, name) would also find the name inside
// another line, where a client can write what it likes.
std::string HeaderLine(std::string_view header, std::string_view name) {
  while (!header.empty()) {
    const std::string_view line = header.substr(0, header.find("\r\n"));
    header.remove_prefix(std::min(header.size(), line.size() + 2));
    if (line.size() <= name.size() || line[name.size()] != ':' || !EqualNames(line.substr(0, name.size()), name)) {
      continue;
    }
    const std::size_t value = line.find_first_not_of(' ', name.size() + 1);
    return value == std::string_view::npos ? std::string() : std::string(line.substr(value));
  }
  return {};
}

// Who asks: what the proxy says, and only the proxy is believed.
std::string ClientAddress(TesselServer::Tessel& tessel, std::int32_t index) {
  std::string peer = tessel.CGIValue(index, "REMOTE_ADDR");
  if (peer != kProxy) return peer;
  const std::string forwarded = HeaderLine(tessel.HTTPHeader(index), "X-Forwarded-For");
  return forwarded.empty() ? peer : forwarded;
}

void Answer(TesselServer::Tessel& tessel, std::int32_t index, const std::string& path, const std::string& user) {
  if (path != "client") return tessel.TrapFileData(index, "", true);
  const std::string name = user.substr(0, user.find(':'));
  const std::string page = ClientAddress(tessel, index) + "\n" + name + "\n" + tessel.RequestBody(index);
  tessel.TrapFileData(index, page, false, "text/plain");
}

}  // namespace

int main(int argc, char** argv) {
  TesselServer::EventLoop loop;
  TesselServer::Tessel tessel(loop);
  tessel.ServerIP("127.0.0.1");
  tessel.MaxConnections(100);
  tessel.VirtualPath(argc > 2 ? argv[2] : ".");
  tessel.VerboseErrorsEnable(false);  // so that the proxy sees the real status codes
  tessel.TrapFileEnable(true);
  tessel.FileRequest = [&](std::int32_t& index, std::string& path, std::string& user) {
    Answer(tessel, index, path, user);
  };
  tessel.LogEvent = [](std::string& text) { std::cerr << text << std::endl; };
  try {
    tessel.ServerPort(argc > 1 ? argv[1] : "8081");
    tessel.StartServer();
    std::cerr << "Open http://127.0.0.1:" << tessel.ListeningPort() << "/" << std::endl;
    loop.Run();
  } catch (const TesselServer::Error& error) {
    std::cerr << error.what() << '\n';
    return 1;
  }
}
