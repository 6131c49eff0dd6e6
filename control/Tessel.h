// The control: a web server that lives inside the program that makes it. It speaks HTTP/1.0 (RFC 1945), GET and POST,
// one request a connection, and serves on the thread and in the event loop of its host.
//
//   TesselServer::EventLoop loop;
//   TesselServer::Tessel tessel(loop);
//   tessel.ServerPort("8080");
//   tessel.VirtualPath("/srv/www");
//   tessel.HTTPLog = [](std::string& line) { std::cout << line << '\n'; };
//   tessel.StartServer();
//   loop.Run();
//
// Thread:    everything on the thread that runs the loop; debug builds assert it. Several controls may share a loop.
// Ownership: the loop outlives the control. The control may be destroyed at any time, also inside its own events.
// Errors:    Error (number, source, description) from ServerPort, StartServer, TrapFileDataEX and HTTPHeader as told
//            there, and from nothing else. Everything else that goes wrong is told through LogEvent. Only when memory
//            runs out while a value is handed over does the language's own std::bad_alloc reach the caller.
//
// Events:    arguments are references, and a handler may change them. In every event the host may change properties,
//            connect and disconnect handlers, answer requests, stop the server and destroy the control.
//
//   event          raised when                                              arguments
//   CallFunction   a function tag of a page asks for its text               connection, name of the function; answer
//                                                                           with ReturnData before returning
//   FileRequest    a request of a trapped file type is complete             connection, path below the root,
//                                                                           "user:password" or ""; answer with
//                                                                           TrapFileData(EX) now or later
//   HTTPLog        a line for the access log is due                         the line
//   LogEvent       an error happened; each adds one to Stats_Errors         its text
//   StatusLine     a short text for a status bar is due; also for each      the text
//                  program that was not run, failed or was cut short
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include <TesselServer/Enumerations.h>
#include <TesselServer/Error.h>
#include <TesselServer/Event.h>
#include <TesselServer/EventLoop.h>
#include <TesselServer/PropertyBag.h>

namespace TesselServer {

class TesselCore;

class Tessel {
 public:
  // A control with every property at its default.
  explicit Tessel(EventLoop& loop);
  Tessel(const Tessel&) = delete;
  Tessel& operator=(const Tessel&) = delete;

  // Stops serving: every connection and the listener are closed, without a log line.
  ~Tessel();

  // ---- Properties. Each is one name in two forms; setting one raises PropertyChanged with its name. Those marked
  // (start) take effect at the next StartServer, all others with the next request.

  // (start) The IPv4 address to listen on, "" = all addresses. Blanks around it are dropped. Default: "".
  std::string ServerIP() const;
  void ServerIP(const std::string& value);

  // (start) The TCP port, in decimal. Default: "80". 0 lets the system choose one (see ListeningPort). Raises Error 13
  // for a text that is no number and Error 6 for one beyond 32 bits; a fraction is rounded half to even.
  std::string ServerPort() const;
  void ServerPort(const std::string& value);

  // The text of the Server header line and of SERVER_SOFTWARE. Default: "Orvane Tessel/1.1".
  std::string ServerSoftware() const;
  void ServerSoftware(const std::string& value);

  // The name for SERVER_NAME and the heading of listings. Default: "". Reading trims it.
  std::string ServerName() const;
  void ServerName(const std::string& value);

  // Where content types are looked up. Default: Registry.
  e_ContentTypeSource ContentTypeSource() const;
  void ContentTypeSource(e_ContentTypeSource value);

  // The file of content types for the source File, one "extension,type" a line. Setting it reads the file; when that
  // fails, the name stays as it was. Default: "".
  std::string ContentTypeSourceFile() const;
  void ContentTypeSourceFile(const std::string& value);

  // How protected places ask for a password. Default: GolbalFile.
  e_AuthSource AuthenticationSource() const;
  void AuthenticationSource(e_AuthSource value);

  // The file of user:password pairs for the source GolbalFile. Setting it reads the file; when that fails, the name
  // stays as it was. It is read again for each request. A client gets in when "user:password" stands anywhere in it,
  // without regard to case: the beginning of a password is enough. Default: "".
  std::string AuthenticationSourceFile() const;
  void AuthenticationSourceFile(const std::string& value);

  // Whether programs are run: requested files whose names end in ".exe", and exec directives in pages. Default: False.
  bool CGIEnable() const;
  void CGIEnable(bool value);

  // The folder of programs: of execcgi directives, and of requested programs that are not below VirtualPath. "" becomes
  // VirtualPath & "\scripts" at the start. Default: "".
  std::string CGIDirectory() const;
  void CGIDirectory(const std::string& value);

  // How long a program is waited for, in seconds, 0 to 2,000,000,000; 0 = without limit. Values outside are moved to
  // the nearer end. The loop stands still meanwhile. A program that takes longer runs on, and what it has printed until
  // then is its output. Default: 30.
  std::int32_t CGITimeout() const;
  void CGITimeout(std::int32_t value);

  // Whether pages may show server variables and include files. Default: False.
  bool SSIEnable() const;
  void SSIEnable(bool value);

  // Whether function tags of pages, <%=FunctionName(arguments)%>, raise CallFunction. Default: False.
  bool HTMLFunctionsEnable() const;
  void HTMLFunctionsEnable(bool value);

  // Whether a folder without an index page is listed. Default: False.
  bool DirectoryBrowseEnable() const;
  void DirectoryBrowseEnable(bool value);

  // Whether error pages come from files below the application folder. Default: False.
  bool ErrorFilesEnable() const;
  void ErrorFilesEnable(bool value);

  // Whether error answers carry a page; without, they are a header with the status code alone. Default: True.
  bool VerboseErrorsEnable() const;
  void VerboseErrorsEnable(bool value);

  // (start) The highest socket element; one of them listens, so at most MaxConnections - 1 clients are served at
  // once. Below 2 becomes 2; above 10,000 the value stays as it was. Default: 2.
  std::int32_t MaxConnections() const;
  void MaxConnections(std::int32_t value);

  // When connections that failed or were closed by their client are swept up, on the control's own count of minutes,
  // 0 to 2,000,000,000; 0 = never (they are reused all the same). Default: 10.
  std::int32_t ConnectionTimeout() const;
  void ConnectionTimeout(std::int32_t value);

  // The document root. "" becomes the application folder at the start, which then publishes the program itself and all
  // that lies beside it: set it. Default: "".
  std::string VirtualPath() const;
  void VirtualPath(const std::string& value);

  // Names of index pages, separated by commas, tried in order. Blanks are removed. Default: "index.html".
  std::string IndexPageNames() const;
  void IndexPageNames(const std::string& value);

  // Whether requests are offered to the host through FileRequest. Default: False.
  bool TrapFileEnable() const;
  void TrapFileEnable(bool value);

  // Extensions that are trapped, separated by commas; "" = every request. Blanks are removed. An extension that is
  // part of a listed one is trapped too. Default: "".
  std::string TrapFileTypes() const;
  void TrapFileTypes(const std::string& value);

  // ---- Methods. `Index` is the number of a connection, 1 to MaxConnections, as events tell it.

  // Raises AboutBox with the product's name and version.
  void ShowAboutBox();

  // Bytes received and sent as whole kilobytes ("2K"), requests and errors as numbers, the time since the last start
  // as "dd:hh:mm:ss" ("" before the first), and free slots as "free/MaxConnections".
  std::string Stats_BytesReceived() const;
  std::string Stats_BytesSent() const;
  std::string Stats_Requests() const;
  std::string Stats_Errors() const;
  std::string Stats_UpTime() const;
  std::string Stats_FreeConnections() const;

  // Answers a CallFunction event, inside it: mData takes the place of the tag and is not looked at again. The latest of
  // several answers counts. An Index that is no connection is ignored.
  void ReturnData(std::int32_t Index, const std::string& mData);

  // Answers a FileRequest event, inside it or later. With Process True the file is served as if it had not been
  // trapped; else Data, any bytes, goes out with the content type. An answer for a connection that waits for none,
  // because it was answered before or its client has gone, is ignored; so is an Index that is no connection. When
  // another client waits on the same Index by then, RequestNumber tells them apart.
  void TrapFileData(std::int32_t Index, const std::string& Data, bool Process = true,
                    const std::string& ContentType = "text/html");

  // The same with a status code of three characters (any other text becomes "200") and further header lines, with or
  // without the line end behind the last. Raises Error 9 for an Index that is no connection.
  void TrapFileDataEX(std::int32_t Index, const std::string& Data, bool Process = true,
                      const std::string& ContentType = "text/html", const std::string& StatusCode = "200",
                      const std::string& HeaderField = "");

  // How many values the query string has for the parameter. Names match without regard to case and also at the end of
  // a longer name ("id" in "userid="). 0 for an Index that is no connection.
  std::int16_t QueryStringCount(std::int32_t Index, const std::string& Paramter) const;

  // The Item-th value (from 1) of the parameter, undecoded, or the whole query string when Paramter is blank. "" when
  // there is none.
  std::string QueryString(std::int32_t Index, const std::string& Paramter, std::int32_t Item = 1) const;

  // The value of one of the 29 server variables (names are case-sensitive), or all of them as NAME=value, each with
  // Delimiter behind it, when Variable is blank. "" for an Index that is no connection.
  std::string CGIValue(std::int32_t Index, const std::string& Variable, const std::string& Delimiter = ",");

  // The whole header block of the request, or the value of one header line. The name is found anywhere in the block,
  // so a client can pretend one inside another line. Raises Error 9 for an Index that is no connection, and Error 5
  // when the line found has no line end.
  std::string HTTPHeader(std::int32_t Index, const std::string& HeaderField = "") const;

  // True from a start until StopServer; also after a start that failed, until StopServer.
  bool ServerRunning() const;

  // Starts serving. False, without effect, when ServerRunning. Raises Error 10048 when the address is in use or the
  // start fails otherwise; call StopServer before the next try. An address that cannot be bound is only reported
  // through LogEvent; the listener is tried again every ten seconds (see IsListening).
  bool StartServer();

  // Stops serving: closes every connection and the listener. May be called in any state. False when an error, told
  // through LogEvent, came in between.
  bool StopServer();

  // "1.1.000": major, minor and revision.
  std::string Version() const;

  // ---- Events.

  Event<std::int32_t&, std::string&> CallFunction;
  Event<std::int32_t&, std::string&, std::string&> FileRequest;
  Event<std::string&> HTTPLog;
  Event<std::string&> LogEvent;
  Event<std::string&> StatusLine;

  // ---- Persistence in the host's property bag.

  // Sets every property to its default.
  void InitProperties();

  // Reads every property, with its default where the bag has none. A value that cannot be read leaves its property as
  // it is. Files named are not read in.
  void ReadProperties(const PropertyBag& bag);

  // Writes every property that differs from its default. MaxConnections has the key "ServerMaxConnections".
  void WriteProperties(PropertyBag& bag) const;

  // ---- Beyond the interface, for C++ hosts.

  // Raised with a property's name when it is set, so that a designer can mark its form as changed.
  Event<const std::string&> PropertyChanged;

  // Raised by ShowAboutBox with "Tessel" and Version.
  Event<const std::string&, const std::string&> AboutBox;

  // The folder that stands for the program's own where VirtualPath is "" and where error pages are looked for
  // ("html/errors/http404.html" below it). Default: the folder of the program file.
  std::string ApplicationFolder() const;
  void ApplicationFolder(const std::string& value);

  // Takes the values of a text file into the registry that the content-type source Registry looks in, shared by all
  // controls of the program: "HKEY_CLASSES_ROOT\.ext\Content Type=type/subtype" a line. The usual extensions are there
  // already. Returns how many values were taken, 0 for a file that cannot be read.
  std::int32_t LoadRegistryFile(const std::string& path);

  // Puts one content type into that registry, in place of one that is there: `extension` with or without its dot.
  // False, and nothing is put, for an extension or a type that is "" or has a control character, and for an extension
  // with "\" or "=".
  bool PutContentType(const std::string& extension, const std::string& contentType);

  // The port the listener has, 0 when there is none; tells which one was chosen for ServerPort 0.
  std::int32_t ListeningPort() const;

  // Whether the listener stands. False while running means that it could not be bound; LogEvent told why.
  bool IsListening() const;

  // The longest body of a POST in bytes; a longer one is answered with status 400. 0 to 2,147,483,647, default 64 MiB.
  // Takes effect with the next connection.
  std::int64_t MaxBodyBytes() const;
  void MaxBodyBytes(std::int64_t value);

  // How many bytes of bodies the control keeps at once, over all connections: those that are still arriving, and those
  // of requests that wait for the host's answer. A body that finds no room is answered with status 400, when it is
  // announced or when it has grown so far. A negative value becomes 0. Default: 256 MiB. Takes effect at once for what
  // arrives from then on.
  std::int64_t MaxBodyBytesTotal() const;
  void MaxBodyBytesTotal(std::int64_t value);

  // How many bytes of pages and listings, over all connections, may wait in memory for clients that read slowly. A
  // client whose page finds no room gets the page "server too busy" instead, which the log shows with status 503. Files
  // that are sent as they are and the host's own data do not count. A negative value becomes 0. Default: 256 MiB. Takes
  // effect at once for the next pages.
  std::int64_t MaxUnsentPageBytes() const;
  void MaxUnsentPageBytes(std::int64_t value);

  // The body of the request on this connection, from the moment it is complete until its answer is handed over: inside
  // FileRequest and CallFunction, and after FileRequest for as long as the answer is due. "" at any other time.
  std::string RequestBody(std::int32_t Index) const;

  // The number of the request that is waiting on this connection for TrapFileData, 0 when none is. No two requests of a
  // control have the same. A host that answers later notes it in FileRequest and compares before it answers: the client
  // may have gone, and another one be waiting under the same Index.
  std::uint64_t RequestNumber(std::int32_t Index) const;

 private:
  std::shared_ptr<TesselCore> core_;
};

}  // namespace TesselServer
