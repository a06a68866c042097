// Out of memory at every allocation of a small program that starts the
// worker, loads a file, logs, reloads, logs and stops: for each N, the N-th
// allocation of the library fails, and the program runs on. No crash, no
// hang, and every call answers ZYR_OK or ZYR_E_OUT_OF_MEMORY (as a warning
// where a logger or the worker passes it on): a failure that comes back as
// another code (a key "not found" because its line was dropped) would send
// a user looking for the wrong cause.
#include <gtest/gtest.h>

#include <cstdio>
#include <string>

#include "base/memory.h"
#include "base/result.h"
#include "test_support.h"
#include "zyrlog/zyrlog.h"

namespace {

using zyrtest::U16;
using zyrtest::WriteFile;

bool Allowed(ZyrResult r) {
  return r == ZYR_OK || r == ZYR_E_OUT_OF_MEMORY || r == ZyrResultAsWarning(ZYR_E_OUT_OF_MEMORY);
}

// The program; false, with what went wrong on stderr, at the first result
// that is neither.
bool Program(const std::string& dir, long n) {
  const std::string cfg = dir + "/app.cfg";
  WriteFile(cfg, "[app]\nAdditive = no\nAddAppenders = roll\n[roll]\nType = Appender\n"
                 "AppenderType = RollingFile\nSize = 300\nFilesCount = 2\nFileName = " + dir + "/app.log\n");
  auto check = [n](const char* what, ZyrResult r) {
    if (!Allowed(r)) std::fprintf(stderr, "allocation %ld: %s gave 0x%08x\n", n, what, static_cast<unsigned>(r));
    return Allowed(r);
  };
  IZyrLog* log = nullptr;
  ZyrResult r = ZyrGetLogObject(&IID_IZyrLog, &log);
  if (ZyrFailed(r)) return check("ZyrGetLogObject", r);
  bool good = check("StartDispatcher", log->StartDispatcher()) &&
              check("LoadConfigFile", log->LoadConfigFile(U16(cfg).c_str()));
  ZyrLogger* app = nullptr;
  if (good) good = check("GetLogger", log->GetLogger(&app, u"app"));
  for (int i = 0; good && app && i < 20; ++i) {
    std::uint64_t args[] = {static_cast<std::uint64_t>(i)};
    good = check("Log", app->Log(ZYR_SEVERITY_ERROR, u"line %d", nullptr, 0, 0, 0, 0, 0, args));
    if (i == 10) {
      WriteFile(cfg, "[app]\nAdditive = no\nAddAppenders = roll\n[roll]\nType = Appender\n"
                     "AppenderType = RollingFile\nSize = 400\nFilesCount = 1\nFileName = " + dir + "/app.log\n");
      good = good && check("ZyrLogLibraryReloadConfig", ZyrLogLibraryReloadConfig());
    }
  }
  log->StopDispatcher();
  ZyrReleaseLogObject(&IID_IZyrLog, log);
  return good;
}

}  // namespace

TEST(AllocationSweep, EveryFailureIsOutOfMemoryOrASuccess) {
  std::string dir = zyrtest::UsePrivateLocalAppData("sweep");
  // The count of the library's allocations in one run, from a hook that
  // never fires.
  constexpr long kNever = 1L << 40;
  ZyrBasTestFailAllocationsAfter(kNever);
  ASSERT_TRUE(Program(dir, -1));
  const long total = kNever - ZyrBasTestFailAllocationsAfter(-1);
  ASSERT_GT(total, 100);
  // In a child: a crash or a hang fails the test instead of ending it.
  int code = zyrtest::RunInChild(
      [&] {
        for (long n = 0; n < total; ++n) {
          ZyrBasTestFailOneAllocation(n);
          bool good = Program(dir, n);
          ZyrBasTestFailOneAllocation(-1);
          if (!good) return 1;
        }
        return 0;
      },
      zyrtest::kSanitized ? 900 : 300);
  EXPECT_EQ(code, 0) << "1: a result other than ZYR_OK or out of memory (see stderr); -1: crash or hang";
  std::printf("%ld allocations, each failed once\n", total);
  zyrtest::RemoveTree(dir);
}
