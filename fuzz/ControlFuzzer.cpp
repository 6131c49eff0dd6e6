// The whole control, as it is shipped, over a pretended kernel: whatever clients, the host, programs, the clock and
// failing calls do, and in whatever order, each client gets at most one well-formed answer, and nothing is left at the
// end. What is pretended is below the library only (kernel/Kernel.h): its system calls are replaced as the program is
// linked, sockets, events, pipes and children by ones in memory, while files are real. The host is kernel/Host.h.
//
// The input is a script, a step a line, its first character what is done. k is a client, 0 to 9; n a number in decimal;
// what is missing is 0:
//
//   ck     client k connects                         skTEXT  client k sends; ~ is a line end
//   ek     it sends no more                          rk      it resets its connection
//   wkn    it takes n more bytes (none: all)         zkn     so many bytes go with one call to the server (from it:
//   Zkn) tn     n milliseconds pass                       jn      the clock of dates jumps by n seconds, -n backwards
//   ln     each look at the clock takes n us         un      n turns after each step (none: until all is at rest)
//   fCnet  call C (kernel/Faults.h) fails, from the nth on, with its error e, t times
//   gn     one read of a file gives n bytes at most  vn      events come in another order
//   xkTEXT child k prints; ~ is a line end           dkn     child k ends with the exit code n, by a signal above 99
//   qk     its output ends                           bn      a piece of work beside the loop is done
//   hEnA   in the nth next event E the host does A   aA      the host does A now (kernel/Host.h)
//   yA     what it does in FileRequest otherwise     oPn     property P becomes n (kernel/Host.cpp)
//
// After the last step everything that holds something up is taken away, and then each client that nothing has disturbed
// must have its answer, all slots must be free, and all counts must agree.
#include "fuzz/kernel/Play.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace TesselServer;
  constexpr std::size_t kMostSteps = 200;
  Pretended::Play play;
  std::string_view rest = AsText(data, size);
  for (std::size_t steps = 0; !rest.empty() && steps < kMostSteps; ++steps) {
    const std::size_t end = rest.find('\n');
    play.Step(rest.substr(0, end));
    rest.remove_prefix(end == std::string_view::npos ? rest.size() : end + 1);
  }
  play.Finish();
  return 0;
}
