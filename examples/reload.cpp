// A configuration file taken up again while the process runs. A file loaded
// with LoadConfigFile is watched: a process that keeps logging takes up an
// edited file by itself (without the worker on the first message after a
// second has passed; with it, through a notification of the file's folder).
// Sections that did not change keep their objects and open files.
// ZyrLogLibraryReloadConfig reads the files again at once, on request (say,
// on SIGHUP).
//
//   reload CONFIG_FOLDER LOG_FOLDER
#include <chrono>
#include <fstream>
#include <string>
#include <thread>

#include "example_support.h"

int main(int argc, char** argv) {
  if (argc != 3) return std::fprintf(stderr, "usage: reload CONFIG_FOLDER LOG_FOLDER\n"), 2;
  // A copy of the configuration that this example may change.
  std::string live = std::string(argv[2]) + "/reload-live.cfg";
  std::string text = example::ReadFile(std::string(argv[1]) + "/reload.cfg");
  std::ofstream(live, std::ios::trunc) << text;

  std::u16string logFolder = example::U16(argv[2]), livePath = example::U16(live);
  IZyrLog* log = nullptr;
  ZyrLogger* logger = nullptr;
  if (!example::Check(ZyrGetLogObject(&IID_IZyrLog, &log), "ZyrGetLogObject") ||
      !example::Check(log->SetFolders(logFolder.c_str(), logFolder.c_str(), 0), "SetFolders") ||
      !example::Check(log->LoadConfigFile(livePath.c_str()), "LoadConfigFile") ||
      !example::Check(log->GetLogger(&logger, u"app"), "GetLogger"))
    return 1;
  ZYR_DEBUG(logger, u"first debug line: below INFO, not written");

  // Someone raises the severity in the file...
  std::size_t at = text.find("Severity = INFO");
  if (at == std::string::npos) return 1;
  text.replace(at, 15, "Severity = DEBUG");
  std::ofstream(live, std::ios::trunc) << text;
  // ...and the process, which goes on logging, takes it up by itself.
  for (int tick = 0; tick < 300 && !zyrlog::Enabled(logger, ZYR_SEVERITY_DEBUG); ++tick) {
    ZYR_INFO(logger, u"working (%d)", tick);
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
  }
  ZYR_DEBUG(logger, u"second debug line: written after the file changed");
  log->Flush();
  ZyrReleaseLogObject(&IID_IZyrLog, log);

  std::string written = example::ReadFile(std::string(argv[2]) + "/reload.log");
  std::printf("%s", written.c_str() + (written.compare(0, 3, "\xEF\xBB\xBF") == 0 ? 3 : 0));
  return written.find("first debug line") == std::string::npos &&
                 written.find("second debug line") != std::string::npos
             ? 0
             : 1;
}
