// Helpers shared by the unit tests: private temporary folders and the
// default log folder moved into them.
#ifndef ZYR_TESTS_TEST_SUPPORT_H
#define ZYR_TESTS_TEST_SUPPORT_H

#include <gtest/gtest.h>
#include <stdlib.h>
#ifdef _WIN32
#include <windows.h>
#else
#include <fcntl.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#endif

#include <chrono>
#include <filesystem>
#include <fstream>
#include <functional>
#include <thread>
#include <vector>
#include <sstream>
#include <string>

#include "base/folders.h"

namespace zyrtest {

// A fresh folder below ZYR_TEST_TMP (or /tmp; the system's temporary
// folder in a Windows build), unique to this process.
#ifdef _WIN32
inline std::string MakeTempDir(const std::string& tag) {
  static unsigned serial = 0;
  std::filesystem::path dir = std::filesystem::temp_directory_path() /
                              ("zyr-" + tag + "-" + std::to_string(GetCurrentProcessId()) + "-" +
                               std::to_string(GetTickCount64()) + "-" + std::to_string(++serial));
  std::filesystem::create_directories(dir);
  return dir.string();
}

inline void RemoveTree(const std::string& dir) {
  std::error_code ignored;
  std::filesystem::remove_all(dir, ignored);
}

inline int setenv(const char* name, const char* value, int) {
  SetEnvironmentVariableA(name, value);  // what the library reads
  return _putenv_s(name, value);
}
inline int unsetenv(const char* name) {
  SetEnvironmentVariableA(name, nullptr);
  return _putenv_s(name, "");
}
#else
inline std::string MakeTempDir(const std::string& tag) {
  const char* base = getenv("ZYR_TEST_TMP");
  std::string root = base && *base ? base : "/tmp";
  std::string cmd = "mkdir -p '" + root + "'";
  (void)!system(cmd.c_str());
  std::string templ = root + "/zyr-" + tag + "-XXXXXX";
  char* made = mkdtemp(templ.data());
  return made ? std::string(made) : root;
}

inline void RemoveTree(const std::string& dir) {
  std::string cmd = "rm -rf '" + dir + "'";
  (void)!system(cmd.c_str());
}
#endif

// Points the user's local data folder, and so the default log folder, into
// a private folder for the test.
inline std::string UsePrivateLocalAppData(const std::string& tag) {
  std::string dir = MakeTempDir(tag);
  setenv("LOCALAPPDATA", dir.c_str(), 1);
  return dir;
}

inline std::u16string U16(const std::string& s) {
  std::u16string out;
  for (unsigned char c : s) out.push_back(c);
  return out;
}

inline std::string Narrow(const std::u16string& s) {
  std::string out;
  for (char16_t c : s) out.push_back(c < 0x80 ? static_cast<char>(c) : '?');
  return out;
}

// Any of the library's strings (Text and Length) as a std::u16string.
template <class T>
std::u16string Str(const T& s) {
  return std::u16string(s.Text(), s.Length());
}

inline std::string ReadFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::stringstream ss;
  ss << in.rdbuf();
  return ss.str();
}

inline void WriteFile(const std::string& path, const std::string& bytes) {
  std::ofstream(path, std::ios::binary | std::ios::trunc) << bytes;
}

// True for anything at the path, a dangling link included.
inline bool Exists(const std::string& path) {
  std::error_code ignored;
  return std::filesystem::symlink_status(path, ignored).type() != std::filesystem::file_type::not_found;
}

// Sets or clears an environment variable for a scope and puts the old value
// back.
class ScopedEnv {
 public:
  ScopedEnv(const char* name, const char* value) : name_(name) {
    const char* old = getenv(name);
    had_ = old != nullptr;
    if (had_) old_ = old;
    Set(value);
  }
  ~ScopedEnv() { Set(had_ ? old_.c_str() : nullptr); }
  void Set(const char* value) {
    if (value) setenv(name_, value, 1);
    else unsetenv(name_);
  }

 private:
  const char* name_;
  bool had_;
  std::string old_;
};

// Whether the user's local data folder, and so the default log folder,
// follows LOCALAPPDATA. Not where the key store names the folder (the
// registry of an NT system does), since the store comes first.
inline bool LocalAppDataFollowsEnvironment() {
  ScopedEnv probe("LOCALAPPDATA", "zyr-probe");
  ZyrBasString folder;
  return ZyrBasGetFolder(ZYR_FOLDER_LOCAL_APPDATA, folder) == ZYR_OK && Str(folder) == u"zyr-probe";
}

// A test with a fresh private folder, removed afterwards.
class TempDirTest : public ::testing::Test {
 protected:
  void SetUp() override { dir_ = MakeTempDir("t"); }
  void TearDown() override { RemoveTree(dir_); }
  std::string P(const std::string& name) const { return dir_ + "/" + name; }
  // The same path spelt with "\", which the library reads as well.
  std::u16string WP(const std::string& name) const {
    std::u16string w = U16(P(name));
    for (char16_t& c : w)
      if (c == u'/') c = u'\\';
    return w;
  }

  std::string dir_;
};

#ifndef _WIN32
// Waits for `child` and gives its wait status; one that has not ended
// within `seconds` is killed, and `*hung` (if given) set.
inline int WaitChild(pid_t child, int seconds, bool* hung = nullptr) {
  auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(seconds);
  int status = 0;
  while (waitpid(child, &status, WNOHANG) == 0) {
    if (std::chrono::steady_clock::now() > deadline) {
      kill(child, SIGKILL);
      waitpid(child, &status, 0);
      if (hung) *hung = true;
      return status;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  return status;
}

// Runs `body` in a forked child and gives its result as the exit code, or
// -1 when the child did not end within `seconds` (it is killed then) or
// died of a signal. For what must not touch this process: resource limits,
// a hang that the test wants to see as a failure.
inline int RunInChild(const std::function<int()>& body, int seconds = 20) {
  pid_t child = fork();
  if (child == 0) _exit(body());
  if (child < 0) return -1;
  bool hung = false;
  int status = WaitChild(child, seconds, &hung);
  return !hung && WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

// Loops that prove an order or an exclusion run fewer rounds under a
// sanitizer, which slows every memory access ten- to fiftyfold.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
inline constexpr bool kSanitized = true;
#else
inline constexpr bool kSanitized = false;
#endif

// The address and undefined-behaviour sanitizers test memory through a pipe
// of their own, and report false faults once no descriptor is left.
inline bool SanitizerNeedsDescriptors() {
#if defined(__SANITIZE_ADDRESS__)
  return true;
#else
  return false;
#endif
}

// Uses up the descriptors of the calling process below a low limit, so that
// the next open fails with "too many open files"; gives back what it took.
// For a forked child only.
inline std::vector<int> ExhaustDescriptors() {
  struct rlimit limit = {64, 64};
  setrlimit(RLIMIT_NOFILE, &limit);
  std::vector<int> taken;
  taken.reserve(64);
  for (int fd; (fd = open("/dev/null", O_RDONLY | O_CLOEXEC)) >= 0;) taken.push_back(fd);
  return taken;
}
#endif

}  // namespace zyrtest

#endif
