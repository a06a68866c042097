// Small helpers the examples share: a failed call in words, and reading back
// what a log file holds.
#ifndef ZYRLOG_EXAMPLE_SUPPORT_H
#define ZYRLOG_EXAMPLE_SUPPORT_H

#include <cstdio>
#include <fstream>
#include <sstream>
#include <string>

#include <zyrlog/zyrlog.hpp>

namespace example {

inline std::string ReadFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::stringstream text;
  text << in.rdbuf();
  return text.str();
}

inline std::size_t Count(const std::string& text, const std::string& what) {
  std::size_t n = 0;
  for (std::size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + 1)) ++n;
  return n;
}

// Reports a failed call: "LoadConfigFile failed: ZYR_E_FILE_NOT_FOUND (0xe001003d): ...".
inline bool Check(zyrlog::Result r, const char* what) {
  if (r.Ok()) return true;
  std::fprintf(stderr, "%s failed: %s\n", what, r.Describe().c_str());
  return false;
}

}  // namespace example

#endif
