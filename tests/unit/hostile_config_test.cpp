// Configuration files that are not what they claim: FIFOs and devices at
// their names, files of gigabytes, files that another account could have
// written. Each load answers at once with a clear result, takes little
// memory, and applies nothing of such a file; a change check never waits.
#include <gtest/gtest.h>
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>

#include "config/reader.h"
#include "engine/manager.h"
#include "log_object_fixture.h"
#include "test_support.h"

namespace {

using zyrtest::U16;
using zyrtest::WriteFile;

constexpr long kMemoryBoundKb = 64 * 1024;

long PeakKb() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  return usage.ru_maxrss;
}

class HostileConfigTest : public zyrtest::LogObjectTest {
 protected:
  HostileConfigTest() : LogObjectTest("hostile") {}
  std::string P(const std::string& name) const { return dir_ + "/" + name; }
};

// In a child, so that the peak of memory is this load's alone (and a load
// that waited for ever would fail the test, not hang it): the result, and
// nothing applied.
TEST_F(HostileConfigTest, FilesThatAreNoConfigurationAreRefusedAtOnceInLittleMemory) {
  ASSERT_EQ(mkfifo(P("fifo.cfg").c_str(), 0644), 0);
  int sparse = open(P("sparse.cfg").c_str(), O_CREAT | O_WRONLY, 0644);
  ASSERT_GE(sparse, 0);
  ASSERT_EQ(ftruncate(sparse, 2l << 30), 0);  // 2 GiB, no block of it on disk
  close(sparse);
  // 4 MiB exactly: 4095 comment lines of 1 KiB, and a last KiB with a
  // section. One line more is too much.
  std::string text;
  for (int i = 0; i < 4095; ++i) text += "; " + std::string(1021, 'c') + "\n";
  const std::string last = "[x]\nk = v\n";
  text += last + std::string(1024 - last.size(), '\n');
  ASSERT_EQ(text.size(), kZyrCfgMaxFileBytes);
  WriteFile(P("exact.cfg"), text);
  WriteFile(P("limit.cfg"), text + "[root]\nSeverity = FATAL\n");
  ASSERT_EQ(mkdir(P("folder.cfg").c_str(), 0755), 0);

  struct Row {
    std::string path;
    ZyrResult result;
  };
  const Row rows[] = {
      {P("fifo.cfg"), ZYR_E_UNSUPPORTED_TYPE},  {"/dev/zero", ZYR_E_UNSUPPORTED_TYPE},
      {P("sparse.cfg"), ZYR_E_SIZE_TOO_LARGE},  {P("limit.cfg"), ZYR_E_SIZE_TOO_LARGE},
      {P("folder.cfg"), ZYR_E_ACCESS_DENIED},   {P("exact.cfg"), ZYR_OK},
  };
  ZyrLogger* root = Get(u"root");
  for (const Row& row : rows) {
    SCOPED_TRACE(row.path);
    int code = zyrtest::RunInChild([&] {
      long before = PeakKb();
      ZyrResult r = log_->LoadConfigFile(U16(row.path).c_str());
      if (r != row.result) return 1;
      // What is refused costs next to nothing; a file at the limit is read.
      if (r != ZYR_OK && PeakKb() - before > kMemoryBoundKb) return 2;
      return root->threshold.load() == ZYR_SEVERITY_INFO ? 0 : 3;
    }, 10);
    EXPECT_EQ(code, 0);
  }
}

// A loaded file replaced by a FIFO, or by a file that others may write:
// the change check skips it without waiting, and what stood stays. The
// worker's change check runs under the manager's lock; a wait there would
// hold every message and the worker's stop.
TEST_F(HostileConfigTest, ChangeCheckSkipsWhatItMustNotReadWithoutWaiting) {
  const std::string cfg = P("app.cfg");
  WriteFile(cfg, "[svc]\nAdditive = no\nSeverity = WARN\n");
  ASSERT_EQ(log_->LoadConfigFile(U16(cfg).c_str()), ZYR_OK);
  ZyrLogger* svc = Get(u"svc");
  ZyrLogManager* manager = nullptr;
  ASSERT_EQ(ZyrLogManager::Acquire(&manager), ZYR_OK);
  auto replace = [&](auto&& make) {
    ASSERT_EQ(unlink(cfg.c_str()), 0);
    make();
    std::uint64_t reads = manager->TestChangeReads();
    EXPECT_EQ(zyrtest::RunInChild([&] { return manager->CheckConfigChanged() == ZYR_OK ? 0 : 1; }, 10), 0);
    EXPECT_EQ(manager->CheckConfigChanged(), ZYR_OK);
    EXPECT_EQ(manager->TestChangeReads(), reads);
    EXPECT_EQ(svc->threshold.load(), ZYR_SEVERITY_WARN);
  };
  replace([&] { ASSERT_EQ(mkfifo(cfg.c_str(), 0644), 0); });
  replace([&] {
    WriteFile(cfg, "[svc]\nAdditive = no\nSeverity = FATAL\n");
    ASSERT_EQ(chmod(cfg.c_str(), 0666), 0);
    timespec times[2] = {{1000000, 0}, {1000000, 0}};  // a time that differs from the first
    ASSERT_EQ(utimensat(AT_FDCWD, cfg.c_str(), times, 0), 0);
  });
  ASSERT_EQ(chmod(cfg.c_str(), 0644), 0);  // trusted again: taken up
  EXPECT_EQ(manager->CheckConfigChanged(), ZYR_OK);
  EXPECT_EQ(svc->threshold.load(), ZYR_SEVERITY_FATAL);
  manager->Release();
}

// The trust rule, file and folder. Rows that give a file or folder to
// another account need root.
TEST_F(HostileConfigTest, OnlyFilesThatNoOtherAccountCanHaveWrittenAreRead) {
  struct Row {
    const char* what;
    mode_t file, folder;
    bool otherFile, otherFolder;  // owned by another account
    ZyrResult result;
  };
  const Row rows[] = {
      {"0644 in 0755", 0644, 0755, false, false, ZYR_OK},
      {"0600 in 0700", 0600, 0700, false, false, ZYR_OK},
      {"group may write", 0664, 0755, false, false, ZYR_E_UNTRUSTED_FILE},
      {"others may write", 0646, 0755, false, false, ZYR_E_UNTRUSTED_FILE},
      {"folder group-writable", 0644, 0775, false, false, ZYR_E_UNTRUSTED_FILE},
      {"folder world-writable", 0644, 0777, false, false, ZYR_E_UNTRUSTED_FILE},
      {"sticky folder", 0644, 01777, false, false, ZYR_OK},
      {"another account's file", 0644, 0755, true, false, ZYR_E_UNTRUSTED_FILE},
      {"another account's folder", 0644, 0755, false, true, ZYR_E_UNTRUSTED_FILE},
      {"another's file, sticky folder", 0644, 01777, true, false, ZYR_E_UNTRUSTED_FILE},
  };
  const std::string folder = P("f"), cfg = folder + "/t.cfg";
  int skipped = 0;
  for (const Row& row : rows) {
    SCOPED_TRACE(row.what);
    if ((row.otherFile || row.otherFolder) && geteuid() != 0) {
      ++skipped;
      continue;
    }
    ASSERT_EQ(mkdir(folder.c_str(), 0700), 0);
    WriteFile(cfg, "[t]\nAdditive = no\nSeverity = FATAL\n");
    ASSERT_EQ(chmod(cfg.c_str(), row.file), 0);
    ASSERT_EQ(chmod(folder.c_str(), row.folder), 0);
    if (row.otherFile) {
      ASSERT_EQ(chown(cfg.c_str(), 65534, 65534), 0);
    }
    if (row.otherFolder) {
      ASSERT_EQ(chown(folder.c_str(), 65534, 65534), 0);
    }
    EXPECT_EQ(log_->LoadConfigFile(U16(cfg).c_str()), row.result);
    EXPECT_EQ(Get(u"t")->threshold.load(), row.result == ZYR_OK ? ZYR_SEVERITY_FATAL : ZYR_SEVERITY_INFO);
    ASSERT_EQ(log_->ResetConfig(), ZYR_OK);
    zyrtest::RemoveTree(folder);
  }
  // Through a link in a trusted folder: the folder that holds the file
  // counts too.
  ASSERT_EQ(mkdir(folder.c_str(), 0777), 0);
  ASSERT_EQ(chmod(folder.c_str(), 0777), 0);
  WriteFile(cfg, "[t]\nSeverity = FATAL\n");
  ASSERT_EQ(symlink(cfg.c_str(), P("link.cfg").c_str()), 0);
  EXPECT_EQ(log_->LoadConfigFile(U16(P("link.cfg")).c_str()), ZYR_E_UNTRUSTED_FILE);
  ASSERT_EQ(chmod(folder.c_str(), 0755), 0);
  EXPECT_EQ(log_->LoadConfigFile(U16(P("link.cfg")).c_str()), ZYR_OK);
  if (skipped) GTEST_SKIP() << skipped << " rows need root, to give a file to another account";
}

}  // namespace
