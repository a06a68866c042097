// Shared by the broker's test programs: the notes that the sibling modules
// send, the folders they lie in, and a key store in a temporary folder.
#ifndef ZYR_TESTS_BROKER_SUPPORT_H
#define ZYR_TESTS_BROKER_SUPPORT_H

#include <gtest/gtest.h>

#include <map>
#include <mutex>
#include <optional>
#include <string>

#include "../unit/test_support.h"
#include "broker/module_broker.h"

namespace zyrtest {

inline std::mutex g_notesLock;
inline std::map<std::string, int> g_notes;

// "module:event" counts since the test began.
inline int Notes(const std::string& module, const std::string& event) {
  std::lock_guard<std::mutex> guard(g_notesLock);
  auto it = g_notes.find(module + ":" + event);
  return it == g_notes.end() ? 0 : it->second;
}

inline const std::uint8_t kSiblingIid[16] = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16};

// A key store in a temporary folder that registers product "Sib" version
// "1" in the folder of the sibling modules.
class BrokerTest : public ::testing::Test {
 protected:
  void SetUp() override {
    {
      std::lock_guard<std::mutex> guard(g_notesLock);
      g_notes.clear();
    }
    store_ = MakeTempDir("store");
    root_.emplace("ZYR_REGISTRY_ROOT", store_.c_str());
    testMode_.emplace("ZyrTestMode", nullptr);
    Register("MACHINE/SOFTWARE/Zyr/Sib/1", "Dir = sz:" + std::string(ZYR_SIBLINGS_A) + "\n");
  }
  void TearDown() override {
    testMode_.reset();
    root_.reset();
    RemoveTree(store_);
  }
  void Register(const std::string& key, const std::string& values) {
    std::string dir = store_ + "/" + key;
    std::string cmd = "mkdir -p '" + dir + "'";
    ASSERT_EQ(system(cmd.c_str()), 0);
    WriteFile(dir + "/.values", values);
  }
  ZyrBasModuleBroker* NewBroker(const char* own = ZYR_SIBLINGS_B) {
    ZyrBasModuleBroker* broker = nullptr;
    EXPECT_EQ(ZyrBasModuleBroker::Create(&broker), ZYR_OK);
    std::u16string dir = U16(own);
    EXPECT_EQ(broker->SetOwnDirectory(dir.c_str()), ZYR_OK);
    return broker;
  }
  static std::uint32_t References(const char* module, const char* dir = ZYR_SIBLINGS_A) {
    return ZyrBasModuleBroker::ModuleReferences(U16(dir).c_str(), U16(module).c_str());
  }

  std::string store_;
  std::optional<ScopedEnv> root_, testMode_;
};

}  // namespace zyrtest

extern "C" __attribute__((visibility("default"))) void ZyrTestNote(const char* module, const char* event) {
  std::lock_guard<std::mutex> guard(zyrtest::g_notesLock);
  ++zyrtest::g_notes[std::string(module) + ":" + event];
}

#endif
