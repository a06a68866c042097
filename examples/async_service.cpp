// An asynchronous service: worker threads log through the queue, so a
// caller never waits for the disk; StopDispatcher writes out everything
// queued before it returns, so nothing accepted is lost.
//
//   async_service CONFIG_FOLDER LOG_FOLDER
#include <string>
#include <thread>
#include <vector>

#include "example_support.h"

int main(int argc, char** argv) {
  if (argc != 3) return std::fprintf(stderr, "usage: async_service CONFIG_FOLDER LOG_FOLDER\n"), 2;
  std::u16string configFolder = example::U16(argv[1]), logFolder = example::U16(argv[2]);

  IZyrLog* log = nullptr;
  if (!example::Check(ZyrGetLogObject(&IID_IZyrLog, &log), "ZyrGetLogObject")) return 1;
  // Relative names: the configuration file below configFolder, the log
  // file below logFolder.
  if (!example::Check(log->SetFolders(configFolder.c_str(), logFolder.c_str(), 0), "SetFolders") ||
      !example::Check(log->LoadConfigFile(u"async_service.cfg"), "LoadConfigFile"))
    return 1;

  // One worker thread for the whole process writes; callers only queue.
  if (!example::Check(log->StartDispatcher(), "StartDispatcher")) return 1;
  constexpr int kThreads = 4, kRequests = 2000;
  std::vector<std::thread> workers;
  for (int t = 0; t < kThreads; ++t) {
    workers.emplace_back([log, t] {
      ZyrLogger* logger = nullptr;
      std::u16string name = u"service.worker" + example::U16(std::to_string(t));
      if (ZyrFailed(log->GetLogger(&logger, name.c_str()))) return;
      for (int i = 0; i < kRequests; ++i) {
        ZYR_INFO(logger, u"request %d handled by worker %d", i, t);
        ZYR_DEBUG(logger, u"below INFO: one read of the threshold, nothing queued");
      }
    });
  }
  for (std::thread& worker : workers) worker.join();
  log->StopDispatcher();  // drains the queue: every accepted line is in the file now
  ZyrReleaseLogObject(&IID_IZyrLog, log);

  std::string path = std::string(argv[2]) + "/service.log";
  std::size_t lines = example::Count(example::ReadFile(path), "MSG:request ");
  std::printf("%s holds %zu request lines of %d\n", path.c_str(), lines, kThreads * kRequests);
  return lines == static_cast<std::size_t>(kThreads * kRequests) ? 0 : 1;
}
