// zyrlog demo: a program gets a log object, logs through the built-in
// default configuration (a rolling "common.log" in the user's log folder),
// flushes, and shows the file it wrote.
#include <cstdio>
#include <fstream>
#include <iostream>
#include <sstream>
#include <string>

#include <zyrlog/log.h>
#include <zyrlog/zyrlog.hpp>

namespace {

// Where the built-in configuration writes: the FileName of its one
// appender, as the configuration in force tells it (common.log in the
// default log folder).
std::string LogFileOf(const std::string& configuration) {
  std::size_t at = configuration.find("\nFileName = ");
  if (at == std::string::npos) return "";
  at += 12;
  return configuration.substr(at, configuration.find_first_of("\r\n", at) - at);
}

}  // namespace

int main() {
  std::string path;
  {
    zyrlog::Log log;
    if (log.Status().Failed()) {
      std::fprintf(stderr, "no log object: %s\n", log.Status().Describe().c_str());
      return 1;
    }
    zyrlog::Logger logger = log.GetLogger("demo.main");
    ZYRLOG_INFO(logger, "demo started: {} logger, {}", 1, "default configuration");
    ZYRLOG_DEBUG(logger, "below the INFO threshold: one read, nothing written");
    ZYRLOG_WARN(logger, "a warning with a number {} and a text {}", 42, "value");
    // A typed list of values, through the contract beneath the front door.
    ZYR_LOG_TYPED(logger.Raw(), ZYR_SEVERITY_ERROR, u"{5F0C7E2A-0D6B-4C1E-9E7B-3A1D2C4B5E6F}", 17,
                  1, 100, 7, zyrlog::ErrorCode(ZYR_E_ACCESS_DENIED), zyrlog::Str(u"c:\\data"),
                  zyrlog::Bool(false));
    log.Flush();
    std::string configuration;
    if (log.GetConfigText(configuration).Ok()) path = LogFileOf(configuration);
    if (log.FailedCalls() != 0)
      std::fprintf(stderr, "%llu lines were not written: %s\n",
                   static_cast<unsigned long long>(log.FailedCalls()),
                   log.LastFailure().Describe().c_str());
  }  // the handle releases the log object

  std::ifstream in(path, std::ios::binary);
  if (path.empty() || !in) {
    std::fprintf(stderr, "no log file at '%s'\n", path.c_str());
    return 1;
  }
  std::stringstream text;
  text << in.rdbuf();
  std::string content = text.str();
  bool mark = content.compare(0, 3, "\xEF\xBB\xBF") == 0;
  bool crlf = true;
  for (std::size_t i = 0; i < content.size(); ++i)
    if (content[i] == '\n' && (i == 0 || content[i - 1] != '\r')) crlf = false;
  std::printf("%s: %zu bytes, %s, %s\n", path.c_str(), content.size(),
              mark ? "starts with EF BB BF" : "no byte order mark",
              crlf ? "every line ends in CR LF" : "some lines lack CR LF");
  // The last lines the demo wrote.
  std::size_t from = content.size();
  for (int lines = 0; from > 0; --from)
    if (content[from - 1] == '\n' && from != content.size() && ++lines == 3) break;
  if (from == 0 && mark) from = 3;
  std::cout << content.substr(from);
  std::printf(
      "\nWhat you see:\n"
      "- No configuration was given, so the built-in default applies: the root logger at INFO\n"
      "  writes a rolling common.log (10 files of 1024000 bytes) in the user's log folder,\n"
      "  %s.\n"
      "- The DEBUG line of the demo is absent: DEBUG is below the root's INFO threshold. Such a\n"
      "  call costs one atomic read; its arguments are not even evaluated.\n"
      "- A Standard line, field by field:\n"
      "    [demo.main]            the logger\n"
      "    WARN                   the severity\n"
      "    2026-01-31 09:41:07,512  the time in UTC (never local time), milliseconds behind the comma\n"
      "    host                   the computer name\n"
      "    PID:.. THID:..         process and thread\n"
      "    ID:file:line.b.r.p     source file (or the id of a typed message), line, build, revision, product\n"
      "    MSG:...                the message; a typed message lists its values\n"
      "- The file is UTF-8 with a byte order mark and CR LF line ends; several processes can\n"
      "  write it at once. docs/configuration.md tells how to change all of this.\n",
      path.substr(0, path.rfind('/')).c_str());
  return 0;
}
