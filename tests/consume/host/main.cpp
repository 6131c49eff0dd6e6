// A small host of the installed library: serves the folder of its first argument on a free port until SIGTERM.

#include <csignal>
#include <iostream>

#include <TesselServer/Tessel.h>

namespace {

TesselServer::EventLoop* loopToStop = nullptr;

extern "C" void StopLoop(int) { loopToStop->Stop(); }

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) return 2;
  TesselServer::EventLoop loop;
  loopToStop = &loop;
  std::signal(SIGTERM, StopLoop);
  TesselServer::Tessel tessel(loop);
  tessel.ServerIP("127.0.0.1");
  tessel.ServerPort("0");
  tessel.VirtualPath(argv[1]);
  tessel.HTTPLog = [](std::string& line) { std::cout << line << std::endl; };
  tessel.StartServer();
  std::cerr << "Open http://127.0.0.1:" << tessel.ListeningPort() << "/" << std::endl;
  loop.Run();
}
