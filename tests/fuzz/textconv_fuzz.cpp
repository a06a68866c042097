// Arbitrary bytes through every transcoder of the table and through the
// terminated wrappers. Invariants: a measure and a conversion into exactly
// the measured room agree, one byte less is too small; valid UTF-16 comes
// back unchanged through UTF-8 and through UTF-7, Latin-1 through every
// other form; decoding UTF-8 again after a trip through UTF-16 changes
// nothing; a wrapper that says "too small" names a capacity that suffices.
// The escaping forms of a log line take any input, give valid text, and
// leave text that is valid to begin with as the strict forms do.
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <vector>

#include "base/textconv.h"
#include "fuzz_support.h"

namespace {

// Converts whole, checking the measure against the conversion. False when
// the source is malformed for its form.
bool Convert(ZyrBasTextForm from, ZyrBasTextForm to, const void* source, std::size_t bytes,
             std::vector<std::uint8_t>& out) {
  std::size_t needed = 0;
  ZyrResult r = ZyrBasTranscode(from, to, source, bytes, nullptr, 0, &needed);
  if (ZyrFailed(r)) {
    ZYR_FUZZ_CHECK(r == ZYR_E_INVALID_DATA);
    return false;
  }
  out.assign(needed + 1, 0xa5);
  std::size_t written = 0;
  ZYR_FUZZ_CHECK(ZyrBasTranscode(from, to, source, bytes, out.data(), needed, &written) == ZYR_OK);
  ZYR_FUZZ_CHECK(written == needed && out[needed] == 0xa5);
  if (needed > 0) {
    std::vector<std::uint8_t> shorter(needed - 1 + 1, 0);
    std::size_t part = 0;
    ZYR_FUZZ_CHECK(ZyrBasTranscode(from, to, source, bytes, shorter.data(), needed - 1, &part) ==
          ZYR_E_BUFFER_TOO_SMALL);
    ZYR_FUZZ_CHECK(part <= needed - 1);
  }
  out.resize(needed);
  return true;
}

bool Same(const std::vector<std::uint8_t>& a, const void* b, std::size_t bytes) {
  return a.size() == bytes && (bytes == 0 || std::memcmp(a.data(), b, bytes) == 0);
}

void Wrappers(ZyrBasCodePage selector, const char* narrow, std::size_t narrowLength,
              const char16_t* wide, std::size_t wideLength) {
  std::size_t needed = 0;
  ZyrResult r = ZyrBasToWide(nullptr, 0, narrow, selector, &needed, narrowLength);
  if (r == ZYR_E_BUFFER_TOO_SMALL) {
    std::vector<char16_t> target(needed);
    std::size_t got = 0;
    ZYR_FUZZ_CHECK(ZyrBasToWide(target.data(), needed, narrow, selector, &got, narrowLength) == ZYR_OK);
    ZYR_FUZZ_CHECK(got + 1 == needed && target[got] == 0);
  }
  r = ZyrBasToNarrow(nullptr, 0, wide, selector, &needed, wideLength);
  if (r == ZYR_E_BUFFER_TOO_SMALL) {
    std::vector<char> target(needed);
    std::size_t got = 0;
    ZYR_FUZZ_CHECK(ZyrBasToNarrow(target.data(), needed, wide, selector, &got, wideLength) == ZYR_OK);
    ZYR_FUZZ_CHECK(got < needed);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size < 1) return 0;
  ZyrBasTextForm from = static_cast<ZyrBasTextForm>(data[0] & 3);
  ZyrBasCodePage selector = static_cast<ZyrBasCodePage>((data[0] >> 2) % 7);
  ++data;
  --size;

  std::vector<std::uint8_t> out[4];
  for (int to = 0; to < 4; ++to)
    (void)Convert(from, static_cast<ZyrBasTextForm>(to), data, size, out[to]);

  std::vector<std::uint8_t> utf16, back, again;
  if (from == ZYR_FORM_UTF16 && Convert(from, ZYR_FORM_UTF16, data, size, utf16) && size % 2 == 0) {
    bool valid = Convert(ZYR_FORM_UTF16, ZYR_FORM_UTF8, data, size, back);
    if (valid) {
      ZYR_FUZZ_CHECK(Convert(ZYR_FORM_UTF8, ZYR_FORM_UTF16, back.data(), back.size(), again));
      ZYR_FUZZ_CHECK(Same(again, data, size));
      ZYR_FUZZ_CHECK(Convert(ZYR_FORM_UTF16, ZYR_FORM_UTF7, data, size, back));
      ZYR_FUZZ_CHECK(Convert(ZYR_FORM_UTF7, ZYR_FORM_UTF16, back.data(), back.size(), again));
      ZYR_FUZZ_CHECK(Same(again, data, size));
    }
  }
  if (from == ZYR_FORM_UTF8 && Convert(ZYR_FORM_UTF8, ZYR_FORM_UTF16, data, size, utf16) &&
      Convert(ZYR_FORM_UTF16, ZYR_FORM_UTF8, utf16.data(), utf16.size(), back)) {
    ZYR_FUZZ_CHECK(Convert(ZYR_FORM_UTF8, ZYR_FORM_UTF16, back.data(), back.size(), again));
    ZYR_FUZZ_CHECK(again == utf16);
  }
  if (from == ZYR_FORM_LATIN1) {
    for (int via = 1; via < 4; ++via) {
      ZYR_FUZZ_CHECK(Convert(ZYR_FORM_LATIN1, static_cast<ZyrBasTextForm>(via), data, size, back));
      ZYR_FUZZ_CHECK(Convert(static_cast<ZyrBasTextForm>(via), ZYR_FORM_LATIN1, back.data(), back.size(), again));
      ZYR_FUZZ_CHECK(Same(again, data, size));
    }
  }

  const char* bytes = reinterpret_cast<const char*>(data);
  std::size_t units = 0, got = 0;
  ZYR_FUZZ_CHECK(ZyrBasDecodeUtf8Escaped(nullptr, 0, bytes, size, &units) == ZYR_OK);
  std::vector<char16_t> decoded(units + 1, 0);
  ZYR_FUZZ_CHECK(ZyrBasDecodeUtf8Escaped(decoded.data(), units, bytes, size, &got) == ZYR_OK && got == units);
  ZYR_FUZZ_CHECK(Convert(ZYR_FORM_UTF16, ZYR_FORM_UTF8, decoded.data(), units * 2, back));
  // Well-formed UTF-8 (it survives a strict round trip unchanged) decodes
  // as the strict decoder has it.
  if (Convert(ZYR_FORM_UTF8, ZYR_FORM_UTF16, data, size, utf16) &&
      Convert(ZYR_FORM_UTF16, ZYR_FORM_UTF8, utf16.data(), utf16.size(), back) && Same(back, data, size))
    ZYR_FUZZ_CHECK(Same(utf16, decoded.data(), units * 2));
  ZyrBasArray<char> encoded;
  ZYR_FUZZ_CHECK(ZyrBasEncodeUtf8(encoded, reinterpret_cast<const char16_t*>(decoded.data()), units,
                                  ZyrBasBadText::Escape) == ZYR_OK);
  std::vector<char16_t> raw(size / 2);
  if (!raw.empty()) std::memcpy(raw.data(), data, raw.size() * 2);
  ZYR_FUZZ_CHECK(ZyrBasEncodeUtf8(encoded, raw.data(), raw.size(), ZyrBasBadText::Escape) == ZYR_OK);
  ZYR_FUZZ_CHECK(Convert(ZYR_FORM_UTF8, ZYR_FORM_UTF16, encoded.begin(), encoded.Count(), again));

  // The terminated wrappers, over counted copies.
  std::vector<char> narrow(data, data + size);
  narrow.insert(narrow.end(), 4, 0);  // ends narrow and UTF-16 reading alike
  std::vector<char16_t> wide(size / 2 + 1, 0);
  if (size >= 2) std::memcpy(wide.data(), data, size / 2 * 2);
  Wrappers(selector, narrow.data(), size, wide.data(), size / 2);
  Wrappers(selector, narrow.data(), ZYR_TERMINATED, wide.data(), ZYR_TERMINATED);
  return 0;
}
