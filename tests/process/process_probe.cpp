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
//   process_probe fork DIR               four threads log through the worker
//                                        while main forks 100 children that
//                                        log, half of them directly and end
//                                        by exit, half through a worker of
//                                        their own and end by _exit after
//                                        StopDispatcher
//
// Each writer (thread or child) counts the lines that its calls reported
// accepted into DIR/accepted (shared memory, so the count survives the
// process); the test then finds every one of them in DIR/x.log, once.
// Writer t writes "T<t> N<n> end"; the parent's threads are 0 to 3, child
// i is 100 + i.
#include <fcntl.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/wait.h>
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
constexpr int kChildren = 100;
constexpr int kSlots = 100 + kChildren;

std::u16string U16(const std::string& s) { return std::u16string(s.begin(), s.end()); }

// Counters that outlive the process: one per writer.
std::atomic<std::uint64_t>* SharedCounters(const std::string& dir) {
  int fd = open((dir + "/accepted").c_str(), O_RDWR | O_CREAT | O_TRUNC, 0644);
  if (fd < 0 || ftruncate(fd, kSlots * sizeof(std::uint64_t)) != 0) return nullptr;
  void* p = mmap(nullptr, kSlots * sizeof(std::uint64_t), PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
  close(fd);
  return p == MAP_FAILED ? nullptr : static_cast<std::atomic<std::uint64_t>*>(p);
}

IZyrLog* Open(const std::string& dir, ZyrLogger** logger) {
  IZyrLog* log = nullptr;
  if (ZyrGetLogObject(&IID_IZyrLog, &log) != ZYR_OK) std::exit(20);
  // No budget for the queue: its cut is another matter than a process's
  // end, and every accepted line must be found.
  std::u16string config = u"[root]\nMaxQueueSize = 0\n[w]\nAdditive = false\nAddAppenders = f\n[f]\nType = Appender\n"
                          u"AppenderType = File\nFileName = " + U16(dir) + u"/x.log\n";
  if (log->LoadConfigText(config.c_str()) != ZYR_OK || log->GetLogger(logger, u"w") != ZYR_OK) std::exit(21);
  return log;
}

// One numbered line of writer `t`; true when the call accepted it.
bool Line(ZyrLogger* logger, std::atomic<std::uint64_t>* accepted, int t, std::uint64_t n) {
  std::uint64_t args[2] = {static_cast<std::uint64_t>(t), n};
  if (logger->Log(ZYR_SEVERITY_ERROR, u"T%d N%lld end", nullptr, 0, 0, 0, 0, 0, args) != ZYR_OK) return false;
  accepted[t].store(n + 1, std::memory_order_release);
  return true;
}

std::atomic<std::uint64_t> g_total{0};  // the writers outlive main
std::atomic<bool> g_stop{false};

// Four threads log numbered lines through the worker until g_stop (or the
// process ends under them), after 2000 lines have gone; `pause`
// microseconds between lines.
void StartWriters(ZyrLogger* logger, std::atomic<std::uint64_t>* accepted, std::vector<std::thread>* joinable,
                  unsigned pause = 0) {
  for (int t = 0; t < kWriters; ++t) {
    std::thread writer([=] {
      for (std::uint64_t n = 0; !g_stop.load(std::memory_order_relaxed);) {
        if (Line(logger, accepted, t, n)) ++n, g_total.fetch_add(1, std::memory_order_relaxed);
        if (pause) usleep(pause);
      }
    });
    if (joinable) joinable->push_back(std::move(writer));
    else writer.detach();
  }
  // Some lines first, so that the worker has a queue to write.
  while (g_total.load(std::memory_order_relaxed) < 2000) std::this_thread::yield();
}

int Writers(const std::string& dir, bool exitFromThread) {
  std::atomic<std::uint64_t>* accepted = SharedCounters(dir);
  if (!accepted) return 22;
  ZyrLogger* logger = nullptr;
  IZyrLog* log = Open(dir, &logger);
  if (log->StartDispatcher() != ZYR_OK) return 23;
  StartWriters(logger, accepted, nullptr);
  if (exitFromThread) {
    std::thread([] { std::exit(0); }).detach();
    for (;;) pause();
  }
  return 0;  // the object is never released: the module's detach finishes it
}

// The child's part: a few lines on the direct road, then exit; or through
// a worker of its own, then StopDispatcher and _exit, which runs no exit
// handler: what the worker held must be written by then.
[[noreturn]] void Child(IZyrLog* log, ZyrLogger* logger, std::atomic<std::uint64_t>* accepted, int i) {
  const int t = 100 + i;
  const bool ownWorker = i % 2 == 0;
  if (ownWorker && log->StartDispatcher() != ZYR_OK) _exit(40);
  for (std::uint64_t n = 0; n < 50; ++n)
    if (!Line(logger, accepted, t, n)) _exit(41);
  if (!ownWorker) std::exit(0);
  log->StopDispatcher();
  _exit(0);
}

// Children forked while the parent's worker runs and four threads log.
// The exit status counts the children that did not end well (0: all did);
// a child that has not ended after 20 s counts as hung and is killed.
int Forks(const std::string& dir) {
  std::atomic<std::uint64_t>* accepted = SharedCounters(dir);
  if (!accepted) return 22;
  ZyrLogger* logger = nullptr;
  IZyrLog* log = Open(dir, &logger);
  if (log->StartDispatcher() != ZYR_OK) return 23;
  std::vector<std::thread> writers;
  StartWriters(logger, accepted, &writers, 100);
  int bad = 0;
  for (int i = 0; i < kChildren; ++i) {
    pid_t child = fork();
    if (child == 0) Child(log, logger, accepted, i);
    if (child < 0) return 24;
    int status = 0;
    for (int waited = 0; waitpid(child, &status, WNOHANG) == 0; ++waited) {
      if (waited == 20000) {
        std::fprintf(stderr, "child %d hangs\n", i);
        kill(child, SIGKILL);
        waitpid(child, &status, 0);
        break;
      }
      usleep(1000);
    }
    if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) ++bad;
  }
  g_stop.store(true);
  for (std::thread& w : writers) w.join();
  log->StopDispatcher();
  ZyrReleaseLogObject(&IID_IZyrLog, log);
  return bad;
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
    std::fprintf(stderr, "usage: process_probe exit-from-thread|main-returns|atexit-after-release|fork DIR\n");
    return 2;
  }
  std::string mode = argv[1], dir = argv[2];
  if (mode == "exit-from-thread") return Writers(dir, true);
  if (mode == "main-returns") return Writers(dir, false);
  if (mode == "atexit-after-release") return AtExitAfterRelease(dir);
  if (mode == "fork") return Forks(dir);
  return 2;
}
