// The names and meanings of result codes, for the tools. Built from the one
// list in zyrlog/result.h, so that a new code needs no second entry here.
#ifndef ZYR_TOOLS_RESULT_NAMES_H
#define ZYR_TOOLS_RESULT_NAMES_H

#include <cstdint>
#include <cstdio>
#include <string>

#include "zyrlog/result.h"

namespace zyrtool {

struct ResultName {
  ZyrResult code;
  const char* name;
  const char* meaning;
};

#define ZYR_TOOL_RESULT_ROW_(name, value, meaning) {ZYR_RESULT(value), #name, meaning},
inline constexpr ResultName kResultNames[] = {
    {ZYR_OK, "ZYR_OK", "success"},
    ZYR_RESULT_CODES(ZYR_TOOL_RESULT_ROW_)};
#undef ZYR_TOOL_RESULT_ROW_

inline const ResultName* FindResult(ZyrResult code) {
  for (const ResultName& row : kResultNames)
    if (row.code == code) return &row;
  return nullptr;
}

inline std::string Hex(ZyrResult code) {
  char text[16];
  std::snprintf(text, sizeof text, "0x%08x", static_cast<unsigned>(code));
  return text;
}

// "ZYR_E_ACCESS_DENIED (0xe0010058)", or the number alone for a code of the
// raw system family.
inline std::string Describe(ZyrResult code) {
  const ResultName* row = FindResult(code);
  return row ? std::string(row->name) + " (" + Hex(code) + ")" : Hex(code);
}

}  // namespace zyrtool

#endif
