// What a request record asks of the control that owns it.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "http/RequestInfo.h"
#include "platform/files/FileSystem.h"
#include "platform/tasks/Task.h"

namespace TesselServer {

class ParentControl {
 public:
  virtual ~ParentControl() = default;

  // Raises the control's CallFunction event for connection `Index` and returns the text that the host answers, null for
  // none. `FunctionName` is the name in the page's tag, `Params` the text inside its parentheses. `Unused` is passed
  // on. kept: a host that does not answer leaves the text of its answer before.
  virtual std::shared_ptr<const std::string> RaiseCallFunction(std::int32_t Index, const std::string& FunctionName,
                                                               const std::string& Unused,
                                                               const std::string& Params) = 0;

  // Whether the host answered the latest CallFunction of connection `Index`, and its handler came to its end.
  virtual bool FunctionWasAnswered(std::int32_t Index) const = 0;

  // Whether the page in the making may take `bytes` more of memory, for its file, what is put into it, or what that is
  // read from. Once this says no the page is of no use any more.
  virtual bool PageMayTake(std::int64_t /*bytes*/) { return true; }

  // Whether there are files that not every client may have: then MayInclude says it of one, before it becomes a part of
  // a page. `found` outlives the task.
  virtual bool GuardsFiles() const { return false; }
  virtual Task<bool> MayInclude(const FoundEntry& /*found*/) { co_return true; }

  // The values of the request that an answer is made for: asked for when the first of them is needed.
  virtual RequestInfo Request() const { return {}; }

  // Called for a program that was not run, failed or was cut short: one line, see ProgramReport.h.
  virtual void ReportProgram(const std::string& text) = 0;
};

}  // namespace TesselServer
