// Races on one sibling module: loads by two brokers at once, and releases
// racing loads. Run under the thread sanitizer.
#include <atomic>
#include <string>
#include <thread>

#include "broker_support.h"

using zyrtest::BrokerTest;
using zyrtest::kSiblingIid;
using zyrtest::Notes;

TEST_F(BrokerTest, TwoThreadsLoadingOneModuleKeepOneRecord) {
  constexpr int kRounds = 40;
  std::atomic<int> failures{0}, wrong{0};
  auto worker = [&](bool hold) {
    ZyrBasModuleBroker* kept = nullptr;
    for (int i = 0; i < kRounds; ++i) {
      ZyrBasModuleBroker* broker = nullptr;
      if (ZyrBasModuleBroker::Create(&broker) != ZYR_OK) {
        ++failures;
        continue;
      }
      void* object = nullptr;
      ZyrBasObjectRequest request{u"Sib", u"1", u"full", kSiblingIid};
      if (broker->GetObject(request, &object) != ZYR_OK) ++failures;
      else if (std::string(static_cast<const char*>(object)) != "v2:full-a") ++wrong;
      // One thread keeps its first broker, so loads also race releases of
      // a module that stays loaded.
      if (hold && !kept) kept = broker;
      else broker->Destroy();
    }
    if (kept) {
      EXPECT_GE(References("full"), 1u);
      kept->Destroy();
    }
  };
  std::thread a(worker, true), b(worker, false);
  a.join();
  b.join();
  EXPECT_EQ(failures.load(), 0);
  EXPECT_EQ(wrong.load(), 0);
  // Whatever the interleaving, every start-up has its finish, and nothing
  // stays loaded.
  EXPECT_GE(Notes("full-a", "init"), 1);
  EXPECT_EQ(Notes("full-a", "init"), Notes("full-a", "finish"));
  EXPECT_EQ(References("full"), 0u);
}
