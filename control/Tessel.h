// The control: a web server that lives inside the program that makes it. It speaks HTTP/1.0 (RFC 1945), GET and POST,
// one request a connection, or HTTP/1.1 where HTTPMode says so, and serves on the thread and in the event loop of its
// host.
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
//            No request keeps the loop for more than a millisecond: what takes long is made in turns, and what has to
//            be waited for is waited for beside the loop. So other requests' events may come between two of one
//            request: CallFunction and FileRequest of others, for example, between two programs of one page. What the
//            host itself calls may wait; the member says so.
// Ownership: the loop outlives the control. The control may be destroyed at any time, also inside its own events.
// Errors:    Error (number, source, description) comes from ServerPort, StartServer, TrapFileDataEX and HTTPHeader, as
//            documented there, and from nothing else. Every other failure is reported through LogEvent. std::bad_alloc
//            reaches the caller only when memory runs out while a value is being passed in.
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
  // (start) take effect at the next StartServer, all others with the next request. Server variables show the new value
  // at once: SERVER_IP and SERVER_PORT are those of the properties, though the listener keeps its address until the
  // next start. The configuration lines that a start logs show the values at its beginning.

  // (start) The IPv4 address to listen on, or in the mode Modern one of either family; "" = all addresses. Blanks
  // around it are dropped. Default: "".
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

  // The file of content types for the source File, one "extension,type" a line. Setting it reads the file, and each
  // start and ReadProperties read it anew. When it cannot be read the name stays as it was, silently: read the property
  // back to know. Default: "".
  std::string ContentTypeSourceFile() const;
  void ContentTypeSourceFile(const std::string& value);

  // How protected places ask for a password. Default: GolbalFile.
  e_AuthSource AuthenticationSource() const;
  void AuthenticationSource(e_AuthSource value);

  // The file of user:password pairs for the source GolbalFile. Default: "". Setting it reads the file. When it cannot
  // be read the name stays as it was, silently: read the property back, since a site without a password file is open to
  // every client. The file is read again for each request.
  // A client gets in when the text "user:password" that it sends is a substring of the file, without regard to case:
  // any beginning of a password is enough, an empty one too; so is the end of a user's name ("nn" for "ann"), and the
  // user "realm" with no password wherever the file has a line "realm:". It keeps out casual visitors, not an attacker.
  std::string AuthenticationSourceFile() const;
  void AuthenticationSourceFile(const std::string& value);

  // Whether programs are run: requested files whose names end in ".exe", and exec directives in pages. Of what a
  // program prints the first 1,024 bytes count, and the rest is lost. It learns of its request from the server
  // variables in its environment alone: it has no standard input, so it can serve GET and not read the body of a POST.
  // Default: False.
  bool CGIEnable() const;
  void CGIEnable(bool value);

  // The folder of programs: of execcgi directives, and of requested programs that are not below VirtualPath. "" becomes
  // VirtualPath & "\scripts" at the start. That is below the root, so a file there that is no ".exe" (the data of a
  // script, a ".bat", an editor's backup copy) can be fetched like any other. Default: "". May wait, as VirtualPath.
  std::string CGIDirectory() const;
  void CGIDirectory(const std::string& value);

  // How long to wait for a program, in seconds, 0 to 2,000,000,000; 0 = without limit. Values outside the range are
  // moved to its nearer end. Waiting for others to end (MaxPrograms) is part of it. A program that takes longer keeps
  // running, and what it has printed by then is its output. Default: 30.
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

  // Whether error answers carry a page. Default: True.
  // With a page, every error leaves with the status line "HTTP/1.0 200 OK", and only the page's text says what is
  // wrong. People do not see the difference; programs take the error page for what they asked for: apt and "curl -f"
  // report success and store it, link checkers find no dead links, fetch() of a script or of node says "ok". Without a
  // page an error is a header with its true code (404, 401, 403, 400, 500) and no body: set False for whatever is not a
  // person.
  bool VerboseErrorsEnable() const;
  void VerboseErrorsEnable(bool value);

  // (start) The highest socket element; one of them listens, so at most MaxConnections - 1 clients are served at
  // once. Below 2 becomes 2; above 10,000 the value stays as it was. Default: 2. A value lowered while running works at
  // once: the elements above it accept no more clients. A raised one takes effect at the next start.
  std::int32_t MaxConnections() const;
  void MaxConnections(std::int32_t value);

  // When connections that failed or were closed by their client are swept up, on the control's own count of minutes,
  // 0 to 2,000,000,000; 0 = never (they are reused all the same). Default: 10.
  std::int32_t ConnectionTimeout() const;
  void ConnectionTimeout(std::int32_t value);

  // The document root. "" becomes the application folder at the start, which then publishes the program itself and all
  // files in its folder: set it. Default: "". Setting it, and the start, may wait for its disk.
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

  // ---- Methods. `Index` is the number of a connection, 1 to MaxConnections, as events pass it.

  // Raises AboutBox with the product's name and version.
  void ShowAboutBox();

  // Bytes received and sent as whole kilobytes ("2K"), requests and errors as numbers, the time since the last start
  // as "dd:hh:mm:ss" ("" before the first), and free slots as "free/MaxConnections". An answer that could not be handed
  // over, because its client had just gone, is logged and counted as sent.
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
  // trapped, and the host vouches for the credentials that FileRequest passed: REMOTE_USER has the name, also where no
  // password file has checked it. Else Data, any bytes, goes out with the content type. An answer for a connection that
  // waits for none, because it was answered before or its client has gone, is ignored; so is an Index that is no
  // connection. When another client waits on the same Index by then, RequestNumber distinguishes them.
  void TrapFileData(std::int32_t Index, const std::string& Data, bool Process = true,
                    const std::string& ContentType = "text/html");

  // The same with a status code of three characters (any other text becomes "200") and further header lines, with or
  // without a line end after the last. Raises Error 9 for an Index that is no connection.
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
  // Delimiter after it, when Variable is blank. "" for an Index that is no connection. In the order of that list:
  //   AUTH_TYPE, CONTENT_LENGTH, CONTENT_TYPE, GATEWAY_INTERFACE, HTTP_ACCEPT, HTTP_REFERER, HTTP_USER_AGENT,
  //   PATH_INFO, PATH_TRANSLATED, QUERY_STRING, REMOTE_ADDR, REMOTE_HOST, REMOTE_USER, REQUEST_METHOD, SCRIPT_NAME,
  //   SERVER_NAME, SERVER_PORT, SERVER_PROTOCOL, SERVER_SOFTWARE, SERVER_IP, TIME, DATE, DATE_LOCAL, DATE_GMT,
  //   COUNTER, DAY_OF_WEEK, DOCUMENT_NAME, DOCUMENT_URI, DOCUMENT_URL
  // REMOTE_HOST, alone or in the list, is looked up in the call where it is not remembered: about a second where no
  // name server answers. REMOTE_USER is "" unless the password file, or the host by TrapFileData with Process True, has
  // let the client in.
  std::string CGIValue(std::int32_t Index, const std::string& Variable, const std::string& Delimiter = ",");

  // The whole header block of the request, or the value of one header line, "" when there is none or it is empty. The
  // name is found anywhere in the block, so a client can pretend one inside another line. What is returned begins two
  // characters after the name, for ":" and one blank: of "Referer:http://x/", which has no blank, it is "ttp://x/".
  // Raises Error 9 for an Index that is no connection, and Error 5 when the line found has no line end, which the
  // header block of a request never lacks.
  std::string HTTPHeader(std::int32_t Index, const std::string& HeaderField = "") const;

  // True from a start until StopServer; also after a start that failed, until StopServer.
  bool ServerRunning() const;

  // Starts serving. False, without effect, when ServerRunning. Raises Error 10048 when the address is in use or the
  // start fails otherwise; call StopServer before the next try. Raises Error 5, and nothing has begun, in the mode
  // Modern where AuthenticationSource is LocalACL or DomainACL, which would protect nothing. An address that cannot be
  // bound is only reported through LogEvent; the listener is tried again every ten seconds (see IsListening).
  bool StartServer();

  // Stops serving: closes every connection and the listener. May be called in any state. False when an error occurred
  // meanwhile, which is reported through LogEvent.
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
  // it is. The file of content types is read in. It and the file of passwords are named even where they cannot be read,
  // and a site whose password file is missing is open to every client.
  void ReadProperties(const PropertyBag& bag);

  // Writes every property that differs from its default. MaxConnections has the key "ServerMaxConnections".
  void WriteProperties(PropertyBag& bag) const;

  // ---- Beyond the interface, for C++ hosts.

  // Raised with a property's name when it is set, so that a designer can mark its form as changed.
  Event<const std::string&> PropertyChanged;

  // Raised by ShowAboutBox with "Tessel" and Version.
  Event<const std::string&, const std::string&> AboutBox;

  // (start) How the control speaks with its clients. Default: Classic. Another number leaves it as it was. Like those
  // below it is a property: it raises PropertyChanged and is kept in the bag under its name.
  e_HTTPMode HTTPMode() const;
  void HTTPMode(e_HTTPMode value);

  // What follows has its effect in the mode Modern alone, and can be set and read in every mode. A value out of range
  // leaves the property as it was. All take effect with the next connection.

  // How long a client may go without progress, in seconds, 0 to 86,400; 0 = for ever: with its whole header block from
  // the first byte on, and between two pieces of a body. Default: 30.
  std::int32_t ClientTimeout() const;
  void ClientTimeout(std::int32_t value);

  // How long a connection waits for its next request, in seconds, 0 to 86,400; 0 = each connection ends with its
  // answer. Default: 15.
  std::int32_t KeepAliveTimeout() const;
  void KeepAliveTimeout(std::int32_t value);

  // How long a request line and its header fields may be together, in bytes, 1,024 to 1,048,576. Default: 65,536.
  std::int32_t MaxHeaderBytes() const;
  void MaxHeaderBytes(std::int32_t value);

  // Extensions of files that are programs, separated by commas. Blanks are removed. Default: "exe,cgi".
  std::string CGIFileTypes() const;
  void CGIFileTypes(const std::string& value);

  // The charset that is added to the type of a text that names none, "" for none. Default: "utf-8".
  std::string Charset() const;
  void Charset(const std::string& value);

  // The folder that is served where VirtualPath is "", and below which error pages are looked up
  // ("html/errors/http404.html"). Default: the folder of the program file.
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

  // The port of the listener, 0 when there is none; for ServerPort 0 the port that the system chose.
  std::int32_t ListeningPort() const;

  // Whether the listener listens. False while running means that binding failed, or that something outside this control
  // ended it; LogEvent has reported the reason, and it is tried again every ten seconds.
  bool IsListening() const;

  // The longest body of a POST in bytes; a longer one is answered with status 400. 0 to 2,147,483,647, default 64 MiB.
  // Takes effect with the next connection.
  std::int64_t MaxBodyBytes() const;
  void MaxBodyBytes(std::int64_t value);

  // How many bytes of request bodies the control keeps at once, over all connections: bodies that are still arriving,
  // and bodies of requests that wait for the host's answer. A request whose body would exceed the limit is answered
  // with status 400, as soon as its announced length or the bytes received exceed it. A negative value becomes 0.
  // Default: 256 MiB. Takes effect at once for bytes that arrive from then on.
  std::int64_t MaxBodyBytesTotal() const;
  void MaxBodyBytesTotal(std::int64_t value);

  // How many bytes of pages, error pages and listings, over all connections, may wait in memory for clients that read
  // slowly. A client whose page would exceed the limit gets the page "server too busy" instead (the header alone where
  // VerboseErrorsEnable is off), which the log shows with status 503. Files that are sent as they are and the host's
  // own data do not count. A negative value becomes 0. Default: 256 MiB. Takes effect at once for the next pages.
  std::int64_t MaxUnsentPageBytes() const;
  void MaxUnsentPageBytes(std::int64_t value);

  // How many programs run at once, over all connections; further ones wait, in order of arrival and within their
  // CGITimeout, until another one ends or its time is over. 1 to 1,000; a value outside is moved to its nearer end.
  // Default: 32. Takes effect at once: a higher number lets waiting programs start, a lower one ends none.
  std::int32_t MaxPrograms() const;
  void MaxPrograms(std::int32_t value);

  // How many threads may be used for what has to be waited for: starts of programs, look-ups of names, slow disks. 0 to
  // 4; a value outside is moved to its nearer end. There are none until they are needed, the controls of all loops
  // share them, all signals are blocked in them, and they never call the host. With 0 all of that is done on the loop's
  // own thread, and the loop may have to wait: for the name server, for a disk, and for a program to take over.
  // Default: 4. Takes effect at once for what begins from then on.
  std::int32_t Workers() const;
  void Workers(std::int32_t value);

  // The body of the request on this connection, from the moment it is complete until its answer is handed over: inside
  // FileRequest and CallFunction, and after FileRequest for as long as the answer is due. "" at any other time.
  std::string RequestBody(std::int32_t Index) const;

  // The number of the request that is waiting on this connection for TrapFileData, 0 when none is. No two requests of a
  // control have the same. A host that answers later stores it in FileRequest and compares it before it answers: the
  // client may have gone, and another one may be waiting under the same Index.
  std::uint64_t RequestNumber(std::int32_t Index) const;

 private:
  std::shared_ptr<TesselCore> core_;
};

}  // namespace TesselServer
