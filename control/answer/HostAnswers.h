// What a host asks about a request and how it answers one: the methods of the interface that name a connection.
//
// Thread:    the host's thread.
// Ownership: keeps a reference to the control's state.
// Errors:    as documented for each method of the control.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "control/life/ControlState.h"

namespace TesselServer {

// Header lines in the form of a header block: with one line end after the last, "" for a blank text.
std::string NormaliseHeaderField(std::string_view headerField);

// A trimmed status code of three characters, else "200".
std::string NormaliseStatusCode(std::string_view statusCode);

// The value of the first `field` in `header`, found anywhere without regard to case: from two characters after it to
// the end of its line. "" when it is not there or its line ends before; raises Error 5 when no line end follows.
// kept: a value that follows its ":" without a blank loses its first letter.
std::string HeaderValue(const std::string& header, std::string_view field);

class HostAnswers {
 public:
  explicit HostAnswers(ControlState& state) : state_(state) {}

  void ReturnData(std::int32_t Index, const std::string& mData);
  void TrapFileData(std::int32_t Index, const std::string& Data, bool Process, const std::string& ContentType);
  void TrapFileDataEX(std::int32_t Index, const std::string& Data, bool Process, const std::string& ContentType,
                      const std::string& StatusCode, const std::string& HeaderField);

  std::int16_t QueryStringCount(std::int32_t Index, const std::string& Paramter);
  std::string QueryString(std::int32_t Index, const std::string& Paramter, std::int32_t Item);
  std::string CGIValue(std::int32_t Index, const std::string& Variable, const std::string& Delimiter);
  std::string HTTPHeader(std::int32_t Index, const std::string& HeaderField);
  std::string RequestBody(std::int32_t Index);
  std::uint64_t RequestNumber(std::int32_t Index);

  // See ParentControl. Only a connection whose page is being made right now has function tags to raise.
  std::shared_ptr<const std::string> RaiseCallFunction(std::int32_t Index, const std::string& FunctionName,
                                                       const std::string& Params);
  bool FunctionWasAnswered(std::int32_t Index) const;

 private:
  Slot* Find(std::int32_t Index);
  Slot& Require(std::int32_t Index);

  ControlState& state_;
};

}  // namespace TesselServer
