// The record of one connection: the server's settings, the values of its request, and everything that makes an answer
// of them: headers, content types, files, error pages, server variables. No socket and no log; the control has those.
//
// Thread:    the host's thread only.
// Ownership: keeps copies of all texts. The world, the parent control and the program runner belong to others and
//            outlive the record, and so do the turns and the source of names. The record outlives its tasks.
// Errors:    none raised to the caller but those of memory running out, and 75 by ProcessFile; each member says what it
//            returns instead.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "http/Enumerations.h"
#include "http/IncludeTrail.h"
#include "http/Page.h"
#include "http/PageMaking.h"
#include "http/ParentControl.h"
#include "http/RecordSettings.h"
#include "http/RequestInfo.h"
#include "http/SecretFiles.h"
#include "net/NameSource.h"
#include "platform/files/FileSystem.h"
#include "platform/programs/ProgramRunner.h"
#include "platform/sockets/Answer.h"
#include "platform/tasks/Task.h"
#include "platform/tasks/Turns.h"
#include "platform/world/World.h"

namespace TesselServer {

struct ProgramFile;

//   cls_HTTP record(SystemWorld());
//   record.ServerSoftware("Orvane Tessel/1.1");
//   record.ContentTypeSource(e_ContentTypeSource::Internal);
//   record.VirtualPath("/srv/www");
//   auto making = record.ProcessFile(RootFolder("/srv/www").Find("a.htm"), "/srv/www/a.htm", "200", true, "", request,
//   ""); Answer answer = co_await making;
//
// What may take long is a task: it waits for programs and names, and where there are Turns it is cut into turns.
// Between two of them the host may change every setting; a task goes on with what they are then.
class cls_HTTP {
 public:
  // A "text/html" page longer than this goes out as it is on disk: processing needs it in memory, and more than once.
  static constexpr std::int64_t kMaxPageBytes = 64 * 1024 * 1024;

  explicit cls_HTTP(World& world);

  // ---- Settings. Each is stored as given; texts are "" and switches False in a new record. ----

  // Property ConnectionIndex (read/write): the socket element that owns the record. Default: 0.
  std::int16_t ConnectionIndex() const { return connectionIndex_; }
  void ConnectionIndex(std::int16_t value) { connectionIndex_ = value; }

  // Property VirtualPath (read/write): the document root, PATH_INFO and PATH_TRANSLATED.
  const std::string& VirtualPath() const { return settings_->virtualPath; }
  void VirtualPath(std::string_view value) { Set(&RecordSettings::virtualPath, value); }

  // Property ServerIP (read/write): the address listened on, SERVER_IP.
  const std::string& ServerIP() const { return settings_->serverIP; }
  void ServerIP(std::string_view value) { Set(&RecordSettings::serverIP, value); }

  // Property ServerPort (read/write): the port in decimal, SERVER_PORT.
  const std::string& ServerPort() const { return settings_->serverPort; }
  void ServerPort(std::string_view value) { Set(&RecordSettings::serverPort, value); }

  // Property ServerSoftware (read/write): the "Server" header line and SERVER_SOFTWARE.
  const std::string& ServerSoftware() const { return settings_->serverSoftware; }
  void ServerSoftware(std::string_view value) { Set(&RecordSettings::serverSoftware, value); }

  // Property ServerName (read/write): SERVER_NAME.
  const std::string& ServerName() const { return settings_->serverName; }
  void ServerName(std::string_view value) { Set(&RecordSettings::serverName, value); }

  // Property HTMLFunctionsEnable (read/write): the host answers function tags in pages.
  bool HTMLFunctionsEnable() const { return settings_->htmlFunctionsEnable; }
  void HTMLFunctionsEnable(bool value) { Set(&RecordSettings::htmlFunctionsEnable, value); }

  // Property SSIEnable (read/write): echo and include directives in pages are obeyed.
  bool SSIEnable() const { return settings_->ssiEnable; }
  void SSIEnable(bool value) { Set(&RecordSettings::ssiEnable, value); }

  // Property CGIEnable (read/write): programs and exec directives are run.
  bool CGIEnable() const { return settings_->cgiEnable; }
  void CGIEnable(bool value) { Set(&RecordSettings::cgiEnable, value); }

  // Property CGIDirectory (read/write): the folder of programs outside the root.
  const std::string& CGIDirectory() const { return settings_->cgiDirectory; }
  void CGIDirectory(std::string_view value) { Set(&RecordSettings::cgiDirectory, value); }

  // Property CGITimeout (read/write): how long a program is waited for. Written in seconds, 0 to 2,000,000; a value
  // outside becomes 2,000,000. A new record does not wait.
  // kept: reads back in tens of seconds, cut off: 30 reads back as 3.
  std::int32_t CGITimeout() const { return settings_->cgiTimeoutMilliseconds / 10000; }
  void CGITimeout(std::int32_t seconds);
  std::int32_t CGITimeoutMilliseconds() const { return settings_->cgiTimeoutMilliseconds; }  // as it is used

  // Property CGIWarningEnable (read/write): asks for the CGI warning while CGI is off.
  bool CGIWarningEnable() const { return settings_->cgiWarningEnable; }
  void CGIWarningEnable(bool value) { Set(&RecordSettings::cgiWarningEnable, value); }

  // Property CGIExtraSetting (read/write): handed on to the records of included files; nothing else uses it.
  const std::string& CGIExtraSetting() const { return settings_->cgiExtraSetting; }
  void CGIExtraSetting(std::string_view value) { Set(&RecordSettings::cgiExtraSetting, value); }

  // Property ParentControl (read/write): the control that answers function tags, null for none.
  class ParentControl* ParentControl() const {
    return parentControl_;
  }
  void ParentControl(class ParentControl* value) { parentControl_ = value; }

  // Property IncludeChild (read/write): whether the record processes an included file.
  // kept: always reads back False, so what is written has no effect.
  bool IncludeChild() const { return false; }
  void IncludeChild(bool) {}

  // Property IsWinNT (read): the platform number is 2 or more.
  bool IsWinNT() const;

  // Property ContentTypeSource (read/write): where ContentTypeOf looks. Default: Registry.
  e_ContentTypeSource ContentTypeSource() const { return settings_->contentTypeSource; }
  void ContentTypeSource(e_ContentTypeSource value) { Set(&RecordSettings::contentTypeSource, value); }

  // Property ContentTypeLines (read/write): the lines that the source File searches, "extension,type" each, shared
  // with the control and all its records. Null is an empty list.
  const std::shared_ptr<const std::vector<std::string>>& ContentTypeLines() const {
    return settings_->contentTypeLines;
  }
  void ContentTypeLines(const std::shared_ptr<const std::vector<std::string>>& value) {
    Set(&RecordSettings::contentTypeLines, value);
  }

  // Property TypeMemory (read/write): remembers what ContentTypeOf found, shared with the control; null: nothing is
  // remembered. Default: null.
  const std::shared_ptr<ContentTypeMemory>& TypeMemory() const { return settings_->typeMemory; }
  void TypeMemory(const std::shared_ptr<ContentTypeMemory>& value) { Set(&RecordSettings::typeMemory, value); }

  // Property ApplicationFolder (read/write): the folder with the error files, in "html/errors" below it.
  const std::string& ApplicationFolder() const { return settings_->applicationFolder; }
  void ApplicationFolder(std::string_view value) { Set(&RecordSettings::applicationFolder, value); }

  // Property Root (read/write): VirtualPath as an open folder, shared with the control. Null, or one of another path:
  // the folder is opened when it is needed. Default: null.
  const std::shared_ptr<const RootFolder>& Root() const { return settings_->root; }
  void Root(const std::shared_ptr<const RootFolder>& value) { Set(&RecordSettings::root, value); }

  // Property Secrets (read/write): the files that no page may name, null for none. Default: null.
  const std::shared_ptr<const SecretFiles>& Secrets() const { return settings_->secretFiles; }
  void Secrets(const std::shared_ptr<const SecretFiles>& value) { Set(&RecordSettings::secretFiles, value); }

  // Property Runner (read/write): what runs programs, null for nothing. Default: null.
  ProgramRunner* Runner() const { return runner_; }
  void Runner(ProgramRunner* value) { runner_ = value; }

  // Property Turns (read/write): what long work is cut with; null: all is done in one go. Default: null.
  class Turns* Turns() const {
    return turns_;
  }
  void Turns(class Turns* value) { turns_ = value; }

  // Property Names (read/write): whom the name of a client is asked from; null: the name service, in the call.
  // Default: null.
  NameSource* Names() const { return names_; }
  void Names(NameSource* value) { names_ = value; }

  // Takes over all settings of `other` but ConnectionIndex, ParentControl, Runner, Turns and Names. They are shared,
  // not copied, until one of the two records is given another value.
  void ShareSettings(const cls_HTTP& other) { settings_ = other.settings_; }

  // ---- The request ----

  // Replaces all request values.
  void SetRequestInfo(RequestInfo info) { request_ = std::make_unique<RequestInfo>(std::move(info)); }
  // Where none were set they are ParentControl's from the first use on: most answers need none, and one that waits for
  // its program need not keep them.
  const RequestInfo& Request() const { return Info(); }

  // REMOTE_HOST among them, as far as it is known: "" before it was looked up.
  const std::string& RemoteHost() const { return request_ ? request_->RemoteHost : remoteHost_; }

  // Forgets the request values and gives their memory back. The settings stay.
  void EndRequest();

  // The value of one of the 29 server variables. Names are compared byte for byte; an unknown one gives "".
  // REMOTE_HOST is stored in the request values. With Names it is asked for once, which may take up to a second where
  // the name is not remembered; without, the name service is asked on each call, until it knows none.
  std::string ServerVariable(std::string_view Name);

  // For a blank name all variables in table order, each as name, "=", value and `Separator`; else ServerVariable(Name).
  std::string ServerVariables(std::string_view Name, std::string_view Separator);

  // The system's text for an error number, at most 255 bytes; "Unknown error." when it has none.
  std::string SystemErrorText(std::int32_t Code) const;

  // ---- Headers ----

  // A response header: status line, Server, Date, Content-Type unless blank, `ExtraHeaders` unless blank,
  // Content-Length unless 0, and, when `EndHeader` is True, the blank line. Lines of `ExtraHeaders` bring their own CR
  // LF. No setting can end the header early: status code, software and type are cut at their first CR or LF, and empty
  // lines within `ExtraHeaders` are dropped.
  std::string BuildHeader(std::string_view StatusCode, std::int64_t ContentLength, std::string_view ContentType,
                          bool EndHeader, std::string_view ExtraHeaders) const;

  // The reason phrase of a status code, "Undefined Status Code" for one that is not in the table of fifteen.
  static std::string_view StatusText(std::string_view StatusCode);

  // kept: returns its own argument; nothing depends on the code of a reason phrase.
  static std::string StatusCode(std::string_view ReasonText);

  // ---- Answers ----

  // The error answer for a code, or, with `UseErrorFiles`, the file "html/errors/http" code ".html" below
  // ApplicationFolder, or the one for 404 when there is none. The page of a file is processed by this record's switches
  // for directives and function tags, without CGI. When neither file is there, or the page cannot be read: a 404
  // header alone.
  // kept: the status line says 200 in either case, and the Content-Length of a built-in page is one too small.
  Task<Answer> ErrorPage(std::string StatusCode, bool UseErrorFiles);

  // The answer of ErrorPage without `UseErrorFiles`: nothing has to be waited for.
  Answer BuiltInErrorPage(std::string_view StatusCode) const;

  // The page for clients that find every connection taken; no header.
  std::string ServerTooBusyPage() const;

  // The content type for the extension of a file's name, "" when ContentTypeSource knows none. The extension follows
  // the last "." of the last path component; a component without "." is all extension.
  std::string ContentTypeOf(std::string_view File) const;

  // The answer that is the file `File`; replaces the request values by `info`. `found` is that file as it was found
  // below VirtualPath; when it is not open, `File` is opened here, with "%20" standing for a blank.
  //  - A name that ends in ".exe", in any case, is never sent: with CGIEnable the program is run and its output is the
  //    answer: a whole response or a CGI header and a body (see CGIOutput.h), of which only the body is left when no
  //    header is wanted. Without CGIEnable the answer is the CGI warning, or nothing when no header is wanted.
  //  - A missing file is a 404 header alone, or nothing when no header is wanted.
  //  - A page of type exactly "text/html" and not above kMaxPageBytes is read and processed: its tags are normalised,
  //    then the switches of the record say which of them are obeyed, in the order echo and include, exec, functions.
  //    Where it cannot be read Error 75 is raised.
  //  - Every other file is handed on open and unread; its length is the Content-Length.
  // A file without a type is sent as "application/octet-stream". `Body` is what the client sent after its headers;
  // pages and programs never see it.
  Task<Answer> ProcessFile(FoundEntry found, const std::string& File, std::string StatusCode, bool WantHeader,
                           std::string ExtraHeaders, RequestInfo info, const std::string& Body);

  // What the header of an answer has beside what its body says. Literals, or texts that outlive it.
  struct AnswerHead {
    std::string_view statusCode;
    std::string_view extraHeaders = {};
    bool isWanted = true;
  };

  // The same for the request values that there are: an empty task where the `answer` is made. That and the head outlive
  // the task.
  Task<void> MakeAnswer(FoundEntry found, std::string_view File, const AnswerHead& head, Answer& answer);

  // The same for a file that is known to be a page, whatever its name, and without a header: `answer` gets its text.
  Task<void> MakePageOf(FoundEntry found, Answer& answer);

  // Whether the open `file`, whose name is `name`, goes out as it is on disk, for every client: it is a file, no
  // program, not of type "text/html", and its name is without "%20".
  bool IsPlain(const OpenFile& file, std::string_view name) const { return PlainType(file, name).has_value(); }

  // Whether a page in the making may take so many bytes more; see ParentControl.
  bool PageMayTake(std::int64_t bytes) const;

  // The same answer, header included, for a file that goes out as it is on disk and for which no request values are
  // needed: it takes the open `file`, whose name is `name`. Nothing, and `file` stays, when ProcessFile must make the
  // answer: for what is not IsPlain.
  std::optional<Answer> PlainFile(OpenFile& file, std::string_view name, std::string_view StatusCode) const;

  // ---- Programs ----

  // Runs a program and returns the first 1024 bytes of its output, or a text that says what failed ("Create::Pipe
  // Failed.", "Create::Process Failed." or "ReadFile Failed.", with the system's number and text). `CommandFile` is its
  // path; one that ends in ".bat" is given to /bin/sh. `Arguments` are words with blanks between them; no shell sees
  // them. The 29 server variables are in its environment. Waits at most CGITimeout; a program that runs longer runs on.
  // For a `CommandFile` of "" nothing is run, and the text says so. A program that was not run, failed or was cut short
  // is reported to ParentControl.
  Task<std::string> RunCGI(const std::string& CommandFile, std::string Arguments);

  // Runs the exec directives of a page and puts the output in their places; see ExecDirectives.h.
  Task<void> ExecDirectives(Page& page);

  // ---- Functions ----

  // Asks the host for the function tags of a page and puts the answers in their places; see HTMLFunctions.h.
  Task<void> HTMLFunctions(Page& page);

  // ---- For the processors of a page ----

  // The document that ProcessFile is at, by its name below VirtualPath: "docs/a.htm". "" when that is not known.
  const std::string& DocumentName() const { return documentName_; }

  // Waits until REMOTE_HOST is known, where there are Names; then ServerVariable takes no time.
  bool AwaitsRemoteHost() const { return names_ != nullptr && RemoteHost().empty(); }
  Task<void> FindRemoteHost();

  // Finds `name` below `folder`; see RootFolder::Find. A file among Secrets is not there. AtOnce: nothing where that
  // may take long.
  Task<FoundEntry> FindFile(std::string folder, std::string name) const;
  std::optional<FoundEntry> FindAtOnce(const std::string& folder, std::string_view name) const;

  // The path by which the file that was found is run; "" when it is no file that can be read.
  std::string ProgramPath(const FoundEntry& found) const;

  // What the file `name` below VirtualPath becomes that the document includes: its own answer without a header, made by
  // a record with these settings and request values. Null when there is no such file, when the document or a page that
  // includes it is that file already, when includes are nested deeper than IncludeTrail::kMaxDepth, or when the room
  // for includes is taken.
  // Most of them are known at once; where one IsPending, await FinishInclusion.
  struct Inclusion {
    std::string name;
    std::optional<FoundEntry> found;  // nothing: not looked for yet
    Page::SharedText text;
    bool isPending = false;
  };
  Inclusion Include(std::string name);
  Task<void> FinishInclusion(Inclusion& inclusion);

  // Takes room for `size` bytes of an included file. False, and nothing is taken, when there is less.
  bool TakeIncludeRoom(std::size_t size);

 private:
  // Stores a setting, for this record alone where records share them.
  template <typename Member, typename Value>
  void Set(Member RecordSettings::*member, const Value& value) {
    if ((*settings_).*member == value) return;
    if (settings_.use_count() != 1) settings_ = std::make_shared<RecordSettings>(*settings_);
    (*settings_).*member = value;
  }
  // Makes this the record of something that `outer` includes or is replaced by: its settings, connection and runner.
  void TakeAfter(const cls_HTTP& outer);
  RequestInfo NewInfo() const { return parentControl_ != nullptr ? parentControl_->Request() : RequestInfo(); }
  // The request values, for writing.
  RequestInfo& Info() const;

  std::string FoundContentType(std::string_view extension) const;
  std::optional<std::string> PlainType(const OpenFile& file, std::string_view name) const;
  std::string HeadOf(const Answer& answer, std::string_view type, const AnswerHead& head) const;
  Task<Answer> ErrorFilePage(std::string code) const;
  Task<Answer> WholeAnswer(FoundEntry found, std::string file, std::string statusCode, bool wantHeader,
                           std::string extraHeaders);
  Task<void> OpenedFile(FoundEntry found, std::string path, const AnswerHead& head, Answer& answer);
  Task<void> FileAnswer(FoundEntry found, std::string_view path, const AnswerHead& head, Answer& answer);
  Task<void> ProgramAnswer(const FoundEntry& found, const AnswerHead& head, Answer& answer);
  Task<void> RunForAnswer(ProgramFile program, const AnswerHead& head, Answer& answer);
  void TakeResult(std::string_view program, ProgramResult&& result, const AnswerHead& head, Answer& answer);
  void TakePage(Page::SharedText text, const AnswerHead& head, Answer& answer) const;
  Task<void> ReadPage(OpenFile file, const AnswerHead& head, Answer& answer);
  Task<void> MakePage(Page::SharedText text, FileIdentity file, const AnswerHead& head, Answer& answer);
  Task<void> MakeLongPage(Page::SharedText text, FileIdentity file, const AnswerHead& head, Answer& answer);
  Task<void> ProcessPage(Page page, FileIdentity file, const AnswerHead& head, Answer& answer);
  Task<void> EndPage(std::unique_ptr<PageMaking> making, Task<void> wait, const AnswerHead& head, Answer& answer);
  std::shared_ptr<const RootFolder> FolderAt(const std::string& path) const;
  bool MayInclude(const FoundEntry& found);
  Task<void> ProcessInside(const FoundEntry& found, Page::SharedText text, Answer& answer);

  World& world_;
  std::shared_ptr<RecordSettings> settings_;  // never null; changed by Set only
  std::int16_t connectionIndex_ = 0;
  class ParentControl* parentControl_ = nullptr;
  ProgramRunner* runner_ = nullptr;
  class Turns* turns_ = nullptr;
  NameSource* names_ = nullptr;
  mutable std::unique_ptr<RequestInfo> request_;  // null until one of them is needed
  std::string remoteHost_;                        // that they get then
  std::string documentName_;
  const IncludeTrail* outerTrail_ = nullptr;  // of the page that includes this record's document
  const IncludeTrail* trail_ = nullptr;       // of this record's document, while it is processed
};

}  // namespace TesselServer
