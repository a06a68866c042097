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

// The log calls answer an appender's failure as the warning form of its
// error: the same code with 0xa001 in place of 0xe001 (the severity bits 2
// in place of 3). The error whose warning form `code` is, or null.
inline const ResultName* FindErrorOfWarning(ZyrResult code) {
  auto bits = static_cast<std::uint32_t>(code);
  if ((bits >> 30) != 2) return nullptr;
  const ResultName* error = FindResult(static_cast<ZyrResult>(bits | 0xc0000000u));
  return error && (static_cast<std::uint32_t>(error->code) >> 30) == 3 ? error : nullptr;
}

inline constexpr char kWarningFormMeaning[] = "an appender of the logger failed";

inline std::string Hex(ZyrResult code) {
  char text[16];
  std::snprintf(text, sizeof text, "0x%08x", static_cast<unsigned>(code));
  return text;
}

// "ZYR_E_ACCESS_DENIED (0xe0010058)", "warning form of ZYR_E_ACCESS_DENIED
// (0xa0010058)", or the number alone for a code of the raw system family.
inline std::string Describe(ZyrResult code) {
  if (const ResultName* row = FindResult(code)) return std::string(row->name) + " (" + Hex(code) + ")";
  if (const ResultName* error = FindErrorOfWarning(code))
    return "warning form of " + std::string(error->name) + " (" + Hex(code) + ")";
  return Hex(code);
}

}  // namespace zyrtool

#endif
