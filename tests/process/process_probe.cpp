// The process probe: a client that ends, or forks, the way real programs
// do, run by process_test in a fresh process each time. It uses only the
// exports and links the shared module, so the module's own attach and
// detach run as in any client.
//
//   process_probe exit-from-thread DIR   four threads log through the worker;
//                                        a fifth calls std::exit meanwhile
//   process_probe main-returns DIR       the same, main returns without a release
//   process_probe atexit-after-release DIR
//                                        an exit handler logs through a
//                                        logger whose object was released
//
// Each writer counts the lines that its calls reported accepted into
// DIR/accepted (shared memory, so the count survives the process); the
// test then finds every one of them in DIR/x.log.
#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "zyrlog/zyrlog.h"

namespace {

constexpr int kWriters = 4;

std::u16string U16(const std::string& s) { return std::u16string(s.begin(), s.end()); }

// Counters that outlive the process: one per writer.
std::atomic<std::uint64_t>* SharedCounters(const std::string& dir) {
  int fd = open((dir + "/accepted").c_str(), O_RDWR | O_CREAT | O_TRUNC, 0644);
  if (fd < 0 || ftruncate(fd, kWriters * sizeof(std::uint64_t)) != 0) return nullptr;
  void* p = mmap(nullptr, kWriters * sizeof(std::uint64_t), PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
  close(fd);
  return p == MAP_FAILED ? nullptr : static_cast<std::atomic<std::uint64_t>*>(p);
}

IZyrLog* Open(const std::string& dir, ZyrLogger** logger) {
  IZyrLog* log = nullptr;
  if (ZyrGetLogObject(&IID_IZyrLog, &log) != ZYR_OK) std::exit(20);
  std::u16string config = u"[w]\nAdditive = false\nAddAppenders = f\n[f]\nType = Appender\n"
                          u"AppenderType = File\nFileName = " + U16(dir) + u"/x.log\n";
  if (log->LoadConfigText(config.c_str()) != ZYR_OK || log->GetLogger(logger, u"w") != ZYR_OK) std::exit(21);
  return log;
}

// Writers log numbered lines until the process ends under them.
int Writers(const std::string& dir, bool exitFromThread) {
  std::atomic<std::uint64_t>* accepted = SharedCounters(dir);
  if (!accepted) return 22;
  ZyrLogger* logger = nullptr;
  IZyrLog* log = Open(dir, &logger);
  if (log->StartDispatcher() != ZYR_OK) return 23;
  static std::atomic<std::uint64_t> total{0};  // the writers outlive main
  for (int t = 0; t < kWriters; ++t)
    std::thread([=] {
      for (std::uint64_t n = 0;; ++n) {
        std::uint64_t args[2] = {static_cast<std::uint64_t>(t), n};
        if (logger->Log(ZYR_SEVERITY_ERROR, u"T%d N%lld end", nullptr, 0, 0, 0, 0, 0, args) != ZYR_OK) continue;
        accepted[t].store(n + 1, std::memory_order_release);
        total.fetch_add(1, std::memory_order_relaxed);
      }
    }).detach();
  // Some lines first, so that the worker has a queue to write.
  while (total.load(std::memory_order_relaxed) < 2000) std::this_thread::yield();
  if (exitFromThread) {
    std::thread([] { std::exit(0); }).detach();
    for (;;) pause();
  }
  return 0;  // the object is never released: the module's detach finishes it
}

ZyrLogger* g_released = nullptr;

int AtExitAfterRelease(const std::string& dir) {
  IZyrLog* log = Open(dir, &g_released);
  if (g_released->Log(ZYR_SEVERITY_ERROR, u"before release", nullptr, 0, 0, 0, 0, 0, nullptr) != ZYR_OK) return 30;
  ZyrReleaseLogObject(&IID_IZyrLog, log);
  std::atexit([] {
    // A caller's error: the logger's object is gone. It must be answered,
    // not crash the process.
    ZyrResult r = g_released->Log(ZYR_SEVERITY_ERROR, u"after release", nullptr, 0, 0, 0, 0, 0, nullptr);
    if (r != ZYR_E_NOT_INITIALIZED || g_released->threshold.load() != ZYR_SEVERITY_OFF) _exit(31);
  });
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3) {
    std::fprintf(stderr, "usage: process_probe exit-from-thread|main-returns|atexit-after-release DIR\n");
    return 2;
  }
  std::string mode = argv[1], dir = argv[2];
  if (mode == "exit-from-thread") return Writers(dir, true);
  if (mode == "main-returns") return Writers(dir, false);
  if (mode == "atexit-after-release") return AtExitAfterRelease(dir);
  return 2;
}
