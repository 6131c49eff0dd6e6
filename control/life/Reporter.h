// Raises the control's events and reports its errors. Every event goes through here, so that nothing a handler throws
// reaches the loop, and nothing is raised once the control is gone.
//
// Thread:    the host's thread.
// Ownership: keeps a reference to the statistics; the control itself is forgotten when it dies (Forget).
// Errors:    none; a handler that throws is reported through LogEvent, one of LogEvent itself is counted.
#pragma once

#include <cstdint>
#include <exception>
#include <string>
#include <string_view>

#include "control/life/Statistics.h"

namespace TesselServer {

class Tessel;

// The beginnings of error reports, each naming the procedure that met the error.
namespace ErrorPrefix {
inline constexpr std::string_view kInitialize = "Error - Initialize. [";
inline constexpr std::string_view kStartServer = "Error - StartServer. [";
inline constexpr std::string_view kStopServer = "Error - StopServer. [";
inline constexpr std::string_view kConnectionRequest = "Error - TCP::ConnectionRequest. [";
inline constexpr std::string_view kDataArrival = "Error - TCP::DataArrival. [";
inline constexpr std::string_view kSendComplete = "Error - TCP::Send Complete. [";
inline constexpr std::string_view kClose = "Error - TCP::Close. [";
inline constexpr std::string_view kListen = "Error - TCP::Listen. [";
inline constexpr std::string_view kSendWebPage = "Error - SendWebPage. [";
inline constexpr std::string_view kKillAllConnections = "Error -  KillAllConnections. [";  // kept: two blanks
inline constexpr std::string_view kSendData = "Error -  SendData. [";                      // kept: two blanks
inline constexpr std::string_view kServerTooBusy = "Error -  ServerTooBusy. [";            // kept: two blanks
inline constexpr std::string_view kTimerCheckConnections = "Error - TimerCheckConnections. [";
}  // namespace ErrorPrefix

// What is known of an exception: the number of an Error, or that of the nearest run-time error, and its text.
struct CaughtError {
  std::int32_t number;
  std::string description;
};
CaughtError DescribeException(const std::exception_ptr& exception);

class Reporter {
 public:
  Reporter(Tessel& owner, Statistics& statistics) : owner_(&owner), statistics_(statistics) {}

  // The control is gone: nothing is raised from now on.
  void Forget() { owner_ = nullptr; }

  void RaiseHTTPLog(std::string text);
  void RaiseLogEvent(std::string text);  // counts one error
  void RaiseStatusLine(std::string text);
  void RaisePropertyChanged(const std::string& name);
  void RaiseAboutBox(const std::string& product, const std::string& version);
  // These two are False when the handler threw.
  bool RaiseCallFunction(std::int32_t index, std::string name);
  bool RaiseFileRequest(std::int32_t index, std::string fileName, std::string userAuthentication);
  bool CallFunctionIsHeard() const;
  bool FileRequestIsHeard() const;
  bool HTTPLogIsHeard() const;

  // prefix, number, "] ", description.
  void ReportError(std::string_view prefix, const CaughtError& error);
  // Reports the exception being handled.
  void ReportCurrent(std::string_view prefix) noexcept;

  // Runs `procedure` and reports what it throws. False when it threw.
  template <typename Procedure>
  bool Trap(std::string_view prefix, Procedure&& procedure) {
    try {
      procedure();
      return true;
    } catch (...) {
      ReportCurrent(prefix);
      return false;
    }
  }

 private:
  template <typename Raise>
  bool Guard(std::string_view event, Raise&& raise);

  Tessel* owner_;
  Statistics& statistics_;
};

}  // namespace TesselServer
