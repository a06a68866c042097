// Configuration files through a channel, the built-in default, re-reading.
#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstring>
#include <string>
#include <vector>

#include "base/memory.h"
#include "base/result.h"
#include "engine/manager.h"
#include "log_object_fixture.h"
#include "test_support.h"
#include "zyrlog/zyrlog.h"

namespace {

using zyrtest::ReadFile;
using zyrtest::WriteFile;

class ConfigFileTest : public zyrtest::LogObjectTest {
 protected:
  ConfigFileTest() : LogObjectTest("cfgfile") {}
};

// Runs a thread-start export; its exit value carries the result.
std::int32_t RunThread(void* (*entry)(void*), void* argument) {
  pthread_t thread;
  EXPECT_EQ(pthread_create(&thread, nullptr, entry, argument), 0);
  void* status = nullptr;
  pthread_join(thread, &status);
  return static_cast<std::int32_t>(reinterpret_cast<std::intptr_t>(status));
}

// The remote form's argument: the name's length, the name, the mode.
std::vector<unsigned char> Blob(const std::u16string& name, std::uint32_t mode) {
  std::vector<unsigned char> blob(12 + 2 * name.size());
  std::uint64_t length = name.size();
  std::memcpy(blob.data(), &length, 8);
  std::memcpy(blob.data() + 8, name.data(), 2 * name.size());
  std::memcpy(blob.data() + 8 + 2 * name.size(), &mode, 4);
  return blob;
}

}  // namespace

TEST_F(ConfigFileTest, MissingFileFailsAndChangesNothing) {
  ASSERT_EQ(log_->SetFolders(zyrtest::U16(dir_).c_str(), nullptr, 0), ZYR_OK);
  EXPECT_EQ(log_->LoadConfigFile(u"nothere.cfg"), ZYR_E_FILE_NOT_FOUND);
  EXPECT_EQ(log_->LoadConfigFile(u""), ZYR_OK);
  EXPECT_EQ(log_->LoadConfigFile(nullptr), ZYR_OK);
  EXPECT_EQ(Get(u"root")->threshold.load(), ZYR_SEVERITY_INFO);
  // A name that exists but does not open as a file leaves no source behind:
  // the file that later stands there is not re-read.
  std::string cfg = dir_ + "/folder.cfg";
  ASSERT_EQ(mkdir(cfg.c_str(), 0755), 0);
  EXPECT_EQ(log_->LoadConfigFile(u"folder.cfg"), ZYR_E_ACCESS_DENIED);
  ASSERT_EQ(rmdir(cfg.c_str()), 0);
  WriteFile(cfg, "[root]\nSeverity = FATAL\n");
  EXPECT_EQ(ZyrLogLibraryReloadConfig(), ZYR_OK);
  EXPECT_EQ(Get(u"root")->threshold.load(), ZYR_SEVERITY_INFO);
}

TEST_F(ConfigFileTest, RelativeNameUsesTheChannelFolderAndReloadTakesChanges) {
  std::string cfg = dir_ + "/app.cfg";
  WriteFile(cfg, "\xEF\xBB\xBF[svc]\r\nAdditive = no\r\nSeverity = WARN\r\n");
  ASSERT_EQ(log_->SetFolders(zyrtest::U16(dir_).c_str(), nullptr, 0), ZYR_OK);
  ASSERT_EQ(log_->LoadConfigFile(u"app.cfg"), ZYR_OK);
  ZyrLogger* svc = Get(u"svc");
  EXPECT_EQ(svc->threshold.load(), ZYR_SEVERITY_WARN);

  WriteFile(cfg, "[svc]\nAdditive = no\nSeverity = ERROR\n");
  ZyrLogManager* m = nullptr;
  ASSERT_EQ(ZyrLogManager::Acquire(&m), ZYR_OK);
  EXPECT_EQ(m->ReloadConfig(), ZYR_OK);
  EXPECT_EQ(svc->threshold.load(), ZYR_SEVERITY_ERROR);
  // A deleted file is skipped; what it applied stays.
  ASSERT_EQ(unlink(cfg.c_str()), 0);
  EXPECT_EQ(m->ReloadConfig(), ZYR_OK);
  EXPECT_EQ(svc->threshold.load(), ZYR_SEVERITY_ERROR);
  m->Release();
}

TEST_F(ConfigFileTest, FreshChannelLoadGetsDotAndTheDefaultLogFolder) {
  IZyrLog* other = nullptr;
  ASSERT_EQ(ZyrGetLogObject(&IID_IZyrLog, &other), ZYR_OK);
  EXPECT_EQ(other->LoadPrivateConfigFile(u"surely-missing.cfg"), ZYR_E_FILE_NOT_FOUND);
  char16_t buffer[64];
  std::uint64_t needed = 0;
  ASSERT_EQ(other->GetPrivateConfigFolder(buffer, 63, &needed), ZYR_OK);
  EXPECT_EQ(std::u16string(buffer), u".");
  EXPECT_EQ(other->IsPrivateConfigured(), 1);
  ZyrReleaseLogObject(&IID_IZyrLog, other);
}

// A reset keeps the loggers the clients hold and drops the appenders; the
// built-in default writes common.log again, with its mark and its lock file.
TEST_F(ConfigFileTest, ResetGoesBackToTheBuiltInDefault) {
  ASSERT_EQ(log_->LoadConfigText(u"[root]\nSeverity = ERROR\n[svc]\nAdditive = false\nSeverity = ERROR\n"
                                 u"AddAppenders = n\n[n]\nType = Appender\nAppenderType = Null\n"),
            ZYR_OK);
  ZyrLogger* svc = Get(u"svc");
  EXPECT_EQ(svc->threshold.load(), ZYR_SEVERITY_ERROR);
  EXPECT_EQ(Get(u"root")->threshold.load(), ZYR_SEVERITY_ERROR);
  ASSERT_EQ(log_->ResetConfig(), ZYR_OK);
  EXPECT_EQ(Get(u"svc"), svc);
  EXPECT_EQ(svc->threshold.load(), ZYR_SEVERITY_INFO);
  EXPECT_EQ(svc->flags.load(), 0x19u);
  EXPECT_EQ(Get(u"root")->threshold.load(), ZYR_SEVERITY_INFO);
  ZyrLogManager* m = nullptr;
  ASSERT_EQ(ZyrLogManager::Acquire(&m), ZYR_OK);
  ZyrLogAppender* n = nullptr;
  EXPECT_EQ(m->Appenders().Find(u"n", 1, &n), ZYR_E_APPENDER_NOT_FOUND);
  m->Release();
  ASSERT_EQ(Get(u"after.reset")->LogShort(ZYR_SEVERITY_INFO, u"again", u"main.cpp", 3, 0, 0, 0, nullptr), ZYR_OK);
  ASSERT_EQ(log_->Flush(), ZYR_OK);
  std::string text = ReadFile(dir_ + "/Zyr/OPH2015/log/common.log");
  EXPECT_EQ(text.substr(0, 3), "\xEF\xBB\xBF");
  EXPECT_NE(text.find("[after.reset] INFO "), std::string::npos);
  EXPECT_NE(text.find(" ID:main.cpp:3.0.0.0 MSG:again\r\n"), std::string::npos);
  EXPECT_TRUE(zyrtest::Exists(dir_ + "/Zyr/OPH2015/log/common.log.lock"));
}

// A default log folder that cannot be made does not keep the manager from
// starting: its built-in appender answers each line with the failure, and
// a configuration that names a usable file works at once.
TEST(ConfigFileFailure, LogFolderThatCannotBeMadeFailsEachLineOfTheDefaultAppender) {
  std::string dir = zyrtest::MakeTempDir("nofolder");
  std::string blocker = dir + "/file";
  WriteFile(blocker, "x");
  zyrtest::ScopedEnv local("LOCALAPPDATA", blocker.c_str());  // a file where a folder must go
  IZyrLog* log = nullptr;
  ASSERT_EQ(ZyrGetLogObject(&IID_IZyrLog, &log), ZYR_OK);
  ZyrLogger *root = nullptr, *usable = nullptr;
  ASSERT_EQ(log->GetLogger(&root, nullptr), ZYR_OK);
  EXPECT_EQ(root->Log(ZYR_SEVERITY_ERROR, u"lost", nullptr, 0, 0, 0, 0, 0, nullptr),
            ZyrResultAsWarning(ZYR_E_PATH_NOT_FOUND));
  std::u16string config = u"[usable]\nAdditive = false\nAddAppenders = f\n[f]\nType = Appender\n"
                          u"AppenderType = File\nFileName = " + zyrtest::U16(dir) + u"/usable.log\n";
  ASSERT_EQ(log->LoadConfigText(config.c_str()), ZYR_OK);
  ASSERT_EQ(log->GetLogger(&usable, u"usable"), ZYR_OK);
  EXPECT_EQ(usable->Log(ZYR_SEVERITY_ERROR, u"kept", nullptr, 0, 0, 0, 0, 0, nullptr), ZYR_OK);
  ZyrReleaseLogObject(&IID_IZyrLog, log);
  EXPECT_NE(ReadFile(dir + "/usable.log").find("MSG:kept"), std::string::npos);
  zyrtest::RemoveTree(dir);
}

// The private configuration folder comes from the key store: "privlog.cfg"
// there is applied once, ahead of the first named file, which wins where
// both name a section; UseProductFolder points a channel at that folder.
TEST_F(ConfigFileTest, PrivateFileFromTheStoreFolderComesFirstAndOnce) {
  std::string store = dir_ + "/store";
  std::string key = store + "/MACHINE/SYSTEM/CurrentControlSet/Services/Zyr/Zyr/OPH2015";
  std::string product = dir_ + "/product";
  ASSERT_EQ(system(("mkdir -p '" + key + "' '" + product + "/log'").c_str()), 0);
  WriteFile(key + "/.values", "ZyrAllUsersDir = sz:" + product + "\n");
  setenv("ZYR_REGISTRY_ROOT", store.c_str(), 1);
  WriteFile(product + "/log/privlog.cfg",
           "[priv.only]\nAdditive = no\nSeverity = DEBUG\n[both]\nAdditive = no\nSeverity = DEBUG\n");
  WriteFile(dir_ + "/named.cfg", "[both]\nAdditive = no\nSeverity = FATAL\n");

  ASSERT_EQ(log_->SetFolders(zyrtest::U16(dir_).c_str(), nullptr, 0), ZYR_OK);
  ASSERT_EQ(log_->LoadConfigText(u"[text.only]\nAdditive = no\nSeverity = ERROR\n"), ZYR_OK);
  EXPECT_EQ(Get(u"priv.only")->threshold.load(), ZYR_SEVERITY_INFO);  // a text does not set it off
  ASSERT_EQ(log_->LoadConfigFile(u"named.cfg"), ZYR_OK);
  EXPECT_EQ(Get(u"priv.only")->threshold.load(), ZYR_SEVERITY_DEBUG);
  EXPECT_EQ(Get(u"both")->threshold.load(), ZYR_SEVERITY_FATAL);

  // Tried once per manager: a changed private file is not read by the next load.
  WriteFile(product + "/log/privlog.cfg", "[priv.only]\nAdditive = no\nSeverity = WARN\n");
  ASSERT_EQ(log_->LoadConfigFile(u"named.cfg"), ZYR_OK);
  EXPECT_EQ(Get(u"priv.only")->threshold.load(), ZYR_SEVERITY_DEBUG);

  ASSERT_EQ(log_->UsePrivateProductFolder(), ZYR_OK);
  char16_t buffer[512];
  std::uint64_t needed = 0;
  ASSERT_EQ(log_->GetPrivateConfigFolder(buffer, 511, &needed), ZYR_OK);
  std::u16string folder(buffer);
  EXPECT_NE(folder.find(u"product"), std::u16string::npos);
  EXPECT_EQ(folder.substr(folder.size() - 4), u"/log");
  unsetenv("ZYR_REGISTRY_ROOT");
}

// A client that never releases its object: at process end the module
// destroys it, which closes the appenders and writes the footer.
TEST(ForgottenObject, IsDestroyedWhenTheProcessEnds) {
  std::string dir = zyrtest::UsePrivateLocalAppData("forgotten");
  std::string file = dir + "/forgotten.log";
  pid_t child = fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    IZyrLog* log = nullptr;
    if (ZyrFailed(ZyrGetLogObject(&IID_IZyrLog, &log))) _exit(2);
    std::u16string text = u"[root]\nAddAppenders = f\n[f]\nType = Appender\nAppenderType = File\nLayout = l\nFileName = " +
                          zyrtest::U16(file) +
                          u"\n[l]\nType = Layout\nLayoutType = Custom\nFormat = %msg\nFooter = --end--\n";
    if (ZyrFailed(log->LoadConfigText(text.c_str()))) _exit(3);
    ZyrLogger* logger = nullptr;
    log->GetLogger(&logger, u"x");
    logger->LogShort(ZYR_SEVERITY_INFO, u"line", nullptr, 0, 0, 0, 0, nullptr);
    exit(0);  // no release: the module's detach must clean up
  }
  int status = 0;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  ASSERT_TRUE(WIFEXITED(status));
  ASSERT_EQ(WEXITSTATUS(status), 0);
  EXPECT_EQ(ReadFile(file), "\xEF\xBB\xBFline\r\n--end--\r\n");
  zyrtest::RemoveTree(dir);
}

// In the steady state a message whose strings fit their inline buffers
// costs no allocation on the whole road to a file: with every allocation
// made to fail, it is still written.
TEST_F(ConfigFileTest, ShortMessageAllocatesNothingOnTheWayToAFile) {
  std::string file = dir_ + "/short.log";
  std::u16string text = u"[root]\nAddAppenders = f\n[f]\nType = Appender\nAppenderType = File\nFileName = " +
                        zyrtest::U16(file) + u"\n";
  ASSERT_EQ(log_->LoadConfigText(text.c_str()), ZYR_OK);
  ZyrLogger* logger = Get(u"short");
  std::uint64_t args[] = {7};
  ASSERT_EQ(logger->LogShort(ZYR_SEVERITY_INFO, u"n=%d", u"a.cpp", 1, 0, 0, 0, args), ZYR_OK);
  ZyrBasTestFailAllocationsAfter(0);
  ZyrResult r = logger->LogShort(ZYR_SEVERITY_INFO, u"n=%d", u"a.cpp", 2, 0, 0, 0, args);
  ZyrBasTestFailAllocationsAfter(-1);
  EXPECT_EQ(r, ZYR_OK);
  ASSERT_EQ(log_->Flush(), ZYR_OK);
  EXPECT_NE(ReadFile(file).find("ID:a.cpp:2.0.0.0 MSG:n=7\r\n"), std::string::npos);
}

// The reconfiguration exports load a named file through the private channel
// of each object.
TEST_F(ConfigFileTest, RemoteReconfigureLoadsThroughThePrivateChannel) {
  WriteFile(dir_ + "/abc", "[reconf.x]\nAdditive = no\nSeverity = FATAL\n");
  ASSERT_EQ(log_->SetPrivateFolders(zyrtest::U16(dir_).c_str(), nullptr, 0), ZYR_OK);
  ZyrLogger* x = Get(u"reconf.x");
  std::vector<unsigned char> ignored = Blob(u"abc", 2);
  EXPECT_EQ(ignored.size(), 18u);
  EXPECT_EQ(RunThread(&ZyrLogLibraryRemoteReconfigure, ignored.data()), ZYR_OK);
  EXPECT_EQ(x->threshold.load(), ZYR_SEVERITY_INFO);  // mode 2: nothing touched
  std::vector<unsigned char> blob = Blob(u"abc", 1);
  EXPECT_EQ(RunThread(&ZyrLogLibraryRemoteReconfigure, blob.data()), ZYR_OK);
  EXPECT_EQ(x->threshold.load(), ZYR_SEVERITY_FATAL);
  WriteFile(dir_ + "/abc", "[reconf.x]\nAdditive = no\nSeverity = ERROR\n");
  EXPECT_EQ(RunThread(&ZyrLogLibraryRemoteReloadConfig, nullptr), ZYR_OK);
  EXPECT_EQ(x->threshold.load(), ZYR_SEVERITY_ERROR);
  ZyrReleaseLogObject(&IID_IZyrLog, log_);
  log_ = nullptr;
  EXPECT_EQ(ZyrLogLibraryReconfigure(u"abc", 0), ZYR_OK);  // no object: nothing to do
}
