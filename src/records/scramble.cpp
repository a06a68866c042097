#include "records/scramble.h"

#include "base/array.h"
#include "base/random.h"
#include "base/textconv.h"
#include "records/event.h"

namespace {
constexpr char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
}

void ZyrLogXorWithKey(std::uint8_t* data, std::size_t size, const std::uint8_t* key, std::size_t keySize) {
  for (std::size_t i = 0; i < size; ++i) data[i] ^= key[i % keySize];
}

ZyrResult ZyrLogBase64Append(ZyrBasString& out, const std::uint8_t* bytes, std::size_t size) {
  std::size_t start = out.Length();
  std::size_t added = (size + 2) / 3 * 4;
  ZyrResult r = out.Resize(start + added);
  if (ZyrFailed(r)) return r;
  char16_t* p = out.Data() + start;
  std::size_t i = 0;
  for (; i + 3 <= size; i += 3) {
    std::uint32_t v = (bytes[i] << 16) | (bytes[i + 1] << 8) | bytes[i + 2];
    *p++ = static_cast<unsigned char>(kAlphabet[(v >> 18) & 63]);
    *p++ = static_cast<unsigned char>(kAlphabet[(v >> 12) & 63]);
    *p++ = static_cast<unsigned char>(kAlphabet[(v >> 6) & 63]);
    *p++ = static_cast<unsigned char>(kAlphabet[v & 63]);
  }
  if (size - i == 1) {
    std::uint32_t v = bytes[i] << 16;
    *p++ = static_cast<unsigned char>(kAlphabet[(v >> 18) & 63]);
    *p++ = static_cast<unsigned char>(kAlphabet[(v >> 12) & 63]);
    *p++ = u'=';
    *p++ = u'=';
  } else if (size - i == 2) {
    std::uint32_t v = (bytes[i] << 16) | (bytes[i + 1] << 8);
    *p++ = static_cast<unsigned char>(kAlphabet[(v >> 18) & 63]);
    *p++ = static_cast<unsigned char>(kAlphabet[(v >> 12) & 63]);
    *p++ = static_cast<unsigned char>(kAlphabet[(v >> 6) & 63]);
    *p++ = u'=';
  }
  return ZYR_OK;
}

ZyrResult ZyrLogScrambleTextWithKey(ZyrBasString& out, const char16_t* text, std::size_t length,
                                    unsigned index) {
  ZyrBasArray<char> utf8;
  // A lone surrogate is spelt "\uDNNN", as the line would show it in clear.
  ZyrResult r = ZyrBasEncodeUtf8(utf8, text, length, ZyrBasBadText::Escape);
  ZyrBasArray<std::uint8_t> block;
  if (ZyrSucceeded(r)) r = block.Reserve(utf8.Count() + 2, ZyrBasGrowth::Exact);
  if (ZyrFailed(r)) return r;
  (void)block.Append(static_cast<std::uint8_t>(index));
  (void)block.Append(static_cast<std::uint8_t>('a'));
  for (char c : utf8) (void)block.Append(static_cast<std::uint8_t>(c));
  const std::uint8_t* key = kZyrScrambleKeys[index & 15];
  ZyrLogXorWithKey(block.begin() + 1, block.Count() - 1, key, 64);
  std::size_t before = out.Length();
  r = out.Append(u'a');
  if (ZyrSucceeded(r)) r = ZyrLogBase64Append(out, block.begin(), block.Count());
  if (ZyrFailed(r)) out.Erase(before, out.Length());
  return r;
}

ZyrResult ZyrLogScrambleText(ZyrBasString& out, const char16_t* text, std::size_t length) {
  // Bits 17 to 24 of the generator's state after one step; the key changes
  // from message to message, so equal texts give different tokens.
  unsigned index = ZyrBasRandomStep() & 15;
  return ZyrLogScrambleTextWithKey(out, text, length, index);
}

ZyrResult ZyrLogScrambleEvent(ZyrLogEvent& event) {
  if (event.ScrambleMode == 0 || event.Message.Empty()) return ZYR_OK;
  ZyrBasString scrambled;
  ZyrResult r = ZyrLogScrambleText(scrambled, event.Message.Text(), event.Message.Length());
  if (ZyrFailed(r)) return r;
  event.Message.Swap(scrambled);
  if (event.ScrambleMode != 2) event.ScrambleMode = 1;
  return ZYR_OK;
}
