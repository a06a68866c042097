// zyrloga.dll as a client meets it: this program knows the library only
// through include/zyrlog/zyrlog.h, loads the module with LoadLibraryW and
// finds its exports by name.
//
// Run with "--write CONFIG COUNT TAG" it is also the writer that the test of
// a log shared by processes starts twice.
#include <gtest/gtest.h>
#include <windows.h>

#include <cstdio>
#include <cstring>
#include <fstream>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "zyrlog/zyrlog.h"

namespace {

typedef ZyrResult (*GetLogObjectFn)(const ZyrIid*, IZyrLog**);
typedef ZyrResult (*ReleaseLogObjectFn)(const ZyrIid*, IZyrLog*);

std::wstring ProgramFolder() {
  wchar_t path[MAX_PATH];
  DWORD n = GetModuleFileNameW(nullptr, path, MAX_PATH);
  std::wstring full(path, n);
  return full.substr(0, full.find_last_of(L"\\/"));
}

std::u16string U16(const std::wstring& s) { return std::u16string(s.begin(), s.end()); }

// The module and its two exports of a log object's life.
struct Module {
  HMODULE handle = nullptr;
  GetLogObjectFn get = nullptr;
  ReleaseLogObjectFn release = nullptr;

  Module() {
    handle = LoadLibraryW((ProgramFolder() + L"\\zyrloga.dll").c_str());
    if (!handle) return;
    get = reinterpret_cast<GetLogObjectFn>(reinterpret_cast<void*>(GetProcAddress(handle, "ZyrGetLogObject")));
    release = reinterpret_cast<ReleaseLogObjectFn>(reinterpret_cast<void*>(GetProcAddress(handle, "ZyrReleaseLogObject")));
  }
  ~Module() {
    if (handle) FreeLibrary(handle);
  }
};

// A folder of its own below the system's temporary folder.
std::wstring MakeTempFolder(const wchar_t* tag) {
  wchar_t base[MAX_PATH];
  GetTempPathW(MAX_PATH, base);
  std::wstring folder = std::wstring(base) + L"zyr-" + tag + L"-" + std::to_wstring(GetCurrentProcessId()) + L"-" +
                        std::to_wstring(GetTickCount());
  CreateDirectoryW(folder.c_str(), nullptr);
  return folder;
}

std::string ReadAll(const std::wstring& path) {
  HANDLE h = CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                         OPEN_EXISTING, 0, nullptr);
  if (h == INVALID_HANDLE_VALUE) return {};
  std::string bytes;
  char buffer[65536];
  DWORD got = 0;
  while (ReadFile(h, buffer, sizeof buffer, &got, nullptr) && got > 0) bytes.append(buffer, got);
  CloseHandle(h);
  return bytes;
}

std::u16string RollingConfig(const std::wstring& file, unsigned size, unsigned count) {
  return u"[root]\nAddAppenders = shared\nSeverity = Info\n\n[shared]\nType = Appender\n"
         u"AppenderType = RollingFile\nSize = " +
         U16(std::to_wstring(size)) + u"\nFilesCount = " + U16(std::to_wstring(count)) + u"\nFileName = " + U16(file) +
         u"\n";
}

// Writes `count` lines "TAG n" through a log configured by `config`.
int WriteLines(const std::u16string& config, int count, const std::u16string& tag) {
  Module module;
  IZyrLog* log = nullptr;
  if (!module.get || ZyrFailed(module.get(&IID_IZyrLog, &log))) return 2;
  ZyrLogger* logger = nullptr;
  int failures = 0;
  if (ZyrFailed(log->LoadConfigText(config.c_str())) || ZyrFailed(log->GetLogger(&logger, u"wine"))) {
    failures = 1;
  } else {
    std::u16string format = tag + u" %d";
    for (int i = 0; i < count; ++i) {
      std::uint64_t argument = static_cast<std::uint64_t>(i);
      if (ZyrFailed(logger->Log(ZYR_SEVERITY_INFO, format.c_str(), u"module_test.cpp", __LINE__, 0, 0, 0, 0,
                                &argument)))
        ++failures;
    }
  }
  module.release(&IID_IZyrLog, log);
  return failures ? 1 : 0;
}

std::vector<std::string> LinesOf(const std::string& bytes) {
  std::vector<std::string> lines;
  std::size_t at = 0;
  while (at < bytes.size()) {
    std::size_t end = bytes.find("\r\n", at);
    if (end == std::string::npos) {
      lines.push_back(bytes.substr(at));  // a line without its end
      break;
    }
    lines.push_back(bytes.substr(at, end - at));
    at = end + 2;
  }
  return lines;
}

TEST(Module, ExportsAreFoundByName) {
  Module module;
  ASSERT_NE(module.handle, nullptr) << "LoadLibraryW failed: " << GetLastError();
  for (const char* name : {"ZyrModuleInit", "ZyrModuleFinish", "GetZyrObject", "ZyrGetLogObject", "ZyrReleaseLogObject",
                           "ZyrLogLibraryReconfigure", "ZyrLogLibraryReloadConfig", "ZyrLogLibraryRemoteReconfigure",
                           "ZyrLogLibraryRemoteReloadConfig"})
    EXPECT_NE(GetProcAddress(module.handle, name), nullptr) << name;
}

// The whole road: a log object, a RollingFile from configuration text, and
// Standard lines in UTF-8 with the mark and CR LF.
TEST(Module, WritesStandardLinesToARollingFile) {
  std::wstring folder = MakeTempFolder(L"module");
  std::wstring file = folder + L"\\wine.log";
  SetEnvironmentVariableW(L"LOCALAPPDATA", folder.c_str());  // the default appender's folder too
  ASSERT_EQ(WriteLines(RollingConfig(file, 1000000, 3), 20, u"line"), 0);

  std::string bytes = ReadAll(file);
  ASSERT_GE(bytes.size(), 3u) << "no log file";
  EXPECT_EQ(bytes.substr(0, 3), "\xEF\xBB\xBF");
  std::vector<std::string> lines = LinesOf(bytes.substr(3));
  ASSERT_EQ(lines.size(), 20u);
  for (int i = 0; i < 20; ++i) {
    const std::string& line = lines[i];
    EXPECT_EQ(line.rfind("[wine] INFO ", 0), 0u) << line;
    EXPECT_NE(line.find(" PID:" + std::to_string(GetCurrentProcessId()) + " "), std::string::npos) << line;
    EXPECT_NE(line.find(" ID:module_test.cpp:"), std::string::npos) << line;
    EXPECT_EQ(line.substr(line.size() - std::to_string(i).size() - 10), " MSG:line " + std::to_string(i)) << line;
  }
}

// Two processes append to one RollingFile at once, rolling it over as they
// go: every line of both arrives once, whole, in one of the files.
TEST(Module, TwoProcessesShareARollingFile) {
  // Wine keeps no atomic append between processes: two plain programs that
  // open one file for FILE_APPEND_DATA alone and write 3000 lines each lose
  // some to each other there in one run of four (measured with wine 8.0).
  if (GetProcAddress(GetModuleHandleW(L"ntdll.dll"), "wine_get_version"))
    GTEST_SKIP() << "wine does not append atomically between processes, which sharing a file needs";
  std::wstring folder = MakeTempFolder(L"shared");
  std::wstring file = folder + L"\\shared.log";
  std::wstring config = folder + L"\\shared.cfg";
  std::u16string text = RollingConfig(file, 200000, 40);
  {
    std::ofstream out(std::string(config.begin(), config.end()), std::ios::binary);
    std::string narrow(text.begin(), text.end());
    out << narrow;
  }
  wchar_t self[MAX_PATH];
  GetModuleFileNameW(nullptr, self, MAX_PATH);
  constexpr int kLines = 3000;
  std::vector<PROCESS_INFORMATION> children;
  for (const wchar_t* tag : {L"alpha", L"beta"}) {
    std::wstring command = L"\"" + std::wstring(self) + L"\" --write \"" + config + L"\" " + std::to_wstring(kLines) +
                           L" " + tag;
    STARTUPINFOW si{};
    si.cb = sizeof si;
    PROCESS_INFORMATION pi{};
    ASSERT_TRUE(CreateProcessW(nullptr, command.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr, &si, &pi));
    children.push_back(pi);
  }
  for (PROCESS_INFORMATION& pi : children) {
    ASSERT_EQ(WaitForSingleObject(pi.hProcess, 120000), WAIT_OBJECT_0);
    DWORD code = 99;
    GetExitCodeProcess(pi.hProcess, &code);
    EXPECT_EQ(code, 0u);
    CloseHandle(pi.hProcess);
    CloseHandle(pi.hThread);
  }

  std::map<std::string, std::set<int>> seen;
  int torn = 0, doubled = 0, files = 0;
  for (int k = 0; k <= 40; ++k) {
    std::wstring name = k == 0 ? file : file + L"." + std::to_wstring(k);
    std::string bytes = ReadAll(name);
    if (bytes.empty()) continue;
    ++files;
    if (bytes.rfind("\xEF\xBB\xBF", 0) == 0) bytes = bytes.substr(3);
    for (const std::string& line : LinesOf(bytes)) {
      std::size_t at = line.find(" MSG:");
      std::istringstream message(at == std::string::npos ? "" : line.substr(at + 5));
      std::string tag;
      int n = -1;
      if (!(message >> tag >> n) || (tag != "alpha" && tag != "beta")) {
        ++torn;
        continue;
      }
      if (!seen[tag].insert(n).second) ++doubled;
    }
  }
  EXPECT_GT(files, 1) << "the file never rolled over";
  EXPECT_EQ(torn, 0);
  EXPECT_EQ(doubled, 0);
  EXPECT_EQ(seen["alpha"].size(), static_cast<std::size_t>(kLines));
  EXPECT_EQ(seen["beta"].size(), static_cast<std::size_t>(kLines));
}

// With the worker running, a loaded file that changes is taken up through
// the notification of its folder: the root's threshold follows the file.
TEST(Module, ChangedConfigurationFileIsTakenUp) {
  std::wstring folder = MakeTempFolder(L"monitor");
  std::wstring config = folder + L"\\watched.cfg";
  auto write = [&](const char* severity) {
    std::ofstream out(std::string(config.begin(), config.end()), std::ios::binary | std::ios::trunc);
    out << "[root]\nSeverity = " << severity << "\n";
  };
  write("Info");
  SetEnvironmentVariableW(L"LOCALAPPDATA", folder.c_str());
  Module module;
  IZyrLog* log = nullptr;
  ASSERT_EQ(module.get(&IID_IZyrLog, &log), ZYR_OK);
  ZyrLogger* root = nullptr;
  ASSERT_EQ(log->LoadConfigFile(U16(config).c_str()), ZYR_OK);
  ASSERT_EQ(log->GetLogger(&root, u""), ZYR_OK);
  EXPECT_EQ(root->threshold.load(), ZYR_SEVERITY_INFO);
  ASSERT_EQ(log->StartDispatcher(), ZYR_OK);
  Sleep(1100);  // a new last-write time, whatever the file system's resolution
  write("Error");
  bool taken = false;
  for (int i = 0; i < 100 && !taken; ++i) {
    Sleep(100);
    taken = root->threshold.load() == ZYR_SEVERITY_ERROR;
  }
  log->StopDispatcher();
  module.release(&IID_IZyrLog, log);
  EXPECT_TRUE(taken) << "the change was not taken up within ten seconds";
}

// The remote entry points run as threads of their own, as another process
// would start them, and end with their result as the thread's exit code.
TEST(Module, RemoteEntryPointsEndTheirThreadWithTheResult) {
  std::wstring folder = MakeTempFolder(L"remote");
  std::wstring config = folder + L"\\remote.cfg";
  {
    std::ofstream out(std::string(config.begin(), config.end()), std::ios::binary);
    out << "[root]\nSeverity = Warn\n";
  }
  SetEnvironmentVariableW(L"LOCALAPPDATA", folder.c_str());
  Module module;
  IZyrLog* log = nullptr;
  ASSERT_EQ(module.get(&IID_IZyrLog, &log), ZYR_OK);
  ZyrLogger* root = nullptr;
  ASSERT_EQ(log->GetLogger(&root, u""), ZYR_OK);
  ASSERT_EQ(root->threshold.load(), ZYR_SEVERITY_INFO);

  // The blob: a 64-bit count of UTF-16 units, the units, a 32-bit mode 0.
  std::u16string name = U16(config);
  std::string blob(8 + 2 * name.size() + 4, '\0');
  std::uint64_t count = name.size();
  std::memcpy(blob.data(), &count, 8);
  std::memcpy(blob.data() + 8, name.data(), 2 * name.size());
  struct Entry {
    const char* name;
    void* argument;
  } entries[] = {{"ZyrLogLibraryRemoteReconfigure", blob.data()}, {"ZyrLogLibraryRemoteReloadConfig", nullptr}};
  for (const Entry& entry : entries) {
    auto start = reinterpret_cast<LPTHREAD_START_ROUTINE>(reinterpret_cast<void*>(GetProcAddress(module.handle, entry.name)));
    ASSERT_NE(start, nullptr) << entry.name;
    HANDLE thread = CreateThread(nullptr, 0, start, entry.argument, 0, nullptr);
    ASSERT_NE(thread, nullptr);
    ASSERT_EQ(WaitForSingleObject(thread, 30000), WAIT_OBJECT_0);
    DWORD code = 1;
    GetExitCodeThread(thread, &code);
    CloseHandle(thread);
    EXPECT_EQ(code, 0u) << entry.name;
  }
  EXPECT_EQ(root->threshold.load(), ZYR_SEVERITY_WARN);
  module.release(&IID_IZyrLog, log);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc == 5 && std::string(argv[1]) == "--write") {
    std::ifstream in(argv[2], std::ios::binary);
    std::string narrow((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    std::string tag = argv[4];
    return WriteLines(std::u16string(narrow.begin(), narrow.end()), std::atoi(argv[3]),
                      std::u16string(tag.begin(), tag.end()));
  }
  testing::InitGoogleTest(&argc, argv);
  return RUN_ALL_TESTS();
}
