// zyrlog-errors: a result code to its name and meaning, and back.
//
//   zyrlog-errors 0xe0010058        ZYR_E_ACCESS_DENIED  0xe0010058  permission denied ...
//   zyrlog-errors 0xa0010058        its warning form, which a log call returns
//                                   when an appender failed with that error
//   zyrlog-errors -536805288        the same code as a signed decimal, as "%d" prints it
//   zyrlog-errors access_denied     names match without case and without the ZYR_ prefix
//   zyrlog-errors                   the whole table
//
// Exit status: 0 when every argument was known, 1 when one was not, 2 for a
// usage error.
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "result_names.h"

namespace {

void Print(const zyrtool::ResultName& row) {
  std::printf("%-32s %s  %s\n", row.name, zyrtool::Hex(row.code).c_str(), row.meaning);
}

std::string Upper(const char* text) {
  std::string out;
  for (const char* p = text; *p; ++p) out.push_back(*p >= 'a' && *p <= 'z' ? *p - 32 : *p);
  return out;
}

// Prints every code whose name matches: "timeout" is both ZYR_W_TIMEOUT and
// ZYR_E_TIMEOUT.
bool PrintByName(const char* text) {
  std::string wanted = Upper(text);
  bool found = false;
  for (const zyrtool::ResultName& row : zyrtool::kResultNames) {
    std::string name = row.name;
    bool match = name == wanted || name == "ZYR_" + wanted;
    for (const char* family : {"ZYR_E_", "ZYR_W_", "ZYR_I_"}) match = match || name == family + wanted;
    if (match) Print(row);
    found = found || match;
  }
  return found;
}

// Reads 0x..., plain hexadecimal of eight digits, or a decimal number that
// is signed (as "%d" prints a result) or unsigned.
bool ParseNumber(const char* text, ZyrResult* code) {
  char* end = nullptr;
  errno = 0;
  long long value = 0;
  if (std::strlen(text) == 8 && std::strspn(text, "0123456789abcdefABCDEF") == 8 &&
      std::strpbrk(text, "abcdefABCDEF"))
    value = std::strtoll(text, &end, 16);
  else
    value = std::strtoll(text, &end, 0);
  if (errno != 0 || end == text || *end != '\0') return false;
  if (value < INT32_MIN || value > static_cast<long long>(UINT32_MAX)) return false;
  *code = static_cast<ZyrResult>(static_cast<std::uint32_t>(value));
  return true;
}

// The warning form of an error, as the log calls return it.
void PrintWarningForm(ZyrResult code, const zyrtool::ResultName& error) {
  std::printf("%-32s %s  warning form of %s: %s (%s)\n", "(warning form)", zyrtool::Hex(code).c_str(),
              error.name, zyrtool::kWarningFormMeaning, error.meaning);
}

// A code that is in no table: say what its bits tell.
void Explain(ZyrResult code) {
  auto bits = static_cast<std::uint32_t>(code);
  static const char* const kSeverity[] = {"success", "informational", "warning", "error"};
  unsigned facility = (bits >> 16) & 0x1fff;
  unsigned number = bits & 0xffff;
  std::printf("%-32s %s  %s", "(no name)", zyrtool::Hex(code).c_str(), kSeverity[bits >> 30]);
  // A system error's warning form comes from a log call too.
  if ((bits >> 30) == 2) std::printf(" form (%s)", zyrtool::kWarningFormMeaning);
  if (facility == 7 && !(bits & 0x20000000u)) {
    // The library carries system errors it has no name for with their
    // number; an errno without a row of its own is kept as 0x2000 + errno.
    if (number >= 0x2000 && number < 0x3000)
      std::printf(", system error errno %u (%s)\n", number - 0x2000, std::strerror(number - 0x2000));
    else
      std::printf(", system error number %u without a name of its own\n", number);
  } else {
    std::printf(", facility %u, code 0x%04x: not a code of this library\n", facility, number);
  }
}

}  // namespace

int main(int argc, char** argv) {
  if (argc == 2 && (!std::strcmp(argv[1], "-h") || !std::strcmp(argv[1], "--help"))) {
    std::printf("usage: zyrlog-errors [CODE|NAME]...\n"
                "  CODE: 0xe0010058, e0010058, -536805288 or 3758161960\n"
                "  NAME: ZYR_E_ACCESS_DENIED or access_denied\n"
                "Without arguments, prints every code. A log call answers an appender's\n"
                "failure with the warning form of its error: 0xa001.... for 0xe001....\n");
    return 0;
  }
  if (argc == 1) {
    for (const zyrtool::ResultName& row : zyrtool::kResultNames) Print(row);
    return 0;
  }
  int status = 0;
  for (int i = 1; i < argc; ++i) {
    ZyrResult code = 0;
    if (PrintByName(argv[i])) {
    } else if (ParseNumber(argv[i], &code)) {
      if (const zyrtool::ResultName* found = zyrtool::FindResult(code)) {
        Print(*found);
      } else if (const zyrtool::ResultName* error = zyrtool::FindErrorOfWarning(code)) {
        PrintWarningForm(code, *error);
      } else {
        Explain(code);
        status = 1;
      }
    } else {
      std::fprintf(stderr, "zyrlog-errors: %s is neither a result code nor a name\n", argv[i]);
      status = 1;
    }
  }
  return status;
}
