// The date-rolling appender: rolls at midnight UTC by the library's clock,
// dated names from creation times, removal by number and by age; and the
// compression of the rolled files of both rolling appenders.
//
// Creation times must follow the test's clock, so the tests that move the
// clock run on a small ext4 without birth times, where a file's creation
// time is the one the library stores; they skip where it cannot be mounted.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "appender/housekeeper.h"
#include "appender/rolling_date_file_appender.h"
#include "base/file.h"
#include "base/memory.h"
#include "base/time.h"
#include "config/document.h"
#include "engine/manager.h"
#include "clock_support.h"
#include "mount_support.h"
#include "records/event.h"
#include "test_support.h"
#include "zyrlog/zyrlog.h"

namespace {

using zyrtest::Exists;
using zyrtest::ReadFile;
using zyrtest::U16;

const std::string kMark = "\xef\xbb\xbf";
using zyrtest::kDay;
using zyrtest::kSecond;
using zyrtest::SetClock;
using zyrtest::UtcTime;

struct RecordingOwner : ZyrLogAppenderOwner {
  ZyrResult ReportRolledFile(const char16_t* path) override {
    reported.emplace_back(path);
    return ZYR_OK;
  }
  std::vector<std::u16string> reported;
};

ZyrCfgSection Section(std::vector<std::pair<const char16_t*, const char16_t*>> keys) {
  ZyrCfgSection section;
  section.SetName(u"d");
  for (auto& [key, value] : keys) section.SetValue(key, value);
  return section;
}

// A file system whose creation times the library sets, and a clock that
// the test moves.
class RollingDateTest : public ::testing::Test {
 protected:
  void SetUp() override {
    if (!mount_.Mount("mkfs.ext4 -q -F -I 128", 8)) GTEST_SKIP() << mount_.Why();
    dir_ = mount_.Dir();
  }
  void TearDown() override {
    for (ZyrLogAppender* a : made_) {
      a->Release();
      ZyrDelete(a);
    }
    ZyrBasTestSetClockOffset(0);
  }

  ZyrLogRollingDateFileAppender* Make(std::vector<std::pair<const char16_t*, const char16_t*>> keys) {
    auto* a = ZyrNew<ZyrLogRollingDateFileAppender>();
    a->Init(u"d", &owner_);
    a->SetBaseFolder(ZyrBasString());
    made_.push_back(a);
    keys.emplace_back(u"AppenderType", u"RollingDateFile");
    std::u16string file = U16(P("c.log"));
    keys.emplace_back(u"FileName", file.c_str());
    ZyrCfgSection section = Section(keys);
    EXPECT_EQ(a->Reconfigure(section), ZYR_OK);
    return a;
  }

  static ZyrResult Write(ZyrLogAppender* a, const std::u16string& text) {
    ZyrLogEvent event;
    return a->AppendFormatted(event, text.data(), text.size());
  }

  // A file with the given content and creation time.
  void MakeFile(const std::string& name, const std::string& content, std::int64_t created) {
    zyrtest::WriteFile(P(name), content);
    ZyrBasFile f;
    ASSERT_EQ(f.Open(U16(P(name)).c_str(), ZYR_FILE_OPEN_EXISTING, ZYR_FILE_WRITE, 0, 0), ZYR_OK);
    ASSERT_EQ(f.SetCreationTime(created), ZYR_OK);
  }

  std::string P(const std::string& name) const { return dir_ + "/" + name; }

  zyrtest::LoopMount mount_;
  std::string dir_;
  RecordingOwner owner_;
  std::vector<ZyrLogAppender*> made_;
};

TEST_F(RollingDateTest, FirstLineAfterMidnightUtcStartsANewFileWhateverTheTimeZone) {
  zyrtest::ScopedEnv tz("TZ", "Pacific/Kiritimati");  // UTC+14
  tzset();
  SetClock(UtcTime(2026, 3, 14, 23, 59, 59, 500));
  auto* a = Make({});
  ASSERT_EQ(Write(a, u"a"), ZYR_OK);
  // One millisecond after midnight, to the microsecond.
  EXPECT_NEAR(static_cast<double>(a->NextRollTime() - UtcTime(2026, 3, 15, 0, 0, 0, 1)), 0, 10);
  SetClock(UtcTime(2026, 3, 15));  // midnight, but not yet a millisecond after it
  ASSERT_EQ(Write(a, u"b"), ZYR_OK);
  EXPECT_FALSE(Exists(P("c.2026-03-14.log")));
  SetClock(UtcTime(2026, 3, 15, 0, 0, 0, 2));
  ASSERT_EQ(Write(a, u"c"), ZYR_OK);
  EXPECT_EQ(ReadFile(P("c.2026-03-14.log")), kMark + "a\r\nb\r\n");
  EXPECT_EQ(ReadFile(P("c.log")), kMark + "c\r\n");
  ASSERT_EQ(owner_.reported.size(), 1u);
  EXPECT_EQ(owner_.reported[0], U16(P("c.2026-03-14.log")));
  // The new live file carries the new day: it keeps its name at the next
  // open, and rolls under that date a day later.
  a->Release();
  ASSERT_EQ(Write(a, u"d"), ZYR_OK);
  EXPECT_EQ(ReadFile(P("c.log")), kMark + "c\r\nd\r\n");
  SetClock(UtcTime(2026, 3, 16, 0, 0, 1));
  ASSERT_EQ(Write(a, u"e"), ZYR_OK);
  EXPECT_EQ(ReadFile(P("c.2026-03-15.log")), kMark + "c\r\nd\r\n");
  EXPECT_EQ(ReadFile(P("c.2026-03-14.log")), kMark + "a\r\nb\r\n");  // neither count set: all stay
}

TEST_F(RollingDateTest, AFileFromAnEarlierDayRollsAtOpenUnderItsOwnDate) {
  MakeFile("c.log", kMark + "old\r\n", UtcTime(2026, 3, 10, 12));
  MakeFile("c.2026-03-10.log", "replaced", UtcTime(2026, 3, 10, 1));
  SetClock(UtcTime(2026, 3, 14, 8));
  auto* a = Make({});
  ASSERT_EQ(Write(a, u"new"), ZYR_OK);
  EXPECT_EQ(ReadFile(P("c.2026-03-10.log")), kMark + "old\r\n");
  EXPECT_EQ(ReadFile(P("c.log")), kMark + "new\r\n");

  // A clock set back before the live file's creation date: no roll.
  a->Release();
  SetClock(UtcTime(2026, 3, 12, 8));
  ASSERT_EQ(Write(a, u"back"), ZYR_OK);
  EXPECT_EQ(ReadFile(P("c.log")), kMark + "new\r\nback\r\n");
  EXPECT_FALSE(Exists(P("c.2026-03-14.log")));
}

TEST_F(RollingDateTest, FilesCountKeepsTheNewestByCreationTimeNotByName) {
  // Two files of one creation time count as one, and the one listed first
  // is neither counted nor removed.
  MakeFile("c.2030-01-01.log", "x", UtcTime(2026, 3, 1));
  MakeFile("c.2031-01-01.log", "y", UtcTime(2026, 3, 1));
  MakeFile("c.2001-01-01.log", "z", UtcTime(2026, 3, 2));
  MakeFile("c.2000-01-01.log", "w", UtcTime(2026, 3, 3));
  MakeFile("c.log", "live", UtcTime(2026, 3, 4));
  SetClock(UtcTime(2026, 3, 5, 10));
  Make({{u"FilesCount", u"2"}});
  ASSERT_EQ(Write(made_[0], u"l"), ZYR_OK);
  // By creation time: {1 Mar: x or y}, 2 Mar z, 3 Mar w, 4 Mar the rolled
  // live file: the two oldest entries go.
  EXPECT_EQ(Exists(P("c.2030-01-01.log")) + Exists(P("c.2031-01-01.log")), 1);
  EXPECT_FALSE(Exists(P("c.2001-01-01.log")));
  EXPECT_TRUE(Exists(P("c.2000-01-01.log")));
  EXPECT_EQ(ReadFile(P("c.2026-03-04.log")), "live");
}

TEST_F(RollingDateTest, DaysCountRemovesFilesCreatedThatManyDaysAgo) {
  std::int64_t now = UtcTime(2026, 3, 14, 6);
  MakeFile("c.2026-03-07.log", "gone", now - 7 * kDay - kSecond / 1000);
  MakeFile("c.2026-03-08.log", "kept", now - 7 * kDay + kSecond);
  MakeFile("c.log", "live", UtcTime(2026, 3, 13));
  SetClock(now);
  Make({{u"DaysCount", u"7"}});
  ASSERT_EQ(Write(made_[0], u"l"), ZYR_OK);
  EXPECT_FALSE(Exists(P("c.2026-03-07.log")));
  EXPECT_TRUE(Exists(P("c.2026-03-08.log")));
  EXPECT_TRUE(Exists(P("c.2026-03-13.log")));
}

// ---------------------------------------------------------------------------
// Without a clock: names and keys

TEST(RollingDateNames, TheDateTakesThePlaceOfTheExtension) {
  ZyrBasString path, out;
  std::uint64_t created = static_cast<std::uint64_t>(UtcTime(2014, 11, 3, 23, 59, 59));
  path.Assign(u"/var/log/common.log");
  ASSERT_EQ(ZyrLogRollingDateFileAppender::DatedName(out, path, created), ZYR_OK);
  EXPECT_EQ(zyrtest::Str(out), u"/var/log/common.2014-11-03.log");
  path.Assign(u"/var/log/trace");
  ASSERT_EQ(ZyrLogRollingDateFileAppender::DatedName(out, path, created), ZYR_OK);
  EXPECT_EQ(zyrtest::Str(out), u"/var/log/trace.2014-11-03");
  EXPECT_EQ(ZyrLogRollingDateFileAppender::DatedName(out, path, 5), ZYR_E_TIME_OUT_OF_RANGE);
}

TEST(RollingDateNames, CountsExcludeOneAnotherAndOneIsSaved) {
  ZyrLogRollingDateFileAppender a;
  a.Init(u"d", nullptr);
  ZyrCfgSection both = Section({{u"AppenderType", u"RollingDateFile"}, {u"FileName", u"d.log"},
                                {u"FilesCount", u"3"}, {u"DaysCount", u"0x7"}});
  EXPECT_EQ(a.Reconfigure(both), ZYR_E_INVALID_ARGUMENT);
  EXPECT_EQ(a.FilesCount(), 0u);
  EXPECT_EQ(a.DaysCount(), 0u);
  ZyrCfgSection untyped = Section({{u"FileName", u"d.log"}});
  EXPECT_EQ(a.Reconfigure(untyped), ZYR_E_CFG_NOT_FOUND);
  ZyrCfgSection days = Section({{u"AppenderType", u"RollingDateFile"}, {u"FileName", u"d.log"},
                                {u"DaysCount", u"0x7"}});
  ASSERT_EQ(a.Reconfigure(days), ZYR_OK);
  ZyrCfgSection saved;
  ASSERT_EQ(a.WriteConfig(saved), ZYR_OK);
  ZyrCfgValueRef v;
  ASSERT_EQ(saved.FindValue(u"DaysCount", &v), ZYR_OK);
  EXPECT_EQ(zyrtest::Str(v->text), u"7");
  EXPECT_NE(saved.FindValue(u"FilesCount", &v), ZYR_OK);
  ASSERT_EQ(saved.FindValue(u"AppenderType", &v), ZYR_OK);
  EXPECT_EQ(zyrtest::Str(v->text), u"RollingDateFile");
}

// ---------------------------------------------------------------------------
// Compression of rolled files: on a real btrfs through the whole road, and
// the quiet refusal of a file system without it.

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
  ZyrBasTestSetClockOffset(2 * kDay);
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
