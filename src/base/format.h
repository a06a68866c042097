// The library's own printf over wide strings. It never looks at a locale:
// the decimal point is always ".", and floating point is expanded by the
// library itself, so every platform prints the same digits.
//
// Grammar of one conversion:
//   "%" flags* width? ("." precision)? size? conversion
//   flags: " " "#" "+" "-" "0"    width, precision: digits or "*"
//   size, first match wins: "I32" "I64" "ll" "hh" "l" "h" "w" "I" "z"
//
// Arguments come as an array of 64-bit slots, one slot per argument, read
// in order; a "*" width or precision takes a slot of its own (its low 32
// bits, signed). A null slot array reads as all zeros. What a slot holds:
//   %d %i %u %o %x %X  the integer, in the low 8/16/32 bits or all 64 by size
//   %c                 a UTF-16 unit in the low 16 bits
//   %p                 the 64-bit value
//   %s %ls             const char16_t*, terminated
//   %hs                const char*, terminated, converted by the selector
//   %Z                 TWO slots: the length in bytes, then the const char*
//   %wZ                TWO slots: the length in bytes, then the const char16_t*
//   %e %E %f %g %G     the double's bit pattern (ZyrBasSlotFromDouble)
// A conversion that the table does not know ("%S", "%n", "%ws", ...) is
// copied as it stands and takes no slot; "%wd" and its like print nothing
// and take no slot. A "*" slot is given back when the conversion then takes
// none. A negative "*" width means left alignment; a negative "*" precision
// counts as no precision. A width above 4096, written or from a slot,
// counts as 4096: no single conversion pads to more than that.
#ifndef ZYR_BASE_FORMAT_H
#define ZYR_BASE_FORMAT_H

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "base/string.h"
#include "base/textconv.h"
#include "zyrlog/result.h"

// Formats into a fixed buffer. `capacity` counts the terminator, which is
// always written; 0 gives ZYR_E_INVALID_ARGUMENT. A text that does not fit
// gives ZYR_E_BUFFER_TOO_SMALL and keeps what fitted. `outLength`, if not
// null, receives the characters written without the terminator, in both
// cases. `selector` converts the narrow texts of "%hs" and "%Z".
ZyrResult ZyrBasFormatFixed(ZyrBasCodePage selector, char16_t* buffer, std::size_t capacity,
                            const char16_t* format, std::size_t* outLength,
                            const std::uint64_t* arguments);

// Formats into `out`, replacing its text. Short texts are built on the
// stack and cost no allocation beyond what `out` itself needs. On failure
// `out` is left as it was. Narrow texts are read as ANSI. A `breakReplacement`
// other than 0 takes the place of every LF and CR of the result, in the same
// pass that copies it into `out`.
ZyrResult ZyrBasFormat(ZyrBasString& out, const char16_t* format, const std::uint64_t* arguments,
                       char16_t breakReplacement = 0);

// Appends the formatted text to the target. On failure the target keeps
// its old text and length.
ZyrResult ZyrBasFormatAppend(ZyrBasStringRef& target, const char16_t* format,
                             const std::uint64_t* arguments);
ZyrResult ZyrBasFormatAppend(ZyrBasString& target, const char16_t* format,
                             const std::uint64_t* arguments);

// Appends one double as the engine prints it with `conversion` ("e", "E",
// "f", "g" or "G"), no flags and no width. A negative precision means the
// default of 6; above 20 counts as 20. `forceExponentSign` writes "+" in
// front of a non-negative exponent. So (1.5, 'e', 20, true) appends
// "1.50000000000000000000e+00". Any other conversion gives
// ZYR_E_INVALID_ARGUMENT.
ZyrResult ZyrBasFormatDouble(ZyrBasString& out, double value, char16_t conversion, int precision,
                             bool forceExponentSign);

// Slot packing for callers.
inline std::uint64_t ZyrBasSlotFromDouble(double value) {
  std::uint64_t bits;
  std::memcpy(&bits, &value, sizeof bits);
  return bits;
}
inline std::uint64_t ZyrBasSlotFromPointer(const void* pointer) {
  return static_cast<std::uint64_t>(reinterpret_cast<std::uintptr_t>(pointer));
}

// How a format reads its argument slots, for a caller that keeps the format
// and a copy of the arguments to print them later, on another thread: the
// log worker composes queued messages this way.
struct ZyrBasFormatPlan {
  std::size_t length;       // units of the format, the terminator not counted
  std::uint32_t slotCount;  // slots that its conversions read
  std::uint64_t wideTexts;  // bit i: slot i holds a terminated wide text ("%s", "%ls")
};

// Fills `plan` by the same rules by which the format is printed. False
// when a conversion reads a narrow text ("%hs", "%Z"), a counted text
// ("%wZ"), or more than 64 slots: such a format is printed where its
// arguments are, since the conversion of a narrow text can fail.
bool ZyrBasPlanFormat(const char16_t* format, ZyrBasFormatPlan* plan);

// One parsed conversion.
struct ZyrBasFormatSpec {
  std::uint8_t left;               // "-"
  std::uint8_t plus;               // "+"
  std::uint8_t forceExponentSign;  // "+" before a non-negative exponent
  std::uint8_t zero;               // "0"
  std::uint8_t space;              // " "
  std::uint8_t alternate;          // "#"
  std::uint8_t upper;              // "X", "E", "G"
  std::uint8_t hasPrecision;
  std::int32_t width;
  std::int32_t precision;
  std::uint8_t sizeKind;  // 0 none, 1 "w", 2 "hh", 3 "h", 4 "l", 5 "I"/"z", 6 "I32", 7 "I64", 8 "ll"
  std::uint8_t widthFromArgument;
  std::uint8_t precisionFromArgument;
  char16_t conversion;
};

#endif
