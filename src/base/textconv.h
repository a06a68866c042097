// Text conversion between the library's wide text and the narrow encodings
// that files, the console and callers use. On Linux the ANSI and OEM code
// pages are UTF-8.
#ifndef ZYR_BASE_TEXTCONV_H
#define ZYR_BASE_TEXTCONV_H

#include <cstddef>
#include <cstdint>

#include "base/array.h"
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
// are in bytes, wide ones in characters. A narrow UTF-16 text (ZYR_CP_UTF16)
// is terminated by a zero unit, and a narrow UTF-16 result gets a two-byte
// terminator; every other narrow form uses one zero byte.
//
// Selectors outside 0 to 5 give ZYR_E_NOT_IMPLEMENTED. Malformed text gives
// ZYR_E_INVALID_DATA.

// Wide characters needed, without terminator.
ZyrResult ZyrBasMeasureWide(std::size_t* outLength, const char* text, ZyrBasCodePage selector,
                            std::size_t length = ZYR_TERMINATED);
// Terminated result. Success reports the characters written, without the
// terminator. ZYR_E_BUFFER_TOO_SMALL reports the characters needed with the
// terminator and leaves target[0] = 0 when the capacity is not 0.
// ZYR_E_INVALID_DATA reports how many characters came before the fault; the
// target is then terminated, at the fault or at its start.
ZyrResult ZyrBasToWide(char16_t* target, std::size_t capacity, const char* text,
                       ZyrBasCodePage selector, std::size_t* outLength,
                       std::size_t length = ZYR_TERMINATED);
// The mirror images, in bytes.
ZyrResult ZyrBasMeasureNarrow(std::size_t* outLength, const char16_t* text,
                              ZyrBasCodePage selector, std::size_t length = ZYR_TERMINATED);
ZyrResult ZyrBasToNarrow(char* target, std::size_t capacity, const char16_t* text,
                         ZyrBasCodePage selector, std::size_t* outLength,
                         std::size_t length = ZYR_TERMINATED);
// ANSI text to the narrow form of any selector, terminated.
ZyrResult ZyrBasNarrowToNarrow(char* target, std::size_t capacity, const char* text,
                               ZyrBasCodePage selector, std::size_t length = ZYR_TERMINATED);

// ---------------------------------------------------------------------------
// Text that cannot be converted, on its way into a log line. A line is never
// dropped over it: each unit that has no place in the target is written as
// a visible escape that keeps what it was. A byte of narrow text that is
// not part of well-formed UTF-8 becomes "\xNN", a lone surrogate of wide
// text "\uDNNN", with upper-case hexadecimal digits. The escapes are plain
// ASCII, and a text that converts cleanly is not touched (a backslash of
// the text itself is not doubled, so "\x41" in a line may be either).
enum class ZyrBasBadText : std::uint8_t {
  Refuse,  // ZYR_E_INVALID_DATA, as everywhere else
  Escape,
};

// Narrow text of a log call's argument (ANSI, which is UTF-8 here) to wide,
// with "\xNN" for each byte outside well-formed UTF-8: overlong forms,
// surrogates, values past U+10FFFF, stray continuation bytes and cut
// sequences, each byte on its own. A null target only measures; sizes are
// in characters, nothing is terminated. Never fails but with
// ZYR_E_BUFFER_TOO_SMALL, reporting what was written.
ZyrResult ZyrBasDecodeUtf8Escaped(char16_t* target, std::size_t capacity, const char* text,
                                  std::size_t length, std::size_t* outLength);

// Replaces `out` with the text, each lone surrogate spelt "\uDNNN".
ZyrResult ZyrBasEscapeLoneSurrogates(ZyrBasString& out, const char16_t* text, std::size_t length);

// ---------------------------------------------------------------------------
// Growing forms for the hot paths.

// Decodes narrow text by the selector and appends it. On failure the string
// is left as it was.
ZyrResult ZyrBasAppendWide(ZyrBasString& out, const char* text, std::size_t length,
                           ZyrBasCodePage selector);
// Replaces the content of `out` with the UTF-8 form of the text, no
// terminator. The buffer keeps its storage from call to call. A lone
// surrogate gives ZYR_E_INVALID_DATA and leaves `out` empty, or with
// ZyrBasBadText::Escape becomes "\uDNNN".
ZyrResult ZyrBasEncodeUtf8(ZyrBasArray<char>& out, const char16_t* text,
                           std::size_t length = ZYR_TERMINATED,
                           ZyrBasBadText bad = ZyrBasBadText::Refuse);
// The same for the narrow form of any selector.
ZyrResult ZyrBasEncodeNarrow(ZyrBasArray<char>& out, const char16_t* text, std::size_t length,
                             ZyrBasCodePage selector, ZyrBasBadText bad = ZyrBasBadText::Refuse);

// ---------------------------------------------------------------------------
// The transcoders underneath, indexed by (source form, target form). Sizes
// are in bytes; UTF-16 is in the machine's byte order. A null target only
// measures. On ZYR_E_BUFFER_TOO_SMALL and ZYR_E_INVALID_DATA `outBytes`
// reports what was produced so far. Nothing is terminated. Equal forms copy
// the bytes unchecked, except that UTF-16 of odd size is refused.
enum ZyrBasTextForm : std::uint32_t {
  ZYR_FORM_LATIN1 = 0,
  ZYR_FORM_UTF7 = 1,
  ZYR_FORM_UTF8 = 2,
  ZYR_FORM_UTF16 = 3,
};

ZyrResult ZyrBasTranscode(ZyrBasTextForm from, ZyrBasTextForm to, const void* source,
                          std::size_t sourceBytes, void* target, std::size_t capacity,
                          std::size_t* outBytes);

#endif
