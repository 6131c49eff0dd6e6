#include <iostream>

#include <TesselServer/Tessel.h>

int main() {
  TesselServer::EventLoop loop;
  TesselServer::Tessel tessel(loop);
  tessel.ServerIP("127.0.0.1");
  tessel.ServerPort("8080");
  tessel.MaxConnections(100);
  tessel.VirtualPath(".");
  tessel.HTTPLog = [](std::string& line) { std::cout << line << std::endl; };
  tessel.LogEvent = [](std::string& text) { std::cerr << text << std::endl; };
  try {
    tessel.StartServer();
    loop.Run();
  } catch (const TesselServer::Error& error) {
    std::cerr << error.Number() << ": " << error.what() << std::endl;
  }
}
