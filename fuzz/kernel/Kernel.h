// A pretended kernel: descriptors, sockets with clients at their other ends, epoll, event and timer descriptors, pipes
// and child programs, all in memory and moved by a script alone. KernelCalls.cpp puts it in the place of the system's
// functions, in programs that are linked so (tessel_fuzz_target, CMakeLists.txt); files stay the system's own.
//
// Numbers of pretended descriptors and children are out of the reach of real ones. A call that no correct program makes
// (with a descriptor that was closed, a wait that would last, sending after the end) breaks a rule and stops the
// program.
//
// Thread:    one.
// Ownership: one kernel a process, Kernel::The; Reset makes it as new.
// Errors:    calls return -1 and set errno, as those of the system do.
#pragma once

#include <sys/epoll.h>
#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <limits>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace TesselServer::Pretended {

inline constexpr int kFirstDescriptor = 1'000'000;
inline constexpr pid_t kFirstChild = 5'000'000;
inline constexpr std::size_t kUnlimited = std::numeric_limits<std::size_t>::max();

// A client, and the connection between it and the server.
struct Client {
  // What the client does.
  std::string unread;                  // has arrived, and the server has not read it
  bool hasEnded = false;               // it sends no more
  bool isGone = false;                 // it has reset the connection
  std::size_t window = kUnlimited;     // so many bytes it takes before the server must wait
  std::size_t readPiece = kUnlimited;  // so many bytes go with one call, to the server
  std::size_t sendPiece = kUnlimited;  // and from it

  // What the server has done.
  bool wasAccepted = false;
  std::size_t read = 0;
  std::string got;
  bool serverHasEnded = false;  // sent its end
  bool serverHasClosed = false;
  bool wasRefused = false;    // its connection went without having been accepted
  bool lostUnread = false;    // closed while bytes were unread, which resets the connection
  bool resetIsKnown = false;  // the server has seen the error
};
using ClientPointer = std::shared_ptr<Client>;

struct Pipe {
  std::string bytes;
  bool isHeldByParent = true;
  bool isHeldByChild = false;
};

struct Child {
  pid_t number = 0;
  std::shared_ptr<Pipe> output;
  std::string printed;
  bool hasEnded = false;
  bool isCollected = false;
  int code = 0;    // CLD_EXITED or CLD_KILLED
  int status = 0;  // exit code or signal
};
using ChildPointer = std::shared_ptr<Child>;

// What a descriptor refers to.
struct Object {
  enum class Kind { kEpoll, kEvent, kTimer, kSocket, kConnection, kReadEnd, kWriteEnd, kChild };
  struct Interest {
    std::uint32_t events;
    epoll_data_t data;
  };

  explicit Object(Kind given) : kind(given) {}

  Kind kind;
  std::map<int, Interest> watched;    // kEpoll
  std::uint64_t count = 0;            // kEvent
  std::int64_t due = -1;              // kTimer: milliseconds; -1 for none
  std::uint32_t address = 0;          // kSocket, once bound; as the network has it
  std::uint16_t port = 0;             // likewise
  bool listens = false;               // kSocket
  std::deque<ClientPointer> pending;  // kSocket that listens
  ClientPointer client;               // kConnection
  std::shared_ptr<Pipe> pipe;         // kReadEnd, kWriteEnd
  bool mayWait = true;                // kReadEnd, until it is switched off
  ChildPointer child;                 // kChild
};

class Kernel {
 public:
  static Kernel& The();

  // ---- The script's side.

  // Forgets everything. `now` is the clock of timer descriptors, in milliseconds.
  void Reset(std::function<std::int64_t()> now);

  // A client comes to the only listener. Refused, and false, where there is none.
  bool Connect(const ClientPointer& client);

  std::size_t OpenDescriptors() const { return objects_.size(); }
  std::size_t OpenConnections() const;

  // In the order of their starts, those that have ended too.
  const std::vector<ChildPointer>& Children() const { return children_; }
  static void Print(Child& child, std::string_view text);
  static void End(Child& child, int code, int status);

  // Whether a poll of the descriptor would find it readable.
  bool IsReadable(int descriptor);

  // With which of the events that are due each turn begins.
  std::size_t order = 0;

  // ---- The server's side: system calls.

  static bool IsPretended(int descriptor) { return descriptor >= kFirstDescriptor; }
  Object& At(int descriptor);
  int Open(Object::Kind kind) { return Add(std::make_shared<Object>(kind)); }
  int Close(int descriptor);

  int EpollControl(int epoll, int operation, int descriptor, epoll_event* event);
  int EpollWait(int epoll, epoll_event* events, int most);
  ssize_t Read(int descriptor, void* bytes, std::size_t size);
  ssize_t Write(int descriptor, const void* bytes, std::size_t size);
  void SetTimer(int descriptor, std::int64_t inMilliseconds);

  int Bind(int descriptor, std::uint32_t address, std::uint16_t port);
  int Listen(int descriptor);
  int Accept(int descriptor);
  ssize_t Receive(int descriptor, void* bytes, std::size_t size, bool drop);
  ssize_t Send(int descriptor, std::string_view bytes);
  std::size_t Room(int descriptor);  // how much Send would take now
  int ShutDown(int descriptor);

  int MakePipe(int* ends);
  pid_t Start();
  ChildPointer Find(pid_t number) const;
  int OpenChild(pid_t number);

 private:
  int Add(std::shared_ptr<Object> object);
  std::uint32_t Ready(const Object& object) const;
  std::uint32_t ReadyOfConnection(const Client& client) const;
  Object* Listener();

  std::function<std::int64_t()> now_;
  std::map<int, std::shared_ptr<Object>> objects_;
  std::vector<ChildPointer> children_;
  std::shared_ptr<Pipe> lastPipe_;
  std::uint16_t nextPort_ = 40000;
};

}  // namespace TesselServer::Pretended
