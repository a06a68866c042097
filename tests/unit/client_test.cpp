#include <gtest/gtest.h>
#include <sys/stat.h>

#include <string>
#include <vector>

#include "client/log_object.h"
#include "engine/manager.h"
#include "module/module.h"
#include "test_support.h"
#include "zyrlog/zyrlog.h"

namespace {

class ClientTest : public ::testing::Test {
 protected:
  void SetUp() override { dir_ = zyrtest::UsePrivateLocalAppData("client"); }
  void TearDown() override { zyrtest::RemoveTree(dir_); }

  IZyrLog* NewLog() {
    IZyrLog* log = nullptr;
    EXPECT_EQ(ZyrGetLogObject(&IID_IZyrLog, &log), ZYR_OK);
    return log;
  }
  static void Free(IZyrLog* log) { ZyrReleaseLogObject(&IID_IZyrLog, log); }
  std::string dir_;
};

std::u16string ConfigFolder(IZyrLog* log, bool priv = false) {
  char16_t buffer[512];
  std::uint64_t needed = 0;
  EXPECT_EQ(priv ? log->GetPrivateConfigFolder(buffer, 511, &needed) : log->GetConfigFolder(buffer, 511, &needed),
            ZYR_OK);
  return std::u16string(buffer);
}

}  // namespace

// The reserved slots and the logger's field offsets are part of the binary
// table clients are built against.
TEST_F(ClientTest, ReservedSlotsAndLoggerFieldOffsets) {
  IZyrLog* log = NewLog();
  EXPECT_EQ(log->Reserved11(), ZYR_E_NOT_SUPPORTED);
  EXPECT_EQ(log->Reserved23(), ZYR_E_NOT_SUPPORTED);
  EXPECT_EQ(log->Reserved33(), ZYR_E_NOT_SUPPORTED);
  EXPECT_EQ(log->Reserved34(), ZYR_E_NOT_SUPPORTED);
  EXPECT_EQ(log->IsSupported(), 1);
  EXPECT_EQ(log->IsConfigured(), 0);
  ZyrLogger* logger = nullptr;
  ASSERT_EQ(log->GetLogger(&logger, u"layout"), ZYR_OK);
  auto* base = reinterpret_cast<char*>(logger);
  EXPECT_EQ(reinterpret_cast<char*>(&logger->threshold) - base, 8);
  EXPECT_EQ(reinterpret_cast<char*>(&logger->flags) - base, 12);
  Free(log);
}

TEST_F(ClientTest, RegistryKeepsOrderAndForgetsReleasedObjects) {
  std::size_t before = ZyrModuleObjectCount();
  IZyrLog* a = NewLog();
  IZyrLog* b = NewLog();
  IZyrLog* c = NewLog();
  EXPECT_EQ(ZyrModuleObjectCount(), before + 3);
  Free(b);
  EXPECT_EQ(ZyrModuleObjectCount(), before + 2);
  std::vector<ZyrLogObject*> seen;
  ZyrModuleForEachObject([](ZyrLogObject* o, void* ctx) { static_cast<std::vector<ZyrLogObject*>*>(ctx)->push_back(o); },
                         &seen);
  ASSERT_GE(seen.size(), 2u);
  EXPECT_EQ(seen[seen.size() - 2], ZyrLogObject::FromLog(a));
  EXPECT_EQ(seen.back(), ZyrLogObject::FromLog(c));
  Free(a);
  Free(c);
  EXPECT_EQ(ZyrModuleObjectCount(), before);
}

TEST_F(ClientTest, ConfigFolderCopyOutHonoursTheBufferTriple) {
  IZyrLog* log = NewLog();
  ASSERT_EQ(log->SetConfigFolder(u"/srv/cfg", nullptr, 0), ZYR_OK);
  char16_t buffer[16];
  std::uint64_t needed = 0;
  EXPECT_EQ(log->GetConfigFolder(buffer, 8, &needed), ZYR_OK);  // capacity equals the length
  EXPECT_EQ(needed, 9u);
  EXPECT_EQ(std::u16string(buffer), u"/srv/cfg");
  buffer[0] = u'#';
  EXPECT_EQ(log->GetConfigFolder(buffer, 7, &needed), ZYR_E_BUFFER_TOO_SMALL);
  EXPECT_EQ(needed, 9u);
  EXPECT_EQ(buffer[0], u'#');
  EXPECT_EQ(log->GetConfigFolder(nullptr, 0, &needed), ZYR_E_BUFFER_TOO_SMALL);  // only measures
  EXPECT_EQ(needed, 9u);
  EXPECT_EQ(ConfigFolder(log, true), u"");
  Free(log);
}

TEST_F(ClientTest, FirstLogFolderWinsAndDefaultIsCreated) {
  if (!zyrtest::LocalAppDataFollowsEnvironment())
    GTEST_SKIP() << "the key store names the local data folder, and the store comes before LOCALAPPDATA";
  IZyrLog* log = NewLog();
  ASSERT_EQ(log->SetFolders(u"cfg1", zyrtest::U16(dir_ + "/first").c_str(), 0), ZYR_OK);
  ASSERT_EQ(log->SetFolders(u"cfg2", zyrtest::U16(dir_ + "/second").c_str(), 0), ZYR_OK);
  EXPECT_EQ(ConfigFolder(log), u"cfg2");
  // A null configuration folder on a fresh channel leaves it empty and
  // gives the channel the default log folder, which now exists.
  ASSERT_EQ(log->SetPrivateConfigFolder(nullptr, nullptr, 0), ZYR_OK);
  EXPECT_EQ(ConfigFolder(log, true), u"");
  EXPECT_EQ(log->IsPrivateConfigured(), 1);
  struct stat st;
  EXPECT_EQ(stat((dir_ + "/Zyr/OPH2015/log").c_str(), &st), 0);
  EXPECT_TRUE(S_ISDIR(st.st_mode));
  Free(log);
}

TEST_F(ClientTest, LoggerMasksFromBothChannels) {
  IZyrLog* log = NewLog();
  ZyrLogger *pub = nullptr, *again = nullptr, *priv = nullptr;
  ASSERT_EQ(log->GetLogger(&pub, u"svc.net"), ZYR_OK);
  ASSERT_EQ(log->GetLogger(&again, u"svc.net"), ZYR_OK);
  EXPECT_EQ(pub, again);
  ASSERT_EQ(log->GetPrivateLogger(&priv, u"svc.net"), ZYR_OK);
  EXPECT_EQ(priv, pub);
  EXPECT_EQ(pub->flags.load(), 0x1Bu);

  // FindLogger of a path that does not exist whole creates nothing and
  // leaves the caller's pointer alone.
  ZyrLogger* found = reinterpret_cast<ZyrLogger*>(0x1);
  ASSERT_EQ(log->FindLogger(&found, u"svc.disk"), ZYR_OK);
  EXPECT_EQ(found, reinterpret_cast<ZyrLogger*>(0x1));
  ZyrLogger* svc = nullptr;
  ASSERT_EQ(log->FindLogger(&svc, u"svc"), ZYR_OK);
  // "svc" was made on the way to "svc.net" without a mask, and only the
  // lookup that found it by name added one.
  EXPECT_EQ(svc->flags.load(), 0x19u);

  ZyrLogger* root = nullptr;
  ASSERT_EQ(log->GetLogger(&root, u"ROOT"), ZYR_OK);
  EXPECT_EQ(std::u16string(root->GetName()), u"root");
  ZyrLogger* under = nullptr;
  ASSERT_EQ(log->GetLogger(&under, u"ROOT.x"), ZYR_OK);
  EXPECT_EQ(std::u16string(under->GetName()), u"ROOT.x");
  EXPECT_EQ(log->GetLogger(&under, u"bad name"), ZYR_E_BAD_LOGGER_NAME);
  Free(log);
}

TEST_F(ClientTest, ObjectInterfacesShareOneCount) {
  void* raw = nullptr;
  ASSERT_EQ(GetZyrObject(&IID_IZyrObject, &raw), ZYR_OK);
  auto* object = static_cast<IZyrObject*>(raw);
  IZyrLogAccess* access = object->GetLogAccess();
  EXPECT_EQ(access->AddRef(), 3);
  EXPECT_EQ(access->Release(), 2);
  IZyrObject::GuardedRelease release = object->GetGuardedRelease();
  EXPECT_EQ(release(object), 1);
  EXPECT_EQ(object->Release(), 0);
  void* none = nullptr;
  EXPECT_EQ(GetZyrObject(&IID_IZyrLog, &none), ZYR_E_NOT_SUPPORTED);
  EXPECT_EQ(none, nullptr);
}

TEST_F(ClientTest, ManagerLivesWhileAnyObjectDoesAndModuleInitIsCounted) {
  std::uint64_t created = ZyrLogManager::TestCreatedCount();
  std::uint64_t destroyed = ZyrLogManager::TestDestroyedCount();
  IZyrLog* a = NewLog();
  IZyrLog* b = NewLog();
  EXPECT_EQ(ZyrLogManager::TestCreatedCount(), created + 1);
  Free(a);
  EXPECT_EQ(ZyrLogManager::TestDestroyedCount(), destroyed);
  Free(b);
  EXPECT_EQ(ZyrLogManager::TestDestroyedCount(), destroyed + 1);

  EXPECT_EQ(ZyrModuleInit(), ZYR_OK);
  EXPECT_EQ(ZyrModuleInit(), ZYR_OK);
  EXPECT_EQ(ZyrModuleFinish(), ZYR_OK);
  EXPECT_EQ(ZyrModuleFinish(), ZYR_OK);
  // Balanced to zero: objects still come and go, with a new manager.
  IZyrLog* c = NewLog();
  ASSERT_NE(c, nullptr);
  EXPECT_EQ(ZyrLogManager::TestCreatedCount(), created + 2);
  Free(c);
}

// Null identifiers and out-pointers are answered, not followed.
TEST_F(ClientTest, NullArgumentsAreAnsweredNotFollowed) {
  IZyrLog* log = nullptr;
  EXPECT_EQ(ZyrGetLogObject(nullptr, &log), ZYR_E_INVALID_ARGUMENT);
  EXPECT_EQ(ZyrGetLogObject(&IID_IZyrLog, nullptr), ZYR_E_INVALID_ARGUMENT);
  EXPECT_EQ(GetZyrObject(&IID_IZyrObject, nullptr), ZYR_E_INVALID_ARGUMENT);
  EXPECT_EQ(ZyrReleaseLogObject(nullptr, nullptr), ZYR_OK);
  log = NewLog();
  EXPECT_EQ(log->GetLogger(nullptr, u"x"), ZYR_E_INVALID_ARGUMENT);
  Free(log);
}
