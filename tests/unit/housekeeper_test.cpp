// Compression of rolled files: on a real btrfs through the whole road, and
// the quiet refusal of a file system without it.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <ctime>
#include <string>

#include "appender/housekeeper.h"
#include "base/time.h"
#include "mount_support.h"
#include "test_support.h"
#include "zyrlog/zyrlog.h"

namespace {

using zyrtest::Exists;
using zyrtest::U16;

bool Compressed(const std::string& path) {
  int fd = open(path.c_str(), O_RDONLY | O_NOFOLLOW);
  if (fd < 0) return false;
  int flags = 0;
  bool compressed = ioctl(fd, FS_IOC_GETFLAGS, &flags) == 0 && (flags & FS_COMPR_FL);
  close(fd);
  return compressed;
}

// Two rolling appenders, each rolling at its next line: RollingFile with
// Size 0, RollingDateFile by the clock.
const char16_t kConfig[] =
    u"[hk]\nAddAppenders = roll, day\nAdditive = false\n"
    u"[roll]\nType = Appender\nAppenderType = RollingFile\nFileName = r.log\nSize = 0\nFilesCount = 3\n"
    u"[day]\nType = Appender\nAppenderType = RollingDateFile\nFileName = d.log\n";

class Housekeeping : public ::testing::Test {
 protected:
  void Open(const std::string& dir) {
    ASSERT_EQ(ZyrGetLogObject(&IID_IZyrLog, &log_), ZYR_OK);
    ASSERT_EQ(log_->SetFolders(U16(dir).c_str(), U16(dir).c_str(), 0), ZYR_OK);
    ASSERT_EQ(log_->LoadConfigText(kConfig), ZYR_OK);
    ASSERT_EQ(log_->GetLogger(&logger_, u"hk"), ZYR_OK);
  }
  void TearDown() override {
    if (log_) ZyrReleaseLogObject(&IID_IZyrLog, log_);
    ZyrBasTestSetClockOffset(0);
  }
  ZyrResult Line() { return logger_->Log(ZYR_SEVERITY_ERROR, u"line", nullptr, 0, 0, 0, 0, 0, nullptr); }

  zyrtest::LoopMount mount_;  // unmounted after TearDown has closed the log
  IZyrLog* log_ = nullptr;
  ZyrLogger* logger_ = nullptr;
};

TEST_F(Housekeeping, RolledFilesOfBothAppendersAreCompressedOnBtrfs) {
  if (!mount_.Mount("mkfs.btrfs -q -f", 128)) GTEST_SKIP() << mount_.Why();
  std::string dir = mount_.Dir();
  // Siblings by prefix: an older dated file of "r" and a left-over number
  // are treated too, another log and a folder are not.
  zyrtest::WriteFile(dir + "/r.2020-01-01.log", "old");
  zyrtest::WriteFile(dir + "/r.log.3", "left over");
  zyrtest::WriteFile(dir + "/other.log.1", "other");
  ASSERT_EQ(mkdir((dir + "/r.log.9").c_str(), 0755), 0);
  Open(dir);
  ASSERT_EQ(Line(), ZYR_OK);  // RollingFile rolls after its line
  ZyrBasTestSetClockOffset(2 * 864000000000ll);
  ASSERT_EQ(Line(), ZYR_OK);  // RollingDateFile rolls before its line

  // The dated file carries the real day on which d.log was made.
  time_t now = time(nullptr);
  char day[32];
  strftime(day, sizeof day, "%Y-%m-%d", gmtime(&now));
  std::string dated = dir + "/d." + day + ".log";
  ASSERT_TRUE(Exists(dated));
  for (const std::string& name : {dated, dir + "/r.log.1", dir + "/r.log.2", dir + "/r.2020-01-01.log"})
    EXPECT_TRUE(Compressed(name)) << name;
  for (const char* name : {"d.log", "d.log.lock", "r.log.lock", "other.log.1", "r.log.9"})
    EXPECT_FALSE(Compressed(dir + "/" + name)) << name;
  EXPECT_TRUE(Exists(dir + "/d.log"));
}

TEST_F(Housekeeping, WithoutCompressionInTheFileSystemNothingHappensAndNothingFails) {
  std::string dir = zyrtest::MakeTempDir("hk");
  Open(dir);
  ASSERT_EQ(Line(), ZYR_OK);
  ASSERT_TRUE(Exists(dir + "/r.log.1"));
  EXPECT_FALSE(Compressed(dir + "/r.log.1"));
  ZyrLogHousekeeper housekeeper;
  ASSERT_EQ(housekeeper.Init(), ZYR_OK);
  EXPECT_EQ(housekeeper.CompressRolled(U16(dir + "/r.log.1").c_str()), ZYR_OK);
  EXPECT_EQ(housekeeper.PendingCount(), 0u);
  EXPECT_EQ(housekeeper.CollectFinished(), ZYR_OK);
  zyrtest::RemoveTree(dir);
}

}  // namespace
