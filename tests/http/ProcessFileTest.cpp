#include <gtest/gtest.h>

#include <filesystem>

#include "http/cls_CGI.h"
#include "http/cls_HTTP.h"
#include "tests/kit/AnswerText.h"
#include "tests/kit/FakeWorld.h"
#include "tests/kit/TemporaryTree.h"

namespace TesselServer {
namespace {

class ProcessFileTest : public testing::Test {
 protected:
  ProcessFileTest() {
    record_.ServerSoftware("Orvane Tessel/1.1");
    record_.ContentTypeSource(e_ContentTypeSource::Internal);
  }

  Answer Process(const std::string& file, std::string_view code = "200", bool wantHeader = true,
                 std::string_view extraHeaders = "") {
    return RunNow(record_.ProcessFile(FoundEntry(), file, std::string(code), wantHeader, std::string(extraHeaders),
                                      info_, "request body"));
  }
  std::string Path(std::string_view relative) const { return tree_.Text() + "/" + std::string(relative); }
  static std::string Header(std::string_view statusLine, std::string_view rest) {
    return std::string(statusLine) + "\r\nServer: Orvane Tessel/1.1\r\nDate: Sun, 15 Nov 2026 18:20:05 GMT\r\n" +
           std::string(rest) + "\r\n";
  }

  Kit::FakeWorld world_;
  cls_HTTP record_{world_};
  RequestInfo info_;
  Kit::TemporaryTree tree_;
};

TEST_F(ProcessFileTest, HandsAFileOnOpenAndUnread) {
  const Answer answer = Process(tree_.Write("style.css", "<%= a %>"));
  ASSERT_TRUE(std::holds_alternative<FileBody>(answer.body));
  EXPECT_TRUE(std::get<FileBody>(answer.body).file.IsOpen());
  EXPECT_EQ(Kit::WholeText(answer),
            Header("HTTP/1.0 200 OK", "Content-Type: text/css\r\nContent-Length: 8\r\n") + "<%= a %>");
}

TEST_F(ProcessFileTest, TakesTheFileThatIsOpenAlready) {
  tree_.Write("a.txt", "the opened one");
  tree_.Write("b.txt", "the named one");
  FoundEntry found = RootFolder(tree_.Text()).Find("a.txt");
  const Answer answer = RunNow(record_.ProcessFile(std::move(found), Path("b.txt"), "200", true, "", info_, ""));
  EXPECT_EQ(Kit::WholeText(answer),
            Header("HTTP/1.0 200 OK", "Content-Type: text/plain\r\nContent-Length: 14\r\n") + "the opened one");
}

TEST_F(ProcessFileTest, PassesCodeAndExtraHeadersOn) {
  const std::string file = tree_.Write("a.txt", "abc");
  EXPECT_EQ(Process(file, "202", true, "X-One: 1\r\n").head,
            Header("HTTP/1.0 202 Accepted", "Content-Type: text/plain\r\nX-One: 1\r\nContent-Length: 3\r\n"));
  EXPECT_EQ(Kit::WholeText(Process(file, "202", false, "X-One: 1\r\n")), "abc") << "no header wanted";
}

TEST_F(ProcessFileTest, AnEmptyFileHasNoLengthLine) {
  const Answer answer = Process(tree_.Write("empty.txt", ""));
  EXPECT_EQ(Kit::WholeText(answer), Header("HTTP/1.0 200 OK", "Content-Type: text/plain\r\n"));
  EXPECT_EQ(answer.BodySize(), 0);
}

TEST_F(ProcessFileTest, ALengthMayPass32Bits) {
  const std::string file = tree_.Write("large.bin", "");
  std::filesystem::resize_file(file, 5'368'709'121);
  const Answer answer = Process(file);
  EXPECT_EQ(answer.head,
            Header("HTTP/1.0 200 OK", "Content-Type: application/octet-stream\r\nContent-Length: 5368709121\r\n"));
  EXPECT_EQ(answer.BodySize(), 5'368'709'121);
}

TEST_F(ProcessFileTest, TypesComeFromTheBuiltInTable) {
  const struct {
    const char *name, *type, *why;
  } cases[] = {
      {"photo.PNG", "image/x-png", "upper case"},
      {"movie.mpg", "application/octet-stream", "has no entry"},
      {"a.bmp", "image/bmp", "first of three"},
      {"song.mpa", "audio/x-mpeg", "first of two"},
      {"txt", "text/plain", "no dot: the name is the extension"},
      {"folder.htm/noextension", "application/octet-stream", "a folder's dot does not count"},
      {"index.htm", "text/html", "a page"},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(Process(tree_.Write(c.name, "x")).head,
              Header("HTTP/1.0 200 OK", "Content-Type: " + std::string(c.type) + "\r\nContent-Length: 1\r\n"))
        << c.why;
  }
}

TEST_F(ProcessFileTest, TypesComeFromTheRegistry) {
  record_.ContentTypeSource(e_ContentTypeSource::Registry);
  world_.registry.PutText(RegistryStore::kClassesRoot, ".odd", "Content Type", "application/odd");
  world_.registry.PutText(RegistryStore::kClassesRoot, ".blank", "Content Type", "  ");
  EXPECT_EQ(record_.ContentTypeOf("\\SRV\\A.HTML"), "text/html");
  EXPECT_EQ(record_.ContentTypeOf("a.odd"), "application/odd");
  EXPECT_EQ(record_.ContentTypeOf("a.missing"), "") << "the fallback is for sending only";
  EXPECT_EQ(Process(tree_.Write("a.blank", "x")).head,
            Header("HTTP/1.0 200 OK", "Content-Type: application/octet-stream\r\nContent-Length: 1\r\n"));
}

TEST_F(ProcessFileTest, TypesComeFromTheLinesOfAFile) {
  record_.ContentTypeSource(e_ContentTypeSource::File);
  EXPECT_EQ(record_.ContentTypeOf("a.htm"), "") << "no lines yet";
  record_.ContentTypeLines(std::make_shared<const std::vector<std::string>>(
      std::vector<std::string>{"", "no comma", "htm,text/mine", "HTM,text/second", "bad,text/x\r\nX-Injected: 1"}));
  EXPECT_EQ(record_.ContentTypeOf("a.HTM"), "text/mine");
  EXPECT_EQ(record_.ContentTypeOf("a.gif"), "");
  EXPECT_EQ(Process(tree_.Write("a.bad", "x")).head,
            Header("HTTP/1.0 200 OK", "Content-Type: text/x\r\nContent-Length: 1\r\n"));
}

TEST_F(ProcessFileTest, SlashesSeparateAndBlanksAreRestored) {
  tree_.Write("docs/my page.html", "page");
  EXPECT_EQ(Kit::BodyText(Process(Path("docs/my%20page.html"))), "page");
  EXPECT_EQ(Kit::BodyText(Process(tree_.Text() + "\\docs\\my%20page.html")), "page");
  EXPECT_EQ(Kit::BodyText(Process(Path("DOCS/MY%20PAGE.HTML"))), "page") << "case does not count";
  EXPECT_TRUE(Process(Path("docs/my%2520page.html")).head.starts_with("HTTP/1.0 404 ")) << "decoded once only";
  EXPECT_TRUE(Process(Path("docs%2Fmy%20page.html")).head.starts_with("HTTP/1.0 404 ")) << "nothing else is decoded";
}

TEST_F(ProcessFileTest, AMissingFileIsAHeaderAlone) {
  const std::string notFound = Header("HTTP/1.0 404 Not Found", "Content-Type: text/html\r\n");
  EXPECT_EQ(Kit::WholeText(Process(Path("missing.htm"))), notFound);
  EXPECT_EQ(Kit::WholeText(Process(Path("missing.htm"), "200", true, "X: 1\r\n")), notFound);
  EXPECT_EQ(Kit::WholeText(Process(tree_.MakeFolder("folder.htm"))), notFound) << "a folder is no file";
  EXPECT_EQ(Kit::WholeText(Process("")), notFound);
  EXPECT_EQ(Process(Path("missing.htm"), "200", false).Size(), 0) << "no header wanted";
}

TEST_F(ProcessFileTest, ReplacesTheRequestValues) {
  info_.DocumentURI = "/a.txt";
  Process(tree_.Write("a.txt", "x"));
  EXPECT_EQ(record_.ServerVariable("DOCUMENT_URI"), "/a.txt");
  RunNow(record_.ProcessFile(FoundEntry(), Path("a.txt"), "200", true, "", record_.Request(), ""));
  EXPECT_EQ(record_.ServerVariable("DOCUMENT_URI"), "/a.txt") << "its own values may be given back to it";
}

TEST_F(ProcessFileTest, APageIsNormalisedWhateverTheSwitchesSay) {
  const Answer answer = Process(tree_.Write("page.htm", "<%= SERVER_NAME %>"));
  EXPECT_TRUE(std::holds_alternative<Answer::SharedBytes>(answer.body));
  EXPECT_EQ(Kit::WholeText(answer),
            Header("HTTP/1.0 200 OK", "Content-Type: text/html\r\nContent-Length: 16\r\n") + "<%=SERVER_NAME%>");
}

TEST_F(ProcessFileTest, APageWithoutTagsIsWhatItIsOnDiskNow) {
  record_.SSIEnable(true);
  for (const std::string text : {"<p class = \"a b\">#1: 100 %</p>", "", "another"}) {
    const Answer answer = Process(tree_.Write("page.htm", text));
    EXPECT_TRUE(std::holds_alternative<Answer::SharedBytes>(answer.body));
    EXPECT_EQ(Kit::BodyText(answer), text);
  }
}

TEST_F(ProcessFileTest, APageIsProcessedAndItsNewLengthAnnounced) {
  record_.SSIEnable(true);
  info_.DocumentURI = "/page.htm";
  tree_.Write("page.htm", "[<%= DOCUMENT_URI %>]");
  EXPECT_EQ(Kit::WholeText(Process(Path("page.htm"))),
            Header("HTTP/1.0 200 OK", "Content-Type: text/html\r\nContent-Length: 11\r\n") + "[/page.htm]");
  EXPECT_EQ(Kit::WholeText(Process(Path("page.htm"), "200", false)), "[/page.htm]") << "no header wanted";
}

TEST_F(ProcessFileTest, OnlyTheExactTypeIsProcessed) {
  record_.SSIEnable(true);
  record_.ContentTypeSource(e_ContentTypeSource::Registry);
  world_.registry.PutText(RegistryStore::kClassesRoot, ".upper", "Content Type", "TEXT/HTML");
  world_.registry.PutText(RegistryStore::kClassesRoot, ".blank", "Content Type", "text/html ");
  for (const char* name : {"a.upper", "a.blank", "a.txt", "a.unknown"}) {
    EXPECT_EQ(Kit::BodyText(Process(tree_.Write(name, "<%= DATE %>"))), "<%= DATE %>") << name;
  }
  EXPECT_EQ(Process(Path("a.upper")).head,
            Header("HTTP/1.0 200 OK", "Content-Type: TEXT/HTML\r\nContent-Length: 11\r\n"));
}

TEST_F(ProcessFileTest, APageAboveTheLimitGoesOutAsItIs) {
  record_.SSIEnable(true);
  const std::string tag = "<%= NO_SUCH_NAME %>";
  const std::string file = tree_.Write("page.htm", tag);
  std::filesystem::resize_file(file, cls_HTTP::kMaxPageBytes);
  EXPECT_EQ(Process(file).BodySize(), cls_HTTP::kMaxPageBytes - static_cast<std::int64_t>(tag.size()))
      << "the largest that is processed";
  std::filesystem::resize_file(file, cls_HTTP::kMaxPageBytes + 1);
  const Answer answer = Process(file);
  EXPECT_TRUE(std::holds_alternative<FileBody>(answer.body));
  EXPECT_EQ(answer.BodySize(), cls_HTTP::kMaxPageBytes + 1);
}

TEST_F(ProcessFileTest, APageThatBecomesNothingHasNoLengthLine) {
  record_.SSIEnable(true);
  for (const char* page : {"", "<%= NO_SUCH_NAME %>"}) {
    EXPECT_EQ(Kit::WholeText(Process(tree_.Write("page.htm", page))),
              Header("HTTP/1.0 200 OK", "Content-Type: text/html\r\n"))
        << page;
  }
}

TEST_F(ProcessFileTest, AProgramIsNeverSentWhateverItsCase) {
  for (const char* name : {"TEST.exe", "test.EXE", "test.Exe", ".exe", "a.htm.exe"}) {
    const Answer answer = Process(tree_.Write(name, "program bytes"));
    EXPECT_EQ(Kit::WholeText(answer), cls_CGI().CGIWarningPage()) << name;
  }
  EXPECT_EQ(Process(Path("TEST.exe"), "200", false).Size(), 0) << "no header wanted";
  EXPECT_EQ(Kit::WholeText(Process(Path("missing.exe"))), cls_CGI().CGIWarningPage());
}

TEST_F(ProcessFileTest, OnlyTheLastFourCharactersMakeAProgram) {
  for (const char* name : {"exe", "test.exe.txt", "testexe", "a.exe_"}) {
    EXPECT_EQ(Kit::BodyText(Process(tree_.Write(name, "bytes"))), "bytes") << name;
  }
}

// ---- PlainFile.

TEST_F(ProcessFileTest, APlainFileIsTheSameAnswer) {
  for (const char* name :
       {"a.txt", "B.TXT", "b.css", "c.unknown", "noextension", "d.x.json", "e%.txt", "f .txt", "g."}) {
    tree_.Write(name, "some bytes of " + std::string(name));
    for (const char* code : {"200", "404"}) {
      const std::string whole = Kit::WholeText(Process(Path(name), code));
      FoundEntry found = RootFolder(tree_.Text()).Find(name);
      const auto plain = record_.PlainFile(found.file, found.name, code);
      ASSERT_TRUE(plain) << name;
      EXPECT_FALSE(found.file.IsOpen()) << "the answer has it";
      EXPECT_EQ(Kit::WholeText(*plain), whole) << name;
    }
  }
}

TEST_F(ProcessFileTest, WhatNeedsMoreThanAHeaderIsNoPlainFile) {
  tree_.Write("folder/x", "");
  for (const char* name : {"page.html", "PAGE.HTM", "run.exe", "RUN.EXE", ".exe", "a%20b.txt", "a.t%20xt"}) {
    tree_.Write(name, "bytes");
  }
  for (const char* name :
       {"page.html", "PAGE.HTM", "run.exe", "RUN.EXE", ".exe", "a%20b.txt", "a.t%20xt", "folder", "missing.txt"}) {
    FoundEntry found = RootFolder(tree_.Text()).Find(name);
    const bool wasOpen = found.file.IsOpen();
    EXPECT_FALSE(record_.PlainFile(found.file, found.name, "200")) << name;
    EXPECT_EQ(found.file.IsOpen(), wasOpen) << name << ": it stays";
  }
}

}  // namespace
}  // namespace TesselServer
