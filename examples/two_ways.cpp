// Two ways to run the loop, and a page that the host itself answers.
//
//   two_ways run [FOLDER [PASSWORDS]]     the loop is the program: Run, with a timer for the program's own work
//   two_ways turns [FOLDER [PASSWORDS]]   the program has a loop of its own and gives the server a turn now and then:
//                                         RunOnce
//
// With PASSWORDS, a file of "user:password" lines, clients are asked for one of them. Open
// http://127.0.0.1:8081/clock.status in a browser. The server ends by itself after one minute.

#include <iostream>
#include <string>

#include <TesselServer/Tessel.h>
#include <TesselServer/Timer.h>

namespace {

constexpr int kSeconds = 60;

// The program's own work, as the page shows it.
class Clock {
 public:
  void Tick() { ++ticks_; }
  bool IsOver() const { return ticks_ >= kSeconds; }
  std::string Page() const {
    return "<html><body><h1>" + std::to_string(kSeconds - ticks_) + " seconds left</h1></body></html>";
  }

 private:
  int ticks_ = 0;
};

// Answers every request for a name that ends in ".status"; all others are files.
void Configure(TesselServer::Tessel& tessel, const Clock& clock, const std::string& folder) {
  tessel.ServerIP("127.0.0.1");
  tessel.ServerPort("8081");
  tessel.MaxConnections(20);
  tessel.VirtualPath(folder);
  tessel.TrapFileEnable(true);
  tessel.TrapFileTypes("status");
  tessel.FileRequest = [&](std::int32_t& index, std::string&, std::string&) {
    tessel.TrapFileData(index, clock.Page(), false);
  };
  tessel.HTTPLog = [](std::string& line) { std::cout << line << std::endl; };
  tessel.LogEvent = [](std::string& text) { std::cerr << text << std::endl; };
}

// Has clients asked for a password of the file. False when it cannot be read: that is no error to the control, which
// leaves the property as it was, and a site without a password file is open to every client.
bool AskForPasswords(TesselServer::Tessel& tessel, const std::string& file) {
  tessel.AuthenticationSourceFile(file);
  return tessel.AuthenticationSourceFile() == file;
}

// The server's loop is the program's loop.
void Run(TesselServer::EventLoop& loop, Clock& clock) {
  TesselServer::Timer timer(loop);
  timer.Interval(1000);
  timer.OnTick([&] {
    clock.Tick();
    if (clock.IsOver()) loop.Stop();
  });
  timer.Enabled(true);
  loop.Run();
}

// The program goes its own round, and serves for up to a hundredth of a second in each.
void TakeTurns(TesselServer::EventLoop& loop, Clock& clock) {
  for (int round = 1; !clock.IsOver(); ++round) {
    loop.RunOnce(10);
    if (round % 100 == 0) clock.Tick();  // about a second; busy serving makes it shorter
  }
}

}  // namespace

int main(int argc, char** argv) {
  const std::string way = argc > 1 ? argv[1] : "run";
  if (way != "run" && way != "turns") {
    std::cerr << "Usage: two_ways run|turns [FOLDER [PASSWORDS]]\n";
    return 2;
  }
  Clock clock;
  TesselServer::EventLoop loop;
  TesselServer::Tessel tessel(loop);
  Configure(tessel, clock, argc > 2 ? argv[2] : ".");
  if (argc > 3 && !AskForPasswords(tessel, argv[3])) {
    std::cerr << argv[3] << " cannot be read: the site would be open to every client\n";
    return 1;
  }
  try {
    tessel.StartServer();
  } catch (const TesselServer::Error& error) {
    std::cerr << error.what() << '\n';
    return 1;
  }
  way == "run" ? Run(loop, clock) : TakeTurns(loop, clock);
  tessel.StopServer();
}
