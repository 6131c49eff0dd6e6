#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <string_view>
#include <utility>

#include "http/ServerVariables.h"
#include "http/cls_HTTP.h"
#include "platform/loop/EventLoop.h"
#include "platform/programs/ChildPrograms.h"
#include "platform/tasks/Workers.h"
#include "tests/kit/AnswerText.h"
#include "tests/kit/Await.h"
#include "tests/kit/FakeWorld.h"
#include "tests/kit/Programs.h"
#include "tests/kit/TemporaryTree.h"

namespace TesselServer {
namespace {

// Records that start real programs. The root is the folder of programs as well.
class RealProgramsTest : public testing::Test {
 protected:
  RealProgramsTest() {
    record_.VirtualPath(root_);
    record_.CGIDirectory(root_);
    record_.ContentTypeSource(e_ContentTypeSource::Internal);
    record_.CGIEnable(true);
    record_.CGITimeout(30);
    record_.Runner(&runner_);
  }

  void Program(std::string_view name, std::string_view script) const { Kit::WriteProgram(tree_, name, script); }
  std::string Path(std::string_view name) const { return root_ + "/" + std::string(name); }

  Answer Process(const std::string& name) {
    return Kit::Await(
        loop_, record_.ProcessFile(RootFolder(root_).Find(name), Path(name), "200", true, "", info_, "request body"));
  }
  std::string Run(std::string_view name, std::string arguments) {
    return Kit::Await(loop_, record_.RunCGI(Path(name), std::move(arguments)));
  }
  std::string Processed(std::string_view page) {
    tree_.Write("page.htm", page);
    return Kit::BodyText(Process("page.htm"));
  }

  Kit::TemporaryTree tree_;
  std::string root_ = std::filesystem::canonical(tree_.Path()).string();
  Kit::FakeWorld world_;
  EventLoop loop_;
  Workers workers_{loop_};
  ChildPrograms runner_{loop_, workers_};
  RequestInfo info_;
  cls_HTTP record_{world_};
};

TEST_F(RealProgramsTest, AShellProgramAnswers) {
  Program("hello.exe", "printf 'Status: 404\\nContent-Type: text/plain\\nX-Mine: 1\\n\\nhello %s' \"$QUERY_STRING\"");
  info_.QueryString = "a=$(id)&\"b\"";
  const Answer answer = Process("hello.exe");
  EXPECT_EQ(answer.head,
            "HTTP/1.0 404 Not Found\r\nServer: \r\nDate: Sun, 15 Nov 2026 18:20:05 GMT\r\nContent-Type: text/plain\r\n"
            "X-Mine: 1\r\nContent-Length: 17\r\n\r\n");
  EXPECT_EQ(Kit::BodyText(answer), "hello a=$(id)&\"b\"");
}

TEST_F(RealProgramsTest, APythonProgramAnswers) {
  ASSERT_TRUE(std::filesystem::exists("/usr/bin/python3")) << "the tests need Debian's package python3";
  tree_.Write(
      "hello.exe",
      "#!/usr/bin/python3\nimport os, sys\n"
      "print('Location: /there?' + os.environ['REQUEST_METHOD'] + '\\r\\n\\r\\n' + repr(sys.argv[1:]), end='')\n");
  std::filesystem::permissions(Path("hello.exe"), std::filesystem::perms(0755));
  info_.RequestMethod = "POST";
  const Answer answer = Process("hello.exe");
  EXPECT_TRUE(answer.head.starts_with("HTTP/1.0 302 Moved Temporarily\r\n")) << answer.head;
  EXPECT_NE(answer.head.find("\r\nLocation: /there?POST\r\n"), std::string::npos) << answer.head;
  EXPECT_EQ(Kit::BodyText(answer), "[]");
}

TEST_F(RealProgramsTest, ItsEnvironmentHasTheServerVariables) {
  info_.QueryString = "q='$(id)' `id` ${HOME}";
  info_.UserAgent = "() { :; }; echo harm";
  info_.Referer = "line\nend";
  info_.Accept = "\x80\xFF";
  info_.RequestMethod = "GET";
  record_.SetRequestInfo(info_);
  record_.ServerName("here");
  record_.ServerPort("8080");
  Program("value.bat", "eval \"printf '%s' \\\"\\${$1-unset}\\\"\"");
  for (const std::string_view name : ServerVariableNames()) {
    EXPECT_EQ(Run("value.bat", std::string(name)), record_.ServerVariable(name)) << name;
  }
  EXPECT_EQ(Run("value.bat", "HTTP_PROXY_NOT_SET"), "unset");
  EXPECT_EQ(std::getenv("GATEWAY_INTERFACE"), nullptr) << "the host's own environment is left alone";
}

TEST_F(RealProgramsTest, AValueEndsAtItsFirstNul) {
  info_.QueryString = std::string("before\0after", 12);
  record_.SetRequestInfo(info_);
  Program("value.exe", "printf '%s' \"$QUERY_STRING\"");
  EXPECT_EQ(Run("value.exe", ""), "before");
}

TEST_F(RealProgramsTest, The1024FirstBytesCount) {
  Program("long.exe", "printf '%05000d' 7");
  EXPECT_EQ(Kit::BodyText(Process("long.exe")), std::string(1024, '0'));
  Program("header.exe", "printf 'Content-Type: a/b\\n\\n%05000d' 7");
  EXPECT_EQ(Kit::BodyText(Process("header.exe")), std::string(1024 - 19, '0')) << "the header counts as well";
  Program("exact.exe", "printf '%01024d' 7");
  EXPECT_EQ(Kit::BodyText(Process("exact.exe")), std::string(1023, '0') + "7");
}

TEST_F(RealProgramsTest, TheBodyOfThePostIsNotSeen) {
  info_.RequestMethod = "POST";
  info_.ContentLength = "12";
  Program("read.exe", "printf '[%s]' \"$(cat)\"");
  EXPECT_EQ(Kit::BodyText(Process("read.exe")), "[]");
}

TEST_F(RealProgramsTest, ArgumentsOfADirectiveAreWords) {
  const std::string words = "printf '%s:' $# \"$@\"";
  Program("test.bat", words);
  Program("test.exe", words);
  std::filesystem::permissions(Path("test.bat"), std::filesystem::perms(0644));
  EXPECT_EQ(Processed("<!--#execcgi=test.bat?a=1&b=2-->"), "2:a=1:b=2:") << "a batch file needs no right to execute";
  EXPECT_EQ(Processed("<!--#execcgi=test.exe?a=1&b=2-->"), "1:a=1&b=2:");
  EXPECT_EQ(Processed("<!--#execcmd=test.bat-->"), "0:");
  EXPECT_EQ(Processed("<!--#execcgi=test.bat?$(id);`id`|id&*&-->"), "2:$(id);`id`|id:*:");
  record_.SSIEnable(true);
  info_.UserAgent = "'two words' \"$(id)\"; id";
  EXPECT_EQ(Processed("<!--#execcgi=test.exe?<%=HTTP_USER_AGENT%>-->"), "4:'two:words':\"$(id)\";:id:");
}

TEST_F(RealProgramsTest, LineEndsInAPageBecomeBreaks) {
  Program("lines.exe", "printf 'one\\r\\ntwo\\nthree'");
  EXPECT_EQ(Processed("[<!--#execcgi=lines.exe-->]"), "[one<br>two\nthree]");
}

TEST_F(RealProgramsTest, WhatCannotBeExecutedSaysWhy) {
  tree_.Write("plain.exe", "#!/bin/sh\necho never\n");
  EXPECT_EQ(Kit::BodyText(Process("plain.exe")),
            "Create::Process Failed.<BR>\r\nError Number: 13<BR>\r\nError Desc: Permission denied<BR>\r\n");
  tree_.Write("nothing.exe", "\x01\x02\x03");
  std::filesystem::permissions(Path("nothing.exe"), std::filesystem::perms(0755));
  EXPECT_EQ(Kit::BodyText(Process("nothing.exe")),
            "Create::Process Failed.<BR>\r\nError Number: 8<BR>\r\nError Desc: Exec format error<BR>\r\n");
}

TEST_F(RealProgramsTest, HoweverItEndsItsOutputCounts) {
  Program("killed.exe", "printf part; kill -9 $$");
  EXPECT_EQ(Kit::BodyText(Process("killed.exe")), "part");
  Program("failed.exe", "printf part; exit 3");
  EXPECT_EQ(Kit::BodyText(Process("failed.exe")), "part");
  Program("silent.exe", "");
  EXPECT_EQ(Process("silent.exe").BodySize(), 0);
}

TEST_F(RealProgramsTest, AnAnswerComesWhenTheTimeIsOverAndTheProgramRunsOn) {
  const Kit::Gate gate(tree_);
  Program("slow.exe", "printf 'so far'; read line < \"$here/gate\"; printf more; : > \"$here/ended\"");
  record_.CGITimeout(1);
  const auto begin = std::chrono::steady_clock::now();
  EXPECT_EQ(Kit::BodyText(Process("slow.exe")), "so far");
  const auto passed = std::chrono::steady_clock::now() - begin;
  EXPECT_GE(passed, std::chrono::milliseconds(1000));
  EXPECT_LT(passed, std::chrono::seconds(10));
  EXPECT_EQ(runner_.LeftOver(), 1u);
  Program("quick.exe", "printf quick");
  EXPECT_EQ(Kit::BodyText(Process("quick.exe")), "quick") << "while the first one still runs";
  EXPECT_FALSE(std::filesystem::exists(Path("ended")));

  gate.Open();
  EXPECT_TRUE(Kit::Eventually([&] {
    loop_.RunOnce(0);
    return runner_.LeftOver() == 0;
  }));
  EXPECT_TRUE(std::filesystem::exists(Path("ended"))) << "it came to its end";
  EXPECT_TRUE(Kit::HasNoChild());
}

}  // namespace
}  // namespace TesselServer
