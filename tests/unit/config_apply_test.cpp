// Configuration text applied through IZyrLog: the builder's rules and the
// whole road from a client's call to the console.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <fstream>
#include <sstream>
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
  explicit Capture(int fd) : fd_(fd) {
    path_ = zyrtest::MakeTempDir("capture") + "/out";
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
    std::ifstream in(path_);
    std::stringstream s;
    s << in.rdbuf();
    return s.str();
  }

 private:
  int fd_;
  int saved_;
  std::string path_;
};

class ConfigTest : public zyrtest::LogObjectTest {
 protected:
  ConfigTest() : LogObjectTest("config") {}
};

}  // namespace

TEST_F(ConfigTest, ClientTextReachesTheConsole) {
  const char16_t* text =
      u"[root]\n"
      u"Severity = WARN\n"
      u"AddAppenders = out, quiet\n"
      u"\n"
      u"[out]\n"
      u"Type = Appender\n"
      u"AppenderType = Console\n"
      u"Target = System.out\n"
      u"\n"
      u"[quiet]\n"
      u"Type = Appender\n"
      u"AppenderType = Null\n"
      u"\n"
      u"[app.net]\n"
      u"Additive = no\n"
      u"Severity = debug\n"
      u"AddAppenders = err\n"
      u"\n"
      u"[err]\n"
      u"Type = Appender\n"
      u"AppenderType = Console\n"
      u"Target = system.out\n";
  ASSERT_EQ(log_->LoadConfigText(text), ZYR_OK);
  ZyrLogger* root = Get(u"root");
  ZyrLogger* net = Get(u"app.net");
  ZyrLogger* other = Get(u"app.other");
  EXPECT_EQ(root->threshold.load(), ZYR_SEVERITY_WARN);
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
  ZyrLogManager* m = nullptr;
  ASSERT_EQ(ZyrLogManager::Acquire(&m), ZYR_OK);
  ZyrLogAppender* n = nullptr;
  ASSERT_EQ(m->Appenders().Find(u"n", 1, &n), ZYR_OK);
  // Open it by a message, then load the same text: it is not reconfigured,
  // so it stays open.
  EXPECT_EQ(Get(u"root")->LogShort(ZYR_SEVERITY_ERROR, u"x", nullptr, 0, 0, 0, 0, nullptr), ZYR_OK);
  EXPECT_TRUE(n->IsOpened());
  ASSERT_EQ(log_->LoadConfigText(text), ZYR_OK);
  EXPECT_TRUE(n->IsOpened());
  // A changed section is rebuilt: closed, then configured.
  ASSERT_EQ(log_->LoadConfigText(u"[n]\nType = Appender\nAppenderType = Null\n"), ZYR_OK);
  EXPECT_FALSE(n->IsOpened());
  m->Release();
}

TEST_F(ConfigTest, FailingSectionKeepsWhatWasBuiltBefore) {
  const char16_t* text =
      u"[a]\nType = Appender\nAppenderType = Null\n"
      u"[b]\nType = Appender\nAppenderType = Telegraph\n"
      u"[c]\nType = Appender\nAppenderType = Null\n";
  EXPECT_EQ(log_->LoadConfigText(text), ZYR_E_APPENDER_NOT_FOUND);
  ZyrLogManager* m = nullptr;
  ASSERT_EQ(ZyrLogManager::Acquire(&m), ZYR_OK);
  ZyrLogAppender* found = nullptr;
  EXPECT_EQ(m->Appenders().Find(u"a", 1, &found), ZYR_OK);
  EXPECT_EQ(m->Appenders().Find(u"c", 1, &found), ZYR_E_APPENDER_NOT_FOUND);
  // The failed section is stored: the same text again finds it equal and
  // goes on to build nothing new; a corrected text is applied.
  EXPECT_EQ(log_->LoadConfigText(text), ZYR_OK);
  EXPECT_EQ(log_->LoadConfigText(u"[b]\nType = Appender\nAppenderType = Null\n"), ZYR_OK);
  EXPECT_EQ(m->Appenders().Find(u"b", 1, &found), ZYR_OK);
  m->Release();
}

TEST_F(ConfigTest, KeysAndTheirExactValues) {
  // "Syslog" makes a Null appender that refuses the type.
  EXPECT_EQ(log_->LoadConfigText(u"[s]\nType = Appender\nAppenderType = Syslog\n"), ZYR_E_WRONG_APPENDER_TYPE);
  EXPECT_EQ(log_->LoadConfigText(u"[m]\nType = Appender\n"), ZYR_E_CFG_NOT_FOUND);
  // A forgotten Type makes a logger, and naming it as an appender fails.
  EXPECT_EQ(log_->LoadConfigText(u"[forgot]\nAppenderType = Null\n"), ZYR_OK);
  ZyrLogger* found = nullptr;
  EXPECT_EQ(log_->FindLogger(&found, u"forgot"), ZYR_OK);
  EXPECT_NE(found, nullptr);
  EXPECT_EQ(log_->LoadConfigText(u"[root]\nAddAppenders = forgot\n"), ZYR_E_APPENDER_NOT_FOUND);
  // "logger" in the wrong case is stored and applied to nothing.
  EXPECT_EQ(log_->LoadConfigText(u"[quiet.one]\nType = logger\nSeverity = FATAL\nAdditive = no\n"), ZYR_OK);
  found = nullptr;
  EXPECT_EQ(log_->FindLogger(&found, u"quiet.one"), ZYR_OK);
  EXPECT_EQ(found, nullptr);
  // Empty pieces of AddAppenders fail; "a b" names one appender.
  EXPECT_EQ(log_->LoadConfigText(u"[n1]\nType = Appender\nAppenderType = Null\n[x]\nAddAppenders = n1,,n1\n"),
            ZYR_E_APPENDER_NOT_FOUND);
  EXPECT_EQ(log_->LoadConfigText(u"[y]\nAddAppenders = \"n1;n1\"\n"), ZYR_OK);
  EXPECT_EQ(log_->LoadConfigText(u"[lay]\nType = Layout\nLayoutType = Fancy\n"), ZYR_E_LAYOUT_NOT_FOUND);
  EXPECT_EQ(log_->LoadConfigText(u"[n2]\nType = Appender\nAppenderType = Null\nLayout = nope\n"),
            ZYR_E_LAYOUT_NOT_FOUND);
  EXPECT_EQ(log_->LoadConfigText(u"[n3]\nType = Appender\nAppenderType = Null\nLayout = DEFAULTLAYOUT\n"), ZYR_OK);
  EXPECT_EQ(log_->LoadConfigText(u"[bad name]\nSeverity = INFO\n"), ZYR_E_BAD_LOGGER_NAME);
  EXPECT_EQ(log_->LoadConfigText(u"[v]\nFileName = ${nosuch}\n"), ZYR_E_INVALID_DATA);
}

TEST_F(ConfigTest, QueueBudgetFromTheRootSection) {
  ZyrLogManager* m = nullptr;
  ASSERT_EQ(ZyrLogManager::Acquire(&m), ZYR_OK);
  ZyrLogDispatcher& d = *m->Hierarchy().dispatcher;
  ASSERT_EQ(log_->LoadConfigText(u"[root]\nMaxQueueSize = 100\n"), ZYR_OK);
  EXPECT_EQ(d.MaxQueueBytes(), 1880u);
  ASSERT_EQ(log_->LoadConfigText(u"[root]\nMaxQueueSize = 0\n"), ZYR_OK);
  EXPECT_EQ(d.MaxQueueBytes(), 0u);
  ASSERT_EQ(log_->LoadConfigText(u"[root]\nMaxQueueSize = 0x10000 ; hex\n"), ZYR_OK);
  EXPECT_EQ(d.MaxQueueBytes(), 65536u);
  ASSERT_EQ(log_->LoadConfigText(u"[root]\nMaxQueueSize = -1\n"), ZYR_OK);
  EXPECT_EQ(d.MaxQueueBytes(), 65536u);  // a bad number leaves it
  ASSERT_EQ(log_->LoadConfigText(u"[root]\nSeverity = INFO\n"), ZYR_OK);
  EXPECT_EQ(d.MaxQueueBytes(), 33554432u);  // absent: the default again
  m->Release();
}

TEST_F(ConfigTest, ResetKeepsLoggerPointersAndDropsAppenders) {
  ASSERT_EQ(log_->LoadConfigText(u"[svc]\nAdditive = false\nSeverity = ERROR\nAddAppenders = n\n"
                                 u"[n]\nType = Appender\nAppenderType = Null\n"),
            ZYR_OK);
  ZyrLogger* svc = Get(u"svc");
  EXPECT_EQ(svc->threshold.load(), ZYR_SEVERITY_ERROR);
  ASSERT_EQ(log_->ResetConfig(), ZYR_OK);
  EXPECT_EQ(Get(u"svc"), svc);
  EXPECT_EQ(svc->threshold.load(), ZYR_SEVERITY_INFO);
  EXPECT_EQ(svc->flags.load(), 0x19u);
  ZyrLogManager* m = nullptr;
  ASSERT_EQ(ZyrLogManager::Acquire(&m), ZYR_OK);
  ZyrLogAppender* n = nullptr;
  EXPECT_EQ(m->Appenders().Find(u"n", 1, &n), ZYR_E_APPENDER_NOT_FOUND);
  m->Release();
}

TEST(ConfigNumbers, UnsignedAndSignedText) {
  auto u = [](const char16_t* t) {
    ZyrBasString s;
    s.Assign(t);
    std::uint64_t v = 99;
    EXPECT_EQ(ZyrCfgParseUnsigned(s, &v), ZYR_OK) << zyrtest::Narrow(t);
    return v;
  };
  EXPECT_EQ(u(u""), 0u);
  EXPECT_EQ(u(u"100MB"), 100u);
  EXPECT_EQ(u(u"abc"), 0u);
  EXPECT_EQ(u(u"0x1F"), 31u);
  EXPECT_EQ(u(u"0x"), 0u);  // the prefix needs one more character
  EXPECT_EQ(u(u"99999999999999999999"), 9999999999999999999u);  // the value before the overflow
  ZyrBasString minus;
  minus.Assign(u"-5");
  std::uint64_t v = 0;
  EXPECT_EQ(ZyrCfgParseUnsigned(minus, &v), ZYR_E_INVALID_ARGUMENT);
  std::int64_t sv = 0;
  EXPECT_EQ(ZyrCfgParseSigned(minus, &sv), ZYR_OK);
  EXPECT_EQ(sv, -5);
  minus.Assign(u"-0x10");
  EXPECT_EQ(ZyrCfgParseSigned(minus, &sv), ZYR_OK);
  EXPECT_EQ(sv, -16);
  minus.Assign(u"0xffffffffffffffff");
  EXPECT_EQ(ZyrCfgParseSigned(minus, &sv), ZYR_OK);
  EXPECT_EQ(sv, -1);
}

TEST(ConfigVariables, Expansion) {
  auto x = [](const char16_t* t, ZyrResult expected = ZYR_OK) {
    ZyrBasString in, out;
    in.Assign(t);
    EXPECT_EQ(ZyrCfgExpandVariables(in, out), expected) << zyrtest::Narrow(t);
    return std::u16string(out.Text(), out.Length());
  };
  EXPECT_EQ(x(u"cost: 5$"), u"cost: 5$");
  EXPECT_EQ(x(u"a$b"), u"a$b");
  EXPECT_EQ(x(u"a$$b"), u"a$b");
  EXPECT_EQ(x(u"$$"), u"$");
  EXPECT_EQ(x(u""), u"");
  EXPECT_EQ(x(u"${pid"), u"${pid");
  EXPECT_EQ(x(u"x${pid}.log"), u"x" + zyrtest::U16(std::to_string(getpid())) + u".log");
  x(u"${${pid}}", ZYR_E_INVALID_DATA);
  x(u"${}", ZYR_E_INVALID_DATA);
  x(u"${PID}", ZYR_E_INVALID_DATA);
  EXPECT_EQ(x(u"${process}"), u"zyr_unit_tests");
  setenv("LOCALAPPDATA", "/srv/data", 1);
  EXPECT_EQ(x(u"${winlocalappdata}\\a.log"), u"/srv/data\\a.log");
  x(u"${user}");  // known: never a failure
}
