#include "control/life/Reporter.h"

#include <new>
#include <utility>

#include "control/Tessel.h"
#include "platform/world/Error.h"

namespace TesselServer {

CaughtError DescribeException(const std::exception_ptr& exception) {
  try {
    std::rethrow_exception(exception);
  } catch (const Error& error) {
    return {error.Number(), error.Description()};
  } catch (const std::bad_alloc&) {
    return {ErrorNumber::kOutOfMemory, "Out of memory"};
  } catch (const std::exception& error) {
    return {ErrorNumber::kInternal, error.what()};
  } catch (...) {
    return {ErrorNumber::kInternal, "Unknown exception"};
  }
}

template <typename Raise>
bool Reporter::Guard(std::string_view event, Raise&& raise) {
  if (owner_ == nullptr) return true;
  try {
    raise(*owner_);
    return true;
  } catch (...) {
    ReportCurrent("Error - Handler of " + std::string(event) + ". [");
    return false;
  }
}

void Reporter::RaiseHTTPLog(std::string text) {
  Guard("HTTPLog", [&](Tessel& owner) { owner.HTTPLog.Raise(text); });
}

void Reporter::RaiseLogEvent(std::string text) {
  statistics_.ErrorCount += 1;
  if (owner_ == nullptr) return;
  try {
    owner_->LogEvent.Raise(text);
  } catch (...) {
    statistics_.ErrorCount += 1;  // there is no further place to report it
  }
}

void Reporter::RaiseStatusLine(std::string text) {
  Guard("StatusLine", [&](Tessel& owner) { owner.StatusLine.Raise(text); });
}

void Reporter::RaisePropertyChanged(const std::string& name) {
  Guard("PropertyChanged", [&](Tessel& owner) { owner.PropertyChanged.Raise(name); });
}

void Reporter::RaiseAboutBox(const std::string& product, const std::string& version) {
  Guard("AboutBox", [&](Tessel& owner) { owner.AboutBox.Raise(product, version); });
}

bool Reporter::RaiseCallFunction(std::int32_t index, std::string name) {
  return Guard("CallFunction", [&](Tessel& owner) { owner.CallFunction.Raise(index, name); });
}

bool Reporter::RaiseFileRequest(std::int32_t index, std::string fileName, std::string userAuthentication) {
  return Guard("FileRequest", [&](Tessel& owner) { owner.FileRequest.Raise(index, fileName, userAuthentication); });
}

bool Reporter::HTTPLogIsHeard() const { return owner_ != nullptr && owner_->HTTPLog.IsConnected(); }

bool Reporter::CallFunctionIsHeard() const { return owner_ != nullptr && owner_->CallFunction.IsConnected(); }

bool Reporter::FileRequestIsHeard() const { return owner_ != nullptr && owner_->FileRequest.IsConnected(); }

void Reporter::ReportError(std::string_view prefix, const CaughtError& error) {
  RaiseLogEvent(std::string(prefix) + std::to_string(error.number) + "] " + error.description);
}

void Reporter::ReportCurrent(std::string_view prefix) noexcept {
  try {
    ReportError(prefix, DescribeException(std::current_exception()));
  } catch (const std::bad_alloc&) {
    statistics_.ErrorCount += 1;  // what is left of it
  }
}

}  // namespace TesselServer
