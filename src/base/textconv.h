// Text conversion between the library's wide text and the narrow encodings
// that files, the console and callers use. On Linux the ANSI and OEM code
// pages are UTF-8.
#ifndef ZYR_BASE_TEXTCONV_H
#define ZYR_BASE_TEXTCONV_H

#include <cstddef>
#include <cstdint>

#include "base/string.h"
#include "zyrlog/result.h"

enum ZyrBasCodePage : std::uint32_t {
  ZYR_CP_ANSI = 0,         // system ANSI code page (UTF-8 here)
  ZYR_CP_ANSI_LATIN1 = 1,  // ANSI when reading; Latin-1 with "?" when writing
  ZYR_CP_OEM = 2,          // system OEM code page (UTF-8 here)
  ZYR_CP_UTF7 = 3,
  ZYR_CP_UTF8 = 4,
  ZYR_CP_UTF16 = 5,        // byte copy
};

// Lengths of all ones mean terminated text. Narrow lengths and capacities
// are in bytes, wide ones in characters.
ZyrResult ZyrBasMeasureWide(std::size_t* outLength, const char* text, ZyrBasCodePage selector,
                            std::size_t length = ZYR_TERMINATED);
ZyrResult ZyrBasToWide(char16_t* target, std::size_t capacity, const char* text,
                       ZyrBasCodePage selector, std::size_t* outLength,
                       std::size_t length = ZYR_TERMINATED);
ZyrResult ZyrBasMeasureNarrow(std::size_t* outLength, const char16_t* text,
                              ZyrBasCodePage selector, std::size_t length = ZYR_TERMINATED);
ZyrResult ZyrBasToNarrow(char* target, std::size_t capacity, const char16_t* text,
                         ZyrBasCodePage selector, std::size_t* outLength,
                         std::size_t length = ZYR_TERMINATED);
ZyrResult ZyrBasNarrowToNarrow(char* target, std::size_t capacity, const char* text,
                               ZyrBasCodePage selector, std::size_t length = ZYR_TERMINATED);

#endif
