// zyrlog front door: a result code in words.
//
//   zyrlog::Result r = log.LoadConfigFile("/etc/myapp/log.cfg");
//   if (r.Failed()) std::fprintf(stderr, "log configuration: %s\n", r.Describe().c_str());
//     -> log configuration: ZYR_E_ACCESS_DENIED (0xe0010058): permission denied (EACCES, ...)
//
// Names and meanings come from ZYR_RESULT_CODES in zyrlog/result.h, the one
// table of the library. A log call that met a failing appender answers the
// warning form of the appender's error: the same code with 0xa001 in place
// of 0xe001. Such a code is named after its error, and Describe says that
// it is the warning form.
#ifndef ZYRLOG_RESULT_HPP
#define ZYRLOG_RESULT_HPP

#include <cstdint>
#include <cstdio>

#include "zyrlog/result.h"

namespace zyrlog {

// Describe's text: a fixed buffer, so that describing a failure never
// allocates (it is often an allocation that failed).
struct ResultText {
  char text[320];
  const char* c_str() const noexcept { return text; }
};

class Result {
 public:
  constexpr Result() noexcept = default;
  constexpr Result(ZyrResult code) noexcept : code_(code) {}  // NOLINT: a code is a result

  constexpr ZyrResult Code() const noexcept { return code_; }
  // Success and information test as Ok; warnings and errors as Failed.
  constexpr bool Ok() const noexcept { return code_ >= 0; }
  constexpr bool Failed() const noexcept { return code_ < 0; }

  // The warning form of an error of the table: what a log call answers
  // when an appender failed.
  constexpr bool IsWarningForm() const noexcept {
    return (static_cast<std::uint32_t>(code_) >> 30) == 2 && !Find(code_);
  }

  // "ZYR_E_ACCESS_DENIED"; for a warning form the name of its error; "" for
  // a code that the table does not hold.
  constexpr const char* Name() const noexcept {
    const Row* row = Lookup();
    return row ? row->name : "";
  }
  // The one-line meaning from the table, or what the bits of an unknown
  // code tell.
  constexpr const char* Meaning() const noexcept {
    if (const Row* row = Lookup()) return row->meaning;
    auto bits = static_cast<std::uint32_t>(code_);
    if (((bits >> 16) & 0x1fff) == 7)
      return "a system error that the library carries with its number (zyrlog-errors tells more)";
    return "not a code of this library";
  }

  // "ZYR_E_DISK_FULL (0xe0010097): no space left on the device (ENOSPC, EDQUOT)", or
  // "warning form of ZYR_E_DISK_FULL (0xa0010097): an appender failed: no space ...".
  ResultText Describe() const noexcept {
    ResultText out;
    auto hex = static_cast<unsigned>(code_);
    if (IsWarningForm() && *Name())
      std::snprintf(out.text, sizeof out.text, "warning form of %s (0x%08x): an appender failed: %s",
                    Name(), hex, Meaning());
    else if (IsWarningForm())
      std::snprintf(out.text, sizeof out.text,
                    "warning form of 0x%08x (0x%08x): an appender failed: %s", hex | 0x40000000u,
                    hex, Meaning());
    else if (*Name())
      std::snprintf(out.text, sizeof out.text, "%s (0x%08x): %s", Name(), hex, Meaning());
    else
      std::snprintf(out.text, sizeof out.text, "0x%08x: %s", hex, Meaning());
    return out;
  }

  friend constexpr bool operator==(Result a, Result b) noexcept { return a.code_ == b.code_; }

 private:
  struct Row {
    ZyrResult code;
    const char* name;
    const char* meaning;
  };
#define ZYRLOG_RESULT_ROW_(name, value, meaning) Row{ZYR_RESULT(value), #name, meaning},
  static constexpr Row kRows[] = {Row{ZYR_OK, "ZYR_OK", "success"},
                                  ZYR_RESULT_CODES(ZYRLOG_RESULT_ROW_)};
#undef ZYRLOG_RESULT_ROW_

  static constexpr const Row* Find(ZyrResult code) noexcept {
    for (const Row& row : kRows)
      if (row.code == code) return &row;
    return nullptr;
  }
  // The error whose warning form this code is: top bits 10 turned into 11.
  constexpr const Row* ErrorOfWarning() const noexcept {
    if (!IsWarningForm()) return nullptr;
    return Find(static_cast<ZyrResult>(static_cast<std::uint32_t>(code_) | 0x40000000u));
  }
  constexpr const Row* Lookup() const noexcept {
    const Row* row = Find(code_);
    return row ? row : ErrorOfWarning();
  }

  ZyrResult code_ = ZYR_OK;
};

}  // namespace zyrlog

#endif
