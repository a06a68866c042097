// The framework-bound client in a program that does not link the log
// library: it finds zyrloga.so through the broker, or loads it by path,
// steps down to the level a library grants, and with no library at all
// writes nothing.
#include <gtest/gtest.h>
#include <unistd.h>

#include <optional>
#include <string>

#include "../unit/test_support.h"
#include "client/framework_client.h"
#include "zyrlog/log.h"

namespace {

using zyrtest::U16;

class FrameworkClientTest : public ::testing::Test {
 protected:
  void SetUp() override {
    dir_ = zyrtest::MakeTempDir("fwclient");
    root_.emplace("ZYR_REGISTRY_ROOT", (dir_ + "/store").c_str());
    local_.emplace("LOCALAPPDATA", (dir_ + "/local").c_str());
    testMode_.emplace("ZyrTestMode", nullptr);
    char cwd[4096];
    ASSERT_NE(getcwd(cwd, sizeof cwd), nullptr);
    cwd_ = cwd;
  }
  void TearDown() override {
    ASSERT_EQ(chdir(cwd_.c_str()), 0);
    zyrtest::RemoveTree(dir_);
  }
  void RegisterFramework() {
    std::string key = dir_ + "/store/MACHINE/SYSTEM/CurrentControlSet/Services/Zyr/Zyr2014";
    ASSERT_EQ(system(("mkdir -p '" + key + "'").c_str()), 0);
    zyrtest::WriteFile(key + "/.values", "ZyrDir = sz:" ZYR_MODULE_DIR "\n");
  }
  // Writes one line through a file appender and reads the file back.
  std::string WriteLine(IZyrLog* log, const char* name) {
    std::string file = dir_ + "/" + name + ".log";
    std::u16string text = u"[root]\nAddAppenders = f\n[f]\nType = Appender\nAppenderType = File\nFileName = " +
                          U16(file) + u"\n";
    EXPECT_EQ(log->LoadConfigText(text.c_str()), ZYR_OK);
    ZyrLogger* logger = nullptr;
    EXPECT_EQ(log->GetLogger(&logger, u"fw"), ZYR_OK);
    if (!logger) return "";
    EXPECT_EQ(zyrlog::LogFormat(logger, ZYR_SEVERITY_ERROR, u"through %hs", u"f.cpp", 7, name), ZYR_OK);
    return zyrtest::ReadFile(file);
  }

  std::string dir_, cwd_;
  std::optional<zyrtest::ScopedEnv> root_, local_, testMode_;
};

}  // namespace

TEST_F(FrameworkClientTest, ReachesTheFrameworkThroughTheBroker) {
  RegisterFramework();
  ZyrLogFrameworkClient client;
  ASSERT_EQ(client.Bind(), ZYR_OK);
  EXPECT_TRUE(client.ThroughBroker());
  EXPECT_EQ(client.Level(), 3u);
  EXPECT_NE(WriteLine(client.Log(), "broker").find("through broker"), std::string::npos);
  EXPECT_EQ(client.SetFolder(u"/elsewhere", true), ZYR_E_INVALID_OPERATION);
}

TEST_F(FrameworkClientTest, LoadsTheLibraryByPathWithoutAKeyStoreEntry) {
  ZyrLogFrameworkClient client;
  ASSERT_EQ(client.SetFolder(u"" ZYR_MODULE_DIR, false), ZYR_OK);
  ASSERT_EQ(client.Bind(), ZYR_OK);
  EXPECT_FALSE(client.ThroughBroker());
  EXPECT_EQ(client.Level(), 3u);
  EXPECT_NE(WriteLine(client.Log(), "path").find("through path"), std::string::npos);

  // No folder and no product directory: the file is tried in ".".
  ASSERT_EQ(chdir(ZYR_MODULE_DIR), 0);
  ZyrLogFrameworkClient dot;
  EXPECT_EQ(dot.Bind(), ZYR_OK);
  EXPECT_EQ(dot.Level(), 3u);
}

TEST_F(FrameworkClientTest, StepsDownToTheLevelTheLibraryGrants) {
  ZyrLogFrameworkClient client;
  ASSERT_EQ(client.SetFolder(u"" ZYR_FAKE_LEVEL1_DIR, true), ZYR_OK);
  ASSERT_EQ(client.Bind(), ZYR_OK);
  EXPECT_EQ(client.Level(), 1u);
  EXPECT_NE(client.Log(), ZyrLogNullLog());
}

TEST_F(FrameworkClientTest, WithNoLibraryWritesNothingAndDoesNotRetry) {
  std::string empty = dir_ + "/empty";
  ASSERT_EQ(system(("mkdir -p '" + empty + "'").c_str()), 0);
  ASSERT_EQ(chdir(empty.c_str()), 0);
  ZyrLogFrameworkClient client;
  ASSERT_EQ(client.SetFolder(U16(empty).c_str(), false), ZYR_OK);
  EXPECT_EQ(client.Bind(), ZYR_E_PATH_NOT_FOUND);
  EXPECT_EQ(client.Level(), 0u);
  IZyrLog* log = client.Log();
  ASSERT_EQ(log, ZyrLogNullLog());
  EXPECT_EQ(WriteLine(log, "none"), "");
  ZyrLogger* logger = nullptr;
  ASSERT_EQ(log->GetLogger(&logger, u"x"), ZYR_OK);
  EXPECT_FALSE(ZYR_SEVERITY_FATAL >= logger->threshold.load());  // callers skip at the threshold
  // The library appears afterwards: the attempt is not made again.
  ASSERT_EQ(chdir(ZYR_MODULE_DIR), 0);
  EXPECT_EQ(client.Bind(), ZYR_E_PATH_NOT_FOUND);
  EXPECT_EQ(client.Log(), ZyrLogNullLog());
}
