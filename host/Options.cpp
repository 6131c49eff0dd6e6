#include "host/Options.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <charconv>
#include <deque>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "host/Ranges.h"

namespace TesselServer {
namespace {

constexpr std::size_t kHelpColumn = 36;

// Shows a switch as "--[no-]name" and any other option as "--name VALUE"; its default is part of its description.
class HelpFormatter : public CLI::Formatter {
 public:
  HelpFormatter() { column_width(kHelpColumn); }

  std::string make_option_name(const CLI::Option* option, bool isPositional) const override {
    const auto& names = option->get_lnames();
    if (!isPositional && names.size() == 2 && names[1] == "no-" + names[0]) return "--[no-]" + names[0];
    return CLI::Formatter::make_option_name(option, isPositional);
  }

  std::string make_option_opts(const CLI::Option* option) const override {
    return option->get_type_name().empty() || option->get_positional() ? "" : " " + option->get_type_name();
  }
};

// The parser leaves two empty lines between its groups.
std::string WithoutDoubleGaps(std::string text) {
  for (auto at = text.find("\n\n\n"); at != std::string::npos; at = text.find("\n\n\n", at)) text.erase(at, 1);
  while (text.size() > 1 && text.ends_with("\n\n")) text.pop_back();
  return text;
}

// Whether `text` is a word of a content type, one side of its "/".
bool IsToken(std::string_view text) {
  static constexpr std::string_view kMarks = "!#$%&'*+-.^_`|~";
  return !text.empty() && std::all_of(text.begin(), text.end(), [](char c) {
    return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') ||
           kMarks.find(c) != std::string_view::npos;
  });
}

bool HoldsControl(std::string_view text) {
  return std::any_of(text.begin(), text.end(),
                     [](char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7F; });
}

// ".x": the last dot of a name and the text after it.
bool IsExtension(std::string_view text) {
  return text.size() > 1 && text.front() == '.' && text.find_first_of("./\\", 1) == std::string_view::npos &&
         !HoldsControl(text);
}

// "type/subtype", or that with parameters after a ";".
bool IsContentType(std::string_view text) {
  const auto slash = text.find('/');
  if (slash == std::string_view::npos || HoldsControl(text)) return false;
  auto subtype = text.substr(slash + 1, text.find(';') - slash - 1);
  while (subtype.ends_with(' ')) subtype.remove_suffix(1);
  return IsToken(text.substr(0, slash)) && IsToken(subtype);
}

ContentTypeEntry ContentTypeFrom(const std::string& text) {
  const auto equals = text.find('=');
  if (equals != std::string::npos) {
    ContentTypeEntry entry{text.substr(0, equals), text.substr(equals + 1)};
    if (IsExtension(entry.extension) && IsContentType(entry.contentType)) return entry;
  }
  throw UsageError(std::string(kContentTypeOption) + ": \"" + text + "\" is not of the form .extension=type/subtype");
}

// The parser with the options that it knows; fills an Options.
class CommandLine {
 public:
  explicit CommandLine(Options& options) : options_(options) {
    app_.formatter(std::make_shared<HelpFormatter>());
    app_.option_defaults()->multi_option_policy(CLI::MultiOptionPolicy::TakeLast);
    app_.set_help_flag();
    AddAddress();
    AddContent();
    AddPages();
    AddLimits();
    AddModern();
    AddProtection();
    AddTrapping();
    AddProgram();
    AddText("DIRECTORY", "", options_.directory, "The folder to serve (VirtualPath; default: the working folder)");
  }

  void Parse(int argc, const char* const* argv) {
    auto arguments = SplitAtEquals({argv + 1, argv + argc});
    std::reverse(arguments.begin(), arguments.end());  // the parser takes them from the end
    try {
      app_.parse(std::move(arguments));
    } catch (const CLI::ParseError& error) {
      throw UsageError(error.what());
    }
    for (const auto& each : switches_) {
      if (each.option->count() > 0) each.target = each.value;
    }
    if (options_.saveConfig) options_.task = Options::Task::SaveConfig;
    if (about_) options_.task = Options::Task::ShowAbout;
    if (version_) options_.task = Options::Task::ShowVersion;
    if (help_) {
      options_.task = Options::Task::ShowHelp;
      options_.helpText = WithoutDoubleGaps(app_.help());
    }
  }

 private:
  void AddAddress() {
    group_ = "Address";
    AddText("--server-ip", "A", options_.serverIP,
            "The IPv4 address to listen on, '' for all (default: " + std::string(kOwnServerIP) + ")");
    AddNumber("--server-port", options_.serverPort, kServerPortRange,
              "The port, 0 for any free one (default: " + std::string(kOwnServerPort) + ")");
    AddText("--server-name", "T", options_.serverName, "The server's name in pages and variables (default: none)");
    AddText("--server-software", "T", options_.serverSoftware,
            "The text of the Server header line (default: Orvane Tessel/1.1)");
  }

  void AddContent() {
    group_ = "Content";
    AddText("--index-page-names", "L", options_.indexPageNames,
            "Names of index pages, comma between (default: index.html)");
    AddSwitch("directory-browse-enable", options_.directoryBrowseEnable,
              "List a folder that has no index page (default: no)");
    AddSwitch("verbose-errors-enable", options_.verboseErrorsEnable,
              "Send errors as pages, with status 200 (default: yes). People read what is wrong;\n"
              "programs (apt, curl -f, link checkers, node) take the page for what they asked for.\n"
              "With --no-verbose-errors-enable errors have their codes (404 and so on) and no page");
    AddSwitch("error-files-enable", options_.errorFilesEnable,
              "Error pages from html/errors/http404.html and so on (default: no)");
    AddText("--application-folder", "D", options_.applicationFolder,
            "The folder that html/errors lies in (default: the program's own)");
    AddChoice<e_ContentTypeSource>("--content-type-source", options_.contentTypeSource,
                                   {{"registry", e_ContentTypeSource::Registry},
                                    {"file", e_ContentTypeSource::File},
                                    {"internal", e_ContentTypeSource::Internal}},
                                   "Content types from: registry, file, internal (default: registry)");
    AddText("--content-type-source-file", "F", options_.contentTypeSourceFile,
            "The file of content types, 'extension,type' a line");
    AddContentTypes();
  }

  void AddPages() {
    group_ = "Pages and programs";
    AddSwitch("ssi-enable", options_.ssiEnable, "Expand server-side includes (default: no)");
    AddSwitch("html-functions-enable", options_.htmlFunctionsEnable, "Let pages call functions (default: no)");
    AddSwitch("cgi-enable", options_.cgiEnable,
              "Run programs (default: no). Of what one prints the first 1,024 bytes count. GET\n"
              "only: a program has no standard input, so the body of a POST never reaches it");
    AddText("--cgi-directory", "D", options_.cgiDirectory,
            "The folder of programs (default: DIRECTORY\\scripts, which lies below the root:\n"
            "what is no program there, a script's data or a backup, is public)");
    AddNumber("--cgi-timeout", options_.cgiTimeout, kSecondsRange,
              "Seconds that a program is waited for, 0 for ever (default: 30)");
  }

  void AddLimits() {
    group_ = "Limits";
    AddNumber("--max-connections", options_.maxConnections, kMaxConnectionsRange,
              "Serve N - 1 clients at once (default: " + std::string(kOwnMaxConnections) + ")");
    AddNumber("--connection-timeout", options_.connectionTimeout, kMinutesRange,
              "Minutes until dead connections are swept up, 0 never (default: 10)");
    AddNumber("--max-body-bytes", options_.maxBodyBytes, kMaxBodyBytesRange,
              "Bytes of the longest body of a POST; a longer one is refused with 400\n"
              "(default: 67108864)");
    AddNumber("--max-body-bytes-total", options_.maxBodyBytesTotal, kTotalBytesRange,
              "Bytes of all bodies that are kept at once; one that finds no room is refused\n"
              "with 400 (default: 268435456)");
    AddNumber("--max-unsent-page-bytes", options_.maxUnsentPageBytes, kTotalBytesRange,
              "Bytes of all pages and listings that wait for slow clients; one that finds no\n"
              "room is refused with 503 (default: 268435456)");
    AddNumber("--max-programs", options_.maxPrograms, kMaxProgramsRange,
              "Programs that run at once; others wait for their turn (default: 32)");
    AddNumber("--workers", options_.workers, kWorkersRange,
              "Threads for what has to be waited for: starts of programs, names of clients,\n"
              "slow disks; 0 has the server wait (default: 4)");
  }

  void AddModern() {
    group_ = "Manner of speaking";
    AddChoice<e_HTTPMode>("--http-mode", options_.httpMode,
                          {{"classic", e_HTTPMode::Classic}, {"modern", e_HTTPMode::Modern}},
                          "classic: HTTP/1.0, one request a connection; modern: HTTP/1.1 for today's\nclients "
                          "(default: classic). What follows counts in modern alone");
    AddNumber("--client-timeout", options_.clientTimeout, kClientRange,
              "Seconds that a client may go without progress, 0 for ever (default: 30)");
    AddNumber("--keep-alive-timeout", options_.keepAliveTimeout, kClientRange,
              "Seconds that a connection waits for its next request, 0: it ends with its\nanswer (default: 15)");
    AddNumber("--max-header-bytes", options_.maxHeaderBytes, kMaxHeaderBytesRange,
              "Bytes of a request line and its header fields together (default: 65536)");
    AddText("--cgi-file-types", "L", options_.cgiFileTypes,
            "The extensions of programs, comma between (default: exe,cgi)");
    AddText("--charset", "T", options_.charset, "The charset of texts that name none, '' for none (default: utf-8)");
  }

  void AddProtection() {
    group_ = "Protection";
    AddChoice<e_AuthSource>("--authentication-source", options_.authenticationSource,
                            {{"global-file", e_AuthSource::GolbalFile},
                             {"directory-file", e_AuthSource::DirectoryFile},
                             {"local-acl", e_AuthSource::LocalACL},
                             {"domain-acl", e_AuthSource::DomainACL}},
                            "Passwords from: global-file, directory-file; local-acl and domain-acl\nprotect nothing "
                            "(default: global-file)");
    AddText("--authentication-source-file", "F", options_.authenticationSourceFile,
            "The file of passwords, 'user:password' a line. A client gets in when the\n"
            "'user:password' it sends is a substring of the file, in any case: the beginning\n"
            "of a password is enough, an empty one too, and so is the end of a name. It keeps\n"
            "passers-by out, and nobody else");
  }

  void AddTrapping() {
    group_ = "Trapping";
    AddSwitch("trap-file-enable", options_.trapFileEnable,
              "Offer requests to the program (default: no). Those that it hands back\n"
              "have the REMOTE_USER that the client claims, whatever its password");
    AddText("--trap-file-types", "L", options_.trapFileTypes,
            "The extensions it is offered, comma between (default: all)");
  }

  void AddProgram() {
    group_ = "Program";
    AddText("--config", "FILE", options_.config, "Read the settings of FILE first; options count before them");
    AddText("--save-config", "FILE", options_.saveConfig, "Write the settings to FILE and exit");
    app_.add_flag("-h,--help", help_, "Show this text and exit")->group(group_);
    app_.add_flag("--version", version_, "Show the version and exit")->group(group_);
    app_.add_flag("--about", about_, "Show what this is and exit")->group(group_);
  }

  void AddText(const std::string& name, const std::string& value, std::optional<std::string>& target,
               const std::string& help) {
    app_.add_option_function<std::string>(
            name, [&target](const std::string& text) { target = text; }, help)
        ->type_name(value)
        ->group(name.front() == '-' ? group_ : "Arguments");
  }

  template <typename Number>
  void AddNumber(const std::string& name, std::optional<Number>& target, const Range& range, const std::string& help) {
    const auto take = [name, &target, range](const std::string& text) {
      Number number = 0;
      const auto* end = text.data() + text.size();
      const auto [stopped, error] = std::from_chars(text.data(), end, number);
      if (error != std::errc() || stopped != end || !range.Contains(number)) {
        throw UsageError(name + ": \"" + text + "\" " + IsNoNumberFrom(range));
      }
      target = number;
    };
    app_.add_option_function<std::string>(name, take, help)->type_name("N")->group(group_);
  }

  void AddContentTypes() {
    const auto take = [this](const std::vector<std::string>& texts) {
      for (const auto& text : texts) options_.contentTypes.push_back(ContentTypeFrom(text));
    };
    app_.add_option_function<std::vector<std::string>>(kContentTypeOption, take,
                                                       "One content type more, '.extension=type/subtype', in place of "
                                                       "one that is there;\nrepeatable; for the source registry")
        ->allow_extra_args(false)
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll)
        ->type_name("X=T")
        ->group(group_);
  }

  template <typename Enumeration>
  void AddChoice(const std::string& name, std::optional<Enumeration>& target,
                 const std::vector<std::pair<std::string, Enumeration>>& choices, const std::string& help) {
    const auto take = [name, &target, choices](const std::string& text) {
      std::string names;
      for (const auto& [choice, value] : choices) {
        if (choice == text) {
          target = value;
          return;
        }
        names += (names.empty() ? "" : ", ") + choice;
      }
      throw UsageError(name + ": \"" + text + "\" is none of " + names);
    };
    app_.add_option_function<std::string>(name, take, help)->type_name("S")->group(group_);
  }

  void AddSwitch(const std::string& name, std::optional<bool>& target, const std::string& help) {
    auto& added = switches_.emplace_back(Switch{nullptr, false, target});
    added.option = app_.add_flag("--" + name + ",!--no-" + name, added.value, help)->group(group_);
  }

  // Whether `argument` is the name of an option that has a value.
  bool TakesValue(const std::string& argument) const {
    if (argument.rfind("--", 0) != 0) return false;
    const auto* option = app_.get_option_no_throw(argument);
    return option != nullptr && option->get_items_expected_max() > 0;
  }

  // Makes "--name=value" two arguments, so that an empty value stays one.
  std::vector<std::string> SplitAtEquals(const std::vector<std::string>& arguments) const {
    std::vector<std::string> split;
    for (std::size_t i = 0; i < arguments.size(); ++i) {
      const auto& argument = arguments[i];
      if (argument == "--") {
        split.insert(split.end(), arguments.begin() + static_cast<std::ptrdiff_t>(i), arguments.end());
        break;
      }
      const auto equals = argument.find('=');
      if (equals != std::string::npos && TakesValue(argument.substr(0, equals))) {
        split.push_back(argument.substr(0, equals));
        split.push_back(argument.substr(equals + 1));
        continue;
      }
      split.push_back(argument);
      if (!TakesValue(argument)) continue;
      if (i + 1 == arguments.size()) throw UsageError(argument + ": its value is missing");
      split.push_back(arguments[++i]);
    }
    return split;
  }

  struct Switch {
    CLI::Option* option;
    bool value;  // what was said last
    std::optional<bool>& target;
  };

  Options& options_;
  CLI::App app_{"Serves a folder over HTTP/1.0.", "tessel"};
  std::string group_;
  std::deque<Switch> switches_;  // the parser keeps pointers to the values
  bool help_ = false;
  bool version_ = false;
  bool about_ = false;
};

}  // namespace

Options ParseOptions(int argc, const char* const* argv) {
  Options options;
  CommandLine(options).Parse(argc, argv);
  return options;
}

}  // namespace TesselServer
