// A configuration file taken up again while the process runs. A file loaded
// with LoadConfigFile is watched: a process that keeps logging takes up an
// edited file by itself (without the worker on the first message after a
// second has passed; with it, through a notification of the file's folder).
// Sections that did not change keep their objects and open files.
// zyrlog::ReloadConfig reads the files again at once, on request (say, on
// SIGHUP).
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

  zyrlog::Log log;
  if (!example::Check(log.Status(), "getting the log object") ||
      !example::Check(log.SetFolders(argv[2], argv[2]), "SetFolders") ||
      !example::Check(log.LoadConfigFile(live), "LoadConfigFile"))
    return 1;
  zyrlog::Logger logger = log.GetLogger("app");
  ZYRLOG_DEBUG(logger, "first debug line: below INFO, not written");

  // Someone raises the severity in the file...
  std::size_t at = text.find("Severity = INFO");
  if (at == std::string::npos) return 1;
  text.replace(at, 15, "Severity = DEBUG");
  std::ofstream(live, std::ios::trunc) << text;
  // ...and the process, which goes on logging, takes it up by itself.
  for (int tick = 0; tick < 300 && !logger.Enabled(zyrlog::Severity::kDebug); ++tick) {
    ZYRLOG_INFO(logger, "working ({})", tick);
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
  }
  ZYRLOG_DEBUG(logger, "second debug line: written after the file changed");
  log.Flush();
  log.Close();

  std::string written = example::ReadFile(std::string(argv[2]) + "/reload.log");
  std::printf("%s", written.c_str() + (written.compare(0, 3, "\xEF\xBB\xBF") == 0 ? 3 : 0));
  return written.find("first debug line") == std::string::npos &&
                 written.find("second debug line") != std::string::npos
             ? 0
             : 1;
}
