// Arbitrary value text through variable expansion, compared with a model
// of the three-state walk built from the rules in config/variables.h
// ("$$" is "$", "${name}" is resolved, a text ending inside a variable
// keeps it as plain text). The model asks the resolver for each name, so
// it checks the walk, not the values.
#include <cstddef>
#include <cstdint>
#include <vector>

#include "config/variables.h"
#include "fuzz_support.h"

namespace {

ZyrResult Model(const char16_t* p, std::size_t n, ZyrBasString& out) {
  out.Clear();
  for (std::size_t i = 0; i < n; ++i) {
    if (p[i] != u'$') {
      (void)out.Append(p[i]);
    } else if (i + 1 == n) {
      (void)out.Append(u'$');
    } else if (p[i + 1] == u'$') {
      (void)out.Append(u'$');
      ++i;
    } else if (p[i + 1] != u'{') {
      (void)out.Append(u'$');
      (void)out.Append(p[i + 1]);
      ++i;
    } else {
      std::size_t close = i + 2;
      while (close < n && p[close] != u'}') ++close;
      if (close == n) {
        (void)out.Append(p + i, n - i);
        return ZYR_OK;
      }
      bool known = false;
      ZyrResult r = ZyrCfgResolveVariable(p + i + 2, close - i - 2, out, &known);
      if (!known) return ZYR_E_INVALID_DATA;
      if (ZyrFailed(r)) return r;
      i = close;
    }
  }
  return ZYR_OK;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  zyrfuzz::Input in(data, size);
  std::vector<char16_t> text = in.Wide(4096);
  std::size_t length = text.size() - 1;
  ZyrBasString value, expanded, expected;
  if (ZyrFailed(value.Assign(text.data(), length))) return 0;
  ZyrResult r = ZyrCfgExpandVariables(value, expanded);
  ZyrResult m = Model(text.data(), length, expected);
  ZYR_FUZZ_CHECK(r == m);
  if (ZyrSucceeded(r)) ZYR_FUZZ_CHECK(expanded.Equals(expected));
  return 0;
}
