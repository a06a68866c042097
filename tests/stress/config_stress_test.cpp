// Bounded races over living configuration: loads through two channels at
// once, and files rewritten while writers log and the worker comes and
// goes. Run under ThreadSanitizer in CI.
#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "../unit/log_object_fixture.h"

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
