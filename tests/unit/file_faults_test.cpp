// File appenders against a hostile or broken file system: links planted at
// a log's names, files and folders removed under an open log, descriptors
// used up, folders where files should be, locks refused.
#include <gtest/gtest.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <string>
#include <thread>

#include "appender/file_appender.h"
#include "appender/file_lock.h"
#include "appender/rolling_date_file_appender.h"
#include "appender/rolling_file_appender.h"
#include "base/file_lock.h"
#include "base/result.h"
#include "config/reader.h"
#include "engine_support.h"
#include "file_appender_fixture.h"
#include "log_object_fixture.h"
#include "test_support.h"

namespace {

using zyrtest::Exists;
using zyrtest::FileAppenderTest;
using zyrtest::ReadFile;
using zyrtest::U16;
using zyrtest::WriteFile;

const std::string kMark = "\xef\xbb\xbf";

bool IsLink(const std::string& path) {
  struct stat st;
  return lstat(path.c_str(), &st) == 0 && S_ISLNK(st.st_mode);
}

// ---------------------------------------------------------------------------
// Links at a log's names

TEST_F(FileAppenderTest, LinkAtAPlainLogIsRefusedAndRetriedAtTheNextEvent) {
  WriteFile(Path("victim"), "untouched");
  ASSERT_EQ(symlink(Path("victim").c_str(), Path("a.log").c_str()), 0);
  ASSERT_EQ(symlink(Path("made-by-link").c_str(), Path("b.log").c_str()), 0);  // dangling
  auto* a = Make<ZyrLogFileAppender>(u"File", {{u"FileName", u"a.log"}});
  EXPECT_EQ(Write(a, u"lost"), ZYR_E_INVALID_NAME);
  EXPECT_FALSE(a->IsOpened());
  EXPECT_EQ(ReadFile(Path("victim")), "untouched");

  auto* b = Make<ZyrLogFileAppender>(u"File", {{u"FileName", u"b.log"}});
  EXPECT_EQ(Write(b, u"lost"), ZYR_E_INVALID_NAME);
  EXPECT_FALSE(Exists(Path("made-by-link")));

  // The link goes: the next event opens a file of its own.
  ASSERT_EQ(unlink(Path("a.log").c_str()), 0);
  ASSERT_EQ(Write(a, u"kept"), ZYR_OK);
  EXPECT_FALSE(IsLink(Path("a.log")));
  EXPECT_EQ(ReadFile(Path("a.log")), kMark + "kept\r\n");
  EXPECT_EQ(ReadFile(Path("victim")), "untouched");
}

TEST_F(FileAppenderTest, LinkAtARollingLogOfEitherKindOrItsLockFileIsRefused) {
  WriteFile(Path("victim"), "untouched");
  ASSERT_EQ(symlink(Path("victim").c_str(), Path("r.log").c_str()), 0);
  auto* a = Make<ZyrLogRollingFileAppender>(u"RollingFile", {{u"FileName", u"r.log"}});
  EXPECT_EQ(Write(a, u"lost"), ZYR_E_INVALID_NAME);
  EXPECT_FALSE(a->IsOpened());
  ASSERT_EQ(unlink(Path("r.log").c_str()), 0);
  ASSERT_EQ(symlink(Path("victim").c_str(), Path("d.log").c_str()), 0);
  auto* d = Make<ZyrLogRollingDateFileAppender>(u"RollingDateFile", {{u"FileName", u"d.log"}});
  EXPECT_EQ(Write(d, u"lost"), ZYR_E_INVALID_NAME);
  ASSERT_EQ(unlink(Path("d.log").c_str()), 0);

  // The lock file, dangling or leading to a file: neither is created nor
  // touched, and no log is written without the lock file.
  ASSERT_EQ(symlink(Path("made-by-link").c_str(), Path("s.log.lock").c_str()), 0);
  auto* s = Make<ZyrLogRollingFileAppender>(u"RollingFile", {{u"FileName", u"s.log"}});
  EXPECT_EQ(Write(s, u"lost"), ZYR_E_INVALID_NAME);
  EXPECT_FALSE(Exists(Path("made-by-link")));
  EXPECT_FALSE(Exists(Path("s.log")));
  ZyrLogFileLock lock;
  ASSERT_EQ(symlink(Path("victim").c_str(), Path("t.lock").c_str()), 0);
  EXPECT_EQ(lock.Open(U16(Path("t.lock")).c_str()), ZYR_E_INVALID_NAME);
  EXPECT_EQ(lock.State(), ZYR_LOCK_CLOSED);
  EXPECT_EQ(ReadFile(Path("victim")), "untouched");

  // Without the links both logs work at the next event.
  ASSERT_EQ(Write(a, u"kept"), ZYR_OK);
  EXPECT_EQ(ReadFile(Path("r.log")), kMark + "kept\r\n");
  ASSERT_EQ(Write(d, u"kept"), ZYR_OK);
  EXPECT_EQ(ReadFile(Path("d.log")), kMark + "kept\r\n");
  ASSERT_EQ(unlink(Path("s.log.lock").c_str()), 0);
  ASSERT_EQ(Write(s, u"kept"), ZYR_OK);
  EXPECT_FALSE(IsLink(Path("s.log.lock")));
  EXPECT_EQ(ReadFile(Path("s.log")), kMark + "kept\r\n");
}

// ---------------------------------------------------------------------------
// Descriptors used up, a folder where the log should be

TEST_F(FileAppenderTest, DescriptorsUsedUpFailTheOpenAndTheNextEventRetries) {
  if (zyrtest::SanitizerNeedsDescriptors())
    GTEST_SKIP() << "the sanitizer runtime needs free descriptors of its own";
  int code = zyrtest::RunInChild([this] {
    auto* plain = Make<ZyrLogFileAppender>(u"File", {{u"FileName", u"fd.log"}});
    auto* rolling = Make<ZyrLogRollingFileAppender>(u"RollingFile", {{u"FileName", u"fdr.log"}});
    std::vector<int> taken = zyrtest::ExhaustDescriptors();
    const ZyrResult tooMany = ZyrResultFromErrno(EMFILE);
    if (Write(plain, u"lost") != tooMany || plain->IsOpened()) return 1;
    if (Write(rolling, u"lost") != tooMany || rolling->IsOpened()) return 2;
    for (int fd : taken) close(fd);
    if (Write(plain, u"kept") != ZYR_OK || Write(rolling, u"kept") != ZYR_OK) return 3;
    if (ReadFile(Path("fd.log")) != kMark + "kept\r\n") return 4;
    return ReadFile(Path("fdr.log")) == kMark + "kept\r\n" ? 0 : 5;
  });
  EXPECT_EQ(code, 0);
}

// Also a file where the log's folder should be: the open fails, the
// appender stays closed, and the next event makes the folder.
TEST_F(FileAppenderTest, FolderAtTheLogsNameFailsTheOpenUntilItGoes) {
  WriteFile(Path("block"), "a file where a folder should be");
  auto* blocked = Make<ZyrLogFileAppender>(u"File", {{u"FileName", u"block/x.log"}});
  EXPECT_TRUE(ZyrFailed(Write(blocked, u"lost")));
  EXPECT_FALSE(blocked->IsOpened());
  ASSERT_EQ(unlink(Path("block").c_str()), 0);
  ASSERT_EQ(Write(blocked, u"kept"), ZYR_OK);
  EXPECT_EQ(ReadFile(Path("block/x.log")), kMark + "kept\r\n");

  ASSERT_EQ(mkdir(Path("d.log").c_str(), 0755), 0);
  ASSERT_EQ(mkdir(Path("r.log").c_str(), 0755), 0);
  auto* plain = Make<ZyrLogFileAppender>(u"File", {{u"FileName", u"d.log"}});
  auto* rolling = Make<ZyrLogRollingFileAppender>(u"RollingFile", {{u"FileName", u"r.log"}});
  EXPECT_EQ(Write(plain, u"lost"), ZYR_E_ACCESS_DENIED);
  EXPECT_EQ(Write(rolling, u"lost"), ZYR_E_ACCESS_DENIED);
  EXPECT_FALSE(plain->IsOpened());
  EXPECT_FALSE(rolling->IsOpened());
  ASSERT_EQ(rmdir(Path("d.log").c_str()), 0);
  ASSERT_EQ(rmdir(Path("r.log").c_str()), 0);
  ASSERT_EQ(Write(plain, u"kept"), ZYR_OK);
  ASSERT_EQ(Write(rolling, u"kept"), ZYR_OK);
  EXPECT_EQ(ReadFile(Path("d.log")), kMark + "kept\r\n");
  EXPECT_EQ(ReadFile(Path("r.log")), kMark + "kept\r\n");
}

// ---------------------------------------------------------------------------
// A configuration file that cannot be read

class UnreadableConfigTest : public zyrtest::LogObjectTest {
 protected:
  UnreadableConfigTest() : LogObjectTest("unreadable") {}
};

// Refused by the system (read as an account without the right to), or a
// folder at its name: the load fails with the system's reason and the
// configuration in force stays as it was.
TEST_F(UnreadableConfigTest, LoadFailsAndChangesNothing) {
  const std::string file = dir_ + "/locked.cfg";
  WriteFile(file, "[root]\nSeverity = FATAL\n");
  ASSERT_EQ(chmod(file.c_str(), 0), 0);
  ASSERT_EQ(mkdir((dir_ + "/folder.cfg").c_str(), 0755), 0);
  ZyrLogger* root = Get(u"root");
  const ZyrLogSeverity before = root->threshold.load();
  ASSERT_NE(before, ZYR_SEVERITY_FATAL);

  int code = zyrtest::RunInChild([&] {
    // Root reads any file; an ordinary account does not.
    if (geteuid() == 0 && (setresgid(65534, 65534, 65534) != 0 || setresuid(65534, 65534, 65534) != 0))
      return 1;
    if (log_->LoadConfigFile(U16(file).c_str()) != ZYR_E_ACCESS_DENIED) return 2;
    return root->threshold.load() == before ? 0 : 3;
  });
  EXPECT_EQ(code, 0);
  EXPECT_TRUE(ZyrFailed(log_->LoadConfigFile(U16(dir_ + "/folder.cfg").c_str())));
  EXPECT_EQ(root->threshold.load(), before);
  // The same file, readable, does take effect: the test sees a change.
  ASSERT_EQ(chmod(file.c_str(), 0644), 0);
  ASSERT_EQ(log_->LoadConfigFile(U16(file).c_str()), ZYR_OK);
  EXPECT_EQ(root->threshold.load(), ZYR_SEVERITY_FATAL);
}

// ---------------------------------------------------------------------------
// A lock file that the file system will not lock (by the base's test hook)

class RefusedLockTest : public FileAppenderTest {
 protected:
  void TearDown() override {
    ZyrBasTestRefuseFileLocks(ZYR_OK);
    FileAppenderTest::TearDown();
  }
};

// "No locks here" (the three answers by which a file system says so): the
// rollover goes on alone, as a process on such a share must.
TEST_F(RefusedLockTest, NoLockServiceRollsWithoutTheLock) {
  auto* a = Make<ZyrLogRollingFileAppender>(u"RollingFile", {{u"FileName", u"n.log"}, {u"Size", u"0"}});
  for (ZyrResult answer : {ZYR_E_NOT_SUPPORTED, ZYR_E_INVALID_OPERATION, ZYR_E_NO_FREE_SLOT}) {
    ZyrBasTestRefuseFileLocks(answer);
    ASSERT_EQ(Write(a, u"line"), ZYR_OK);
    EXPECT_EQ(a->FileLock().State(), ZYR_LOCK_OPEN);
  }
  EXPECT_EQ(ReadFile(Path("n.log.1")), kMark + "line\r\n");
  EXPECT_EQ(ReadFile(Path("n.log.3")), kMark + "line\r\n");
  EXPECT_EQ(ReadFile(Path("n.log")), kMark);
}

// Any other refusal counts as busy: no rollover, no line lost, and the next
// event writes on in the live file.
TEST_F(RefusedLockTest, OtherRefusalSkipsTheRolloverAndLosesNothing) {
  auto* a = Make<ZyrLogRollingFileAppender>(u"RollingFile", {{u"FileName", u"o.log"}, {u"Size", u"0"}});
  ZyrBasTestRefuseFileLocks(ZYR_E_ACCESS_DENIED);
  ASSERT_EQ(Write(a, u"one"), ZYR_OK);
  EXPECT_FALSE(a->IsOpened());
  ASSERT_EQ(Write(a, u"two"), ZYR_OK);
  EXPECT_FALSE(Exists(Path("o.log.1")));
  EXPECT_EQ(ReadFile(Path("o.log")), kMark + "one\r\ntwo\r\n");
  ZyrBasTestRefuseFileLocks(ZYR_OK);
  ASSERT_EQ(Write(a, u"three"), ZYR_OK);  // locks again: the overdue rollover
  EXPECT_EQ(ReadFile(Path("o.log.1")), kMark + "one\r\ntwo\r\nthree\r\n");
}

// ---------------------------------------------------------------------------
// A rebuild whose close fails

// An appender whose target refuses to close, as a file whose footer no
// longer fits or whose close reports an error.
class StubbornAppender final : public ZyrLogAppender {
 public:
  ZyrResult CloseTarget() override { return ZYR_E_WRITE_FAULT; }
};

TEST(AppenderRebuild, CloseThatFailsStillTakesTheNewSection) {
  StubbornAppender a;
  ASSERT_EQ(a.Init(u"s", nullptr), ZYR_OK);
  ASSERT_EQ(a.Open(), ZYR_OK);
  EXPECT_EQ(a.Close(), ZYR_E_WRITE_FAULT);  // a close alone reports and stays open
  EXPECT_TRUE(a.IsOpened());
  ZyrCfgSection section;
  section.SetName(u"s");
  section.SetValue(u"BreakSeverity", u"ERROR");
  EXPECT_EQ(a.Reconfigure(section), ZYR_OK);
  EXPECT_EQ(a.BreakSeverity(), ZYR_SEVERITY_ERROR);
  EXPECT_FALSE(a.IsOpened());  // the next event opens the target anew
}

// ---------------------------------------------------------------------------
// Files and folders removed under an open log

// A manager whose root writes to one file appender of `type` at
// "<folder>/logs/x.log".
class RemovedLogTest : public ::testing::Test {
 protected:
  void Configure(const char16_t* type) {
    logs_ = f_.dir + "/logs";
    path_ = logs_ + "/x.log";
    std::u16string text = u"[root]\nAddAppenders = x\n[x]\nType = Appender\nAppenderType = ";
    text += type;
    text += u"\nFileName = " + U16(path_) + u"\n";
    ZyrStringReader reader(text.c_str());
    ZyrBasString folder;
    ASSERT_EQ(f_.manager->LoadConfigReader(reader, folder), ZYR_OK);
    logger_ = f_.Logger(u"removed");
  }
  ZyrResult Say(const char16_t* text) {
    return logger_->LogShort(ZYR_SEVERITY_ERROR, text, u"t.cpp", 1, 0, 0, 0, nullptr);
  }
  // Logs a line every 20 ms until the file holds `text` again; the check
  // that notices a removed file rides on the housekeeping tick, once a
  // second. False after 10 s.
  bool SayUntilWritten(const char16_t* text) {
    auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (std::chrono::steady_clock::now() < deadline) {
      last_ = Say(text);
      if (Exists(path_) && ReadFile(path_).find(zyrtest::Narrow(text)) != std::string::npos)
        return true;
      std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    ADD_FAILURE() << "last result " << std::hex << last_ << ", file: "
                  << (Exists(path_) ? ReadFile(path_) : "(none)");
    return false;
  }

  zyrtest::EngineFixture f_;
  ZyrResult last_ = ZYR_OK;
  ZyrLoggerNode* logger_ = nullptr;
  std::string logs_, path_;
};

TEST_F(RemovedLogTest, PlainLogRemovedOrItsFolderRemovedIsOpenedAgain) {
  Configure(u"File");
  ASSERT_EQ(Say(u"first"), ZYR_OK);
  ASSERT_EQ(unlink(path_.c_str()), 0);
  EXPECT_TRUE(SayUntilWritten(u"after the file went"));
  EXPECT_EQ(ReadFile(path_).substr(0, 3), kMark);

  zyrtest::RemoveTree(logs_);
  EXPECT_TRUE(SayUntilWritten(u"after the folder went"));
}

TEST_F(RemovedLogTest, RollingLogFolderRemovedIsMadeAgainWithItsLockFile) {
  for (const char16_t* type : {u"RollingFile", u"RollingDateFile"}) {
    SCOPED_TRACE(zyrtest::Narrow(type));
    ASSERT_EQ(f_.manager->ResetConfig(), ZYR_OK);  // "x" changes its type
    Configure(type);
    ASSERT_EQ(Say(u"first"), ZYR_OK);
    ASSERT_TRUE(Exists(path_ + ".lock"));
    zyrtest::RemoveTree(logs_);
    EXPECT_TRUE(SayUntilWritten(u"after the folder went"));
    EXPECT_TRUE(Exists(path_ + ".lock"));
  }
}

}  // namespace
