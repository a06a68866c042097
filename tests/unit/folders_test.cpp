// Folders of the system, learnt once from the C library's place and the
// widths, and the data folders of another account.
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <pwd.h>
#include <sys/utsname.h>
#include <unistd.h>

#include <optional>
#include <string>

#include "base/folders.h"
#include "base/sysinfo.h"
#include "test_support.h"

namespace {

using zyrtest::ScopedEnv;
using zyrtest::U16;

// A path of the library with "/" only, as the kernel reads it.
std::string Slashed(const ZyrBasString& path) {
  std::string out = zyrtest::Narrow(zyrtest::Str(path));
  for (char& c : out)
    if (c == '\\') c = '/';
  return out;
}

std::string Folder(std::uint32_t id, ZyrResult expected = ZYR_OK) {
  ZyrBasString path;
  EXPECT_EQ(ZyrBasGetFolder(id, path), expected) << id;
  return Slashed(path);
}

std::string LibraryPath() {
  Dl_info info;
  return dladdr(reinterpret_cast<const void*>(&uname), &info) && info.dli_fname ? info.dli_fname : "";
}

// Plays other systems, and learns this one again at the end.
class SystemFolders : public ::testing::Test {
 protected:
  void SetUp() override {
    for (const char* name : {"ProgramFiles", "ProgramFiles(x86)", "ProgramW6432", "CommonProgramFiles",
                             "CommonProgramFiles(x86)", "CommonProgramW6432"})
      env_[count_++].emplace(name, nullptr);
    store_.emplace("ZYR_REGISTRY_ROOT", "/nonexistent");
  }
  void TearDown() override {
    std::u16string lib = U16(LibraryPath());
    const ZyrBasSystemInfo& info = ZyrBasSystem();
    for (auto& e : env_) e.reset();
    store_.reset();
    ZyrBasFillSystemFolders({lib.c_str(), info.architectureKind, info.processWidth});
  }
  ZyrResult Fill(const char16_t* lib, std::uint32_t system, std::uint32_t process) {
    return ZyrBasFillSystemFolders({lib, system, process});
  }
  std::optional<ScopedEnv> env_[6], store_;
  int count_ = 0;
};

}  // namespace

TEST(Folders, SystemFoldersOfThisProcess) {
  ASSERT_EQ(ZyrBasInitFolders(), ZyrBasInitFolders());  // the second does nothing
  std::string lib = LibraryPath();
  ASSERT_FALSE(lib.empty());
  std::string dir = lib.substr(0, lib.rfind('/'));
  EXPECT_EQ(Folder(ZYR_FOLDER_SYSTEM), dir);
  EXPECT_EQ(Folder(ZYR_FOLDER_SYSTEM_NATIVE), dir);
  EXPECT_EQ(Folder(ZYR_FOLDER_WINDOWS), dir.substr(0, dir.rfind('/')));
  EXPECT_EQ(Folder(ZYR_FOLDER_SYSTEM_DRIVE), "/");
  Folder(ZYR_FOLDER_UNUSED, ZYR_E_PATH_NOT_FOUND);
  Folder(22, ZYR_E_INVALID_ARGUMENT);

  char16_t buffer[300];
  std::size_t needed = 0;
  EXPECT_EQ(ZyrBasGetFolderFixed(ZYR_FOLDER_SYSTEM, buffer, 3, &needed), ZYR_E_BUFFER_TOO_SMALL);
  EXPECT_EQ(needed, dir.size() + 1);
  ASSERT_EQ(ZyrBasGetFolderFixed(ZYR_FOLDER_SYSTEM, buffer, needed, &needed), ZYR_OK);
  EXPECT_EQ(needed, dir.size());
  EXPECT_EQ(ZyrBasGetFolderFixed(ZYR_FOLDER_UNUSED, buffer, 300, &needed), ZYR_E_PATH_NOT_FOUND);
  EXPECT_EQ(ZyrBasGetFolderFixed(40, buffer, 300, &needed), ZYR_E_INVALID_ARGUMENT);
}

TEST_F(SystemFolders, WidthsDecideWhichFoldersExist) {
  // A 32-bit system: one library folder, no native program folders.
  ASSERT_EQ(Fill(u"/lib/libc.so.6", ZYR_ARCH_X86, ZYR_ARCH_X86), ZYR_OK);
  EXPECT_EQ(Folder(ZYR_FOLDER_SYSTEM_X86), "/lib");
  EXPECT_EQ(Folder(ZYR_FOLDER_SYSTEM_NATIVE), "/lib");
  EXPECT_EQ(Folder(ZYR_FOLDER_WINDOWS), "/");
  Folder(ZYR_FOLDER_PROGRAM_FILES_NATIVE, ZYR_E_PATH_NOT_FOUND);
  Folder(ZYR_FOLDER_COMMON_FILES_NATIVE, ZYR_E_PATH_NOT_FOUND);
  EXPECT_EQ(Folder(ZYR_FOLDER_PROGRAM_FILES_X86), "/opt");
  EXPECT_EQ(Folder(ZYR_FOLDER_PROGRAM_FILES), "/opt");

  // A 64-bit system: the process's width picks its program folder.
  env_[1]->Set("/x86");
  ASSERT_EQ(Fill(u"/usr/lib/x86_64-linux-gnu/libc.so.6", ZYR_ARCH_AMD64, ZYR_ARCH_X86), ZYR_OK);
  Folder(ZYR_FOLDER_SYSTEM_X86, ZYR_E_PATH_NOT_FOUND);
  EXPECT_EQ(Folder(ZYR_FOLDER_PROGRAM_FILES_X86), "/x86");
  EXPECT_EQ(Folder(ZYR_FOLDER_PROGRAM_FILES_NATIVE), "/opt");
  EXPECT_EQ(Folder(ZYR_FOLDER_PROGRAM_FILES), "/x86");
  ASSERT_EQ(Fill(u"/usr/lib/x86_64-linux-gnu/libc.so.6", ZYR_ARCH_AMD64, ZYR_ARCH_AMD64), ZYR_OK);
  EXPECT_EQ(Folder(ZYR_FOLDER_PROGRAM_FILES), "/opt");
  EXPECT_EQ(Folder(ZYR_FOLDER_WINDOWS), "/usr/lib");
  // With no library path nothing of the system is known, which is no failure.
  ASSERT_EQ(Fill(nullptr, ZYR_ARCH_AMD64, ZYR_ARCH_AMD64), ZYR_OK);
  Folder(ZYR_FOLDER_SYSTEM, ZYR_E_PATH_NOT_FOUND);
}

TEST_F(SystemFolders, ValuesOf259CharactersAreNotKept) {
  std::string kept = "/" + std::string(257, 'k');
  env_[1]->Set(kept.c_str());
  ASSERT_EQ(Fill(u"/lib/libc.so.6", ZYR_ARCH_AMD64, ZYR_ARCH_AMD64), ZYR_OK);
  EXPECT_EQ(Folder(ZYR_FOLDER_PROGRAM_FILES_X86), kept);
  std::string tooLong = kept + "x";
  env_[1]->Set(tooLong.c_str());
  EXPECT_EQ(Fill(u"/lib/libc.so.6", ZYR_ARCH_AMD64, ZYR_ARCH_AMD64), ZYR_E_BUFFER_TOO_SMALL);
  Folder(ZYR_FOLDER_PROGRAM_FILES_X86, ZYR_E_PATH_NOT_FOUND);
}

TEST(UserFolders, AnotherAccountsFoldersComeFromItsProfile) {
  passwd* me = getpwuid(geteuid());
  if (!me) GTEST_SKIP() << "the account has no entry";
  std::string home = me->pw_dir, login = me->pw_name;
  std::u16string sid = U16("S-1-22-1-" + std::to_string(geteuid()));
  std::string store = zyrtest::MakeTempDir("userstore");
  ScopedEnv root("ZYR_REGISTRY_ROOT", store.c_str());
  ScopedEnv xdg("XDG_CONFIG_HOME", "/not/used/for/others");
  auto user = [](std::uint32_t id, const std::u16string& who, ZyrResult expected = ZYR_OK) {
    ZyrBasString path;
    EXPECT_EQ(ZyrBasGetUserFolder(id, path, who.c_str()), expected);
    return Slashed(path);
  };
  // No store: the XDG defaults below the account's home folder.
  EXPECT_EQ(user(ZYR_FOLDER_APPDATA, sid), home + "/.config");
  EXPECT_EQ(user(ZYR_FOLDER_LOCAL_APPDATA, U16(login)), home + "/.local/state");
  user(ZYR_FOLDER_APPDATA, u"S-1-22-1-4000000000", ZYR_E_PATH_NOT_FOUND);
  user(ZYR_FOLDER_APPDATA, u"S-1-22-1-x", ZYR_E_PATH_NOT_FOUND);
  EXPECT_EQ(user(ZYR_FOLDER_UNUSED, sid, ZYR_E_PATH_NOT_FOUND), "");

  // "%USERPROFILE%" in the account's key is its profile, not ours.
  auto values = [&](const std::string& key, const std::string& text) {
    std::string dir = store + "/" + key;
    ASSERT_EQ(system(("mkdir -p '" + dir + "'").c_str()), 0);
    zyrtest::WriteFile(dir + "/.values", text);
  };
  values("MACHINE/SOFTWARE/Microsoft/Windows NT/CurrentVersion/ProfileList/" + login,
         "ProfileImagePath = sz:/profiles/" + login + "\n");
  values("USER/" + login + "/Software/Microsoft/Windows/CurrentVersion/Explorer/User Shell Folders",
         "AppData = expand_sz:%USERPROFILE%/Documents\n");
  ScopedEnv profile("USERPROFILE", "/caller");
  EXPECT_EQ(user(ZYR_FOLDER_APPDATA, sid), "/profiles/" + login + "/Documents");
  EXPECT_EQ(user(ZYR_FOLDER_LOCAL_APPDATA, sid), "/profiles/" + login + "/.local/state");
  // The per-user product directories follow the account.
  ZyrBasString dir;
  ASSERT_EQ(ZyrBasProductDirectory(ZYR_DIR_USER_ROAMING, dir, u"log", u"\\OPH2015", sid.c_str()), ZYR_OK);
  EXPECT_EQ(Slashed(dir), "/profiles/" + login + "/Documents/Zyr/OPH2015/log");
  zyrtest::RemoveTree(store);
}
