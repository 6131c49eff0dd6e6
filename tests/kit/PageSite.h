// A small site, and all that its pages can call upon: a host that answers functions, programs, a world.
#pragma once

#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "http/cls_HTTP.h"
#include "tests/kit/AnswerText.h"
#include "tests/kit/FakeWorld.h"
#include "tests/kit/TemporaryTree.h"

namespace TesselServer::Kit {

// Answers functions as the control does: what it answered last is handed over again where its host does not answer.
class FunctionHost : public ParentControl {
 public:
  struct Call {
    std::int32_t index;
    std::string name, params;
    bool operator==(const Call&) const = default;
  };

  // Nothing: the host does not answer.
  std::function<std::optional<std::string>(const Call& call)> answer = [](const Call&) { return std::nullopt; };
  std::vector<Call> calls;
  std::vector<std::string> reports;  // of programs

  std::shared_ptr<const std::string> RaiseCallFunction(std::int32_t Index, const std::string& FunctionName,
                                                       const std::string&, const std::string& Params) override {
    calls.push_back({Index, FunctionName, Params});
    const auto text = answer(calls.back());
    answered_ = text.has_value();
    if (text) latest_ = *text;
    return std::make_shared<const std::string>(latest_);
  }
  bool FunctionWasAnswered(std::int32_t) const override { return answered_; }
  void ReportProgram(const std::string& text) override { reports.push_back(text); }

 private:
  std::string latest_;
  bool answered_ = false;
};

// Runs nothing, notes what it should have run, and hands out a fixed output.
class NotedPrograms : public ProgramRunner {
 public:
  std::string output = "output";
  std::vector<ProgramStart> starts;

  Task<void> Run(ProgramStart start, ProgramResult& result) override {
    start.Complete();
    starts.push_back(std::move(start));
    result.ended = true;
    result.output = output;
    return {};
  }
};

//   PageSite site;
//   site.record.SSIEnable(true);
//   site.Page("<%= SERVER_PROTOCOL %>");  // "HTTP/1.0"
class PageSite {
 public:
  PageSite() {
    record.ContentTypeSource(e_ContentTypeSource::Internal);
    record.VirtualPath(tree.Text());
    record.Root(std::make_shared<const RootFolder>(tree.Text(), world));
    record.CGIDirectory(cgi.Text());
    record.ConnectionIndex(7);
    record.ParentControl(&host);
    record.Runner(&programs);
  }

  void AllSwitchesOn() {
    record.SSIEnable(true);
    record.CGIEnable(true);
    record.HTMLFunctionsEnable(true);
  }

  // What a client gets that asks for `name`, without the header.
  std::string Get(std::string_view name) {
    FoundEntry found = RunNow(record.FindFile(record.VirtualPath(), std::string(name)));
    if (record.Root()) record.Root()->Remember(found);
    return BodyText(RunNow(record.ProcessFile(std::move(found), record.VirtualPath() + "/" + std::string(name), "200",
                                              false, "", request, "")));
  }

  // What becomes of a page of that text, in the file page.htm.
  std::string Page(std::string_view text) {
    std::filesystem::remove(tree.Path() / "page.htm");  // some file systems flush a file that is cut short
    tree.Write("page.htm", text);
    return Get("page.htm");
  }

  TemporaryTree tree;
  TemporaryTree cgi;
  FakeWorld world;
  FunctionHost host;
  NotedPrograms programs;
  RequestInfo request;
  cls_HTTP record{world};
};

}  // namespace TesselServer::Kit
