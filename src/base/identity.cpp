#include "base/identity.h"

#include <cstring>

#include "base/os/identity_os.h"
#include "base/os/native_path.h"
#include "base/textconv.h"

namespace {

// The system gives narrow text in UTF-8. Names, paths and environment values
// come in through the same rule as file names, so that a byte that is no
// UTF-8 survives the way back to the system unchanged.
ZyrResult AssignUtf8(ZyrBasString& out, const char* text) {
  return ZyrBasWideFromNative(text, std::strlen(text), out);
}

ZyrResult ToUtf8(const char16_t* text, ZyrBasNarrowText& out) {
  ZyrBasArray<char> bytes;
  ZyrResult r = ZyrBasEncodeUtf8(bytes, text);
  if (ZyrSucceeded(r)) r = out.Resize(bytes.Count());
  if (ZyrFailed(r)) return r;
  if (bytes.Count()) std::memcpy(out.Data(), bytes.begin(), bytes.Count());
  return ZYR_OK;
}

// The variable's narrow value; `found` false for unset, empty, or a name
// that cannot be one ("=" in it, or nothing).
ZyrResult LookUp(const char16_t* name, ZyrBasNarrowText& value, bool* found) {
  *found = false;
  if (!name || !*name) return ZYR_OK;
  for (const char16_t* p = name; *p; ++p)
    if (*p == u'=') return ZYR_OK;
  ZyrBasNarrowText narrow;
  ZyrResult r = ToUtf8(name, narrow);
  if (ZyrSucceeded(r)) r = ZyrBasOsGetEnv(narrow.Data(), value);
  if (ZyrFailed(r)) return r;
  *found = r == ZYR_OK && value.Length() > 0;
  return ZYR_OK;
}

}  // namespace

ZyrResult ZyrBasGetEnv(const char16_t* name, ZyrBasString& out) {
  ZyrBasNarrowText value;
  bool found;
  ZyrResult r = LookUp(name, value, &found);
  if (ZyrFailed(r)) return r;
  if (!found) {
    out.Clear();
    return ZYR_I_VARIABLE_EMPTY;
  }
  return ZyrBasWideFromNative(value.Data(), value.Length(), out);
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
