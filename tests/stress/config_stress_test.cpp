// Bounded races over living configuration: loads through two channels at
// once, and files rewritten while writers log and the worker comes and
// goes. Run under ThreadSanitizer in CI.
#include <gtest/gtest.h>

#include <sys/stat.h>

#include <atomic>
#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include "../unit/log_object_fixture.h"
#include "engine/manager.h"

namespace {

using zyrtest::U16;
using zyrtest::WriteFile;

class ConfigStress : public zyrtest::LogObjectTest {
 protected:
  ConfigStress() : LogObjectTest("cfgstress") {}
};

}  // namespace

// Each load replaces its own entry among the sources while the other
// channel inserts and removes around it; the sorted array moves under a
// load that kept a pointer into it past the lock.
TEST_F(ConfigStress, TwoChannelsLoadingFilesAtOnce) {
  for (const char* name : {"a.cfg", "b.cfg", "c.cfg"})
    WriteFile(dir_ + "/" + name, "[x]\nAdditive = no\nSeverity = WARN\n");
  ASSERT_EQ(log_->SetFolders(U16(dir_).c_str(), nullptr, 0), ZYR_OK);
  ASSERT_EQ(log_->SetPrivateFolders(U16(dir_).c_str(), nullptr, 0), ZYR_OK);
  constexpr int kRounds = 150;
  std::thread publicLoads([&] {
    for (int i = 0; i < kRounds; ++i) EXPECT_EQ(log_->LoadConfigFile(i % 2 ? u"a.cfg" : u"c.cfg"), ZYR_OK);
  });
  for (int i = 0; i < kRounds; ++i) EXPECT_EQ(log_->LoadPrivateConfigFile(i % 2 ? u"b.cfg" : u"a.cfg"), ZYR_OK);
  publicLoads.join();
  EXPECT_EQ(Get(u"x")->threshold.load(), ZYR_SEVERITY_WARN);
}

// Writers on several threads while the configuration file is rewritten
// many times, the worker started and stopped in between: the logger whose
// configuration each version keeps loses no line.
TEST_F(ConfigStress, WritersWhileTheFileChangesAndTheWorkerComesAndGoes) {
  std::string conf = dir_ + "/conf";
  ASSERT_EQ(mkdir(conf.c_str(), 0755), 0);
  auto version = [&](int n) {
    WriteFile(conf + "/live.cfg",
              "[keep]\nAdditive = no\nSeverity = INFO\nAddAppenders = kept\n"
              "[kept]\nType = Appender\nAppenderType = File\nFileName = keep.log\n"
              "[churn]\nAdditive = no\nSeverity = " + std::string(n % 2 ? "ERROR" : "DEBUG") + "\n");
  };
  version(0);
  ASSERT_EQ(log_->SetFolders(U16(conf).c_str(), U16(dir_).c_str(), 0), ZYR_OK);
  ASSERT_EQ(log_->LoadConfigFile(u"live.cfg"), ZYR_OK);
  ZyrLogger* keep = Get(u"keep");
  ZyrLogger* churn = Get(u"churn");

  ZyrLogManager* manager = nullptr;
  ASSERT_EQ(ZyrLogManager::Acquire(&manager), ZYR_OK);
  constexpr int kWriters = 3;
  std::atomic<bool> stop{false};
  std::atomic<std::size_t> written{0};
  std::vector<std::thread> writers;
  for (int t = 0; t < kWriters; ++t)
    writers.emplace_back([&] {
      for (int i = 0; !stop.load(); ++i) {
        EXPECT_EQ(keep->LogShort(ZYR_SEVERITY_INFO, u"kept line", nullptr, 0, 0, 0, 0, nullptr), ZYR_OK);
        written.fetch_add(1);
        (void)churn->LogShort(ZYR_SEVERITY_INFO, u"churn", nullptr, 0, 0, 0, 0, nullptr);
        if (i % 50 == 0) std::this_thread::sleep_for(std::chrono::milliseconds(1));
      }
    });
  // Until the monitor has taken up a handful of versions, by the tick and
  // by the worker, within a bound.
  auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
  for (int n = 1; n < 40 || (manager->TestChangeReads() < 4 && std::chrono::steady_clock::now() < deadline);
       ++n) {
    version(n);
    if (n % 3 == 0) {
      EXPECT_EQ(log_->StartDispatcher(), ZYR_OK);
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(30));
    if (n % 3 == 2) log_->StopDispatcher();
  }
  stop.store(true);
  for (auto& w : writers) w.join();
  log_->StopDispatcher();
  ASSERT_EQ(log_->Flush(), ZYR_OK);
  EXPECT_GE(manager->TestChangeReads(), 4u);
  manager->Release();

  std::string text = zyrtest::ReadFile(dir_ + "/keep.log");
  std::size_t lines = 0;
  for (std::size_t at = text.find("MSG:kept line\r\n"); at != std::string::npos;
       at = text.find("MSG:kept line\r\n", at + 1))
    ++lines;
  EXPECT_EQ(lines, written.load());
}
