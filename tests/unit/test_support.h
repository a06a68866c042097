// Helpers shared by the unit tests: private temporary folders and the
// default log folder moved into them.
#ifndef ZYR_TESTS_TEST_SUPPORT_H
#define ZYR_TESTS_TEST_SUPPORT_H

#include <stdlib.h>
#include <unistd.h>

#include <string>

namespace zyrtest {

// A fresh folder below ZYR_TEST_TMP (or /tmp), unique to this process.
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

}  // namespace zyrtest

#endif
