#include "base/identity.h"

#include <cstring>

#include "base/posix/identity_posix.h"

namespace {

// The system gives narrow text in UTF-8. Names and environment values are
// decoded leniently, unlike configuration text: a malformed byte becomes
// U+FFFD, an unpaired surrogate likewise, so that one odd byte in a host
// name or a path does not fail the lookup.
std::size_t DecodeUtf8(const unsigned char* s, std::size_t n, char16_t* out) {
  std::size_t units = 0;
  std::size_t i = 0;
  while (i < n) {
    std::uint32_t c = s[i];
    std::size_t extra = 0;
    std::uint32_t min = 0;
    if (c < 0x80) {
    } else if ((c & 0xe0) == 0xc0) {
      extra = 1, c &= 0x1f, min = 0x80;
    } else if ((c & 0xf0) == 0xe0) {
      extra = 2, c &= 0x0f, min = 0x800;
    } else if ((c & 0xf8) == 0xf0) {
      extra = 3, c &= 0x07, min = 0x10000;
    } else {
      extra = 0, c = 0xfffd;
    }
    std::size_t j = 1;
    for (; j <= extra; ++j) {
      if (i + j >= n || (s[i + j] & 0xc0) != 0x80) break;
      c = (c << 6) | (s[i + j] & 0x3f);
    }
    if (j <= extra) {
      c = 0xfffd;  // cut short: the bytes read so far stand for one bad character
    } else if (extra && (c < min || c > 0x10ffff || (c >= 0xd800 && c < 0xe000))) {
      c = 0xfffd;
    }
    i += j;
    if (c >= 0x10000) {
      if (out) {
        out[units] = static_cast<char16_t>(0xd800 + ((c - 0x10000) >> 10));
        out[units + 1] = static_cast<char16_t>(0xdc00 + ((c - 0x10000) & 0x3ff));
      }
      units += 2;
    } else {
      if (out) out[units] = static_cast<char16_t>(c);
      units += 1;
    }
  }
  return units;
}

ZyrResult AssignUtf8(ZyrBasString& out, const char* text) {
  const unsigned char* s = reinterpret_cast<const unsigned char*>(text);
  std::size_t n = std::strlen(text);
  std::size_t units = DecodeUtf8(s, n, nullptr);
  if (units == 0) {
    out.Clear();
    return ZYR_OK;
  }
  ZyrResult r = out.Resize(units);
  if (ZyrFailed(r)) return r;
  DecodeUtf8(s, n, out.Data());
  return ZYR_OK;
}

std::size_t EncodeUtf8(const char16_t* s, char* out) {
  std::size_t bytes = 0;
  auto put = [&](std::uint32_t b) {
    if (out) out[bytes] = static_cast<char>(b);
    ++bytes;
  };
  for (std::size_t i = 0; s[i]; ++i) {
    std::uint32_t c = s[i];
    if (c >= 0xd800 && c < 0xdc00 && s[i + 1] >= 0xdc00 && s[i + 1] < 0xe000) {
      c = 0x10000 + ((c - 0xd800) << 10) + (s[i + 1] - 0xdc00);
      ++i;
    } else if (c >= 0xd800 && c < 0xe000) {
      c = 0xfffd;
    }
    if (c < 0x80) {
      put(c);
    } else if (c < 0x800) {
      put(0xc0 | (c >> 6)), put(0x80 | (c & 0x3f));
    } else if (c < 0x10000) {
      put(0xe0 | (c >> 12)), put(0x80 | ((c >> 6) & 0x3f)), put(0x80 | (c & 0x3f));
    } else {
      put(0xf0 | (c >> 18)), put(0x80 | ((c >> 12) & 0x3f)), put(0x80 | ((c >> 6) & 0x3f)),
          put(0x80 | (c & 0x3f));
    }
  }
  return bytes;
}

ZyrResult ToUtf8(const char16_t* text, ZyrBasNarrowText& out) {
  std::size_t n = EncodeUtf8(text, nullptr);
  ZyrResult r = out.Resize(n);
  if (ZyrFailed(r)) return r;
  EncodeUtf8(text, out.Data());
  return ZYR_OK;
}

// The variable's narrow value, or null for unset, empty, or a name that
// cannot be one ("=" in it, or nothing).
ZyrResult LookUp(const char16_t* name, const char** value) {
  *value = nullptr;
  if (!name || !*name) return ZYR_OK;
  for (const char16_t* p = name; *p; ++p)
    if (*p == u'=') return ZYR_OK;
  ZyrBasNarrowText narrow;
  ZyrResult r = ToUtf8(name, narrow);
  if (ZyrFailed(r)) return r;
  const char* v = ZyrBasOsGetEnv(narrow.Data());
  if (v && *v) *value = v;
  return ZYR_OK;
}

}  // namespace

ZyrResult ZyrBasGetEnv(const char16_t* name, ZyrBasString& out) {
  const char* value;
  ZyrResult r = LookUp(name, &value);
  if (ZyrFailed(r)) return r;
  if (!value) {
    out.Clear();
    return ZYR_I_VARIABLE_EMPTY;
  }
  return AssignUtf8(out, value);
}

ZyrResult ZyrBasGetEnvRaw(const char16_t* name, ZyrBasCountedBuffer& target,
                          std::size_t* needed) {
  ZyrBasString value;
  ZyrResult found = ZyrBasGetEnv(name, value);
  if (ZyrFailed(found)) return found;
  ZyrResult r = ZyrBasCountedCopy(target, value.Text(), value.Length(), needed);
  return ZyrFailed(r) ? r : found;
}

ZyrResult ZyrBasComputerName(ZyrBasStringRef& out) {
  static const char16_t* const kVariables[] = {u"_CLUSTER_NETWORK_NAME_", u"COMPUTERNAME"};
  ZyrBasString name;
  for (const char16_t* variable : kVariables) {
    ZyrResult r = ZyrBasGetEnv(variable, name);
    if (ZyrFailed(r)) return r;
    if (r == ZYR_OK) return out.Assign(name.Text(), name.Length());
  }
  ZyrBasNarrowText host;
  ZyrResult r = ZyrBasOsHostName(host);
  if (ZyrFailed(r)) return r;
  if (r == ZYR_OK) {
    r = AssignUtf8(name, host.Data());
    if (ZyrFailed(r)) return r;
    return out.Assign(name.Text(), name.Length());
  }
  return out.Assign(u"localhost", ZYR_TERMINATED);
}

ZyrResult ZyrBasCurrentUserName(ZyrBasString& out) {
  out.Clear();
  ZyrBasNarrowText name;
  ZyrResult r = ZyrBasOsUserName(name);
  if (r != ZYR_OK) return r;
  return AssignUtf8(out, name.Data());
}

ZyrResult ZyrBasProcessName(std::uint32_t processId, ZyrBasString& out) {
  ZyrBasNarrowText image;
  ZyrResult r = ZyrBasOsProcessImage(processId, image);
  if (ZyrFailed(r)) return r;
  if (r == ZYR_I_NOT_FOUND) return out.AssignAscii("System");
  return AssignUtf8(out, image.Data());
}

ZyrResult ZyrBasProcessImagePath(std::uint32_t processId, ZyrBasCountedBuffer& target,
                                 std::size_t* needed) {
  ZyrBasNarrowText image;
  ZyrResult r = ZyrBasOsProcessImage(processId, image);
  if (ZyrFailed(r)) return r;
  if (r == ZYR_I_NOT_FOUND) return ZYR_E_FILE_NOT_FOUND;  // no image file to name
  ZyrBasString path;
  r = AssignUtf8(path, image.Data());
  if (ZyrFailed(r)) return r;
  return ZyrBasCountedCopy(target, path.Text(), path.Length(), needed);
}

ZyrResult ZyrBasModuleAt(ZyrBasModuleInfo& out, std::uint32_t what, const void* address) {
  void* base = nullptr;
  std::size_t size = 0;
  ZyrBasNarrowText path;
  bool wantsPath = (what & (ZYR_MODULE_PATH | ZYR_MODULE_NAME)) != 0;
  ZyrResult r = ZyrBasOsModuleAt(address, &base, &size, wantsPath ? &path : nullptr);
  if (ZyrFailed(r)) return r;
  out.filled = what;
  if (what & ZYR_MODULE_BASE) out.base = base;
  if (what & ZYR_MODULE_SIZE) out.size = size;
  if (!wantsPath) return ZYR_OK;
  ZyrBasString full;
  r = AssignUtf8(full, path.Data());
  if (ZyrFailed(r)) return r;
  if (what & ZYR_MODULE_NAME) {
    const char16_t* text = full.Text();
    std::size_t start = full.Length();
    while (start > 0 && text[start - 1] != u'/' && text[start - 1] != u'\\') --start;
    r = out.name.Assign(text + start, full.Length() - start);
    if (ZyrFailed(r)) return r;
  }
  if (what & ZYR_MODULE_PATH) out.path = static_cast<ZyrBasString&&>(full);
  return ZYR_OK;
}

ZyrResult ZyrBasOwnModulePath(ZyrBasString& out) {
  ZyrBasModuleInfo info;
  ZyrResult r = ZyrBasModuleAt(info, ZYR_MODULE_PATH, reinterpret_cast<const void*>(&ZyrBasOwnModulePath));
  if (ZyrFailed(r)) return r;
  out = static_cast<ZyrBasString&&>(info.path);
  return ZYR_OK;
}

ZyrResult ZyrBasOwnModuleDirectory(ZyrBasString& out) {
  ZyrBasString path;
  ZyrResult r = ZyrBasOwnModulePath(path);
  if (ZyrFailed(r)) return r;
  const char16_t* text = path.Text();
  std::size_t end = path.Length();
  while (end > 0 && text[end - 1] != u'/' && text[end - 1] != u'\\') --end;
  if (end == 0) return ZYR_E_INVALID_DATA;  // a module path is always absolute
  if (end > 1) --end;                       // drop the separator, but keep a lone root
  path.Erase(end, path.Length());
  out = static_cast<ZyrBasString&&>(path);
  return ZYR_OK;
}

std::uint32_t ZyrBasCurrentProcessId() { return ZyrBasOsProcessId(); }
std::uint32_t ZyrBasCurrentThreadId() { return ZyrBasOsThreadId(); }
