// File appenders: the bytes of a log file, configuration, failures of the
// target, the rolling rules, and the lock between processes.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "appender/file_appender.h"
#include "appender/file_lock.h"
#include "appender/rolling_file_appender.h"
#include "base/memory.h"
#include "config/document.h"
#include "engine/manager.h"
#include "layout/layout.h"
#include "records/event.h"
#include "file_appender_fixture.h"
#include "test_support.h"
#include "zyrlog/zyrlog.h"

namespace {

using zyrtest::Exists;
using zyrtest::ReadFile;
using zyrtest::U16;
using zyrtest::WriteFile;

std::u16string S(const ZyrBasString& s) { return zyrtest::Str(s); }

const std::string kMark = "\xef\xbb\xbf";

// Records the rolled files that an appender reports.
struct RecordingOwner : ZyrLogHierarchy {
  ZyrResult ReportRolledFile(const char16_t* path) override {
    reported.emplace_back(path);
    return ZYR_E_NOT_IMPLEMENTED;  // as today's manager answers; must not matter
  }
  std::vector<std::u16string> reported;
};

// A layout with a header and a footer, for the framing rules.
class FramedLayout final : public ZyrLogLayout {
 public:
  ZyrResult FormatEvent(ZyrBasString& text, const ZyrLogEvent&) override { return text.Assign(u"E"); }
  ZyrResult Configure(ZyrCfgSection&) override { return ZYR_OK; }
  ZyrResult Save(ZyrCfgSection&) override { return ZYR_OK; }
  void Destroy(std::uint32_t) override {}
  ZyrResult GetHeader(ZyrBasString& text) override { return text.Assign(u"HDR"); }
  ZyrResult GetFooter(ZyrBasString& text) override { return text.Assign(u"FTR"); }
};

using zyrtest::FileAppenderTest;

// ---------------------------------------------------------------------------
// The bytes of a log file

TEST_F(FileAppenderTest, NewFileIsUtf8WithMarkAndCrLf) {
  auto* a = Make<ZyrLogFileAppender>(u"File", {{u"FileName", u"sub/a.log"}});
  ASSERT_EQ(Write(a, u"h\u00e9llo"), ZYR_OK);
  ASSERT_EQ(Write(a, u"x\U0001F600"), ZYR_OK);  // a surrogate pair: 4 bytes
  EXPECT_EQ(ReadFile(Path("sub/a.log")), kMark + "h\xc3\xa9llo\r\n" + "x\xf0\x9f\x98\x80\r\n");
  struct stat st;
  ASSERT_EQ(stat(Path("sub/a.log").c_str(), &st), 0);
  EXPECT_EQ(st.st_mode & 0777, 0666u);  // every account shares the log, whatever the umask
}

TEST_F(FileAppenderTest, ExistingFilesKeepTheirEncodingAndBytes) {
  WriteFile(Path("u16.log"), std::string("\xff\xfe" "a\0\r\0\n\0", 8));
  WriteFile(Path("empty.log"), "");
  WriteFile(Path("plain.log"), "old\n");
  auto* u16 = Make<ZyrLogFileAppender>(u"File", {{u"FileName", u"u16.log"}});
  auto* empty = Make<ZyrLogFileAppender>(u"File", {{u"FileName", u"empty.log"}});
  auto* plain = Make<ZyrLogFileAppender>(u"File", {{u"FileName", u"plain.log"}});
  // A lone surrogate can't become UTF-8; a UTF-16 file takes it as it stands.
  ASSERT_EQ(Write(u16, u"b\xd800"), ZYR_OK);
  EXPECT_EQ(u16->Writer().Encoding(), ZYR_LOG_ENCODING_UTF16);
  ASSERT_EQ(Write(empty, u"b"), ZYR_OK);
  EXPECT_EQ(Write(empty, u"c\xd800"), ZYR_E_INVALID_DATA);
  EXPECT_TRUE(empty->IsOpened());
  ASSERT_EQ(Write(plain, u"new"), ZYR_OK);
  EXPECT_EQ(ReadFile(Path("u16.log")),
            std::string("\xff\xfe" "a\0\r\0\n\0" "b\0\x00\xd8\r\0\n\0", 16));
  EXPECT_EQ(ReadFile(Path("empty.log")), kMark + "b\r\n");
  EXPECT_EQ(ReadFile(Path("plain.log")), "old\nnew\r\n");  // no mark over the old bytes
}

TEST_F(FileAppenderTest, FileNameAndImmediateWrite) {
  auto* a = Make<ZyrLogFileAppender>(u"File", {{u"FileName", u"a.log"}, {u"ImmediateWrite", u"TRUE"}});
  EXPECT_FALSE(a->ImmediateWrite());
  for (const char16_t* yes : {u"true", u"yes", u"1"}) {
    a = Make<ZyrLogFileAppender>(u"File", {{u"FileName", u"/abs/b.log"}, {u"ImmediateWrite", yes}});
    EXPECT_TRUE(a->ImmediateWrite());
  }
  EXPECT_EQ(S(a->FileName()), u"/abs/b.log");  // rooted: the base folder does not apply
  ZyrBasString full;
  ASSERT_EQ(Make<ZyrLogFileAppender>(u"File", {{u"FileName", u"x/../y.log"}})->FullPath(full), ZYR_OK);
  EXPECT_EQ(S(full), WP("y.log"));
  Make<ZyrLogFileAppender>(u"File", {}, ZYR_E_CFG_NOT_FOUND);  // FileName is required
  Make<ZyrLogFileAppender>(u"SharedFile", {{u"FileName", u"s.log"}}, ZYR_E_WRONG_APPENDER_TYPE);
}

TEST_F(FileAppenderTest, FreshFileIsMadeOnceAndNeverReplaced) {
  WriteFile(Path("old.log"), kMark + "kept\r\n");
  ZyrLogFileWriter writer;
  ASSERT_EQ(writer.OpenLogFile(U16(Path("old.log")).c_str(), true, true), ZYR_OK);
  ASSERT_EQ(writer.WriteMark(), ZYR_OK);
  ASSERT_EQ(writer.WriteLine(u"more", 4), ZYR_OK);
  ASSERT_EQ(writer.OpenLogFile(U16(Path("new.log")).c_str(), true, true), ZYR_OK);
  ASSERT_EQ(writer.WriteMark(), ZYR_OK);
  ASSERT_EQ(writer.Close(), ZYR_OK);
  EXPECT_EQ(ReadFile(Path("old.log")), kMark + "kept\r\nmore\r\n");
  EXPECT_EQ(ReadFile(Path("new.log")), kMark);
  // No temporary file is left beside them.
  EXPECT_EQ(system(("test $(ls '" + dir_ + "' | wc -l) -eq 2").c_str()), 0);
}

// ---------------------------------------------------------------------------
// Failures of the target

TEST_F(FileAppenderTest, FullDiskFailsTheLineAndKeepsTheFileOpen) {
  auto* a = Make<ZyrLogFileAppender>(u"File", {{u"FileName", u"full.log"}});
  ASSERT_EQ(Write(a, u"0123456789"), ZYR_OK);  // 3 + 12 bytes
  pid_t child = fork();
  if (child == 0) {
    signal(SIGXFSZ, SIG_IGN);
    struct rlimit limit = {20, 20};
    setrlimit(RLIMIT_FSIZE, &limit);
    int code = 0;
    if (Write(a, u"0123456789") == ZYR_E_DISK_FULL) code |= 1;  // only part of it fits
    if (Write(a, u"0123456789") == ZYR_E_DISK_FULL) code |= 2;  // nothing fits
    if (a->IsOpened() && a->Writer().IsOpen()) code |= 4;
    _exit(code);
  }
  int status = 0;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  ASSERT_TRUE(WIFEXITED(status));
  EXPECT_EQ(WEXITSTATUS(status), 7);
  ASSERT_EQ(Write(a, u"after"), ZYR_OK);  // room again: the next event goes through
}

TEST_F(FileAppenderTest, OrdinaryLinesAllocateNothing) {
  auto* plain = Make<ZyrLogFileAppender>(u"File", {{u"FileName", u"p.log"}});
  auto* rolling = Make<ZyrLogRollingFileAppender>(u"RollingFile", {{u"FileName", u"r.log"}});
  std::u16string line(300, u'x');
  ASSERT_EQ(Write(plain, line), ZYR_OK);
  ASSERT_EQ(Write(rolling, line), ZYR_OK);
  line.assign(1000, u'\u00e9');  // longer, and two bytes a character in UTF-8
  ZyrLogEvent event;
  ZyrBasTestFailAllocationsAfter(0);
  ZyrResult r1 = plain->AppendFormatted(event, line.data(), line.size());
  ZyrResult r2 = rolling->AppendFormatted(event, line.data(), line.size());
  ZyrBasTestFailAllocationsAfter(-1);
  EXPECT_EQ(r1, ZYR_OK);
  EXPECT_EQ(r2, ZYR_OK);
}

// ---------------------------------------------------------------------------
// Rolling

TEST_F(FileAppenderTest, RollsOnlyAboveSizeAndReportsNumberOne) {
  RecordingOwner owner;
  auto* a = Make<ZyrLogRollingFileAppender>(
      u"RollingFile", {{u"FileName", u"r.log"}, {u"Size", u"13"}, {u"FilesCount", u"2"}}, ZYR_OK,
      &owner);
  ASSERT_EQ(Write(a, u"12345678"), ZYR_OK);  // 3 + 10: exactly Size stays
  EXPECT_FALSE(Exists(Path("r.log.1")));
  ASSERT_EQ(Write(a, u""), ZYR_OK);  // two bytes more: rolls
  EXPECT_FALSE(a->IsOpened());
  EXPECT_FALSE(Exists(Path("r.log")));  // the next event makes it
  EXPECT_EQ(ReadFile(Path("r.log.1")), kMark + "12345678\r\n\r\n");
  ASSERT_EQ(owner.reported.size(), 1u);
  EXPECT_EQ(owner.reported[0], WP("r.log.1"));
  EXPECT_TRUE(Exists(Path("r.log.lock")));
  a->Release();
  EXPECT_EQ(a->FileLock().State(), ZYR_LOCK_CLOSED);
  struct stat st;
  ASSERT_EQ(stat(Path("r.log.lock").c_str(), &st), 0);  // the lock file stays
  EXPECT_EQ(st.st_mode & 0777, 0666u);
}

TEST_F(FileAppenderTest, SizeZeroOrNegativeRollsEveryEvent) {
  auto* a = Make<ZyrLogRollingFileAppender>(
      u"RollingFile", {{u"FileName", u"r.log"}, {u"Size", u"-5"}, {u"FilesCount", u"3"}});
  for (std::u16string line : {u"L0", u"L1", u"L2", u"L3", u"L4"}) ASSERT_EQ(Write(a, line), ZYR_OK);
  EXPECT_EQ(ReadFile(Path("r.log.1")), kMark + "L4\r\n");
  EXPECT_EQ(ReadFile(Path("r.log.2")), kMark + "L3\r\n");
  EXPECT_EQ(ReadFile(Path("r.log.3")), kMark + "L2\r\n");
  EXPECT_FALSE(Exists(Path("r.log.4")));
  EXPECT_FALSE(Exists(Path("r.log")));

  auto* none = Make<ZyrLogRollingFileAppender>(
      u"RollingFile", {{u"FileName", u"n.log"}, {u"Size", u"0"}, {u"FilesCount", u"0"}});
  auto* one = Make<ZyrLogRollingFileAppender>(
      u"RollingFile", {{u"FileName", u"o.log"}, {u"Size", u"0"}, {u"FilesCount", u"1"}});
  for (std::u16string line : {u"A", u"B"}) {
    ASSERT_EQ(Write(none, line), ZYR_OK);
    ASSERT_EQ(Write(one, line), ZYR_OK);
  }
  EXPECT_FALSE(Exists(Path("n.log")));
  EXPECT_FALSE(Exists(Path("n.log.1")));
  EXPECT_EQ(ReadFile(Path("o.log.1")), kMark + "B\r\n");
  EXPECT_FALSE(Exists(Path("o.log.2")));
}

TEST_F(FileAppenderTest, FooterOfARolloverStaysInTheOldFile) {
  auto* a = Make<ZyrLogRollingFileAppender>(u"RollingFile",
                                            {{u"FileName", u"f.log"}, {u"Size", u"20"}});
  FramedLayout layout;
  a->SetLayout(&layout);
  ASSERT_EQ(Write(a, u"0123456789"), ZYR_OK);  // 3 + 5 + 12 = 20
  ASSERT_EQ(Write(a, u"abc"), ZYR_OK);
  EXPECT_EQ(ReadFile(Path("f.log.1")), kMark + "HDR\r\n0123456789\r\nabc\r\nFTR\r\n");
  EXPECT_FALSE(Exists(Path("f.log.2")));
  EXPECT_FALSE(Exists(Path("f.log")));  // no second rollover started by the footer
  a->Release();
  a->SetLayout(nullptr);
}

TEST_F(FileAppenderTest, LoweredFilesCountRemovesTheNumbersAboveAtOnce) {
  for (int i = 1; i <= 11; ++i) WriteFile(Path("r.log." + std::to_string(i)), "x");
  auto* a = Make<ZyrLogRollingFileAppender>(u"RollingFile", {{u"FileName", u"r.log"}});
  EXPECT_EQ(a->FilesCount(), 10u);
  ZyrCfgSection section;
  section.SetName(u"a");
  section.SetValue(u"FileName", u"r.log");
  section.SetValue(u"FilesCount", u"3");
  ASSERT_EQ(a->Reconfigure(section), ZYR_OK);
  for (int i = 1; i <= 11; ++i)
    EXPECT_EQ(Exists(Path("r.log." + std::to_string(i))), i <= 3 || i == 11) << i;

  section.SetValue(u"Size", u"0x10");
  section.SetValue(u"FilesCount", u"-1");
  EXPECT_EQ(a->Reconfigure(section), ZYR_E_INVALID_ARGUMENT);
  EXPECT_EQ(a->Size(), 16);  // read before the failure: stays in force
  EXPECT_EQ(a->FilesCount(), 3u);
  ZyrCfgSection saved;
  ASSERT_EQ(a->WriteConfig(saved), ZYR_OK);
  ZyrCfgValueRef v;
  ASSERT_EQ(saved.FindValue(u"Size", &v), ZYR_OK);
  EXPECT_EQ(S(v->text), u"16");
  section.SetValue(u"AppenderType", u"File");
  EXPECT_EQ(a->Reconfigure(section), ZYR_E_WRONG_APPENDER_TYPE);
}

// ---------------------------------------------------------------------------
// The lock between processes

TEST_F(FileAppenderTest, LockIsTriedNeverWaitedAndDiesWithItsHolder) {
  std::u16string lockPath = U16(Path("l.lock"));
  ZyrLogFileLock mine, other;
  ASSERT_EQ(mine.Open(lockPath.c_str()), ZYR_OK);
  ASSERT_EQ(other.Open(lockPath.c_str()), ZYR_OK);
  ASSERT_EQ(mine.TryLock(true), ZYR_OK);
  EXPECT_EQ(other.TryLock(true), ZYR_W_TIMEOUT);  // two opens compete like two processes
  mine.Unlock();
  ASSERT_EQ(other.TryLock(true), ZYR_OK);
  other.Unlock();

  int ready[2];
  ASSERT_EQ(pipe(ready), 0);
  pid_t child = fork();
  if (child == 0) {
    ZyrLogFileLock held;
    if (held.Open(lockPath.c_str()) != ZYR_OK || held.TryLock(true) != ZYR_OK) _exit(1);
    char c = 1;
    (void)!write(ready[1], &c, 1);
    pause();
    _exit(0);
  }
  char c = 0;
  ASSERT_EQ(read(ready[0], &c, 1), 1);
  EXPECT_EQ(mine.TryLock(true), ZYR_W_TIMEOUT);

  // A rollover while another process holds the lock is skipped, and the
  // appender is left closed for the next event.
  auto* a = Make<ZyrLogRollingFileAppender>(u"RollingFile",
                                            {{u"FileName", u"l"}, {u"Size", u"0"}});
  ASSERT_EQ(Write(a, u"first"), ZYR_OK);
  EXPECT_FALSE(a->IsOpened());
  EXPECT_FALSE(Exists(Path("l.1")));
  EXPECT_EQ(ReadFile(Path("l")), kMark + "first\r\n");

  kill(child, SIGKILL);
  waitpid(child, nullptr, 0);
  close(ready[0]);
  close(ready[1]);
  EXPECT_EQ(mine.TryLock(true), ZYR_OK);
  mine.Unlock();
  ASSERT_EQ(Write(a, u"second"), ZYR_OK);
  EXPECT_EQ(ReadFile(Path("l.1")), kMark + "first\r\nsecond\r\n");
  mine.Close();
  other.Close();
}

// ---------------------------------------------------------------------------
// Through the configuration text

TEST(FileAppenderConfig, BuilderRefusesTheFileTypesNotBuilt) {
  std::string home = zyrtest::UsePrivateLocalAppData("filecfg");
  std::string logs = home + "/logs";
  IZyrLog* log = nullptr;
  ASSERT_EQ(ZyrGetLogObject(&IID_IZyrLog, &log), ZYR_OK);
  ASSERT_EQ(log->SetFolders(U16(home).c_str(), U16(logs).c_str(), 0), ZYR_OK);
  EXPECT_EQ(log->LoadConfigText(u"[s]\nType = Appender\nAppenderType = SharedFile\nFileName = s.log\n"),
            static_cast<ZyrResult>(0xe0010062));
  EXPECT_EQ(log->LoadConfigText(u"[d]\nType = Appender\nAppenderType = RollingDateFile\nFileName = d.log\n"),
            ZYR_E_NOT_IMPLEMENTED);
  EXPECT_FALSE(Exists(logs + "/s.log"));
  ZyrReleaseLogObject(&IID_IZyrLog, log);
  zyrtest::RemoveTree(home);
}

}  // namespace
