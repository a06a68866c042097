// File appenders against a hostile or broken file system: links planted at
// a log's names, files and folders removed under an open log, descriptors
// used up, folders where files should be, locks refused.
#include <gtest/gtest.h>
#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <chrono>
#include <string>
#include <thread>

#include "appender/file_appender.h"
#include "appender/file_lock.h"
#include "appender/rolling_date_file_appender.h"
#include "appender/rolling_file_appender.h"
#include "base/file_lock.h"
#include "base/result.h"
#include "base/time.h"
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
// Foreign objects at a log's names (another account's work in a shared folder)

// A FIFO, a socket or a folder at the live name or the lock file's name
// fails the open at once with a clear result, and nothing is written into
// it: a FIFO would take lines until its buffer is full, then hold the
// writer for good.
TEST_F(FileAppenderTest, NoFileAtALogsNameFailsTheOpenWithoutWaiting) {
  struct Row {
    const char16_t* type;
    const char* name;  // the object's name; the log is x.log
    mode_t kind;
    ZyrResult result;
  };
  const Row rows[] = {
      {u"File", "x.log", S_IFIFO, ZYR_E_UNSUPPORTED_TYPE},
      {u"RollingFile", "x.log", S_IFIFO, ZYR_E_UNSUPPORTED_TYPE},
      {u"RollingDateFile", "x.log", S_IFIFO, ZYR_E_UNSUPPORTED_TYPE},
      {u"RollingFile", "x.log.lock", S_IFIFO, ZYR_E_UNSUPPORTED_TYPE},
      {u"File", "x.log", S_IFSOCK, ZYR_E_UNSUPPORTED_TYPE},
      {u"RollingDateFile", "x.log", S_IFDIR, ZYR_E_ACCESS_DENIED},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(std::string(row.name) + " " + zyrtest::Narrow(row.type));
    if (row.kind == S_IFDIR) ASSERT_EQ(mkdir(Path(row.name).c_str(), 0755), 0);
    else ASSERT_EQ(mknod(Path(row.name).c_str(), row.kind | 0666, 0), 0);
    ZyrLogAppender* a = Make<ZyrLogAppender>(row.type, {{u"FileName", u"x.log"}});
    EXPECT_EQ(Write(a, u"lost"), row.result);
    EXPECT_FALSE(a->IsOpened());
    zyrtest::RemoveTree(Path(row.name));
    EXPECT_EQ(Write(a, u"kept"), ZYR_OK);  // gone: the next line opens a file of its own
    a->Release();
    zyrtest::RemoveTree(Path("x.log"));
    zyrtest::RemoveTree(Path("x.log.lock"));
  }
}

namespace {

// The names in the folder that start with "zyr-": temporary files left.
int TempFiles(const std::string& dir) {
  int n = 0;
  if (DIR* d = opendir(dir.c_str())) {
    while (dirent* e = readdir(d)) n += std::strncmp(e->d_name, "zyr-", 4) == 0;
    closedir(d);
  }
  return n;
}

}  // namespace

// An object that a rollover cannot move past (a folder at a rolled number,
// which a second account can make in a shared folder) keeps the live file
// and every rolled file as they were: the live file grows past Size, the
// line that found the obstacle answers with a warning, and the lines after
// it in the same housekeeping tick write on without another try. Once the
// obstacle is gone, the next tick's rollover goes through.
TEST_F(FileAppenderTest, RolloverThatCannotMoveKeepsEveryLineAndWarns) {
  struct Row {
    const char* what;
    std::vector<std::string> rolled;  // numbers there before, each holding its own name
    std::string folder;               // the obstacle
    const char16_t* filesCount;
  };
  const Row rows[] = {
      {"folder at number 1", {}, "r.log.1", u"3"},
      {"folder in the chain", {"1", "2"}, "r.log.3", u"5"},
      {"folder at 1, the top moved aside", {"2"}, "r.log.1", u"2"},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.what);
    for (const std::string& n : row.rolled) WriteFile(Path("r.log." + n), n);
    ASSERT_EQ(mkdir(Path(row.folder).c_str(), 0755), 0);
    auto* a = Make<ZyrLogRollingFileAppender>(u"RollingFile",
                                              {{u"FileName", u"r.log"}, {u"Size", u"0"}, {u"FilesCount", row.filesCount}});
    const ZyrResult warning = ZyrResultAsWarning(ZYR_E_ACCESS_DENIED);  // a file cannot replace a folder
    EXPECT_EQ(Write(a, u"one"), warning);
    EXPECT_EQ(Write(a, u"two"), ZYR_OK);  // the same tick: no second try
    ZyrLogFileBasedAppender::HousekeepingTick();
    EXPECT_EQ(Write(a, u"three"), warning);
    EXPECT_EQ(ReadFile(Path("r.log")), kMark + "one\r\ntwo\r\nthree\r\n");
    for (const std::string& n : row.rolled) EXPECT_EQ(ReadFile(Path("r.log." + n)), n);
    EXPECT_EQ(TempFiles(dir_), 0);

    ASSERT_EQ(rmdir(Path(row.folder).c_str()), 0);
    ZyrLogFileBasedAppender::HousekeepingTick();
    EXPECT_EQ(Write(a, u"four"), ZYR_OK);
    EXPECT_EQ(ReadFile(Path("r.log.1")), kMark + "one\r\ntwo\r\nthree\r\nfour\r\n");
    EXPECT_EQ(TempFiles(dir_), 0);
    a->Release();
    zyrtest::RemoveTree(dir_);
    ASSERT_EQ(mkdir(dir_.c_str(), 0700), 0);
  }
}

// The dated appender keeps its live file when the dated name is taken by
// a folder, and says so once.
TEST_F(FileAppenderTest, DatedRollThatCannotMoveKeepsTheLiveFileAndWarns) {
  auto* a = Make<ZyrLogRollingDateFileAppender>(u"RollingDateFile", {{u"FileName", u"d.log"}});
  ASSERT_EQ(Write(a, u"old day"), ZYR_OK);
  ZyrBasString dated, path;
  path.Assign(zyrtest::U16(Path("d.log")).c_str());
  ASSERT_EQ(ZyrLogRollingDateFileAppender::DatedName(dated, path, ZyrBasSystemTime()), ZYR_OK);
  ASSERT_EQ(mkdir(std::string(dated.Text(), dated.Text() + dated.Length()).c_str(), 0755), 0);
  struct ClockBack {
    ~ClockBack() { ZyrBasTestSetClockOffset(0); }
  } back;
  ZyrBasTestSetClockOffset(86400ll * 10000000);  // a day later: the live file rolls
  EXPECT_EQ(Write(a, u"new day"), ZyrResultAsWarning(ZYR_E_ACCESS_DENIED));
  EXPECT_EQ(Write(a, u"on"), ZYR_OK);
  EXPECT_EQ(ReadFile(Path("d.log")), kMark + "old day\r\nnew day\r\non\r\n");
}

// A rollover's warning tells of a line that was written: the climb goes on
// to the parent's appenders, and the caller hears of it.
class BlockedRolloverTest : public zyrtest::LogObjectTest {
 protected:
  BlockedRolloverTest() : LogObjectTest("blocked") {}
};

TEST_F(BlockedRolloverTest, WarningOfAChildsAppenderDoesNotStopTheClimb) {
  const std::u16string folder = U16(dir_);
  ASSERT_EQ(log_->LoadConfigText((u"[root]\nAddAppenders = all\n[all]\nType = Appender\nAppenderType = File\n"
                                  u"FileName = " + folder + u"/all.log\n"
                                  u"[app]\nAddAppenders = roll\n[roll]\nType = Appender\nAppenderType = RollingFile\n"
                                  u"Size = 0\nFileName = " + folder + u"/roll.log\n").c_str()),
            ZYR_OK);
  ASSERT_EQ(mkdir((dir_ + "/roll.log.1").c_str(), 0755), 0);
  ZyrLogger* app = Get(u"app");
  EXPECT_EQ(app->Log(ZYR_SEVERITY_ERROR, u"kept twice", nullptr, 0, 0, 0, 0, 0, nullptr),
            ZyrResultAsWarning(ZYR_E_ACCESS_DENIED));
  ASSERT_EQ(log_->Flush(), ZYR_OK);
  EXPECT_NE(ReadFile(dir_ + "/roll.log").find("MSG:kept twice"), std::string::npos);
  EXPECT_NE(ReadFile(dir_ + "/all.log").find("MSG:kept twice"), std::string::npos);
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
