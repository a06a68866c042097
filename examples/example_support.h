// Small helpers the examples share: UTF-16 text from a narrow string, and
// reading back what a log file holds.
#ifndef ZYRLOG_EXAMPLE_SUPPORT_H
#define ZYRLOG_EXAMPLE_SUPPORT_H

#include <cstdio>
#include <fstream>
#include <sstream>
#include <string>

#include <zyrlog/log.h>

namespace example {

// Paths and texts of these examples are ASCII; a real program converts
// with its own UTF-8 decoder.
inline std::u16string U16(const std::string& text) { return std::u16string(text.begin(), text.end()); }

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

// Reports a failed call with its code; `zyrlog-errors CODE` tells its name.
inline bool Check(ZyrResult r, const char* what) {
  if (ZyrSucceeded(r)) return true;
  std::fprintf(stderr, "%s failed: 0x%08x\n", what, static_cast<unsigned>(r));
  return false;
}

}  // namespace example

#endif
