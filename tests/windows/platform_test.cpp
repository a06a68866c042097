// The NT layer where it differs from the POSIX one: files appended through
// a handle for appending alone, folder notification, the registry, and the
// descriptor that a log file is made with.
#include <gtest/gtest.h>
#include <windows.h>

#include <string>
#include <utility>
#include <vector>

#include "base/file.h"
#include "base/file_lock.h"
#include "base/folders.h"
#include "base/folder_watch.h"
#include "base/registry.h"
#include "base/security.h"
#include "base/sysinfo.h"
#include "base/thread_data.h"

namespace {

std::u16string TempFolder(const char16_t* tag) {
  wchar_t base[MAX_PATH];
  GetTempPathW(MAX_PATH, base);
  std::wstring folder = std::wstring(base) + L"zyr-" + std::wstring(tag, tag + std::char_traits<char16_t>::length(tag)) +
                        L"-" + std::to_wstring(GetCurrentProcessId()) + L"-" + std::to_wstring(GetTickCount());
  CreateDirectoryW(folder.c_str(), nullptr);
  return std::u16string(folder.begin(), folder.end());
}

TEST(NtFile, AppendModeWritesAtTheEndAndTellsWhere) {
  std::u16string path = TempFolder(u"append") + u"\\a.log";
  ZyrBasFile file;
  ASSERT_EQ(file.Open(path.c_str(), ZYR_FILE_OPEN_ALWAYS, ZYR_FILE_READ | ZYR_FILE_WRITE, 7, 0), ZYR_OK);
  std::size_t done = 0;
  ASSERT_EQ(file.WriteAt(0, "mark", 4, &done), ZYR_OK);
  ASSERT_EQ(file.SetAppendMode(), ZYR_OK);
  struct Case {
    const char* bytes;
    std::int64_t end;
  } cases[] = {{"one\r\n", 9}, {"second\r\n", 17}};
  for (const Case& c : cases) {
    ASSERT_EQ(file.Append(c.bytes, std::strlen(c.bytes), &done), ZYR_OK);
    std::int64_t end = 0;
    ASSERT_EQ(file.AppendEnd(&end), ZYR_OK);
    EXPECT_EQ(end, c.end) << c.bytes;
  }
  char back[17] = {};
  ASSERT_EQ(file.ReadAt(0, back, 17, &done), ZYR_OK);
  EXPECT_EQ(std::string(back, 17), "markone\r\nsecond\r\n");
}

// A slot's data is the calling thread's own, and a thread's end frees it.
ZYR_THREAD_DATA(int, tCounter);
TEST(NtThreadData, EachThreadHasItsOwnBlock) {
  int* mine = tCounter.Get();
  ASSERT_NE(mine, nullptr);
  *mine = 7;
  int* other = nullptr;
  HANDLE h = CreateThread(
      nullptr, 0,
      [](void* out) -> DWORD {
        *static_cast<int**>(out) = tCounter.Get();
        return 0;
      },
      &other, 0, nullptr);
  WaitForSingleObject(h, INFINITE);
  CloseHandle(h);
  EXPECT_NE(other, mine);
  EXPECT_EQ(*tCounter.Get(), 7);
}

}  // namespace

namespace {

// Locks belong to the open file: a second open of the same file in the same
// process competes like another process would.
TEST(NtFile, LockIsTriedNeverWaitedFor) {
  std::u16string path = TempFolder(u"lock") + u"\\a.lock";
  ZyrBasFile first, second;
  ASSERT_EQ(first.Open(path.c_str(), ZYR_FILE_OPEN_ALWAYS, ZYR_FILE_READ | ZYR_FILE_WRITE, 7, 0), ZYR_OK);
  ASSERT_EQ(second.Open(path.c_str(), ZYR_FILE_OPEN_ALWAYS, ZYR_FILE_READ | ZYR_FILE_WRITE, 7, 0), ZYR_OK);
  ZyrResult r = ZyrBasTryLockFile(first, true);
  if (r == ZYR_E_NOT_SUPPORTED) GTEST_SKIP() << "this system has no file locks (NtLockFile answers that it is not supported)";
  ASSERT_EQ(r, ZYR_OK);
  EXPECT_EQ(ZyrBasTryLockFile(second, true), ZYR_W_TIMEOUT);
  EXPECT_EQ(ZyrBasUnlockFile(first), ZYR_OK);
  EXPECT_EQ(ZyrBasTryLockFile(second, true), ZYR_OK);
}

// A log is moved away while its writers hold it open.
TEST(NtFile, OpenFileMovesAndIsNoLongerAtItsName) {
  std::u16string folder = TempFolder(u"move");
  std::u16string live = folder + u"\\a.log", rolled = folder + u"\\a.log.1";
  ZyrBasFile file;
  ASSERT_EQ(file.Open(live.c_str(), ZYR_FILE_OPEN_ALWAYS, ZYR_FILE_READ | ZYR_FILE_WRITE, 7, 0), ZYR_OK);
  bool same = false;
  ASSERT_EQ(file.IsAt(live.c_str(), &same), ZYR_OK);
  EXPECT_TRUE(same);
  ASSERT_EQ(ZyrBasMoveFile(live.c_str(), rolled.c_str()), ZYR_OK);
  ASSERT_EQ(file.IsAt(live.c_str(), &same), ZYR_OK);
  EXPECT_FALSE(same);
  ASSERT_EQ(file.IsAt(rolled.c_str(), &same), ZYR_OK);
  EXPECT_TRUE(same);
  ZyrBasDirEnum e;
  ASSERT_EQ(e.Open(folder.c_str(), u"a.log.*", ZYR_ENUM_FILES), ZYR_OK);
  const ZyrBasDirItem* item = nullptr;
  ASSERT_EQ(e.Current(&item), ZYR_OK);
  EXPECT_EQ(std::u16string(item->Name()), u"a.log.1");
  EXPECT_NE(item->CreationTime(), 0);
  EXPECT_EQ(e.Next(), ZYR_I_NO_MORE_ITEMS);
}

}  // namespace

namespace {

// The notification stands signalled once the folder changed, and a rearm
// takes note of it.
TEST(NtFolderWatch, SignalsAChangeOfTheFolder) {
  std::u16string folder = TempFolder(u"watch");
  ZyrBasFolderWatch watch;
  ASSERT_EQ(watch.Open(folder.c_str()), ZYR_OK);
  EXPECT_EQ(watch.Wait(0), ZYR_W_TIMEOUT);
  std::wstring file(folder.begin(), folder.end());
  file += L"\\new.cfg";
  HANDLE h = CreateFileW(file.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_NEW, 0, nullptr);
  ASSERT_NE(h, INVALID_HANDLE_VALUE);
  CloseHandle(h);
  EXPECT_EQ(watch.Wait(5000), ZYR_OK);
  EXPECT_EQ(watch.Rearm(), ZYR_OK);
  EXPECT_EQ(watch.Wait(0), ZYR_W_TIMEOUT);
  EXPECT_EQ(watch.Close(), ZYR_OK);
}

// Keys written by the system's own interface, read back through the native
// calls under both roots of the suite's settings.
TEST(NtRegistry, ReadsWhatTheSystemWrote) {
  const std::wstring path = L"Software\\ZyrTest\\" + std::to_wstring(GetCurrentProcessId());
  const std::u16string path16(path.begin(), path.end());
  struct Root {
    HKEY system;
    ZyrBasRegHandle ours;
  } roots[] = {{HKEY_CURRENT_USER, ZYR_HKEY_CURRENT_USER}, {HKEY_LOCAL_MACHINE, ZYR_HKEY_LOCAL_MACHINE}};
  for (const Root& root : roots) {
    HKEY key;
    ASSERT_EQ(RegCreateKeyExW(root.system, path.c_str(), 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, &key, nullptr),
              ERROR_SUCCESS);
    const wchar_t folder[] = L"C:\\Zyr\\Logs";
    const wchar_t expand[] = L"%TEMP%\\x";
    DWORD number = 42;
    RegSetValueExW(key, L"Folder", 0, REG_SZ, reinterpret_cast<const BYTE*>(folder), sizeof folder);
    RegSetValueExW(key, L"Expand", 0, REG_EXPAND_SZ, reinterpret_cast<const BYTE*>(expand), sizeof expand);
    RegSetValueExW(key, L"Number", 0, REG_DWORD, reinterpret_cast<const BYTE*>(&number), 4);
    RegCloseKey(key);

    ZyrBasRegKey ours;
    ASSERT_EQ(ours.SetRoot(root.ours), ZYR_OK);
    EXPECT_EQ(ours.Open(u"Software\\ZyrTest\\no such key"), ZYR_E_KEY_NOT_FOUND);
    ASSERT_EQ(ours.Open(path16.c_str()), ZYR_OK);
    struct Case {
      const char16_t* name;
      ZyrResult result;
      const char16_t* text;
      std::uint32_t type;
    } cases[] = {
        {u"Folder", ZYR_OK, u"C:\\Zyr\\Logs", ZYR_REG_SZ},
        {u"Expand", ZYR_OK, u"%TEMP%\\x", ZYR_REG_EXPAND_SZ},
        {u"Number", ZYR_E_BAD_VALUE_TYPE, u"", 0},
        {u"Missing", ZYR_E_FILE_NOT_FOUND, u"", 0},
    };
    for (const Case& c : cases) {
      ZyrBasString text;
      std::uint32_t type = 0;
      EXPECT_EQ(ours.QueryString(c.name, text, &type), c.result);
      if (c.result != ZYR_OK) continue;
      EXPECT_EQ(std::u16string(text.Text()), c.text);
      EXPECT_EQ(type, c.type);
    }
    ZyrBasString name;
    ASSERT_EQ(ZyrBasRegKeyName(ours.Handle(), name), ZYR_OK);
    const char16_t* prefix = root.ours == ZYR_HKEY_LOCAL_MACHINE ? u"\\REGISTRY\\MACHINE\\" : u"\\REGISTRY\\USER\\";
    std::size_t n = std::char_traits<char16_t>::length(prefix);
    EXPECT_TRUE(name.Length() > n && ZyrBasCompareNoCase(name.Text(), n, prefix, n) == 0)
        << std::string(name.Text(), name.Text() + name.Length());
    ours.Close();
    RegDeleteTreeW(root.system, path.c_str());
  }
}

// The rules of a file's DACL as the system keeps them.
std::vector<std::pair<std::uint32_t, std::vector<BYTE>>> DaclOf(const std::u16string& path) {
  std::wstring wide(path.begin(), path.end());
  std::vector<std::pair<std::uint32_t, std::vector<BYTE>>> rules;
  DWORD needed = 0;
  GetFileSecurityW(wide.c_str(), DACL_SECURITY_INFORMATION, nullptr, 0, &needed);
  std::vector<BYTE> descriptor(needed ? needed : 1);
  BOOL present = FALSE, defaulted = FALSE;
  PACL dacl = nullptr;
  if (!GetFileSecurityW(wide.c_str(), DACL_SECURITY_INFORMATION, descriptor.data(), needed, &needed) ||
      !GetSecurityDescriptorDacl(descriptor.data(), &present, &dacl, &defaulted) || !dacl)
    return rules;
  for (DWORD i = 0; i < dacl->AceCount; ++i) {
    ACCESS_ALLOWED_ACE* ace = nullptr;
    if (!GetAce(dacl, i, reinterpret_cast<void**>(&ace)) || ace->Header.AceType != ACCESS_ALLOWED_ACE_TYPE) continue;
    BYTE* sid = reinterpret_cast<BYTE*>(&ace->SidStart);
    rules.push_back({ace->Mask, std::vector<BYTE>(sid, sid + GetLengthSid(sid))});
  }
  return rules;
}

// A log file is made with the descriptor of the security model: every
// account may write it.
TEST(NtSecurity, LogFileIsMadeWithTheLogDescriptor) {
  ZyrBasSecurity model;
  ASSERT_EQ(ZyrBasSecurityForForm(model, ZYR_SECURITY_LOG_FILE), ZYR_OK);
  ASSERT_EQ(model.Build(), ZYR_OK);
  std::vector<std::pair<std::uint32_t, std::vector<BYTE>>> expected;
  for (const ZyrBasAccessRule& rule : model.Dacl()) {
    ZyrBasSid sid{};
    ASSERT_EQ(ZyrBasWellKnownSid(sid, rule.sidId), ZYR_OK);
    expected.push_back({rule.accessMask, std::vector<BYTE>(sid.bytes, sid.bytes + ZyrBasSidLength(sid))});
  }
  std::u16string folder = TempFolder(u"security");

  // Whether this system keeps a descriptor that it is given at all.
  std::u16string probe = folder + u"\\probe";
  std::wstring probeWide(probe.begin(), probe.end());
  CloseHandle(CreateFileW(probeWide.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_NEW, 0, nullptr));
  SetFileSecurityW(probeWide.c_str(), DACL_SECURITY_INFORMATION, const_cast<std::uint8_t*>(model.Descriptor()));
  if (DaclOf(probe) != expected)
    GTEST_SKIP() << "this system does not keep the descriptors of files (wine 8 takes them in NtCreateFile and "
                    "NtSetSecurityObject and answers NtQuerySecurityObject from the file's mode)";

  std::u16string path = folder + u"\\secure.log";
  ZyrBasFile file;
  ASSERT_EQ(file.Open(path.c_str(), ZYR_FILE_CREATE_NEW, ZYR_FILE_WRITE, 7, ZYR_FILE_SHARED_BY_ALL), ZYR_OK);
  ASSERT_EQ(file.Close(), ZYR_OK);
  EXPECT_EQ(DaclOf(path), expected);
}

}  // namespace

namespace {

// The facts of the system as its own version call tells them, and the
// optional functions bound by name.
TEST(NtSystem, FactsFollowTheSystemsVersion) {
  const ZyrBasSystemInfo& info = ZyrBasSystem();
  ASSERT_TRUE(info.initialised.load());
  OSVERSIONINFOEXW version{};
  version.dwOSVersionInfoSize = sizeof version;
  auto getVersion = reinterpret_cast<LONG(WINAPI*)(OSVERSIONINFOEXW*)>(
      reinterpret_cast<void*>(GetProcAddress(GetModuleHandleW(L"ntdll.dll"), "RtlGetVersion")));
  ASSERT_NE(getVersion, nullptr);
  ASSERT_EQ(getVersion(&version), 0);
  EXPECT_EQ(info.major, version.dwMajorVersion);
  EXPECT_EQ(info.minor, version.dwMinorVersion);
  EXPECT_EQ(info.architectureKind, ZYR_ARCH_AMD64);
  EXPECT_EQ(info.processWidth, ZYR_ARCH_AMD64);
  std::u16string text(info.osText);
  EXPECT_EQ(text.rfind(u"Microsoft(R) Windows(R)", 0), 0u);
  std::wstring numbers = L", " + std::to_wstring(version.dwMajorVersion) + L"." +
                        std::to_wstring(version.dwMinorVersion) + L"." + std::to_wstring(version.dwBuildNumber);
  EXPECT_NE(text.find(std::u16string(numbers.begin(), numbers.end())), std::u16string::npos)
      << std::string(text.begin(), text.end());
  SYSTEM_INFO system;
  GetSystemInfo(&system);
  EXPECT_EQ(info.pageSize, system.dwPageSize);
  EXPECT_EQ(info.allocationGranularity, system.dwAllocationGranularity);
}

}  // namespace

namespace {

std::u16string Env(const wchar_t* name) {
  wchar_t value[MAX_PATH];
  DWORD n = GetEnvironmentVariableW(name, value, MAX_PATH);
  return std::u16string(value, value + (n < MAX_PATH ? n : 0));
}

// The folders of the system and of the user as the system names them.
TEST(NtFolders, AreTheSystemsOwn) {
  wchar_t system[MAX_PATH], windows[MAX_PATH];
  UINT s = GetSystemDirectoryW(system, MAX_PATH);
  UINT w = GetWindowsDirectoryW(windows, MAX_PATH);
  struct Case {
    std::uint32_t id;
    std::u16string expected;
  } cases[] = {
      {ZYR_FOLDER_SYSTEM, std::u16string(system, system + s)},
      {ZYR_FOLDER_WINDOWS, std::u16string(windows, windows + w)},
      {ZYR_FOLDER_LOCAL_APPDATA, Env(L"LOCALAPPDATA")},
      {ZYR_FOLDER_APPDATA, Env(L"APPDATA")},
      {ZYR_FOLDER_COMMON_APPDATA, Env(L"ALLUSERSPROFILE")},
  };
  for (const Case& c : cases) {
    ZyrBasString folder;
    ASSERT_EQ(ZyrBasGetFolder(c.id, folder), ZYR_OK) << c.id;
    EXPECT_EQ(ZyrBasCompareNoCase(folder.Text(), folder.Length(), c.expected.data(), c.expected.size()), 0)
        << c.id << ": " << std::string(folder.Text(), folder.Text() + folder.Length());
  }
}

}  // namespace
