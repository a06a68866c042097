// Configuration text applied through IZyrLog: the builder's rules and the
// whole road from a client's call to the console.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <string>

#include "appender/console_appender.h"
#include "config/number.h"
#include "config/variables.h"
#include "engine/dispatcher.h"
#include "engine/manager.h"
#include "engine_support.h"
#include "log_object_fixture.h"
#include "zyrlog/zyrlog.h"

namespace {

// Captures what the process writes to a standard descriptor.
class Capture {
 public:
  explicit Capture(int fd) : fd_(fd), path_(zyrtest::MakeTempDir("capture") + "/out") {
    fflush(nullptr);
    saved_ = dup(fd_);
    int file = open(path_.c_str(), O_CREAT | O_TRUNC | O_WRONLY, 0600);
    dup2(file, fd_);
    close(file);
  }
  std::string Finish() {
    fflush(nullptr);
    dup2(saved_, fd_);
    close(saved_);
    return zyrtest::ReadFile(path_);
  }

 private:
  int fd_, saved_;
  std::string path_;
};

// A counted reference to the manager for the length of a test.
struct Manager {
  Manager() { EXPECT_EQ(ZyrLogManager::Acquire(&m), ZYR_OK); }
  ~Manager() { m->Release(); }
  ZyrResult Find(const char16_t* name) {
    ZyrLogAppender* found = nullptr;
    return m->Appenders().Find(name, ZyrBasStrLen(name), &found);
  }
  ZyrLogManager* m = nullptr;
};

class ConfigTest : public zyrtest::LogObjectTest {
 protected:
  ConfigTest() : LogObjectTest("config") {}
};

}  // namespace

TEST_F(ConfigTest, ClientTextReachesTheConsole) {
  ASSERT_EQ(log_->LoadConfigText(
                u"[root]\nSeverity = WARN\nAddAppenders = out, quiet\n\n"
                u"[out]\nType = Appender\nAppenderType = Console\nTarget = System.out\n\n"
                u"[quiet]\nType = Appender\nAppenderType = Null\n\n"
                u"[app.net]\nAdditive = no\nSeverity = debug\nAddAppenders = err\n\n"
                u"[err]\nType = Appender\nAppenderType = Console\nTarget = system.out\n"),
            ZYR_OK);
  ZyrLogger* net = Get(u"app.net");
  ZyrLogger* other = Get(u"app.other");
  EXPECT_EQ(Get(u"root")->threshold.load(), ZYR_SEVERITY_WARN);
  EXPECT_EQ(other->threshold.load(), ZYR_SEVERITY_WARN);
  EXPECT_EQ(net->threshold.load(), ZYR_SEVERITY_DEBUG);

  Capture out(1), err(2);
  std::uint64_t args[] = {7};
  EXPECT_EQ(other->LogShort(ZYR_SEVERITY_ERROR, u"disk %d failed", u"io.cpp", 12, 3, 4, 0, args), ZYR_OK);
  EXPECT_EQ(net->LogShort(ZYR_SEVERITY_DEBUG, u"debug line", u"net.cpp", 5, 0, 0, 0, nullptr), ZYR_OK);
  std::string errText = err.Finish();
  std::string outText = out.Finish();
  EXPECT_NE(outText.find("[app.other] ERROR "), std::string::npos);
  EXPECT_NE(outText.find(" ID:io.cpp:12.3.4.0 MSG:disk 7 failed\n"), std::string::npos);
  EXPECT_EQ(outText.find("debug line"), std::string::npos);
  // "system.out" is not "System.out": standard error.
  EXPECT_NE(errText.find("[app.net] DEBUG "), std::string::npos);
  EXPECT_NE(errText.find("MSG:debug line\n"), std::string::npos);
}

TEST_F(ConfigTest, SameTextTwiceRebuildsNothing) {
  const char16_t* text =
      u"[root]\nAddAppenders = n\n[n]\nType = Appender\nAppenderType = Null\nBreakSeverity = WARN\n";
  ASSERT_EQ(log_->LoadConfigText(text), ZYR_OK);
  Manager m;
  ZyrLogAppender* n = nullptr;
  ASSERT_EQ(m.m->Appenders().Find(u"n", 1, &n), ZYR_OK);
  // Open it by a message, then load the same text: it is not reconfigured,
  // so it stays open.
  EXPECT_EQ(Get(u"root")->LogShort(ZYR_SEVERITY_ERROR, u"x", nullptr, 0, 0, 0, 0, nullptr), ZYR_OK);
  EXPECT_TRUE(n->IsOpened());
  ASSERT_EQ(log_->LoadConfigText(text), ZYR_OK);
  EXPECT_TRUE(n->IsOpened());
  // A changed section is rebuilt: closed, then configured.
  ASSERT_EQ(log_->LoadConfigText(u"[n]\nType = Appender\nAppenderType = Null\n"), ZYR_OK);
  EXPECT_FALSE(n->IsOpened());
}

TEST_F(ConfigTest, FailingSectionKeepsWhatWasBuiltBefore) {
  const char16_t* text =
      u"[a]\nType = Appender\nAppenderType = Null\n"
      u"[b]\nType = Appender\nAppenderType = Telegraph\n"
      u"[c]\nType = Appender\nAppenderType = Null\n";
  EXPECT_EQ(log_->LoadConfigText(text), ZYR_E_APPENDER_NOT_FOUND);
  Manager m;
  EXPECT_EQ(m.Find(u"a"), ZYR_OK);
  EXPECT_EQ(m.Find(u"c"), ZYR_E_APPENDER_NOT_FOUND);
  // The failed section is stored: the same text again finds it equal and
  // goes on to build nothing new; a corrected text is applied.
  EXPECT_EQ(log_->LoadConfigText(text), ZYR_OK);
  EXPECT_EQ(log_->LoadConfigText(u"[b]\nType = Appender\nAppenderType = Null\n"), ZYR_OK);
  EXPECT_EQ(m.Find(u"b"), ZYR_OK);
}

TEST_F(ConfigTest, KeysAndTheirExactValues) {
  struct Case {
    const char16_t* text;
    ZyrResult result;
  } cases[] = {
      // "Syslog" makes a Null appender that refuses the type.
      {u"[s]\nType = Appender\nAppenderType = Syslog\n", ZYR_E_WRONG_APPENDER_TYPE},
      {u"[m]\nType = Appender\n", ZYR_E_CFG_NOT_FOUND},
      // A forgotten Type makes a logger, and naming it as an appender fails.
      {u"[forgot]\nAppenderType = Null\n", ZYR_OK},
      {u"[root]\nAddAppenders = forgot\n", ZYR_E_APPENDER_NOT_FOUND},
      // "logger" in the wrong case is stored and applied to nothing (below).
      {u"[quiet.one]\nType = logger\nSeverity = FATAL\nAdditive = no\n", ZYR_OK},
      // Empty pieces of AddAppenders fail; "a b" names one appender.
      {u"[n1]\nType = Appender\nAppenderType = Null\n[x]\nAddAppenders = n1,,n1\n", ZYR_E_APPENDER_NOT_FOUND},
      {u"[y]\nAddAppenders = \"n1;n1\"\n", ZYR_OK},
      {u"[lay]\nType = Layout\nLayoutType = Fancy\n", ZYR_E_LAYOUT_NOT_FOUND},
      {u"[n2]\nType = Appender\nAppenderType = Null\nLayout = nope\n", ZYR_E_LAYOUT_NOT_FOUND},
      {u"[n3]\nType = Appender\nAppenderType = Null\nLayout = DEFAULTLAYOUT\n", ZYR_OK},
      {u"[bad name]\nSeverity = INFO\n", ZYR_E_BAD_LOGGER_NAME},
      {u"[v]\nFileName = ${nosuch}\n", ZYR_E_INVALID_DATA},
  };
  for (const Case& c : cases) EXPECT_EQ(log_->LoadConfigText(c.text), c.result) << zyrtest::Narrow(c.text);
  ZyrLogger* found = nullptr;
  EXPECT_EQ(log_->FindLogger(&found, u"forgot"), ZYR_OK);
  EXPECT_NE(found, nullptr);
  found = nullptr;
  EXPECT_EQ(log_->FindLogger(&found, u"quiet.one"), ZYR_OK);
  EXPECT_EQ(found, nullptr);
}

TEST_F(ConfigTest, QueueBudgetFromTheRootSection) {
  Manager m;
  ZyrLogDispatcher& d = *m.m->Hierarchy().dispatcher;
  struct Case {
    const char16_t* text;
    std::uint64_t bytes;
  } cases[] = {
      {u"[root]\nMaxQueueSize = 100\n", 1880},
      {u"[root]\nMaxQueueSize = 0\n", 0},
      {u"[root]\nMaxQueueSize = 0x10000 ; hex\n", 65536},
      {u"[root]\nMaxQueueSize = -1\n", 65536},  // a bad number leaves it
      {u"[root]\nSeverity = INFO\n", 33554432},  // absent: the default again
  };
  for (const Case& c : cases) {
    ASSERT_EQ(log_->LoadConfigText(c.text), ZYR_OK);
    EXPECT_EQ(d.MaxQueueBytes(), c.bytes) << zyrtest::Narrow(c.text);
  }
}

TEST(ConfigNumbers, UnsignedAndSignedText) {
  auto text = [](const char16_t* t) {
    ZyrBasString s;
    s.Assign(t);
    return s;
  };
  const std::pair<const char16_t*, std::uint64_t> unsignedCases[] = {
      {u"", 0}, {u"100MB", 100}, {u"abc", 0}, {u"0x1F", 31},
      {u"0x", 0},  // the prefix needs one more character
      {u"99999999999999999999", 9999999999999999999u},  // the value before the overflow
  };
  for (const auto& [t, expected] : unsignedCases) {
    std::uint64_t v = 99;
    EXPECT_EQ(ZyrCfgParseUnsigned(text(t), &v), ZYR_OK) << zyrtest::Narrow(t);
    EXPECT_EQ(v, expected) << zyrtest::Narrow(t);
  }
  std::uint64_t v = 0;
  EXPECT_EQ(ZyrCfgParseUnsigned(text(u"-5"), &v), ZYR_E_INVALID_ARGUMENT);
  const std::pair<const char16_t*, std::int64_t> signedCases[] = {
      {u"-5", -5}, {u"-0x10", -16}, {u"0xffffffffffffffff", -1}};
  for (const auto& [t, expected] : signedCases) {
    std::int64_t sv = 0;
    EXPECT_EQ(ZyrCfgParseSigned(text(t), &sv), ZYR_OK) << zyrtest::Narrow(t);
    EXPECT_EQ(sv, expected) << zyrtest::Narrow(t);
  }
}

TEST(ConfigVariables, Expansion) {
  if (!zyrtest::LocalAppDataFollowsEnvironment())
    GTEST_SKIP() << "the key store names the local data folder, and the store comes before LOCALAPPDATA";
  zyrtest::ScopedEnv data("LOCALAPPDATA", "/srv/data");
  const std::u16string pid = zyrtest::U16(std::to_string(getpid()));
  struct Case {
    const char16_t* in;
    std::u16string out;  // unused when the expansion fails
    ZyrResult result;
  } cases[] = {
      {u"cost: 5$", u"cost: 5$", ZYR_OK}, {u"a$b", u"a$b", ZYR_OK}, {u"a$$b", u"a$b", ZYR_OK},
      {u"$$", u"$", ZYR_OK},              {u"", u"", ZYR_OK},       {u"${pid", u"${pid", ZYR_OK},
      {u"x${pid}.log", u"x" + pid + u".log", ZYR_OK},
      {u"${${pid}}", u"", ZYR_E_INVALID_DATA}, {u"${}", u"", ZYR_E_INVALID_DATA},
      {u"${PID}", u"", ZYR_E_INVALID_DATA},
      {u"${process}", u"zyr_unit_tests", ZYR_OK},
      {u"${winlocalappdata}\\a.log", u"/srv/data\\a.log", ZYR_OK},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(zyrtest::Narrow(c.in));
    ZyrBasString in, out;
    in.Assign(c.in);
    ASSERT_EQ(ZyrCfgExpandVariables(in, out), c.result);
    if (c.result == ZYR_OK) {
      EXPECT_EQ(zyrtest::Str(out), c.out);
    }
  }
  ZyrBasString user, out;
  user.Assign(u"${user}");
  EXPECT_EQ(ZyrCfgExpandVariables(user, out), ZYR_OK);  // known: never a failure
}
