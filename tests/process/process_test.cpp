// A process's end and its forks: the probe runs in a fresh process each
// time, and what it leaves on disk is checked line by line.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "../unit/test_support.h"

namespace {

constexpr int kWriters = 4;
constexpr int kChildren = 100;

// Runs the probe with `args`; its exit status, or -1 when it died of a
// signal or did not end within `seconds` (it is killed then). `leakCheck`
// false turns LeakSanitizer off for the probe and its children.
int RunProbe(const std::vector<std::string>& args, int seconds = 60, bool leakCheck = true) {
  std::vector<char*> argv;
  std::string probe = ZYR_PROCESS_PROBE;
  argv.push_back(probe.data());
  std::vector<std::string> copy = args;
  for (std::string& a : copy) argv.push_back(a.data());
  argv.push_back(nullptr);
  pid_t child = fork();
  if (child == 0) {
    if (!leakCheck) {
      const char* old = getenv("ASAN_OPTIONS");
      setenv("ASAN_OPTIONS", ((old ? std::string(old) + ":" : "") + "detect_leaks=0").c_str(), 1);
    }
    execv(argv[0], argv.data());
    _exit(127);
  }
  if (child < 0) return -1;
  bool hung = false;
  int status = zyrtest::WaitChild(child, seconds, &hung);
  if (hung) {
    ADD_FAILURE() << "the probe did not end within " << seconds << " s";
    return -1;
  }
  if (WIFSIGNALED(status)) ADD_FAILURE() << "the probe died of signal " << WTERMSIG(status);
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

// How often each "T<t> N<n> end" message stands in the text.
std::map<std::pair<int, std::uint64_t>, int> Messages(const std::string& text) {
  std::map<std::pair<int, std::uint64_t>, int> seen;
  for (std::size_t at = text.find("MSG:T"); at != std::string::npos; at = text.find("MSG:T", at + 1)) {
    int t = 0;
    unsigned long long n = 0;
    int end = 0;
    // One line at most: sscanf measures the whole rest of the text it is
    // given, and a queue that outruns the exit leaves a large file.
    std::string line = text.substr(at, text.find('\n', at) - at + 1);
    if (std::sscanf(line.c_str(), "MSG:T%d N%llu end\r\n%n", &t, &n, &end) == 2 && end > 0) ++seen[{t, n}];
  }
  return seen;
}

// Every line that a writer's call reported accepted is in the log once, and
// at most `inFlight` lines more: those whose call had not returned when the
// process ended. The counts of each writer.
std::vector<std::uint64_t> ExpectAcceptedLinesOnce(const std::string& dir, std::uint64_t inFlight) {
  std::string counters = zyrtest::ReadFile(dir + "/accepted");
  std::vector<std::uint64_t> accepted(counters.size() / sizeof(std::uint64_t));
  if (!accepted.empty()) std::memcpy(accepted.data(), counters.data(), accepted.size() * sizeof(std::uint64_t));
  auto seen = Messages(zyrtest::ReadFile(dir + "/x.log"));
  std::uint64_t missing = 0, twice = 0, total = 0;
  for (std::size_t t = 0; t < accepted.size(); ++t) {
    total += accepted[t];
    for (std::uint64_t n = 0; n < accepted[t]; ++n) {
      auto found = seen.find({t, n});
      if (found == seen.end()) ++missing;
      else if (found->second != 1) ++twice;
    }
  }
  EXPECT_GT(total, 0u);
  EXPECT_EQ(missing, 0u) << "of " << total << " accepted lines";
  EXPECT_EQ(twice, 0u);
  std::uint64_t lines = 0;
  for (auto& entry : seen) lines += entry.second;
  EXPECT_LE(lines, total - missing + twice + inFlight) << "lines that no call accepted";
  return accepted;
}

}  // namespace

// The module's detach runs inside exit(), while the other threads still
// log: it finishes the forgotten object (worker stopped, queue written,
// files closed) and frees nothing under them.
TEST(ProcessEnd, ExitFromAThreadWhileFourLogThroughTheWorker) {
  const int runs = zyrtest::kSanitized ? 10 : 50;
  for (int run = 0; run < runs; ++run) {
    SCOPED_TRACE("run " + std::to_string(run));
    std::string dir = zyrtest::MakeTempDir("exit");
    ASSERT_EQ(RunProbe({"exit-from-thread", dir}), 0);
    ExpectAcceptedLinesOnce(dir, kWriters);
    zyrtest::RemoveTree(dir);
    if (HasFailure()) break;
  }
}

TEST(ProcessEnd, MainReturnsWithoutReleaseWhileFourLogThroughTheWorker) {
  std::string dir = zyrtest::MakeTempDir("return");
  ASSERT_EQ(RunProbe({"main-returns", dir}), 0);
  ExpectAcceptedLinesOnce(dir, kWriters);
  zyrtest::RemoveTree(dir);
}

TEST(ProcessEnd, AnExitHandlerThatLogsAfterTheReleaseIsAnswered) {
  std::string dir = zyrtest::MakeTempDir("atexit");
  EXPECT_EQ(RunProbe({"atexit-after-release", dir}), 0);
  zyrtest::RemoveTree(dir);
}

// A process with the worker running and four threads logging forks 100
// children that log: half directly, ending by exit, half through a worker
// of their own, ending by _exit after StopDispatcher. No child hangs on a
// lock that a thread of the parent held at the fork, none writes the
// parent's queued lines again, and every accepted line of parent and
// children is in the file once.
TEST(ProcessFork, ChildrenOfABusyProcessWriteTheirOwnLinesOnce) {
#if defined(__SANITIZE_THREAD__)
  GTEST_SKIP() << "skipped: ThreadSanitizer does not support threads started in the child of a "
                  "process that had threads at the fork (half of the children start a worker)";
#endif
  std::string dir = zyrtest::MakeTempDir("fork");
  // LeakSanitizer cannot look at the stacks of the parent's other threads,
  // which do not exist in a child: at a child's exit it reports what only
  // those stacks held (the parent's worker's wait sets), and says itself
  // that such reports may be false. Leaks are checked by the other tests.
  EXPECT_EQ(RunProbe({"fork", dir}, 600, false), 0) << "children that did not end well";
  std::vector<std::uint64_t> accepted = ExpectAcceptedLinesOnce(dir, 0);
  ASSERT_EQ(accepted.size(), 100u + kChildren);
  for (int i = 0; i < kChildren; ++i) EXPECT_EQ(accepted[100 + i], 50u) << "child " << i;
  zyrtest::RemoveTree(dir);
}
