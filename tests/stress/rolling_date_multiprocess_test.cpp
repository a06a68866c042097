// Processes that write one date-rolling log across midnight UTC roll it
// once and lose no line. The library's clock is moved to a second before
// midnight, and the log lies on a small ext4 without birth times, so that
// creation times follow that clock (see tests/unit/rolling_date_test.cpp).
#include <gtest/gtest.h>
#include <stdio.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <map>
#include <string>
#include <vector>

#include "../unit/clock_support.h"
#include "../unit/mount_support.h"
#include "base/file.h"
#include "base/time.h"
#include "zyrlog/zyrlog.h"

namespace {

using zyrtest::U16;


// Writes numbered lines until the library's clock reaches `until`, then
// leaves the count of lines written (all reported success) in "count.<id>".
[[noreturn]] void Writer(const std::string& dir, int id, std::int64_t until) {
  IZyrLog* log = nullptr;
  if (ZyrGetLogObject(&IID_IZyrLog, &log) != ZYR_OK) _exit(2);
  if (log->SetFolders(U16(dir).c_str(), U16(dir).c_str(), 0) != ZYR_OK) _exit(3);
  if (log->LoadConfigText(u"[mp]\nAddAppenders = out\nAdditive = false\n"
                          u"[out]\nType = Appender\nAppenderType = RollingDateFile\n"
                          u"FileName = d.log\nFilesCount = 5\n") != ZYR_OK)
    _exit(4);
  ZyrLogger* logger = nullptr;
  if (log->GetLogger(&logger, u"mp") != ZYR_OK) _exit(5);
  int n = 0;
  for (; static_cast<std::int64_t>(ZyrBasSystemTime()) < until; ++n) {
    std::uint64_t args[2] = {static_cast<std::uint64_t>(id), static_cast<std::uint64_t>(n)};
    if (logger->Log(ZYR_SEVERITY_ERROR, u"P%d N%d end", nullptr, 0, 0, 0, 0, 0, args) != ZYR_OK) _exit(6);
    // Paced, so that the lines of two seconds fit the small file system.
    struct timespec pause = {0, 200000};
    nanosleep(&pause, nullptr);
  }
  ZyrReleaseLogObject(&IID_IZyrLog, log);
  zyrtest::WriteFile(dir + "/count." + std::to_string(id), std::to_string(n));
  _exit(0);
}

// (process, number) -> times seen, over the given files; torn lines counted.
void ReadLines(const std::string& path, std::map<std::pair<int, int>, int>& seen, int* torn) {
  std::string text = zyrtest::ReadFile(path);
  std::size_t at = 3;  // the mark
  while (at < text.size()) {
    std::size_t end = text.find("\r\n", at);
    if (end == std::string::npos) {
      ++*torn;
      break;
    }
    std::string line = text.substr(at, end - at);
    at = end + 2;
    std::size_t msg = line.find(" MSG:");
    int id = -1, n = -1;
    char tail[8] = {};
    if (msg == std::string::npos || sscanf(line.c_str() + msg + 5, "P%d N%d %7s", &id, &n, tail) != 3 ||
        std::string(tail) != "end") {
      ++*torn;
      continue;
    }
    ++seen[{id, n}];
  }
}

TEST(MultiProcessDate, WritersCrossingMidnightRollOnceAndLoseNothing) {
  zyrtest::LoopMount mount;
  if (!mount.Mount("mkfs.ext4 -q -F -I 128", 64)) GTEST_SKIP() << mount.Why();
  const std::string dir = mount.Dir();
  // The live file of the old day stands, so that writers that a loaded
  // machine starts only after midnight roll it at their open instead.
  {
    zyrtest::WriteFile(dir + "/d.log", "\xef\xbb\xbf");
    ZyrBasFile live;
    ASSERT_EQ(live.Open(U16(dir + "/d.log").c_str(), ZYR_FILE_OPEN_EXISTING, ZYR_FILE_WRITE, 0, 0), ZYR_OK);
    ASSERT_EQ(live.SetCreationTime(zyrtest::UtcTime(2026, 5, 1, 23, 0, 0)), ZYR_OK);
  }
  // A second before midnight; the writers go on to a second after it.
  zyrtest::SetClock(zyrtest::UtcTime(2026, 5, 1, 23, 59, 59));
  const std::int64_t until = zyrtest::UtcTime(2026, 5, 2, 0, 0, 1);
  constexpr int kWriters = 3;
  std::vector<pid_t> children;
  for (int id = 0; id < kWriters; ++id) {
    pid_t child = fork();
    if (child == 0) Writer(dir, id, until);
    children.push_back(child);
  }
  for (pid_t child : children) {
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    ASSERT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 0);  // 6: a line failed
  }
  ZyrBasTestSetClockOffset(0);

  EXPECT_FALSE(zyrtest::Exists(dir + "/d.2026-05-02.log"));  // no second roll under the new day
  ASSERT_TRUE(zyrtest::Exists(dir + "/d.2026-05-01.log"));
  std::map<std::pair<int, int>, int> seen;
  int torn = 0;
  ReadLines(dir + "/d.2026-05-01.log", seen, &torn);
  ReadLines(dir + "/d.log", seen, &torn);
  EXPECT_EQ(torn, 0);
  for (int id = 0; id < kWriters; ++id) {
    int count = std::stoi("0" + zyrtest::ReadFile(dir + "/count." + std::to_string(id)));
    EXPECT_GT(count, 0);
    int missing = 0, doubled = 0;
    for (int n = 0; n < count; ++n) {
      auto it = seen.find({id, n});
      if (it == seen.end()) ++missing;
      else if (it->second > 1) ++doubled;
    }
    EXPECT_EQ(missing, 0) << "process " << id;
    EXPECT_EQ(doubled, 0) << "process " << id;
  }
}

}  // namespace
