// Arbitrary bytes through the configuration file reader and the value
// scanner. Besides the sanitizers' own checks, every document must keep its
// invariants, and no stream may deliver lines without end.
#include <cstddef>
#include <cstdint>
#include <cstdlib>

#include "config/document.h"
#include "config/reader.h"

namespace {

void Check(bool condition) {
  if (!condition) std::abort();
}

void CheckDocument(const ZyrCfgDocument& doc) {
  Check(!doc.currentSection);
  for (std::size_t i = 0; i < doc.sections.Count(); ++i) {
    const auto& entry = doc.sections.At(i);
    Check(entry.name.Length() > 0 && entry.name.Equals(entry.value->name));
    if (i > 0) Check(doc.sections.At(i - 1).name.Compare(entry.name) < 0);
    const ZyrCfgSection& section = *entry.value;
    for (std::size_t k = 0; k < section.values.Count(); ++k) {
      const auto& v = section.values.At(k);
      Check(v.name.Length() > 0 && v.name.Equals(v.value->name));
      if (k > 0) Check(section.values.At(k - 1).name.Compare(v.name) < 0);
      Check(v.value->kind == ZYR_CFG_SINGLE ? v.value->items.Count() == 0
                                            : v.value->items.Count() >= 2);
    }
  }
  for (std::size_t i = 1; i < doc.lineErrors.Count(); ++i)
    Check(doc.lineErrors[i - 1].line < doc.lineErrors[i].line);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size < 1) return 0;
  // The first byte varies how the bytes reach the stream: chunk size and
  // the most bytes one read gives.
  std::size_t chunk = 8 + (data[0] & 0x1f);
  std::size_t cap = 1 + (data[0] >> 5);
  ++data;
  --size;

  ZyrCfgMemoryFile file(data, size);
  if (cap < 8) file.LimitReads(cap);
  ZyrFileTextStream stream(&file, ZYR_CFG_ENC_UNKNOWN, ZYR_CFG_EOL_UNKNOWN, chunk);
  ZyrCfgDocument doc;
  Check(doc.Load(stream) == ZYR_OK);
  // Every line holds at least one byte (its line end or its text), so a
  // stream that gives more lines than bytes loops.
  Check(doc.lineNumber <= size);
  CheckDocument(doc);

  // The same bytes as UTF-16 units: a right-hand side, and a whole text.
  std::size_t units = size / 2;
  char16_t* text = static_cast<char16_t*>(std::malloc((units + 1) * sizeof(char16_t)));
  if (!text) return 0;
  for (std::size_t i = 0; i < units; ++i)
    text[i] = static_cast<char16_t>(data[2 * i] | data[2 * i + 1] << 8);
  text[units] = 0;

  ZyrCfgScannedValue value;
  if (ZyrSucceeded(ZyrCfgScanValue(text, units, &value))) {
    Check(value.kind == ZYR_CFG_SINGLE ? value.items.Count() == 0 : value.items.Count() >= 2);
    Check(value.text.Length() <= units && value.lineComment.Length() <= units);
  }

  ZyrStringReader reader(text, units);
  ZyrCfgDocument wide;
  Check(wide.Load(reader) == ZYR_OK);
  Check(wide.lineNumber <= units);
  CheckDocument(wide);
  std::free(text);
  return 0;
}
