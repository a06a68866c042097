// An asynchronous service: worker threads log through the queue, so a
// caller never waits for the disk; StopWorker writes out everything queued
// before it returns, so nothing accepted is lost.
//
//   async_service CONFIG_FOLDER LOG_FOLDER
#include <string>
#include <thread>
#include <vector>

#include "example_support.h"

int main(int argc, char** argv) {
  if (argc != 3) return std::fprintf(stderr, "usage: async_service CONFIG_FOLDER LOG_FOLDER\n"), 2;
  zyrlog::Log log;
  // Relative names: the configuration file below CONFIG_FOLDER, the log
  // file below LOG_FOLDER.
  if (!example::Check(log.Status(), "getting the log object") ||
      !example::Check(log.SetFolders(argv[1], argv[2]), "SetFolders") ||
      !example::Check(log.LoadConfigFile("async_service.cfg"), "LoadConfigFile"))
    return 1;

  // One worker thread for the whole process writes; callers only queue.
  if (!example::Check(log.StartWorker(), "StartWorker")) return 1;
  constexpr int kThreads = 4, kRequests = 2000;
  std::vector<std::thread> workers;
  for (int t = 0; t < kThreads; ++t) {
    workers.emplace_back([&log, t] {
      zyrlog::Logger logger = log.GetLogger("service.worker" + std::to_string(t));
      for (int i = 0; i < kRequests; ++i) {
        ZYRLOG_INFO(logger, "request {} handled by worker {}", i, t);
        ZYRLOG_DEBUG(logger, "below INFO: one read of the threshold, nothing queued");
      }
    });
  }
  for (std::thread& worker : workers) worker.join();
  log.StopWorker();  // drains the queue: every accepted line is in the file now
  if (log.FailedCalls() != 0)
    std::fprintf(stderr, "%llu calls failed, the last with %s\n",
                 static_cast<unsigned long long>(log.FailedCalls()), log.LastFailure().Describe().c_str());

  std::string path = std::string(argv[2]) + "/service.log";
  std::size_t lines = example::Count(example::ReadFile(path), "MSG:request ");
  std::printf("%s holds %zu request lines of %d\n", path.c_str(), lines, kThreads * kRequests);
  return lines == static_cast<std::size_t>(kThreads * kRequests) ? 0 : 1;
}
