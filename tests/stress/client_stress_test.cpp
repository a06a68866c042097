// Bounded races over the binding of channels and the life of the manager;
// run under ThreadSanitizer in CI.
#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "client/log_object.h"
#include "engine/manager.h"
#include "../unit/test_support.h"
#include "zyrlog/zyrlog.h"

TEST(ClientStress, TwoThreadsBindOneChannel) {
  std::string dir = zyrtest::UsePrivateLocalAppData("bind");
  IZyrLog* keeper = nullptr;  // keeps one manager alive across the rounds
  ASSERT_EQ(ZyrGetLogObject(&IID_IZyrLog, &keeper), ZYR_OK);
  for (int round = 0; round < 300; ++round) {
    std::atomic<ZyrLogChannel*> slot{nullptr};
    ZyrResult r1 = -1, r2 = -1;
    std::thread t1([&] { r1 = ZyrBindChannel(slot); });
    std::thread t2([&] { r2 = ZyrBindChannel(slot); });
    t1.join();
    t2.join();
    ASSERT_EQ(r1, ZYR_OK);
    ASSERT_EQ(r2, ZYR_OK);
    ASSERT_NE(slot.load(), nullptr);
    ZyrDelete(slot.load());
  }
  std::uint64_t destroyed = ZyrLogManager::TestDestroyedCount();
  ZyrReleaseLogObject(&IID_IZyrLog, keeper);
  // The losers gave their references back: the keeper's was the last one.
  EXPECT_EQ(ZyrLogManager::TestDestroyedCount(), destroyed + 1);
  zyrtest::RemoveTree(dir);
}

TEST(ClientStress, LastReleaseRacesANewObject) {
  std::string dir = zyrtest::UsePrivateLocalAppData("race");
  for (int round = 0; round < 300; ++round) {
    IZyrLog* old = nullptr;
    ASSERT_EQ(ZyrGetLogObject(&IID_IZyrLog, &old), ZYR_OK);
    IZyrLog* fresh = nullptr;
    ZyrResult r = -1;
    std::thread other([&] { r = ZyrGetLogObject(&IID_IZyrLog, &fresh); });
    ZyrReleaseLogObject(&IID_IZyrLog, old);
    other.join();
    ASSERT_EQ(r, ZYR_OK);
    ZyrLogger* logger = nullptr;
    ASSERT_EQ(fresh->GetLogger(&logger, u"race.x"), ZYR_OK);
    ASSERT_EQ(logger->threshold.load(), ZYR_SEVERITY_INFO);
    ZyrReleaseLogObject(&IID_IZyrLog, fresh);
  }
  EXPECT_EQ(ZyrLogManager::TestCreatedCount(), ZyrLogManager::TestDestroyedCount());
  zyrtest::RemoveTree(dir);
}
