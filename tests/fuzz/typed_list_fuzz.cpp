// Arbitrary typed argument lists through the walker that turns them into
// message text. Tags come from the fuzzer, known and unknown alike; the
// value slots of the string tags point at real text (or are null), as the
// client's packing guarantees. Invariants: the walk ends at ZYR_TAG_END,
// every item is quoted, no line break or NUL gets through, and the text
// holds one item per tag read.
#include <cstddef>
#include <cstdint>
#include <vector>

#include "base/format.h"
#include "fuzz_support.h"
#include "records/event.h"
#include "zyrlog/zyrlog.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  zyrfuzz::Input in(data, size);
  std::vector<char16_t> text = in.Wide(in.Byte());
  std::size_t textLength = text.size() - 1;
  std::vector<std::uint64_t> slots;
  std::size_t items = 0;
  while (in.Left() && slots.size() < 4096) {
    std::uint8_t pick = in.Byte();
    // Mostly known tags; now and then an unknown one with any high bits.
    std::uint64_t tag = pick < 224 ? pick % ZYR_TAG_FILESIZE + (pick % ZYR_TAG_FILESIZE >= ZYR_TAG_END)
                                   : in.U64();
    if (static_cast<std::uint32_t>(tag) == ZYR_TAG_END) continue;
    slots.push_back(tag);
    ++items;
    std::size_t at = in.Byte() % (textLength + 1);
    switch (static_cast<std::uint32_t>(tag)) {
      case ZYR_TAG_STR:
      case ZYR_TAG_TIME:
        slots.push_back(at % 5 == 0 ? 0 : ZyrBasSlotFromPointer(text.data() + at));
        break;
      case ZYR_TAG_COUNTED_STR:
        slots.push_back(at % 5 == 0 ? 0 : ZyrBasSlotFromPointer(text.data() + at));
        slots.push_back(in.Byte() % (textLength - at + 1));
        break;
      default:
        if (static_cast<std::uint32_t>(tag) <= ZYR_TAG_FILESIZE) slots.push_back(in.U64());
        break;
    }
  }
  slots.push_back(ZYR_TAG_END);

  ZyrBasString walked;
  ZyrResult r = ZyrLogWalkTypedList(walked, slots.data());
  ZYR_FUZZ_CHECK(r == ZYR_OK);
  if (items == 0) {
    ZYR_FUZZ_CHECK(walked.Length() == 0);
    return 0;
  }
  ZYR_FUZZ_CHECK(walked[0] == u'\'' && walked[walked.Length() - 1] == u'\'');
  // Strings are escaped so that the item never breaks or ends a line.
  for (std::size_t i = 0; i < walked.Length(); ++i)
    ZYR_FUZZ_CHECK(walked[i] != 0 && walked[i] != 0x0a && walked[i] != 0x0d);
  // Items are joined by "', '", and string values escape their quotes, so
  // the separators count the items.
  std::size_t separators = 0;
  for (std::size_t i = 0; i + 3 < walked.Length(); ++i)
    if (walked[i] == u'\'' && walked[i + 1] == u',' && walked[i + 2] == u' ' && walked[i + 3] == u'\'')
      ++separators;
  ZYR_FUZZ_CHECK(separators + 1 >= items);
  return 0;
}
