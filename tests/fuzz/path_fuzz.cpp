// Arbitrary paths through the path algebra and the native conversion.
// Invariants: normalising is idempotent and leaves no "." or ".." and no
// run of separators behind the root; the parts of a path are no longer
// than the path; a native name survives the trip through wide text byte
// for byte.
#include <cstddef>
#include <cstdint>
#include <vector>

#include "base/path.h"
#include "base/os/native_path.h"
#include "fuzz_support.h"

namespace {

bool Sep(char16_t c) { return ZyrBasIsPathSeparator(c); }

void CheckNormal(const ZyrBasString& full) {
  std::size_t n = full.Length();
  std::size_t root = ZyrBasPathRootLength(full.Text(), n);
  ZYR_FUZZ_CHECK(root <= n);
  // Behind the root: components separated by one written separator, none
  // "." or "..".
  std::size_t start = root;
  while (start < n && Sep(full[start])) ++start;
  for (std::size_t i = start; i <= n; ++i) {
    if (i < n && !Sep(full[i])) continue;
    std::size_t len = i - start;
    if (i < n) ZYR_FUZZ_CHECK(len > 0 && full[i] == kZyrBasPathSeparator);
    ZYR_FUZZ_CHECK(!(len == 1 && full[start] == u'.'));
    ZYR_FUZZ_CHECK(!(len == 2 && full[start] == u'.' && full[start + 1] == u'.'));
    start = i + 1;
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  zyrfuzz::Input in(data, size);
  std::uint8_t split = in.Byte();
  std::vector<char16_t> a = in.Wide(split % 64 + 1);
  std::vector<char16_t> b = in.Wide(512);
  const char16_t* path = a.data();
  std::size_t n = a.size() - 1;
  const char16_t* other = b.data();
  std::size_t m = b.size() - 1;

  ZyrBasString out, again;
  ZYR_FUZZ_CHECK(ZyrBasPathRootLength(path, n) <= n);
  if (ZyrSucceeded(ZyrBasPathDirectory(out, path, n))) ZYR_FUZZ_CHECK(out.Length() <= n + 1);
  if (ZyrSucceeded(ZyrBasPathFileName(out, path, n))) ZYR_FUZZ_CHECK(out.Length() <= n);
  if (ZyrSucceeded(ZyrBasPathStem(out, path, n))) ZYR_FUZZ_CHECK(out.Length() <= n);
  if (ZyrSucceeded(ZyrBasPathExtension(out, path, n)))
    ZYR_FUZZ_CHECK(out.Length() == 0 || (out[0] == u'.' && out.Length() >= 2 && out.Length() <= n));
  (void)ZyrBasPathDriveRoot(out, path, n);
  (void)ZyrBasPathIsAbsolute(path, n);
  if (m > 0 && ZyrSucceeded(ZyrBasPathChangeExtension(out, path, n, other, m)))
    ZYR_FUZZ_CHECK(out.Length() <= n + m + 1);
  if (ZyrSucceeded(ZyrBasPathJoin(out, path, n, other, m))) ZYR_FUZZ_CHECK(out.Length() <= n + m + 1);
  if (ZyrSucceeded(ZyrBasPathJoin(out, path, n, other, 0))) ZYR_FUZZ_CHECK(out.Equals(path, n));
  if (ZyrSucceeded(ZyrBasPathJoinSimple(out, path, n, other, m))) ZYR_FUZZ_CHECK(out.Length() <= n + m + 1);

  // Normalising against a rooted current directory made from the rest.
  ZyrBasString current;
  (void)current.Assign(u"\\");
  (void)current.Append(other, m);
  if (ZyrSucceeded(ZyrBasFullPathFrom(out, path, n, current.Text(), current.Length()))) {
    CheckNormal(out);
    ZYR_FUZZ_CHECK(ZyrSucceeded(ZyrBasFullPathFrom(again, out.Text(), out.Length(), current.Text(), current.Length())));
    ZYR_FUZZ_CHECK(again.Equals(out));
  }

  // NT names back to DOS names, with a map told by hand.
  ZyrBasDriveMap map;
  ZyrBasDriveMapClear(map);
  (void)ZyrBasDriveMapAdd(map, static_cast<char16_t>(u'A' + split % 26), other, m);
  ZyrBasDriveMapFinish(map);
  (void)ZyrBasNtToDosPath(&map, out, path, n);
  (void)ZyrBasNtToDosPath(nullptr, out, other, m);

  // The native name and back: the bytes survive the trip through wide text
  // exactly, and a path without escaped bytes comes back with "/" for "\".
  ZyrBasNarrowText native, native2;
  if (ZyrSucceeded(ZyrBasNativePath(path, n, native))) {
    ZYR_FUZZ_CHECK(ZyrSucceeded(ZyrBasWideFromNative(native.Data(), native.Length(), out)));
    ZYR_FUZZ_CHECK(ZyrSucceeded(ZyrBasNativePath(out.Text(), out.Length(), native2)));
    ZYR_FUZZ_CHECK(native2.Length() == native.Length());
    for (std::size_t i = 0; i < native.Length(); ++i) ZYR_FUZZ_CHECK(native.Data()[i] == native2.Data()[i]);
    bool escaped = false;
    for (std::size_t i = 0; i < n; ++i) escaped |= path[i] >= 0xdc00 && path[i] <= 0xdcff;
    if (!escaped) {
      ZYR_FUZZ_CHECK(out.Length() == n);
      for (std::size_t i = 0; i < n; ++i) ZYR_FUZZ_CHECK(out[i] == (path[i] == u'\\' ? u'/' : path[i]));
    }
    char16_t fixed[80];
    std::size_t got = 0;
    ZyrResult r = ZyrBasWideFromNativeFixed(native.Data(), native.Length(), fixed, 80, &got);
    ZYR_FUZZ_CHECK(r == (out.Length() < 80 ? ZYR_OK : ZYR_E_BUFFER_TOO_SMALL) && got == out.Length());
  }
  return 0;
}
