// Daemons are the first users of a logging library on Linux: an account
// without a usable home, systemd's LOGS_DIRECTORY, XDG's state folder.
#include <grp.h>
#include <gtest/gtest.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <optional>
#include <string>

#include "base/file.h"
#include "base/folders.h"
#include "config/locations.h"
#include "test_support.h"
#include "zyrlog/zyrlog.h"

namespace {

using zyrtest::ScopedEnv;
using zyrtest::U16;

std::string Folder(std::uint32_t id, ZyrResult* r) {
  ZyrBasString path;
  *r = ZyrBasGetFolder(id, path);
  return zyrtest::Narrow(zyrtest::Str(path));
}

// The environment of a user's folders, cleared for the test and put back.
class UserEnvironment : public zyrtest::TempDirTest {
 protected:
  void SetUp() override {
    TempDirTest::SetUp();
    for (const char* name : {"HOME", "USERPROFILE", "LOCALAPPDATA", "XDG_STATE_HOME", "LOGS_DIRECTORY"})
      env_[count_++].emplace(name, nullptr);
    store_.emplace("ZYR_REGISTRY_ROOT", P("no-store").c_str());
  }
  std::optional<ScopedEnv> env_[5], store_;
  int count_ = 0;
};

}  // namespace

TEST_F(UserEnvironment, AHomeCountsWhereItStandsAndLocalDataIsXdgState) {
  passwd* me = getpwuid(geteuid());
  struct stat st;
  std::string accountHome = me && stat(me->pw_dir, &st) == 0 && S_ISDIR(st.st_mode) ? me->pw_dir : "";
  std::string home = P("home");
  ASSERT_EQ(mkdir(home.c_str(), 0700), 0);
  struct Case {
    const char* home;       // null: unset
    const char* xdgState;   // null: unset
    const char* localAppData;
    std::string profile;    // empty: not found
    std::string local;
  };
  const Case cases[] = {
      {home.c_str(), nullptr, nullptr, home, home + "/.local/state"},
      {"/nonexistent", nullptr, nullptr, accountHome, accountHome + "/.local/state"},
      {nullptr, nullptr, nullptr, accountHome, accountHome + "/.local/state"},
      {home.c_str(), "/srv/state", nullptr, home, "/srv/state"},
      {home.c_str(), "relative/state", nullptr, home, home + "/.local/state"},  // XDG wants it absolute
      {"/nonexistent", "/srv/state", "/srv/local", accountHome, "/srv/local"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(std::string(c.home ? c.home : "(no HOME)") + " " + (c.xdgState ? c.xdgState : ""));
    env_[0]->Set(c.home);
    env_[3]->Set(c.xdgState);
    env_[2]->Set(c.localAppData);
    ZyrResult r;
    std::string profile = Folder(ZYR_FOLDER_PROFILE, &r);
    EXPECT_EQ(r, c.profile.empty() ? ZYR_E_PATH_NOT_FOUND : ZYR_OK);
    EXPECT_EQ(profile, c.profile);
    std::string local = Folder(ZYR_FOLDER_LOCAL_APPDATA, &r);
    if (c.profile.empty() && !c.localAppData && !c.xdgState) {
      EXPECT_EQ(r, ZYR_E_PATH_NOT_FOUND);
    } else {
      EXPECT_EQ(r, ZYR_OK);
      EXPECT_EQ(local, c.local);
    }
  }
}

TEST_F(UserEnvironment, LogsDirectoryIsTheDefaultLogFolderItself) {
  std::string given = P("svc/logs"), second = P("svc/other");
  env_[4]->Set((given + ":" + second).c_str());
  ZyrBasString folder;
  ASSERT_EQ(ZyrDefaultLogFolder(folder), ZYR_OK);
  EXPECT_EQ(zyrtest::Narrow(zyrtest::Str(folder)), given);
  EXPECT_EQ(ZyrBasDirectoryExists(folder.Text()), ZYR_OK);  // made, its parent too

  IZyrLog* log = nullptr;
  ASSERT_EQ(ZyrGetLogObject(&IID_IZyrLog, &log), ZYR_OK);
  ZyrLogger* root = nullptr;
  ASSERT_EQ(log->GetLogger(&root, nullptr), ZYR_OK);
  EXPECT_EQ(root->Log(ZYR_SEVERITY_ERROR, u"into the service's folder", nullptr, 0, 0, 0, 0, 0, nullptr), ZYR_OK);
  ZyrReleaseLogObject(&IID_IZyrLog, log);
  EXPECT_NE(zyrtest::ReadFile(given + "/common.log").find("into the service's folder"), std::string::npos);
  EXPECT_FALSE(zyrtest::Exists(second));
}

// As nobody, whose home "/nonexistent" does not exist, with HOME pointing
// there and with no HOME at all: the log object comes up, a configuration
// with an absolute FileName works at once, and the built-in appender, which
// has no folder to write to, answers each line with its failure.
TEST_F(UserEnvironment, NobodyWithoutAUsableHomeLogsWhereItsConfigurationSays) {
  if (geteuid() != 0) GTEST_SKIP() << "becoming nobody (uid 65534) needs root";
  passwd* nobody = getpwuid(65534);
  if (!nobody) GTEST_SKIP() << "the system has no account with uid 65534";
  ASSERT_EQ(chmod(dir_.c_str(), 0777), 0);
  for (const char* home : {"/nonexistent", static_cast<const char*>(nullptr)}) {
    SCOPED_TRACE(home ? home : "(no HOME)");
    std::string file = P(std::string("svc-") + (home ? "home" : "none") + ".log");
    int status = zyrtest::RunInChild([&] {
      if (chdir("/") != 0 || setgroups(0, nullptr) != 0 || setgid(65534) != 0 || setuid(65534) != 0) return 10;
      env_[0]->Set(home);
      IZyrLog* log = nullptr;
      if (ZyrGetLogObject(&IID_IZyrLog, &log) != ZYR_OK) return 11;
      std::u16string config = u"[svc]\nAdditive = false\nAddAppenders = f\n"
                              u"[f]\nType = Appender\nAppenderType = File\nFileName = " + U16(file) + u"\n";
      if (log->LoadConfigText(config.c_str()) != ZYR_OK) return 12;
      ZyrLogger *svc = nullptr, *root = nullptr;
      if (log->GetLogger(&svc, u"svc") != ZYR_OK || log->GetLogger(&root, nullptr) != ZYR_OK) return 13;
      if (svc->Log(ZYR_SEVERITY_ERROR, u"nobody's line", nullptr, 0, 0, 0, 0, 0, nullptr) != ZYR_OK) return 14;
      // No folder for the default appender: each line is answered.
      if (ZyrSucceeded(root->Log(ZYR_SEVERITY_ERROR, u"x", nullptr, 0, 0, 0, 0, 0, nullptr))) return 15;
      ZyrReleaseLogObject(&IID_IZyrLog, log);
      return 0;
    });
    EXPECT_EQ(status, 0);
    EXPECT_NE(zyrtest::ReadFile(file).find("nobody's line"), std::string::npos);
  }
}
