// A Custom layout: the line is a format of tokens, and the file gets a
// header when it is opened and a footer when it is closed (Flush, the end
// of the process, a rollover).
//
//   custom_layout CONFIG_FOLDER LOG_FOLDER
#include <string>

#include "example_support.h"

int main(int argc, char** argv) {
  if (argc != 3) return std::fprintf(stderr, "usage: custom_layout CONFIG_FOLDER LOG_FOLDER\n"), 2;
  std::u16string configFolder = example::U16(argv[1]), logFolder = example::U16(argv[2]);
  IZyrLog* log = nullptr;
  ZyrLogger* logger = nullptr;
  if (!example::Check(ZyrGetLogObject(&IID_IZyrLog, &log), "ZyrGetLogObject") ||
      !example::Check(log->SetFolders(configFolder.c_str(), logFolder.c_str(), 0), "SetFolders") ||
      !example::Check(log->LoadConfigFile(u"custom_layout.cfg"), "LoadConfigFile") ||
      !example::Check(log->GetLogger(&logger, u"report.daily"), "GetLogger"))
    return 1;
  ZYR_INFO(logger, u"%d orders, %.2f in total", 17, 1234.5);
  ZYR_DEBUG(logger, u"cache hit rate %d%%", 93);
  log->Flush();  // closes the file: the footer is written, the next line reopens it
  ZyrReleaseLogObject(&IID_IZyrLog, log);

  std::string text = example::ReadFile(std::string(argv[2]) + "/custom_layout.log");
  std::printf("%s", text.c_str() + (text.compare(0, 3, "\xEF\xBB\xBF") == 0 ? 3 : 0));
  bool ok = text.find("=== report started ===\r\n") != std::string::npos &&
            text.find(" UTC | INFO | report.daily | 17 orders, 1234.50 in total\r\n") != std::string::npos &&
            text.find(" UTC | DEBUG | report.daily | cache hit rate 93%\r\n") != std::string::npos &&
            text.find("=== report closed ===\r\n") != std::string::npos;
  return ok ? 0 : 1;
}
