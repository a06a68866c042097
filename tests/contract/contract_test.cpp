// The binary contract as a client meets it: this file includes no header of
// the library. It declares the interfaces from their operation tables alone,
// loads zyrloga.so with dlopen and finds the exports by name.
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <stdlib.h>

#include <atomic>
#include <cstdint>
#include <cstdio>
#include <string>
#include <thread>

namespace client {

struct Iid {
  uint32_t d1;
  uint16_t d2, d3;
  uint8_t d4[8];
};

const Iid kLog = {0x22A2C034, 0x69F4, 0x2743, {0x9F, 0x8B, 0x01, 0x9B, 0xC5, 0x63, 0x70, 0x61}};
const Iid kLogLevel3 = {0x5D0F74B7, 0x3325, 0xA83B, {0xA1, 0x20, 0xEF, 0xAE, 0xEF, 0x55, 0xA9, 0xA1}};
const Iid kLogAccess = {0x716AA4A5, 0x07BF, 0xFA4E, {0x9A, 0x9C, 0xB7, 0x1C, 0x15, 0x9C, 0x9F, 0x60}};
const Iid kObject = {0x716AA4A5, 0x08BF, 0xFA4E, {0x9A, 0x9C, 0xB7, 0x1C, 0x15, 0x9C, 0x9F, 0x60}};

constexpr int32_t kNotSupported = static_cast<int32_t>(0xe0010054u);
constexpr int32_t kBufferTooSmall = static_cast<int32_t>(0xe0010044u);

// The public shape of a logger: nine operations, then threshold and flags.
struct Logger {
  virtual const char16_t* GetName() = 0;
  virtual int32_t Log(int32_t, const char16_t*, const char16_t*, uint32_t, uint32_t, uint32_t,
                      uint32_t, uint32_t, const uint64_t*) = 0;
  virtual int32_t LogShort(int32_t, const char16_t*, const char16_t*, uint32_t, uint32_t,
                           uint32_t, uint32_t, const uint64_t*) = 0;
  virtual int32_t LogNumber(int32_t, const char16_t*, const char16_t*, uint32_t, uint32_t,
                            uint32_t, uint32_t, uint32_t, const uint64_t*) = 0;
  virtual int32_t Configure(void*) = 0;
  virtual int32_t Save(void*) = 0;
  virtual int32_t LogRevision(int32_t, const char16_t*, const char16_t*, uint32_t, uint32_t,
                              const char16_t*, uint32_t, uint32_t, const uint64_t*) = 0;
  virtual int32_t LogText(int32_t, const char16_t*, const char16_t*, uint32_t, uint32_t,
                          const char16_t*, uint32_t, uint32_t, const uint64_t*) = 0;
  virtual void Destroy(uint32_t) = 0;
  std::atomic<int32_t> threshold;
  std::atomic<uint32_t> flags;
};

// IZyrLog, the 39 slots in table order.
struct Log {
  virtual int32_t GetLogger(Logger**, const char16_t*) = 0;                        // 0
  virtual int32_t FindLogger(Logger**, const char16_t*) = 0;                       // 1
  virtual uint8_t IsConfigured() = 0;                                               // 2
  virtual int32_t SetConfigFolder(const char16_t*, void*, uint8_t) = 0;             // 3
  virtual int32_t GetConfigFolder(char16_t*, uint64_t, uint64_t*) = 0;              // 4
  virtual uint8_t IsSupported() = 0;                                                // 5
  virtual int32_t LoadConfigFile(const char16_t*) = 0;                              // 6
  virtual int32_t LoadConfigText(const char16_t*) = 0;                              // 7
  virtual int32_t SaveConfigFile(const char16_t*, uint8_t) = 0;                     // 8
  virtual int32_t GetConfigText(char16_t*, uint64_t, uint64_t*) = 0;                // 9
  virtual int32_t ResetConfig() = 0;                                                // 10
  virtual int32_t Reserved11() = 0;                                                 // 11
  virtual int32_t GetPrivateLogger(Logger**, const char16_t*) = 0;                 // 12
  virtual int32_t FindPrivateLogger(Logger**, const char16_t*) = 0;                // 13
  virtual uint8_t IsPrivateConfigured() = 0;                                        // 14
  virtual int32_t SetPrivateConfigFolder(const char16_t*, void*, uint8_t) = 0;      // 15
  virtual int32_t GetPrivateConfigFolder(char16_t*, uint64_t, uint64_t*) = 0;       // 16
  virtual uint8_t IsPrivateSupported() = 0;                                         // 17
  virtual int32_t LoadPrivateConfigFile(const char16_t*) = 0;                       // 18
  virtual int32_t LoadPrivateConfigText(const char16_t*) = 0;                       // 19
  virtual int32_t SavePrivateConfigFile(const char16_t*, uint8_t) = 0;              // 20
  virtual int32_t GetPrivateConfigText(char16_t*, uint64_t, uint64_t*) = 0;         // 21
  virtual int32_t ResetPrivateConfig() = 0;                                         // 22
  virtual int32_t Reserved23() = 0;                                                 // 23
  virtual int32_t ReconfigureLoadConfigFile(const char16_t*) = 0;                   // 24
  virtual int32_t LoadConfigTextOrNothing(const char16_t*) = 0;                     // 25
  virtual int32_t ReconfigureLoadPrivateConfigFile(const char16_t*) = 0;            // 26
  virtual int32_t LoadPrivateConfigTextOrNothing(const char16_t*) = 0;              // 27
  virtual void Forbidden28() = 0;                                                   // 28
  virtual int32_t Flush() = 0;                                                      // 29
  virtual int32_t FlushPrivate() = 0;                                               // 30
  virtual int32_t UseProductFolder() = 0;                                           // 31
  virtual int32_t UsePrivateProductFolder() = 0;                                    // 32
  virtual int32_t Reserved33() = 0;                                                 // 33
  virtual int32_t Reserved34() = 0;                                                 // 34
  virtual int32_t SetFolders(const char16_t*, const char16_t*, uint8_t) = 0;        // 35
  virtual int32_t SetPrivateFolders(const char16_t*, const char16_t*, uint8_t) = 0; // 36
  virtual int32_t StartDispatcher() = 0;                                            // 37
  virtual void StopDispatcher() = 0;                                                // 38
};

struct LogAccess;
struct Object {
  virtual void Destroy(uint32_t) = 0;
  virtual int32_t AddRef() = 0;
  virtual int32_t Release() = 0;
  virtual LogAccess* GetLogAccess() = 0;
  virtual void* GetGuardedRelease() = 0;
};
struct LogAccess {
  virtual void Destroy(uint32_t) = 0;
  virtual int32_t AddRef() = 0;
  virtual int32_t Release() = 0;
  virtual Log* GetLog() = 0;
};

typedef int32_t (*GetZyrObjectFn)(const Iid*, void**);
typedef int32_t (*GetLogObjectFn)(const Iid*, Log**);
typedef int32_t (*ReleaseLogObjectFn)(const Iid*, Log*);

}  // namespace client

using namespace client;

class ContractTest : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    // Keep the default log folder inside the build tree.
    std::string dir = std::string(::testing::TempDir()) + "zyr-contract-" + std::to_string(getpid());
    setenv("LOCALAPPDATA", dir.c_str(), 1);
    module_ = dlopen(ZYR_MODULE_PATH, RTLD_NOW | RTLD_LOCAL);
    ASSERT_NE(module_, nullptr) << dlerror();
    getObject_ = reinterpret_cast<GetZyrObjectFn>(dlsym(module_, "GetZyrObject"));
    getLog_ = reinterpret_cast<GetLogObjectFn>(dlsym(module_, "ZyrGetLogObject"));
    releaseLog_ = reinterpret_cast<ReleaseLogObjectFn>(dlsym(module_, "ZyrReleaseLogObject"));
    ASSERT_TRUE(getObject_ && getLog_ && releaseLog_);
  }

  static void* module_;
  static GetZyrObjectFn getObject_;
  static GetLogObjectFn getLog_;
  static ReleaseLogObjectFn releaseLog_;
};

void* ContractTest::module_;
GetZyrObjectFn ContractTest::getObject_;
GetLogObjectFn ContractTest::getLog_;
ReleaseLogObjectFn ContractTest::releaseLog_;

TEST_F(ContractTest, LogIdentifiersGiveAUsableLogAndObjectIdentifiersAreRefused) {
  for (const Iid* iid : {&kLog, &kLogLevel3}) {
    Log* log = nullptr;
    ASSERT_EQ(getLog_(iid, &log), 0);
    ASSERT_NE(log, nullptr);
    EXPECT_EQ(log->IsSupported(), 1);
    EXPECT_EQ(log->Reserved11(), kNotSupported);
    EXPECT_EQ(log->Reserved33(), kNotSupported);
    Logger* logger = nullptr;
    ASSERT_EQ(log->GetLogger(&logger, u"contract.a"), 0);
    EXPECT_EQ(std::u16string(logger->GetName()), u"contract.a");
    EXPECT_EQ(logger->threshold.load(), 200000);
    EXPECT_EQ(logger->flags.load() & 0x19u, 0x19u);
    EXPECT_EQ(releaseLog_(&kLog, log), 0);

    void* object = reinterpret_cast<void*>(0x1234);
    EXPECT_EQ(getObject_(iid, &object), static_cast<int32_t>(0xe0010054u));
    EXPECT_EQ(object, reinterpret_cast<void*>(0x1234));
  }
  Log* log = nullptr;
  EXPECT_EQ(getLog_(&kObject, &log), kNotSupported);
}

TEST_F(ContractTest, ObjectAccessAndTwoReleasesDestroyOnce) {
  void* raw = nullptr;
  ASSERT_EQ(getObject_(&kObject, &raw), 0);
  Object* object = static_cast<Object*>(raw);
  LogAccess* access = object->GetLogAccess();
  ASSERT_NE(access, nullptr);
  Log* log = access->GetLog();
  char16_t buffer[8];
  uint64_t needed = 0;
  EXPECT_EQ(log->GetConfigFolder(buffer, 7, &needed), 0);
  EXPECT_EQ(needed, 1u);
  EXPECT_EQ(access->Release(), 1);  // the reference GetLogAccess added
  EXPECT_EQ(object->Release(), 0);  // the one the object was born with
}

TEST_F(ContractTest, FoldersAreNamedAndReadBack) {
  Log* log = nullptr;
  ASSERT_EQ(getLog_(&kLog, &log), 0);
  ASSERT_EQ(log->SetFolders(u"/etc/zyr-example", nullptr, 0), 0);
  EXPECT_EQ(log->IsConfigured(), 1);
  char16_t buffer[64];
  uint64_t needed = 0;
  const std::u16string folder = u"/etc/zyr-example";
  EXPECT_EQ(log->GetConfigFolder(buffer, folder.size() - 1, &needed), kBufferTooSmall);
  EXPECT_EQ(needed, folder.size() + 1);
  EXPECT_EQ(log->GetConfigFolder(buffer, folder.size(), &needed), 0);
  EXPECT_EQ(std::u16string(buffer), folder);
  EXPECT_EQ(log->IsPrivateConfigured(), 0);
  EXPECT_EQ(releaseLog_(&kLog, log), 0);
}

// Two objects share one manager: a logger asked for through the private
// channel of one carries both masks for the other. Releasing both tears the
// manager down, and a third object meets a fresh tree.
TEST_F(ContractTest, ObjectsShareOneManagerUntilTheLastGoes) {
  Log* first = nullptr;
  Log* second = nullptr;
  ASSERT_EQ(getLog_(&kLog, &first), 0);
  ASSERT_EQ(getLog_(&kLogLevel3, &second), 0);
  Logger* a = nullptr;
  Logger* b = nullptr;
  ASSERT_EQ(first->GetPrivateLogger(&a, u"shared.x"), 0);
  ASSERT_EQ(second->GetLogger(&b, u"shared.x"), 0);
  EXPECT_EQ(a, b);
  EXPECT_EQ(b->flags.load(), 0x1Bu);
  EXPECT_EQ(releaseLog_(&kLog, first), 0);
  Logger* still = nullptr;
  ASSERT_EQ(second->FindLogger(&still, u"shared.x"), 0);
  EXPECT_EQ(still, b);
  EXPECT_EQ(releaseLog_(&kLog, second), 0);

  Log* third = nullptr;
  ASSERT_EQ(getLog_(&kLog, &third), 0);
  Logger* fresh = nullptr;
  ASSERT_EQ(third->FindLogger(&fresh, u"shared.x"), 0);
  EXPECT_EQ(fresh, nullptr);  // not in the new tree
  ASSERT_EQ(third->GetLogger(&fresh, u"shared.x"), 0);
  EXPECT_EQ(fresh->flags.load(), 0x19u);
  EXPECT_EQ(releaseLog_(&kLog, third), 0);
}

TEST_F(ContractTest, LastReleaseRacingANewObject) {
  for (int round = 0; round < 200; ++round) {
    Log* old = nullptr;
    ASSERT_EQ(getLog_(&kLog, &old), 0);
    Log* fresh = nullptr;
    int32_t result = -1;
    std::thread other([&] { result = getLog_(&kLog, &fresh); });
    releaseLog_(&kLog, old);
    other.join();
    ASSERT_EQ(result, 0);
    Logger* logger = nullptr;
    ASSERT_EQ(fresh->GetLogger(&logger, u"race"), 0);
    EXPECT_EQ(logger->threshold.load(), 200000);
    releaseLog_(&kLog, fresh);
  }
}
