// The object broker: the product's directory from the key store, sibling
// modules loaded once and held by reference, the order of the search, and
// the answers of modules that lack entry points.
#include <unistd.h>

#include <cstring>
#include <string>
#include <vector>

#include "broker/framework_directory.h"
#include "broker_support.h"

namespace {

using zyrtest::BrokerTest;
using zyrtest::kSiblingIid;
using zyrtest::Notes;

ZyrBasObjectRequest Request(const char16_t* module, const char16_t* product = u"Sib", const void* iid = kSiblingIid) {
  return ZyrBasObjectRequest{product, u"1", module, iid};
}

std::string Answer(void* object) { return object ? static_cast<const char*>(object) : "(none)"; }

// Records the paths of loads, and can refuse them.
struct Observer : ZyrBasLoadObserver {
  ZyrResult BeforeLoad(const char16_t* path, void** cookie) override {
    paths.push_back(zyrtest::Narrow(path));
    *cookie = this;
    return refuse;
  }
  void AfterLoad(bool success, void* cookie) override { after.push_back(success && cookie == this); }
  std::vector<std::string> paths;
  std::vector<bool> after;
  ZyrResult refuse = ZYR_OK;
};

}  // namespace

TEST_F(BrokerTest, OneLoadForTwoBrokersInitialisedAndFinishedOnce) {
  ZyrBasModuleBroker* first = NewBroker();
  ZyrBasModuleBroker* second = NewBroker();
  void* object = nullptr;
  ASSERT_EQ(first->GetObject(Request(u"full"), &object), ZYR_OK);
  EXPECT_EQ(Answer(object), "v2:full-a");  // the registered directory, through GetZyrObject2
  ASSERT_EQ(first->GetObject(Request(u"full"), &object), ZYR_OK);
  EXPECT_EQ(References("full"), 1u);  // one broker holds one reference, however often it asks
  ASSERT_EQ(second->GetObject(Request(u"full"), &object), ZYR_OK);
  EXPECT_EQ(References("full"), 2u);
  EXPECT_EQ(Notes("full-a", "init"), 1);
  EXPECT_EQ(Notes("full-a", "v1"), 0);
  first->Destroy();
  EXPECT_EQ(Notes("full-a", "finish"), 0);
  EXPECT_EQ(References("full"), 1u);
  second->Destroy();
  EXPECT_EQ(Notes("full-a", "finish"), 1);
  EXPECT_EQ(References("full"), 0u);
  // Loaded afresh after the last release.
  ZyrBasModuleBroker* third = NewBroker();
  ASSERT_EQ(third->GetObject(Request(u"full"), &object), ZYR_OK);
  EXPECT_EQ(Notes("full-a", "init"), 2);
  third->ReleaseAll(false);  // keeps everything
  EXPECT_EQ(References("full"), 1u);
  third->ReleaseAll(true);
  EXPECT_EQ(Notes("full-a", "finish"), 2);
  third->Destroy();
}

TEST_F(BrokerTest, ModulesWithoutSomeEntryPoints) {
  // Beside the caller too, so that the fallback gives the same answer.
  ZyrBasModuleBroker* broker = NewBroker(ZYR_SIBLINGS_A);
  void* object = nullptr;
  // Without GetZyrObject2 the module is asked through GetZyrObject.
  ASSERT_EQ(broker->GetObject(Request(u"old"), &object), ZYR_OK);
  EXPECT_EQ(Answer(object), "v1:old");
  // ZyrModuleInit without ZyrModuleFinish: neither is called.
  ASSERT_EQ(broker->GetObject(Request(u"half"), &object), ZYR_OK);
  EXPECT_EQ(Notes("half", "init"), 0);
  // Neither GetZyrObject2 nor GetZyrObject: the lookup's result, nothing
  // stays loaded, and the module's start-up never ran.
  object = nullptr;
  EXPECT_EQ(broker->GetObject(Request(u"none"), &object), static_cast<ZyrResult>(0xc007007f));
  EXPECT_EQ(object, nullptr);
  EXPECT_EQ(References("none"), 0u);
  EXPECT_EQ(Notes("none", "init"), 0);
  // A failing start-up is the answer; Finish is not called.
  EXPECT_EQ(broker->GetObject(Request(u"badinit"), &object), ZYR_E_ACCESS_DENIED);
  EXPECT_EQ(Notes("badinit", "init"), 2);  // tried in both places
  EXPECT_EQ(Notes("badinit", "finish"), 0);
  EXPECT_EQ(References("badinit"), 0u);
  // A refused identifier is the module's answer; the module stays held.
  std::uint8_t other[16] = {};
  EXPECT_EQ(broker->GetObject(Request(u"full", u"Sib", other), &object), ZYR_E_NOT_SUPPORTED);
  EXPECT_EQ(References("full"), 1u);
  broker->Destroy();
  EXPECT_EQ(Notes("old", "finish"), 1);
  EXPECT_EQ(Notes("half", "finish"), 0);
  EXPECT_EQ(References("old") + References("half") + References("full"), 0u);
}

TEST_F(BrokerTest, UnknownProductsAndMissingModules) {
  ZyrBasString dir;
  EXPECT_EQ(ZyrBasFrameworkDirectory(dir, u"Nope", 4, u"1", 1), ZYR_E_FILE_NOT_FOUND);
  // Not registered, and not beside the caller either: the library is not found.
  ZyrBasModuleBroker* broker = NewBroker();
  void* object = nullptr;
  EXPECT_EQ(broker->GetObject(Request(u"old", u"Nope"), &object), ZYR_E_PATH_NOT_FOUND);
  // Not registered but beside the caller: found there.
  ASSERT_EQ(broker->GetObject(Request(u"only_b", u"Nope"), &object), ZYR_OK);
  EXPECT_EQ(Answer(object), "v2:only-b");
  EXPECT_EQ(broker->GetObject(Request(u"missing"), &object), ZYR_E_PATH_NOT_FOUND);
  EXPECT_EQ(broker->GetObjectFromDirectory(u"/nonexistent", u"full", kSiblingIid, &object), ZYR_E_PATH_NOT_FOUND);
  broker->Destroy();
  // An own directory that is empty means ".".
  broker = NewBroker("");
  char cwd[4096];
  ASSERT_NE(getcwd(cwd, sizeof cwd), nullptr);
  ASSERT_EQ(chdir(ZYR_SIBLINGS_B), 0);
  EXPECT_EQ(broker->GetObject(Request(u"only_b", u"Nope"), &object), ZYR_OK);
  ASSERT_EQ(chdir(cwd), 0);
  broker->Destroy();
}

TEST_F(BrokerTest, TestModeOnlyChangesTheOrder) {
  Observer observer;
  struct Case {
    const char* value;
    const char* answer;
  } cases[] = {{nullptr, "v2:full-a"}, {"0", "v2:full-a"}, {"11", "v2:full-a"}, {"", "v2:full-a"}, {"1", "v2:full-b"}};
  for (const Case& c : cases) {
    testMode_->Set(c.value);
    ZyrBasModuleBroker* broker = NewBroker();
    broker->SetLoadObserver(&observer);
    observer.paths.clear();
    void* object = nullptr;
    ASSERT_EQ(broker->GetObject(Request(u"full"), &object), ZYR_OK);
    EXPECT_EQ(Answer(object), c.answer) << (c.value ? c.value : "unset");
    // Only the directory that answered was touched.
    ASSERT_EQ(observer.paths.size(), 1u);
    for (char& c : observer.paths[0])
      if (c == '\\') c = '/';
    EXPECT_EQ(observer.paths[0], std::string(c.value && *c.value == '1' && !c.value[1] ? ZYR_SIBLINGS_B : ZYR_SIBLINGS_A) +
                                     "/full.so");
    broker->Destroy();
  }
  // Test mode on, module not beside the caller: the registered one.
  testMode_->Set("1");
  ZyrBasModuleBroker* broker = NewBroker();
  void* object = nullptr;
  ASSERT_EQ(broker->GetObject(Request(u"old"), &object), ZYR_OK);
  EXPECT_EQ(Answer(object), "v1:old");
  // An observer that refuses stops the load with its result.
  broker->SetLoadObserver(&observer);
  observer.refuse = ZYR_E_ACCESS_DENIED;
  EXPECT_EQ(broker->GetObjectFromDirectory(u"" ZYR_SIBLINGS_A, u"half", kSiblingIid, &object), ZYR_E_ACCESS_DENIED);
  EXPECT_EQ(References("half"), 0u);
  broker->Destroy();
}

TEST_F(BrokerTest, FrameworkDirectoryByProductAndVersion) {
  Register("MACHINE/SYSTEM/CurrentControlSet/Services/Zyr/Zyr2014", "ZyrDir = sz:/opt/fw\n");
  Register("MACHINE/SOFTWARE/Zyr/framework/0", "Dir = sz:/opt/lower\n");
  Register("MACHINE/SOFTWARE/Zyr/Other/0", "Dir = sz:/opt/other\n");
  std::string longDir = "/" + std::string(300, 'd');
  Register("MACHINE/SOFTWARE/Zyr/Long/2", "Dir = sz:" + longDir + "\n");
  Register("MACHINE/SOFTWARE/Zyr/Exp/1", "Dir = expand_sz:%HOME%\n");
  Register("MACHINE/SOFTWARE/Zyr/Num/1", "Dir = dword:5\n");
  Register("MACHINE/SOFTWARE/Zyr/Empty/1", "Dir = sz:\n");
  auto dir = [](const char16_t* product, const char16_t* version, ZyrResult expected = ZYR_OK) {
    ZyrBasString out;
    EXPECT_EQ(out.Assign(u"untouched"), ZYR_OK);
    std::u16string p(product), v(version);
    EXPECT_EQ(ZyrBasFrameworkDirectory(out, p.data(), p.size(), v.data(), v.size()), expected) << zyrtest::Narrow(p);
    return zyrtest::Narrow(zyrtest::Str(out));
  };
  EXPECT_EQ(dir(u"Framework", u"0"), "/opt/fw");
  EXPECT_EQ(dir(u"framework", u"0"), "/opt/lower");  // case matters for the first branch
  EXPECT_EQ(dir(u"Other", u"0"), "/opt/other");
  EXPECT_EQ(dir(u"Long", u"2"), longDir);  // longer than the first buffer
  EXPECT_EQ(dir(u"Exp", u"1", ZYR_E_BAD_VALUE_TYPE), "untouched");  // refused, not expanded
  EXPECT_EQ(dir(u"Num", u"1", ZYR_E_BAD_VALUE_TYPE), "untouched");
  EXPECT_EQ(dir(u"Empty", u"1"), "");
  EXPECT_EQ(dir(u"Framework", u"1", ZYR_E_FILE_NOT_FOUND), "untouched");
  ZyrBasString out;
  std::u16string huge(32768, u'k');
  EXPECT_EQ(ZyrBasReadRegistryString(out, huge.c_str(), u"Dir"), ZYR_E_INVALID_ARGUMENT);
}

TEST_F(BrokerTest, FrameworkAccessByClassAndByRequest) {
  ZyrBasFrameworkAccess access;
  void* object = nullptr;
  EXPECT_EQ(access.GetObject(Request(u"full"), &object), ZYR_E_NOT_INITIALIZED);
  ASSERT_EQ(access.Create(), ZYR_OK);
  EXPECT_EQ(access.Create(), ZYR_E_ALREADY_EXISTS);
  EXPECT_EQ(access.GetObjectByClass(kSiblingIid, &object), ZYR_E_INVALID_ARGUMENT);  // an empty table
  ASSERT_EQ(access.GetObject(Request(u"full"), &object), ZYR_OK);
  EXPECT_EQ(Answer(object), "v2:full-a");
  ASSERT_EQ(access.GetObjectInDirectory(u"" ZYR_SIBLINGS_B, Request(u"full"), &object), ZYR_OK);
  EXPECT_EQ(Answer(object), "v2:full-b");
  EXPECT_EQ(access.ReleaseAll(true), ZYR_OK);
  EXPECT_EQ(References("full") + References("full", ZYR_SIBLINGS_B), 0u);

  // A row of the class table names its module; an absolute name replaces
  // the own directory.
  ZyrBasFrameworkAccess::ClassRow rows[1];
  std::memcpy(rows[0].classId, kSiblingIid, 16);
  rows[0].module = u"" ZYR_SIBLINGS_A "/old";
  ZyrBasFrameworkAccess withTable;
  ASSERT_EQ(withTable.Create(rows, 1), ZYR_OK);
  ASSERT_EQ(withTable.GetObjectByClass(kSiblingIid, &object), ZYR_OK);
  EXPECT_EQ(Answer(object), "v1:old");
  std::uint8_t other[16] = {};
  EXPECT_EQ(withTable.GetObjectByClass(other, &object), ZYR_E_INVALID_ARGUMENT);
}
