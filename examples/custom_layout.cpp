// A Custom layout: the line is a format of tokens, and the file gets a
// header when it is opened and a footer when it is closed (Flush, the end
// of the process, a rollover).
//
//   custom_layout CONFIG_FOLDER LOG_FOLDER
#include <string>

#include "example_support.h"

int main(int argc, char** argv) {
  if (argc != 3) return std::fprintf(stderr, "usage: custom_layout CONFIG_FOLDER LOG_FOLDER\n"), 2;
  zyrlog::Log log;
  if (!example::Check(log.Status(), "getting the log object") ||
      !example::Check(log.SetFolders(argv[1], argv[2]), "SetFolders") ||
      !example::Check(log.LoadConfigFile("custom_layout.cfg"), "LoadConfigFile"))
    return 1;
  zyrlog::Logger logger = log.GetLogger("report.daily");
  ZYRLOG_INFO(logger, "{} orders, {:.2f} in total", 17, 1234.5);
  ZYRLOG_DEBUG(logger, "cache hit rate {}%", 93);
  log.Flush();  // closes the file: the footer is written, the next line reopens it
  log.Close();

  std::string text = example::ReadFile(std::string(argv[2]) + "/custom_layout.log");
  std::printf("%s", text.c_str() + (text.compare(0, 3, "\xEF\xBB\xBF") == 0 ? 3 : 0));
  bool ok = text.find("=== report started ===\r\n") != std::string::npos &&
            text.find(" UTC | INFO | report.daily | 17 orders, 1234.50 in total\r\n") != std::string::npos &&
            text.find(" UTC | DEBUG | report.daily | cache hit rate 93%\r\n") != std::string::npos &&
            text.find("=== report closed ===\r\n") != std::string::npos;
  return ok ? 0 : 1;
}
