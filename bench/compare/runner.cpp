#include "runner.h"

#include <signal.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <barrier>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <thread>
#include <vector>

#include "alloc_count.h"
#include "stats.h"
#include "verify.h"

namespace {

void SetWhy(Measurement& m, const std::string& text) {
  std::snprintf(m.why, sizeof m.why, "%s", text.c_str());
}

void TakeVerification(const VerifyResult& found, Measurement& m, bool atReturn) {
  if (!found.ok) SetWhy(m, "some files could not be read back");
  if (atReturn) {
    m.missingAtReturn = found.missing;
    m.missingAtReturnKnown = 1;
    return;
  }
  m.verified = 1;
  m.missingAtEnd = found.missing;
  m.keptAtEnd = found.found;
  m.duplicates = found.duplicates;
  m.torn = found.torn;
  m.largestFile = found.largestFile;
  std::uint64_t lines = found.found + found.duplicates;
  m.bytesPerLine = lines ? static_cast<double>(found.lineBytes) / static_cast<double>(lines) : 0;
}

// The plan's calls split evenly over its workers; the measured calls in all.
RunConfig MakeConfig(const RunPlan& plan, const std::string& folder, const std::string& host,
                     Measurement& m) {
  RunConfig config;
  config.folder = folder;
  config.host = host;
  config.workers = plan.workers ? plan.workers : 1;
  config.paced = plan.paced;
  config.perWorker = static_cast<std::uint32_t>((plan.calls + config.workers - 1) / config.workers);
  m.calls = static_cast<std::uint64_t>(config.perWorker) * config.workers;
  return config;
}

// The body of the measuring process.
Measurement Measure(const ContenderInfo& info, const RunPlan& plan, const std::string& folder,
                    const std::string& host) {
  Measurement m;
  const RunConfig config = MakeConfig(plan, folder, host, m);
  const std::uint32_t workers = config.workers;
  const std::uint32_t perWorker = config.perWorker;
  const bool writesFiles = info.kind != Kind::kBelow && info.kind != Kind::kNoOutput;
  const bool window = info.kind == Kind::kRolling;

  std::unique_ptr<Contender> contender = info.make();
  std::string why;
  if (!contender->Setup(config, &why)) {
    SetWhy(m, why);
    return m;
  }
  m.available = 1;

  // Latency slots are touched now, so that no page fault lands in the loop.
  std::vector<std::vector<std::uint32_t>> latencies(info.queue ? workers : 0);
  for (auto& slots : latencies) slots.assign(perWorker, 0);

  std::barrier warmed(workers + 1);
  std::barrier go(workers + 1);
  std::vector<std::uint64_t> ends(workers, 0);
  std::vector<std::thread> threads;
  threads.reserve(workers);
  for (std::uint32_t w = 0; w < workers; ++w) {
    threads.emplace_back([&, w] {
      contender->WarmUp(w, plan.warmUp);
      warmed.arrive_and_wait();
      go.arrive_and_wait();
      contender->Write(w, perWorker, info.queue ? latencies[w].data() : nullptr);
      ends[w] = NowNs();
    });
  }
  warmed.arrive_and_wait();
  const std::uint64_t allocationsBefore = ZyrBenchAllocations();
  const std::uint64_t start = NowNs();
  go.arrive_and_wait();
  for (std::thread& thread : threads) thread.join();
  std::uint64_t end = start;
  for (std::uint64_t e : ends) end = e > end ? e : end;
  std::uint64_t allocations = ZyrBenchAllocations() - allocationsBefore;

  // What a crash at this moment would leave: only rows whose lines should
  // all be out by now are asked.
  if (writesFiles && !info.queue) TakeVerification(VerifyFolder(folder, workers, perWorker, window), m, true);

  const std::uint64_t completeAllocations = ZyrBenchAllocations();
  const std::uint64_t completeStart = NowNs();
  contender->Complete();
  const std::uint64_t completeTook = NowNs() - completeStart;
  // The worker's share of a queue row happens until its queue is done.
  if (info.queue) allocations += ZyrBenchAllocations() - completeAllocations;
  contender->Close();
  m.errors = contender->Errors();
  contender.reset();

  m.callSeconds = static_cast<double>(end - start) / 1e9;
  m.completeSeconds = static_cast<double>(end - start + completeTook) / 1e9;
  m.allocationsPerCall = static_cast<double>(allocations) / static_cast<double>(m.calls);
  if (info.queue) {
    std::vector<std::uint32_t> all;
    all.reserve(m.calls);
    for (auto& slots : latencies) all.insert(all.end(), slots.begin(), slots.end());
    m.p50 = Percentile(all, 50);
    m.p99 = Percentile(all, 99);
    m.p999 = Percentile(all, 99.9);
  }
  if (writesFiles) TakeVerification(VerifyFolder(folder, workers, perWorker, window), m, false);

  rusage usage;
  if (getrusage(RUSAGE_SELF, &usage) == 0) m.peakRssKib = usage.ru_maxrss;
  return m;
}

// Worker w is a process of its own, with its own library state and its own
// descriptors, as separate programs sharing one log have: each sets up,
// warms up, reports ready on a pipe and waits for the start (the closing of
// another pipe); the round lasts until the last of them has written and
// closed.
Measurement MeasureProcesses(const ContenderInfo& info, const RunPlan& plan,
                             const std::string& folder, const std::string& host) {
  Measurement m;
  const RunConfig config = MakeConfig(plan, folder, host, m);
  const std::uint32_t workers = config.workers;
  int ready[2], go[2];
  if (pipe(ready) != 0 || pipe(go) != 0) {
    SetWhy(m, "no pipes for the writer processes");
    return m;
  }
  std::vector<pid_t> children;
  for (std::uint32_t w = 0; w < workers; ++w) {
    pid_t child = fork();
    if (child < 0) break;
    if (child == 0) {
      close(ready[0]);
      close(go[1]);
      std::unique_ptr<Contender> contender = info.make();
      std::string why;
      char state = contender->Setup(config, &why) ? 1 : 0;
      if (state) contender->WarmUp(w, plan.warmUp);
      if (write(ready[1], &state, 1) != 1 || !state) _exit(4);
      char byte;
      while (read(go[0], &byte, 1) < 0 && errno == EINTR) {
      }
      contender->Write(w, config.perWorker, nullptr);
      contender->Complete();
      contender->Close();
      _exit(contender->Errors() ? 5 : 0);
    }
    children.push_back(child);
  }
  close(ready[1]);
  close(go[0]);
  bool allReady = children.size() == workers;
  for (std::size_t i = 0; i < children.size(); ++i) {
    char state = 0;
    if (read(ready[0], &state, 1) != 1 || !state) allReady = false;
  }
  close(ready[0]);
  const std::uint64_t start = NowNs();
  close(go[1]);  // every writer starts now
  int failed = 0;
  for (pid_t child : children) {
    int status = 0;
    while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
    if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) ++failed;
  }
  const std::uint64_t end = NowNs();
  if (!allReady) {
    SetWhy(m, "a writer process could not set up");
    return m;
  }
  m.available = 1;
  m.errors = static_cast<std::uint64_t>(failed);
  m.callSeconds = m.completeSeconds = static_cast<double>(end - start) / 1e9;
  TakeVerification(VerifyFolder(folder, workers, config.perWorker, info.kind == Kind::kRolling), m,
                   false);
  rusage usage;
  if (getrusage(RUSAGE_CHILDREN, &usage) == 0) m.peakRssKib = usage.ru_maxrss;
  return m;
}

bool ReadAll(int fd, void* data, std::size_t size) {
  char* at = static_cast<char*>(data);
  while (size > 0) {
    ssize_t got = read(fd, at, size);
    if (got <= 0) return false;
    at += got;
    size -= static_cast<std::size_t>(got);
  }
  return true;
}

}  // namespace

Measurement RunMeasurement(const ContenderInfo& info, const RunPlan& plan, const std::string& folder,
                           const std::string& host) {
  Measurement m;
  int channel[2];
  if (pipe(channel) != 0) {
    SetWhy(m, "no pipe for the measuring process");
    return m;
  }
  std::fflush(nullptr);
  pid_t child = fork();
  if (child < 0) {
    close(channel[0]);
    close(channel[1]);
    SetWhy(m, "no measuring process");
    return m;
  }
  if (child == 0) {
    close(channel[0]);
    // A contender that hangs ends its process, not the comparison.
    alarm(plan.timeLimitSeconds);
    Measurement result = info.processes ? MeasureProcesses(info, plan, folder, host)
                                        : Measure(info, plan, folder, host);
    const char* at = reinterpret_cast<const char*>(&result);
    std::size_t left = sizeof result;
    while (left > 0) {
      ssize_t put = write(channel[1], at, left);
      if (put <= 0) break;
      at += put;
      left -= static_cast<std::size_t>(put);
    }
    // No exit handlers: the libraries were closed by the measurement itself.
    _exit(left == 0 ? 0 : 3);
  }
  close(channel[1]);
  bool complete = ReadAll(channel[0], &m, sizeof m);
  close(channel[0]);
  int status = 0;
  while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
  }
  if (!complete || !WIFEXITED(status) || WEXITSTATUS(status) != 0) {
    m = Measurement();
    char text[120];
    if (WIFSIGNALED(status))
      std::snprintf(text, sizeof text, "measuring process ended by signal %d%s", WTERMSIG(status),
                    WTERMSIG(status) == SIGALRM ? " (time limit)" : "");
    else
      std::snprintf(text, sizeof text, "measuring process ended with status %d",
                    WIFEXITED(status) ? WEXITSTATUS(status) : -1);
    SetWhy(m, text);
  }
  return m;
}
