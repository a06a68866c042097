#include "base/registry.h"

#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/stat.h>

#include <fstream>
#include <functional>
#include <string>

#include "base/folders.h"
#include "base/identity.h"
#include "base/memory.h"
#include "base/path.h"
#include "test_support.h"

namespace {

using zyrtest::ScopedEnv;
using zyrtest::Str;

#define MACHINE u"\\REGISTRY\\MACHINE"
#define CLASSES u"\\REGISTRY\\USER\\S-1-5-21-1_CLASSES"
#define USER1 u"\\REGISTRY\\USER\\S-1-5-21-1"
#define NODE u"\\REGISTRY\\MACHINE\\SOFTWARE\\Wow6432Node"

TEST(RegistryNames, ThirtyTwoBitViewInsertsTheNodeOnceWhereTheSystemKeepsIt) {
  const ZyrBasRegRewrite kNone = ZYR_REG_REWRITE_NONE, kAbs = ZYR_REG_REWRITE_ABSOLUTE,
                         kRel = ZYR_REG_REWRITE_RELATIVE;
  struct { const char16_t *parent, *sub, *out; ZyrBasRegRewrite outcome; } cases[] = {
      {MACHINE, u"SOFTWARE\\Foo", NODE u"\\Foo", kAbs},
      // Case of the parent does not matter, and the insertion keeps the text's own.
      {u"\\registry\\machine\\software", u"Foo", u"\\registry\\machine\\software\\Wow6432Node\\Foo", kAbs},
      {CLASSES, u"Foo", CLASSES u"\\Wow6432Node\\Foo", kAbs},
      {CLASSES, u"", CLASSES u"\\Wow6432Node", kAbs},
      {USER1, u"SOFTWARE\\CLASSES\\Foo", USER1 u"\\SOFTWARE\\CLASSES\\Wow6432Node\\Foo", kAbs},
      // "Wow6432NodeX" is not the segment: the name is rewritten as any other.
      {MACHINE, u"SOFTWARE\\Wow6432NodeX", NODE u"\\Wow6432NodeX", kAbs},
      {USER1, u"SOFTWARE\\Foo", u"", kNone},
      {MACHINE, u"SYSTEM\\CurrentControlSet", u"", kNone},
      {USER1, u"", u"", kNone},
      // Already in the node: nothing more to insert, and a doubled segment goes.
      {NODE, u"Foo", u"", kNone},
      {MACHINE, u"SOFTWARE\\Wow6432Node\\Foo", u"", kNone},
      {NODE, u"Zyr\\Wow6432Node\\Foo", u"Zyr\\Foo", kRel},
      {NODE, u"Wow6432Node", u"", kRel},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(zyrtest::Narrow(std::u16string(c.parent) + u" + " + c.sub));
    ZyrBasString out;
    ZyrBasRegRewrite outcome;
    ASSERT_EQ(ZyrBasRegRewriteFor32(c.parent, ZYR_TERMINATED, c.sub, ZYR_TERMINATED, out, &outcome), ZYR_OK);
    EXPECT_EQ(Str(out), c.out);
    EXPECT_EQ(outcome, c.outcome);
  }
}

TEST(RegistryNames, SixtyFourBitViewTakesMachineNamesOutOfTheNode) {
  ZyrBasString out;
  ZyrBasRegRewrite o;
  struct { const char16_t* name; ZyrBasRegRewrite outcome; } cases[] = {
      {u"\\REGISTRY\\MACHINE\\SOFTWARE\\wow6432node\\Foo", ZYR_REG_REWRITE_MACHINE},
      {u"\\REGISTRY\\MACHINE\\SOFTWARE\\Wow6432NodeX", ZYR_REG_REWRITE_NONE},
      {u"\\REGISTRY\\MACHINE\\SOFTWARE\\Foo", ZYR_REG_REWRITE_NONE},
      {u"\\REGISTRY\\USER\\S-1\\Foo", ZYR_REG_REWRITE_USER_WALK},
  };
  for (const auto& c : cases) {
    ASSERT_EQ(ZyrBasRegRewriteFor64(c.name, ZYR_TERMINATED, true, out, &o), ZYR_OK);
    EXPECT_EQ(o, c.outcome) << zyrtest::Narrow(c.name);
  }
  ZyrBasRegRewriteFor64(cases[0].name, ZYR_TERMINATED, true, out, &o);
  EXPECT_EQ(Str(out), u"SOFTWARE\\Foo");
  EXPECT_EQ(ZyrBasRegRewriteFor64(u"\\REGISTRY\\USER\\S-1", ZYR_TERMINATED, false, out, &o),
            ZYR_E_NOT_IMPLEMENTED);
}

TEST(RegistryNames, ClassesNamesAreRelativeToTheirHive) {
  struct { const char16_t *name, *out; bool machine; } cases[] = {
      {u"\\REGISTRY\\Machine\\SOFTWARE\\Classes\\.txt", u"SOFTWARE\\Classes\\.txt", true},
      {u"\\REGISTRY\\USER\\S-1-5_Classes\\.txt", u"SOFTWARE\\CLASSES\\.txt", false},
      {u"\\REGISTRY\\USER\\S-1-5\\Software\\Classes\\.txt", u"Software\\Classes\\.txt", false},
      {u"\\REGISTRY\\USER\\S-1-5_CLASSES", u"SOFTWARE\\CLASSES", false},
  };
  ZyrBasString out;
  bool machine = false;
  for (const auto& c : cases) {
    ASSERT_EQ(ZyrBasRegClassesNameOf(c.name, ZYR_TERMINATED, out, &machine), ZYR_OK);
    EXPECT_EQ(Str(out), c.out);
    EXPECT_EQ(machine, c.machine);
  }
  EXPECT_EQ(ZyrBasRegClassesNameOf(u"\\REGISTRY\\MACHINE", ZYR_TERMINATED, out, &machine),
            ZYR_E_INVALID_ARGUMENT);
}

TEST(RegistryNames, ExpansionReplacesOnlyKnownVariables) {
  setenv("ZYR_T_A", "/a", 1);
  unsetenv("ZYR_T_NONE");
  auto x = [](const char16_t* in) {
    ZyrBasString out;
    EXPECT_EQ(ZyrBasRegExpandString(in, ZYR_TERMINATED, out), ZYR_OK);
    return Str(out);
  };
  EXPECT_EQ(x(u"%ZYR_T_A%\\b"), u"/a\\b");
  EXPECT_EQ(x(u"x%ZYR_T_A%%ZYR_T_A%"), u"x/a/a");
  EXPECT_EQ(x(u"%ZYR_T_NONE%\\b"), u"%ZYR_T_NONE%\\b");
  EXPECT_EQ(x(u"%ZYR_T_NONE%ZYR_T_A%"), u"%ZYR_T_NONE/a");  // the closing "%" opens the next
  EXPECT_EQ(x(u"50% off"), u"50% off");
  unsetenv("ZYR_T_A");
}

TEST(RegistryValues, LinesParseByTypeAndBadOnesAreSkipped) {
  const char16_t* text =
      u"# comment\n"
      u"  ; another\n"
      u"\n"
      u"ZyrDir = sz: /opt/zyr \r\n"
      u"Local AppData=expand_sz:%HOME%\\x\n"
      u"Count = DWORD:0x1F\n"
      u"Big = dword:4294967296\n"  // too large: skipped
      u"Dec = dword:42\n"
      u"broken line\n"
      u"Odd = qword:1\n"
      u"@ = sz:default\n"
      u"zyrdir = sz:second\n";
  std::uint32_t type, number;
  ZyrBasString data;
  ASSERT_EQ(ZyrBasRegFindValueInText(text, ZYR_TERMINATED, u"ZYRDIR", &type, data, &number), ZYR_OK);
  EXPECT_EQ(type, ZYR_REG_SZ);
  EXPECT_EQ(Str(data), u"/opt/zyr");  // trimmed, and the first line of a name counts
  ASSERT_EQ(ZyrBasRegFindValueInText(text, ZYR_TERMINATED, u"local appdata", &type, data, &number), ZYR_OK);
  EXPECT_EQ(type, ZYR_REG_EXPAND_SZ);
  ASSERT_EQ(ZyrBasRegFindValueInText(text, ZYR_TERMINATED, u"Count", &type, data, &number), ZYR_OK);
  EXPECT_EQ(type, ZYR_REG_DWORD);
  EXPECT_EQ(number, 0x1Fu);
  ASSERT_EQ(ZyrBasRegFindValueInText(text, ZYR_TERMINATED, u"Dec", &type, data, &number), ZYR_OK);
  EXPECT_EQ(number, 42u);
  EXPECT_EQ(ZyrBasRegFindValueInText(text, ZYR_TERMINATED, u"Big", &type, data, &number), ZYR_E_FILE_NOT_FOUND);
  EXPECT_EQ(ZyrBasRegFindValueInText(text, ZYR_TERMINATED, u"Odd", &type, data, &number), ZYR_E_FILE_NOT_FOUND);
  ASSERT_EQ(ZyrBasRegFindValueInText(text, ZYR_TERMINATED, nullptr, &type, data, &number), ZYR_OK);
  EXPECT_EQ(Str(data), u"default");

  ZyrBasString name;
  for (const char16_t* bad : {u"= sz:x", u"a = x", u"a = dword:", u"a = dword:0x"})
    EXPECT_EQ(ZyrBasRegParseValueLine(bad, ZYR_TERMINATED, name, &type, data, &number), ZYR_E_INVALID_DATA);
  EXPECT_EQ(ZyrBasRegParseValueLine(u"   ", ZYR_TERMINATED, name, &type, data, &number), ZYR_I_NOT_FOUND);
  // The data may hold ":" and "=".
  ASSERT_EQ(ZyrBasRegParseValueLine(u"u = sz:a=b:c", ZYR_TERMINATED, name, &type, data, &number), ZYR_OK);
  EXPECT_EQ(Str(data), u"a=b:c");
}

// ---------------------------------------------------------------------------
// The store in files

std::string LoginName() {
  ZyrBasString user;
  ZyrBasCurrentUserName(user);
  return zyrtest::Narrow(Str(user));
}

class RegistryStore : public ::testing::Test {
 protected:
  void SetUp() override {
    root_ = zyrtest::MakeTempDir("reg");
    env_ = new ScopedEnv("ZYR_REGISTRY_ROOT", root_.c_str());
  }
  void TearDown() override {
    delete env_;
    zyrtest::RemoveTree(root_);
  }
  // Writes `content` as the values of the key folder `key` ("/"-separated,
  // below the store root).
  void Values(const std::string& key, const std::string& content) {
    std::string dir = root_ + "/" + key;
    (void)!system(("mkdir -p '" + dir + "'").c_str());
    std::ofstream(dir + "/.values", std::ios::binary) << content;
  }
  void Folder(const std::string& key) { (void)!system(("mkdir -p '" + root_ + "/" + key + "'").c_str()); }

  std::string root_;
  ScopedEnv* env_ = nullptr;
};

ZyrBasString QueryOk(ZyrBasRegKey& key, const char16_t* name) {
  ZyrBasString value;
  EXPECT_EQ(key.QueryString(name, value), ZYR_OK);
  return value;
}

std::u16string ResultText(ZyrResult r) { return u"result " + zyrtest::U16(std::to_string(r)); }

// The string value `name` of key `path` below `root` in `view`, or the
// result of the first step that failed.
std::u16string ValueOf(const char16_t* path, const char16_t* name, ZyrBasRegHandle root = ZYR_HKEY_LOCAL_MACHINE,
                       std::uint32_t view = ZYR_REG_VIEW_DEFAULT) {
  ZyrBasRegKey key;
  ZyrBasString value;
  ZyrResult r = key.SetRoot(root);
  if (r == ZYR_OK && view != ZYR_REG_VIEW_DEFAULT) r = key.SetViewFlags(view);
  if (r == ZYR_OK) r = key.Open(path);
  if (r == ZYR_OK) r = key.QueryString(name, value);
  return r == ZYR_OK ? Str(value) : ResultText(r);
}

TEST_F(RegistryStore, KeysAreFoldersFoundWithoutCaseAndValuesAreRead) {
  Values("MACHINE/software/zyr/Product", "\xEF\xBB\xBFName = sz:Caf\xC3\xA9\nType = expand_sz:%HOME%/x\nSize = dword:7\n");
  ZyrBasRegKey key;
  ASSERT_EQ(key.Open(u"SOFTWARE\\ZYR\\product"), ZYR_OK);
  ZyrBasString name;
  ASSERT_EQ(ZyrBasRegKeyName(key.Handle(), name), ZYR_OK);
  EXPECT_EQ(Str(name), u"\\REGISTRY\\MACHINE\\software\\zyr\\Product");  // the store's spelling

  ZyrBasString value;
  std::uint32_t type = 0;
  EXPECT_EQ(Str(QueryOk(key, u"name")), u"Caf\u00e9");
  ASSERT_EQ(key.QueryString(u"Type", value, &type), ZYR_OK);
  EXPECT_EQ(Str(value), u"%HOME%/x");  // not expanded here
  EXPECT_EQ(type, ZYR_REG_EXPAND_SZ);
  EXPECT_EQ(key.QueryString(u"Size", value), ZYR_E_BAD_VALUE_TYPE);
  EXPECT_EQ(key.QueryString(u"Missing", value), ZYR_E_FILE_NOT_FOUND);

  std::uint32_t dword = 0;
  std::size_t size = sizeof(dword);
  ASSERT_EQ(ZyrBasRegReadValue(key.Handle(), u"Size", &type, &dword, &size), ZYR_OK);
  EXPECT_EQ(type, ZYR_REG_DWORD);
  EXPECT_EQ(dword, 7u);
  // A short buffer reports the size, terminator included.
  char small[4];
  size = sizeof(small);
  EXPECT_EQ(ZyrBasRegReadValue(key.Handle(), u"Name", &type, small, &size), ZYR_E_BAD_LENGTH);
  EXPECT_EQ(size, 10u);
  EXPECT_FALSE(ZyrBasRegValueExists(key.Handle(), u"Nam"));
}

TEST_F(RegistryStore, MissingKeysAndStoresAreKeyNotFound) {
  Folder("MACHINE/SOFTWARE/Zyr");
  ZyrBasRegKey key;
  EXPECT_EQ(key.Open(u"SOFTWARE\\Zyr\\Nothing"), ZYR_E_KEY_NOT_FOUND);
  EXPECT_FALSE(key.IsOpen());
  EXPECT_TRUE(key.Exists(u"software\\zyr\\"));  // a trailing "\" is no component
  EXPECT_FALSE(key.Exists(u"SOFTWARE\\Zyr\\.."));
  EXPECT_EQ(key.Open(u"SOFTWARE\\..\\SOFTWARE"), ZYR_E_INVALID_NAME);

  // A failed open leaves an open key as it was.
  ASSERT_EQ(key.Open(u"SOFTWARE"), ZYR_OK);
  EXPECT_EQ(key.Open(u"SOFTWARE\\Missing"), ZYR_E_KEY_NOT_FOUND);
  ZyrBasString name;
  ASSERT_EQ(ZyrBasRegKeyName(key.Handle(), name), ZYR_OK);
  EXPECT_EQ(Str(name), u"\\REGISTRY\\MACHINE\\SOFTWARE");

  // A key folder without a values file is a key without values.
  ZyrBasString value;
  EXPECT_EQ(key.QueryString(u"x", value), ZYR_E_FILE_NOT_FOUND);

  ScopedEnv gone("ZYR_REGISTRY_ROOT", (root_ + "/absent").c_str());
  ZyrBasRegKey other;
  EXPECT_EQ(other.Open(u"SOFTWARE"), ZYR_E_KEY_NOT_FOUND);
}

// Fails the n-th allocation for n = 0, 1, ... until `attempt` gets through:
// every failure before must be out of memory, not a missing key.
void ExpectOutOfMemoryUntilSuccess(long limit, const std::function<ZyrResult()>& attempt) {
  for (long n = 0; n < limit; ++n) {
    ZyrBasTestFailAllocationsAfter(n);
    ZyrResult r = attempt();
    ZyrBasTestFailAllocationsAfter(-1);
    if (r == ZYR_OK) return;
    EXPECT_EQ(r, ZYR_E_OUT_OF_MEMORY) << n;
  }
  ADD_FAILURE() << "never got through";
}

TEST_F(RegistryStore, FailedAllocationsAnswerOutOfMemory) {
  Values("MACHINE/software/zyr/Product", "Name = sz:value\n");
  ZyrBasString value;
  ExpectOutOfMemoryUntilSuccess(400, [&] {
    ZyrBasRegKey key;
    ZyrResult r = key.Open(u"SOFTWARE\\ZYR\\product");
    return ZyrSucceeded(r) ? key.QueryString(u"Name", value) : r;
  });
  EXPECT_EQ(Str(value), u"value");

  // The same for the folders built on the store.
  Values("MACHINE/SYSTEM/CurrentControlSet/Services/Zyr/Zyr/OPH2015", "ZyrAllUsersDir = sz:/srv/zyr\n");
  Values("USER/.DEFAULT/Software/Microsoft/Windows/CurrentVersion/Explorer/User Shell Folders",
         "Local AppData = expand_sz:%USERPROFILE%/local\n");
  ZyrBasString product, local;
  ExpectOutOfMemoryUntilSuccess(2000, [&] {
    ZyrResult r = ZyrBasProductDirectory(ZYR_DIR_ALL_USERS, product, u"log", u"\\OPH2015");
    return ZyrSucceeded(r) ? ZyrBasGetFolder(ZYR_FOLDER_LOCAL_APPDATA, local) : r;
  });
  EXPECT_EQ(Str(product), u"/srv/zyr/log");
  EXPECT_EQ(local.Length() > 6 ? Str(local).substr(local.Length() - 6) : u"", u"/local");
}

TEST_F(RegistryStore, CurrentUserIsTheAccountsFolderElseDefault) {
  Values("USER/.DEFAULT/Software/Zyr", "who = sz:default\n");
  EXPECT_EQ(ValueOf(u"Software\\Zyr", u"who", ZYR_HKEY_CURRENT_USER), u"default");
  std::string login = LoginName();
  if (login.empty()) GTEST_SKIP() << "the account has no name";
  Values("USER/" + login + "/Software/Zyr", "who = sz:mine\n");
  EXPECT_EQ(ValueOf(u"Software\\Zyr", u"who", ZYR_HKEY_CURRENT_USER), u"mine");
  // The same key through HKEY_USERS.
  EXPECT_EQ(ValueOf((zyrtest::U16(login) + u"\\Software\\Zyr").c_str(), u"who", ZYR_HKEY_USERS), u"mine");
}

TEST_F(RegistryStore, ThirtyTwoBitViewReadsTheNodeBelowSoftwareOnly) {
  Values("MACHINE/SOFTWARE/Wow6432Node/ZYR/Admin", "d = sz:32\n");
  Values("MACHINE/SOFTWARE/ZYR/Admin", "d = sz:64\n");
  Values("MACHINE/SYSTEM/Zyr", "d = sz:system\n");
  EXPECT_EQ(ValueOf(u"SOFTWARE\\ZYR\\Admin", u"d", ZYR_HKEY_LOCAL_MACHINE, ZYR_REG_VIEW_32), u"32");
  EXPECT_EQ(ValueOf(u"SYSTEM\\Zyr", u"d", ZYR_HKEY_LOCAL_MACHINE, ZYR_REG_VIEW_32), u"system");
  EXPECT_EQ(ValueOf(u"SOFTWARE\\ZYR\\Admin", u"d", ZYR_HKEY_LOCAL_MACHINE, ZYR_REG_VIEW_64), u"64");
  // An open key takes only the same view again.
  ZyrBasRegKey k32;
  ASSERT_EQ(k32.SetViewFlags(ZYR_REG_VIEW_32), ZYR_OK);
  ASSERT_EQ(k32.Open(u"SOFTWARE\\ZYR\\Admin"), ZYR_OK);
  EXPECT_EQ(k32.SetViewFlags(ZYR_REG_VIEW_64), ZYR_E_NOT_SUPPORTED);
  EXPECT_EQ(k32.SetViewFlags(ZYR_REG_VIEW_32), ZYR_OK);
}

TEST_F(RegistryStore, SixtyFourBitRulesOfA32BitProcessOpenOutsideTheNode) {
  Values("MACHINE/SOFTWARE/ZYR/Admin", "d = sz:64\n");
  Values("USER/u1/Software/A/B", "d = sz:walked\n");
  ZyrBasRegKeyState state;
  state.is64BitProcess = false;
  state.isWow64Process = true;
  // The name of the key opened, or the result of a failed open.
  auto opened = [&](ZyrBasRegHandle root, const char16_t* name, std::uint32_t access) -> std::u16string {
    ZyrBasRegHandle h = 0;
    ZyrResult r = ZyrBasRegOpenKey(state, root, &h, name, access);
    if (r != ZYR_OK) return ResultText(r);
    ZyrBasString text;
    EXPECT_EQ(ZyrBasRegKeyName(h, text), ZYR_OK);
    ZyrBasRegCloseKey(h);
    return Str(text);
  };
  const std::uint32_t kLeave = ZYR_KEY_READ | ZYR_REG_OPTION_LEAVE_32;
  EXPECT_EQ(opened(ZYR_HKEY_LOCAL_MACHINE, u"SOFTWARE\\Wow6432Node\\ZYR\\Admin", kLeave | ZYR_KEY_WOW64_64KEY),
            u"\\REGISTRY\\MACHINE\\SOFTWARE\\ZYR\\Admin");
  // Without the option the name is taken as it stands.
  EXPECT_EQ(opened(ZYR_HKEY_LOCAL_MACHINE, u"SOFTWARE\\Wow6432Node\\ZYR\\Admin", ZYR_KEY_READ),
            ResultText(ZYR_E_PATH_NOT_FOUND));
  EXPECT_EQ(opened(ZYR_HKEY_USERS, u"u1\\Software\\A\\B", kLeave), u"\\REGISTRY\\USER\\u1\\Software\\A\\B");
  EXPECT_EQ(opened(ZYR_HKEY_USERS, u"", kLeave), ResultText(ZYR_E_NOT_IMPLEMENTED));
}

TEST_F(RegistryStore, StoreIsReadOnlyAndRootsAreCached) {
  Folder("MACHINE/SOFTWARE");
  ZyrBasRegKeyState state;
  ZyrBasRegHandle h = 0;
  EXPECT_EQ(ZyrBasRegOpenKey(state, ZYR_HKEY_LOCAL_MACHINE, &h, u"SOFTWARE", ZYR_KEY_ALL_ACCESS),
            ZYR_E_ACCESS_DENIED);
  // The root itself came up for reading.
  ZyrBasRegHandle root = ZYR_HKEY_LOCAL_MACHINE, again = ZYR_HKEY_LOCAL_MACHINE, none = 0;
  ASSERT_EQ(ZyrBasRegResolveRoot(state, &root), ZYR_OK);
  ASSERT_EQ(ZyrBasRegResolveRoot(state, &again), ZYR_OK);
  EXPECT_EQ(root, again);
  EXPECT_EQ(ZyrBasRegResolveRoot(state, &none), ZYR_E_INVALID_HANDLE);
  EXPECT_EQ(ZyrBasRegReadValue(ZYR_HKEY_LOCAL_MACHINE, u"x", nullptr, nullptr, nullptr), ZYR_E_INVALID_HANDLE);
  // A key opened without the right to read values may not read them.
  ASSERT_EQ(ZyrBasRegOpenKey(state, ZYR_HKEY_LOCAL_MACHINE, &h, u"SOFTWARE", 0x8), ZYR_OK);
  std::size_t size = 0;
  EXPECT_EQ(ZyrBasRegReadValue(h, u"x", nullptr, nullptr, &size), ZYR_E_ACCESS_DENIED);
  ZyrBasRegCloseKey(h);
}

TEST_F(RegistryStore, ClassesRootMergesUserOverMachine) {
  Values("MACHINE/SOFTWARE/Classes/.zyr", "@ = sz:machine\nOnlyMachine = sz:m\n");
  Values("USER/.DEFAULT/Software/Classes/.zyr", "@ = sz:user\n");
  Values("MACHINE/SOFTWARE/Classes/.mach", "@ = sz:machine only\n");
  EXPECT_EQ(ValueOf(u".zyr", nullptr, ZYR_HKEY_CLASSES_ROOT), u"user");
  EXPECT_EQ(ValueOf(u".zyr", u"OnlyMachine", ZYR_HKEY_CLASSES_ROOT), u"m");  // falls through
  EXPECT_EQ(ValueOf(u".zyr", u"Neither", ZYR_HKEY_CLASSES_ROOT), ResultText(ZYR_E_FILE_NOT_FOUND));
  EXPECT_EQ(ValueOf(u".mach", u"", ZYR_HKEY_CLASSES_ROOT), u"machine only");  // no user key: the machine's
  ZyrBasRegKey key;
  ASSERT_EQ(key.SetRoot(ZYR_HKEY_CLASSES_ROOT), ZYR_OK);
  EXPECT_EQ(key.OptionFlags() & ZYR_REG_OPT_CLASSES, ZYR_REG_OPT_CLASSES);
  ASSERT_EQ(key.SetRoot(ZYR_HKEY_LOCAL_MACHINE), ZYR_OK);
  EXPECT_EQ(key.OptionFlags() & ZYR_REG_OPT_CLASSES, 0u);
}

TEST_F(RegistryStore, ViewAndRootRulesAndChildKeys) {
  ZyrBasRegKey key;
  EXPECT_EQ(key.SetViewFlags(3), ZYR_E_INVALID_ARGUMENT);
  ASSERT_EQ(key.SetRoot(ZYR_HKEY_CLASSES_ROOT), ZYR_OK);
  EXPECT_EQ(key.SetViewFlags(ZYR_REG_VIEW_PROCESS), ZYR_E_BAD_ROOT_KEY);
  ASSERT_EQ(key.SetRoot(ZYR_HKEY_USERS), ZYR_OK);
  ASSERT_EQ(key.SetViewFlags(ZYR_REG_VIEW_PROCESS), ZYR_OK);
  // The process view keeps its root to the machine and the users.
  EXPECT_EQ(key.SetRoot(ZYR_HKEY_CURRENT_USER), ZYR_E_BAD_ROOT_KEY);
  EXPECT_EQ(key.Root(), ZYR_HKEY_USERS);
  EXPECT_EQ(key.SetRoot(ZYR_HKEY_LOCAL_MACHINE), ZYR_OK);
  EXPECT_EQ(key.SetViewFlags(ZYR_REG_VIEW_32), ZyrBasRegViewsExist() ? ZYR_OK : ZYR_E_NO_WOW64_VIEW);
  ZyrBasString value;
  EXPECT_EQ(key.QueryString(u"x", value), ZYR_E_INVALID_HANDLE);  // closed

  Values("MACHINE/SOFTWARE/Zyr/Sub", "v = sz:child\n");
  ZyrBasRegKey parent, child;
  ASSERT_EQ(parent.Open(u"SOFTWARE\\Zyr"), ZYR_OK);
  child.SetParent(&parent);
  ASSERT_EQ(child.Open(u"sub"), ZYR_OK);
  EXPECT_EQ(Str(QueryOk(child, u"v")), u"child");
  // With a parent, the view may only be repeated.
  EXPECT_EQ(child.SetViewFlags(ZYR_REG_VIEW_DEFAULT), ZYR_OK);
  EXPECT_EQ(child.SetViewFlags(ZYR_REG_VIEW_64), ZYR_E_NOT_SUPPORTED);
}

// ---------------------------------------------------------------------------
// Product directories and known folders read the store first

std::u16string Product(std::uint32_t kind, const char16_t* subpath, const char16_t* version,
                       ZyrResult expected = ZYR_OK) {
  ZyrBasString path;
  EXPECT_EQ(ZyrBasProductDirectory(kind, path, subpath, version), expected) << kind;
  return Str(path);
}

TEST_F(RegistryStore, ProductDirectoriesComeFromTheStore) {
  Values("MACHINE/System/CurrentControlSet/Services/zyr/Zyr/OPH2015", "ZyrAllUsersDir = sz:/srv/zyr/data/\n");
  EXPECT_EQ(Product(ZYR_DIR_ALL_USERS, u"log", u"\\OPH2015"), u"/srv/zyr/data/log");

  ScopedEnv base("ZYR_T_BASE", "/opt/zyr");
  Values("MACHINE/System/CurrentControlSet/Services/zyr/Zyr2014",
         "ZyrDir = expand_sz:%ZYR_T_BASE%/bin\nZyrAllUsersDir = sz:/var/lib/zyr\n");
  EXPECT_EQ(Product(ZYR_DIR_INSTALL, nullptr, u"2014"), u"/opt/zyr/bin");
  EXPECT_EQ(Product(ZYR_DIR_DATABASE, u"base", nullptr), u"/var/lib/zyr/avi/base");

  // The admin keys are read in the 32-bit view, the framework's in the
  // 64-bit one.
  Values(ZyrBasRegViewsExist() ? "MACHINE/SOFTWARE/Wow6432Node/ZYR/ZyrAdmin2014" : "MACHINE/SOFTWARE/ZYR/ZyrAdmin2014",
         "AdminCommonDir = sz:/opt/admin\nAdminServerInstDir = dword:1\n");
  Values("MACHINE/SOFTWARE/ZYR/Framework/0", "Dir = sz:/opt/fw\n");
  EXPECT_EQ(Product(ZYR_DIR_ADMIN_COMMON, nullptr, nullptr), u"/opt/admin");
  EXPECT_EQ(Product(ZYR_DIR_FRAMEWORK, nullptr, nullptr), u"/opt/fw");

  Product(ZYR_DIR_ADMIN_SERVER, nullptr, nullptr, ZYR_E_BAD_VALUE_TYPE);
  Product(ZYR_DIR_ADMIN_ALL_USERS, nullptr, nullptr, ZYR_E_FILE_NOT_FOUND);
  Product(ZYR_DIR_QUA_COMMON, nullptr, nullptr, ZYR_E_KEY_NOT_FOUND);
  Product(ZYR_DIR_INSTALL, nullptr, u"\\OPH2015", ZYR_E_FILE_NOT_FOUND);
  Product(11, nullptr, nullptr, ZYR_E_NOT_IMPLEMENTED);

  ScopedEnv gone("ZYR_REGISTRY_ROOT", (root_ + "/absent").c_str());
  Product(ZYR_DIR_ALL_USERS, u"log", u"\\OPH2015", ZYR_E_KEY_NOT_FOUND);
}

std::u16string KnownFolder(std::uint32_t id, ZyrResult expected = ZYR_OK) {
  ZyrBasString path;
  EXPECT_EQ(ZyrBasGetFolder(id, path), expected) << id;
  return Str(path);
}

TEST_F(RegistryStore, KnownFoldersTakeTheStoreBeforeTheEnvironment) {
  const std::string tester = root_ + "/home/tester";  // a home is taken only where it stands
  Folder("home/tester");
  ScopedEnv home("HOME", tester.c_str());
  ScopedEnv local("LOCALAPPDATA", "/env/local");
  ScopedEnv roaming("APPDATA", "/env/roaming");
  ScopedEnv common("ALLUSERSPROFILE", nullptr);
  // Without store values the environment answers.
  EXPECT_EQ(KnownFolder(ZYR_FOLDER_LOCAL_APPDATA), u"/env/local");
  EXPECT_EQ(KnownFolder(ZYR_FOLDER_COMMON_APPDATA), u"/var/lib");
  KnownFolder(ZYR_FOLDER_DESKTOP, ZYR_E_PATH_NOT_FOUND);

  const std::string shell = "Software/Microsoft/Windows/CurrentVersion/Explorer/";
  Values("USER/.DEFAULT/" + shell + "User Shell Folders",
         "Local AppData = expand_sz:%USERPROFILE%/.local/share\nAppData = sz:\n");
  Values("MACHINE/" + shell + "User Shell Folders",
         "Common AppData = expand_sz:%ZYR_T_COMMON%/zyr\nAppData = sz:/machine/unused\n");
  Values("USER/.DEFAULT/" + shell + "Shell Folders", "AppData = sz:%USERPROFILE%/roaming\nDesktop = sz:/d\n");
  ScopedEnv commonBase("ZYR_T_COMMON", "/srv");
  // "%USERPROFILE%" is the profile found here, not the environment's.
  EXPECT_EQ(KnownFolder(ZYR_FOLDER_LOCAL_APPDATA), zyrtest::U16(tester) + u"/.local/share");
  // An empty value leads to the literal "Shell Folders" value of the same root.
  EXPECT_EQ(KnownFolder(ZYR_FOLDER_APPDATA), u"%USERPROFILE%/roaming");
  EXPECT_EQ(KnownFolder(ZYR_FOLDER_COMMON_APPDATA), u"/srv/zyr");  // from the machine
  EXPECT_EQ(KnownFolder(ZYR_FOLDER_DESKTOP), u"/d");

  std::string login = LoginName();
  if (login.empty()) GTEST_SKIP() << "the account has no name";
  Values("MACHINE/SOFTWARE/Microsoft/Windows NT/CurrentVersion/ProfileList/" + login,
         "ProfileImagePath = sz:/profiles/" + login + "\n");
  EXPECT_EQ(KnownFolder(ZYR_FOLDER_PROFILE), u"/profiles/" + zyrtest::U16(login));
  EXPECT_EQ(KnownFolder(ZYR_FOLDER_LOCAL_APPDATA), u"/profiles/" + zyrtest::U16(login) + u"/.local/share");
}

}  // namespace
