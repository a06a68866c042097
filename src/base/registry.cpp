#include "base/registry.h"

#include <cstring>

#include "base/file.h"
#include "base/identity.h"
#include "base/memory.h"
#include "base/os/registry_os.h"
#include "base/path.h"
#include "base/result.h"
#include "base/textconv.h"

namespace {

constexpr char16_t kWowSegment[] = u"\\Wow6432Node";  // 12 characters
constexpr char16_t kWowName[] = u"Wow6432Node";       // 11 characters

bool NoCaseEqual(const char16_t* a, const char16_t* b, std::size_t n) {
  return ZyrBasCompareNoCase(a, n, b, n) == 0;
}

bool ExactEqual(const char16_t* a, const char16_t* b, std::size_t n) {
  return std::memcmp(a, b, n * sizeof(char16_t)) == 0;
}

std::size_t Measure(const char16_t* text, std::size_t length) {
  if (!text) return 0;
  return length == ZYR_TERMINATED ? ZyrBasStrLen(text) : length;
}

bool HoldsExact(const char16_t* text, std::size_t length, const char16_t* pattern, std::size_t n) {
  for (std::size_t i = 0; i + n <= length; ++i)
    if (ExactEqual(text + i, pattern, n)) return true;
  return false;
}

bool IsBlank(char16_t c) { return c == u' ' || c == u'\t' || c == u'\r'; }

void Trim(const char16_t*& text, std::size_t& length) {
  while (length && IsBlank(*text)) ++text, --length;
  while (length && IsBlank(text[length - 1])) --length;
}

std::size_t RootSlot(ZyrBasRegHandle handle) {
  switch (handle) {
    case ZYR_HKEY_CLASSES_ROOT: return 0;
    case ZYR_HKEY_CURRENT_USER: return 1;
    case ZYR_HKEY_LOCAL_MACHINE: return 2;
    case ZYR_HKEY_USERS: return 3;
    case ZYR_HKEY_PERFORMANCE_DATA: return 4;
    case ZYR_HKEY_PERFORMANCE_TEXT: return 5;
    case ZYR_HKEY_PERFORMANCE_NLSTEXT: return 6;
    case ZYR_HKEY_CURRENT_CONFIG: return 7;
    default: return 8;  // ZYR_HKEY_DYN_DATA
  }
}

const char16_t* const kRootNames[kZyrBasRegRootSlots] = {
    u"\\REGISTRY\\MACHINE\\SOFTWARE\\Classes",
    nullptr,  // the current user, found by its account
    u"\\REGISTRY\\MACHINE",
    u"\\REGISTRY\\USER",
    u"HKEY_PERFORMANCE_DATA",
    u"\\REGISTRY\\MACHINE\\SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion\\Perflib\\009",
    u"HKEY_PERFORMANCE_NLSTEXT",
    u"\\REGISTRY\\MACHINE\\SYSTEM\\CurrentControlSet\\Hardware Profiles\\Current",
    u"HKEY_DYN_DATA",
};

ZyrResult OpenPredefined(ZyrBasRegHandle handle, std::uint32_t access, ZyrBasRegHandle* out) {
  if (handle == ZYR_HKEY_CURRENT_USER) return ZyrBasOsRegOpenCurrentUser(access, out);
  const char16_t* name = kRootNames[RootSlot(handle)];
  return ZyrBasOsRegOpen(0, name, ZyrBasStrLen(name), access, out);
}

bool ParseDword(const char16_t* text, std::size_t length, std::uint32_t* value) {
  if (length == 0) return false;
  std::uint64_t v = 0;
  if (length > 2 && text[0] == u'0' && (text[1] == u'x' || text[1] == u'X')) {
    for (std::size_t i = 2; i < length; ++i) {
      char16_t c = text[i];
      unsigned digit;
      if (c >= u'0' && c <= u'9') digit = c - u'0';
      else if (c >= u'a' && c <= u'f') digit = c - u'a' + 10;
      else if (c >= u'A' && c <= u'F') digit = c - u'A' + 10;
      else return false;
      v = v * 16 + digit;
      if (v > 0xFFFFFFFFu) return false;
    }
  } else {
    for (std::size_t i = 0; i < length; ++i) {
      char16_t c = text[i];
      if (c < u'0' || c > u'9') return false;
      v = v * 10 + (c - u'0');
      if (v > 0xFFFFFFFFu) return false;
    }
  }
  *value = static_cast<std::uint32_t>(v);
  return true;
}

}  // namespace

bool ZyrBasRegIsPredefined(ZyrBasRegHandle handle) {
  return (handle >= ZYR_HKEY_CLASSES_ROOT && handle <= ZYR_HKEY_DYN_DATA) ||
         handle == ZYR_HKEY_PERFORMANCE_TEXT || handle == ZYR_HKEY_PERFORMANCE_NLSTEXT;
}

bool ZyrBasRegViewsExist() { return sizeof(void*) == 8; }

// ---------------------------------------------------------------------------
// Name rules

ZyrResult ZyrBasRegRewriteFor32(const char16_t* parentName, std::size_t parentLength,
                                const char16_t* subKey, std::size_t subKeyLength, ZyrBasString& out,
                                ZyrBasRegRewrite* outcome) {
  *outcome = ZYR_REG_REWRITE_NONE;
  out.Clear();
  parentLength = Measure(parentName, parentLength);
  subKeyLength = Measure(subKey, subKeyLength);
  ZyrBasString p;
  ZyrResult r = p.Assign(parentName ? parentName : u"", parentLength);
  if (ZyrSucceeded(r) && subKeyLength) {
    r = p.Append(u'\\');
    if (ZyrSucceeded(r)) r = p.Append(subKey, subKeyLength);
  }
  if (ZyrFailed(r)) return r;
  std::size_t len = p.Length();

  // The name may hold the segment already, as written.
  for (std::size_t at = p.Find(kWowSegment, 12, 0); at != ZYR_NPOS; at = p.Find(kWowSegment, 12, at + 1)) {
    if (at + 12 != len && p[at + 12] != u'\\') continue;
    if (subKeyLength == 0 || !HoldsExact(parentName, parentLength, kWowSegment, 12) ||
        !HoldsExact(subKey, subKeyLength, kWowName, 11))
      return ZYR_OK;
    // Parent and sub-key both hold it: the sub-key loses its own.
    r = out.Assign(subKey, subKeyLength);
    if (ZyrSucceeded(r)) {
      bool bare = subKeyLength == 11 && ExactEqual(subKey, kWowName, 11);
      r = bare ? out.ReplaceAll(kWowName, 11, u"", 0) : out.ReplaceAll(kWowSegment, 12, u"", 0);
    }
    if (ZyrFailed(r)) return r;
    *outcome = ZYR_REG_REWRITE_RELATIVE;
    return ZYR_OK;
  }

  const char16_t* t = p.Text();
  std::size_t insertAt;
  if (len >= 26 && NoCaseEqual(t, u"\\REGISTRY\\MACHINE\\SOFTWARE", 26)) {
    insertAt = 26;
  } else if (len >= 15 && NoCaseEqual(t, u"\\REGISTRY\\USER", 14)) {
    std::size_t e = 15;
    while (e < len && t[e] != u'\\') ++e;
    if (e == len) {
      if (!NoCaseEqual(t + len - 8, u"_CLASSES", 8)) return ZYR_OK;
      insertAt = len;
    } else if (NoCaseEqual(t + e - 8, u"_CLASSES", 8)) {
      insertAt = e;
    } else if (len - e >= 17 && NoCaseEqual(t + e, u"\\SOFTWARE\\CLASSES", 17)) {
      insertAt = e + 17;
    } else {
      return ZYR_OK;
    }
  } else {
    return ZYR_OK;
  }
  r = p.Insert(insertAt, kWowSegment, kWowSegment + 12);
  if (ZyrFailed(r)) return r;
  out.Swap(p);
  *outcome = ZYR_REG_REWRITE_ABSOLUTE;
  return ZYR_OK;
}

ZyrResult ZyrBasRegRewriteFor64(const char16_t* fullName, std::size_t length, bool hasSubKey,
                                ZyrBasString& out, ZyrBasRegRewrite* outcome) {
  *outcome = ZYR_REG_REWRITE_NONE;
  out.Clear();
  length = Measure(fullName, length);
  if (length >= 17 && NoCaseEqual(fullName, u"\\REGISTRY\\MACHINE", 17)) {
    std::size_t at = 0;
    while (at + 12 <= length && !NoCaseEqual(fullName + at, u"\\WOW6432NODE", 12)) ++at;
    if (at + 12 > length) return ZYR_OK;
    if (at + 12 != length && fullName[at + 12] != u'\\') return ZYR_OK;
    ZyrResult r = out.Assign(fullName, length);
    if (ZyrFailed(r)) return r;
    out.Erase(at, at + 12);
    out.Erase(0, 18);
    *outcome = ZYR_REG_REWRITE_MACHINE;
    return ZYR_OK;
  }
  if (length >= 14 && NoCaseEqual(fullName, u"\\REGISTRY\\USER", 14)) {
    if (!hasSubKey) return ZYR_E_NOT_IMPLEMENTED;
    *outcome = ZYR_REG_REWRITE_USER_WALK;
  }
  return ZYR_OK;
}

ZyrResult ZyrBasRegClassesNameOf(const char16_t* fullName, std::size_t length, ZyrBasString& out,
                                 bool* isMachine) {
  length = Measure(fullName, length);
  if (length <= 17) return ZYR_E_INVALID_ARGUMENT;
  if (NoCaseEqual(fullName, u"\\REGISTRY\\MACHINE", 17)) {
    *isMachine = true;
    return out.Assign(fullName + 18, length - 18);
  }
  *isMachine = false;
  std::size_t e = 15;
  while (e < length && fullName[e] != u'\\') ++e;
  if (e >= 8 && NoCaseEqual(fullName + e - 8, u"_CLASSES", 8)) {
    ZyrBasString result;
    ZyrResult r = result.Assign(u"SOFTWARE\\CLASSES");
    if (ZyrSucceeded(r)) r = result.Append(fullName + e, length - e);
    if (ZyrSucceeded(r)) out.Swap(result);
    return r;
  }
  if (e == length) {
    out.Clear();
    return ZYR_OK;
  }
  return out.Assign(fullName + e + 1, length - e - 1);
}

ZyrResult ZyrBasRegExpandString(const char16_t* text, std::size_t length, ZyrBasString& out) {
  length = Measure(text, length);
  ZyrBasString result, name, value;
  ZyrResult r = ZYR_OK;
  std::size_t i = 0;
  while (i < length && ZyrSucceeded(r)) {
    std::size_t open = i;
    while (open < length && text[open] != u'%') ++open;
    r = result.Append(text + i, text + open);
    if (ZyrFailed(r) || open == length) break;
    std::size_t close = open + 1;
    while (close < length && text[close] != u'%') ++close;
    if (close == length) {  // no closing "%": the rest as it stands
      r = result.Append(text + open, text + length);
      break;
    }
    bool found = false;
    if (close > open + 1) {
      r = name.Assign(text + open + 1, close - open - 1);
      if (ZyrSucceeded(r)) r = ZyrBasGetEnv(name.Text(), value);
      found = r == ZYR_OK;
    }
    if (ZyrFailed(r)) break;
    if (found) {
      r = result.Append(value);
      i = close + 1;
    } else {
      // Not a reference: keep the "%" and the name, and let the closing
      // "%" open the next one.
      r = result.Append(text + open, text + close);
      i = close;
    }
  }
  if (ZyrSucceeded(r)) out.Swap(result);
  return r;
}

// ---------------------------------------------------------------------------
// Values files

ZyrResult ZyrBasRegParseValueLine(const char16_t* line, std::size_t length, ZyrBasString& name,
                                  std::uint32_t* type, ZyrBasString& data, std::uint32_t* number) {
  length = Measure(line, length);
  Trim(line, length);
  if (length == 0 || line[0] == u'#' || line[0] == u';') return ZYR_I_NOT_FOUND;
  std::size_t eq = 0;
  while (eq < length && line[eq] != u'=') ++eq;
  if (eq == length) return ZYR_E_INVALID_DATA;
  const char16_t* n = line;
  std::size_t nLength = eq;
  Trim(n, nLength);
  if (nLength == 0) return ZYR_E_INVALID_DATA;
  const char16_t* rest = line + eq + 1;
  std::size_t restLength = length - eq - 1;
  std::size_t colon = 0;
  while (colon < restLength && rest[colon] != u':') ++colon;
  if (colon == restLength) return ZYR_E_INVALID_DATA;
  const char16_t* t = rest;
  std::size_t tLength = colon;
  Trim(t, tLength);
  const char16_t* d = rest + colon + 1;
  std::size_t dLength = restLength - colon - 1;
  Trim(d, dLength);

  std::uint32_t kind;
  if (ZyrBasCompareNoCaseAscii(t, tLength, u"sz", 2) == 0) kind = ZYR_REG_SZ;
  else if (ZyrBasCompareNoCaseAscii(t, tLength, u"expand_sz", 9) == 0) kind = ZYR_REG_EXPAND_SZ;
  else if (ZyrBasCompareNoCaseAscii(t, tLength, u"dword", 5) == 0) kind = ZYR_REG_DWORD;
  else return ZYR_E_INVALID_DATA;
  std::uint32_t value = 0;
  if (kind == ZYR_REG_DWORD && !ParseDword(d, dLength, &value)) return ZYR_E_INVALID_DATA;

  bool unnamed = nLength == 1 && n[0] == u'@';
  ZyrResult r = unnamed ? (name.Clear(), ZYR_OK) : name.Assign(n, nLength);
  if (ZyrSucceeded(r)) r = data.Assign(d, dLength);
  if (ZyrFailed(r)) return r;
  *type = kind;
  *number = value;
  return ZYR_OK;
}

ZyrResult ZyrBasRegFindValueInText(const char16_t* text, std::size_t length,
                                   const char16_t* valueName, std::uint32_t* type,
                                   ZyrBasString& data, std::uint32_t* number) {
  length = Measure(text, length);
  std::size_t wantedLength = Measure(valueName, ZYR_TERMINATED);
  const char16_t* wanted = valueName ? valueName : u"";
  ZyrBasString name;
  std::size_t i = 0;
  while (i < length) {
    std::size_t end = i;
    while (end < length && text[end] != u'\n') ++end;
    ZyrResult r = ZyrBasRegParseValueLine(text + i, end - i, name, type, data, number);
    if (r == ZYR_E_OUT_OF_MEMORY) return r;
    if (r == ZYR_OK && ZyrBasCompareNoCase(name.Text(), name.Length(), wanted, wantedLength) == 0)
      return ZYR_OK;
    i = end + 1;
  }
  data.Clear();
  return ZYR_E_FILE_NOT_FOUND;
}

// ---------------------------------------------------------------------------
// Keys by handle

ZyrBasRegKeyState::ZyrBasRegKeyState()
    : is64BitProcess(sizeof(void*) == 8), isWow64Process(false) {
  for (auto& slot : rootCache) slot.store(0, std::memory_order_relaxed);
}

ZyrBasRegKeyState::~ZyrBasRegKeyState() {
  for (auto& slot : rootCache) ZyrBasRegCloseKey(slot.exchange(0));
}

ZyrResult ZyrBasRegResolveRoot(ZyrBasRegKeyState& state, ZyrBasRegHandle* handle) {
  if (*handle == 0) return ZYR_E_INVALID_HANDLE;
  if (!ZyrBasRegIsPredefined(*handle)) return ZYR_OK;
  std::atomic<ZyrBasRegHandle>& slot = state.rootCache[RootSlot(*handle)];
  ZyrBasRegHandle cached = slot.load(std::memory_order_acquire);
  if (cached) {
    *handle = cached;
    return ZYR_OK;
  }
  ZyrBasRegHandle opened = 0;
  ZyrResult r = OpenPredefined(*handle, ZYR_KEY_ALL_ACCESS, &opened);
  if (r == ZYR_E_ACCESS_DENIED) r = OpenPredefined(*handle, ZYR_KEY_READ, &opened);
  if (ZyrFailed(r)) return r;
  // A thread that stored first wins; the other handle is given back.
  ZyrBasRegHandle expected = 0;
  if (!slot.compare_exchange_strong(expected, opened, std::memory_order_acq_rel)) {
    ZyrBasRegCloseKey(opened);
    opened = expected;
  }
  *handle = opened;
  return ZYR_OK;
}

ZyrResult ZyrBasRegOpenKey(ZyrBasRegKeyState& state, ZyrBasRegHandle parent, ZyrBasRegHandle* out,
                           const char16_t* subKey, std::uint32_t access) {
  std::uint32_t options = access & 0xF0000000u;
  access &= 0x0FFFFFFFu;
  ZyrResult r = ZyrBasRegResolveRoot(state, &parent);
  if (ZyrFailed(r)) return r;
  ZyrBasRegHandle parentKey = parent;  // 0: the name is a full native name
  std::size_t subLength = Measure(subKey, ZYR_TERMINATED);
  if (!subKey) subKey = u"";

  ZyrBasString rewritten;
  ZyrBasRegRewrite outcome = ZYR_REG_REWRITE_NONE;
  ZyrBasRegHandle temporary = 0;  // a parent made by the rules, closed after the open
  if (access & ZYR_KEY_WOW64_32KEY) {
    if (state.is64BitProcess) {
      ZyrBasString parentName;
      r = ZyrBasOsRegKeyName(parent, parentName);
      if (ZyrSucceeded(r))
        r = ZyrBasRegRewriteFor32(parentName.Text(), parentName.Length(), subKey, subLength, rewritten, &outcome);
      if (ZyrFailed(r)) return r;
      if (outcome == ZYR_REG_REWRITE_ABSOLUTE) {
        // The name says where it goes: no parent and no view bit.
        parentKey = 0;
        access &= ~ZYR_KEY_WOW64_32KEY;
      }
    }
  } else if (state.isWow64Process && (options & ZYR_REG_OPTION_LEAVE_32)) {
    ZyrBasString full;
    r = ZyrBasOsRegKeyName(parent, full);
    if (ZyrSucceeded(r) && subLength) {
      r = full.Append(u'\\');
      if (ZyrSucceeded(r)) r = full.Append(subKey, subLength);
    }
    if (ZyrSucceeded(r))
      r = ZyrBasRegRewriteFor64(full.Text(), full.Length(), subLength != 0, rewritten, &outcome);
    if (ZyrFailed(r)) return r;
    if (outcome == ZYR_REG_REWRITE_MACHINE) {
      ZyrBasRegHandle machine = ZYR_HKEY_LOCAL_MACHINE;
      r = ZyrBasRegResolveRoot(state, &machine);
      if (ZyrFailed(r)) return r;
      parentKey = machine;
      access = (access & ~ZYR_KEY_WOW64_64KEY) | ZYR_KEY_WOW64_32KEY;
    } else if (outcome == ZYR_REG_REWRITE_USER_WALK) {
      // One segment at a time; what follows the last "\" is opened below
      // the last handle.
      std::size_t last = subLength;
      while (last > 0 && subKey[last - 1] != u'\\') --last;
      ZyrBasRegHandle current = parent;
      std::size_t i = 0;
      while (i < last) {
        std::size_t end = i;
        while (end < last && subKey[end] != u'\\') ++end;
        if (end > i) {
          ZyrBasRegHandle next;
          r = ZyrBasOsRegOpen(current, subKey + i, end - i, access, &next);
          if (current != parent) ZyrBasRegCloseKey(current);
          if (ZyrFailed(r)) return r;
          current = next;
        }
        i = end + 1;
      }
      if (current != parent) temporary = current;
      parentKey = current;
      r = rewritten.Assign(subKey + last, subLength - last);
      if (ZyrFailed(r)) {
        ZyrBasRegCloseKey(temporary);
        return r;
      }
    }
  }

  const char16_t* name = outcome == ZYR_REG_REWRITE_NONE ? subKey : rewritten.Text();
  std::size_t nameLength = outcome == ZYR_REG_REWRITE_NONE ? subLength : rewritten.Length();
  r = ZyrBasOsRegOpen(parentKey, name, nameLength, access, out);
  ZyrBasRegCloseKey(temporary);
  // The store is read-only: a missing key is never created, whatever the
  // options ask.
  return r;
}

ZyrResult ZyrBasRegOpenMerged(ZyrBasRegKeyState& state, bool classesMode, ZyrBasRegHandle parent,
                              ZyrBasRegHandle* out, const char16_t* subKey, std::uint32_t access) {
  if (!classesMode) return ZyrBasRegOpenKey(state, parent, out, subKey, access);
  ZyrBasString name;
  ZyrResult r;
  if (parent == ZYR_HKEY_CLASSES_ROOT) {
    r = name.Assign(u"SOFTWARE\\CLASSES");
  } else {
    r = ZyrBasRegResolveRoot(state, &parent);
    bool isMachine;
    if (ZyrSucceeded(r)) r = ZyrBasRegClassesName(parent, name, &isMachine);
  }
  if (ZyrSucceeded(r) && subKey && *subKey) {
    r = name.Append(u'\\');
    if (ZyrSucceeded(r)) r = name.Append(subKey);
  }
  if (ZyrFailed(r)) return r;
  r = ZyrBasRegOpenKey(state, ZYR_HKEY_CURRENT_USER, out, name.Text(), access);
  if (ZyrSucceeded(r) || r == ZYR_E_OUT_OF_MEMORY) return r;
  return ZyrBasRegOpenKey(state, ZYR_HKEY_LOCAL_MACHINE, out, name.Text(), access);
}

void ZyrBasRegCloseKey(ZyrBasRegHandle handle) {
  if (handle != 0 && !ZyrBasRegIsPredefined(handle)) ZyrBasOsRegClose(handle);
}

ZyrResult ZyrBasRegKeyName(ZyrBasRegHandle handle, ZyrBasString& out) {
  if (handle == 0 || ZyrBasRegIsPredefined(handle)) return ZYR_E_INVALID_HANDLE;
  return ZyrBasOsRegKeyName(handle, out);
}

ZyrResult ZyrBasRegClassesName(ZyrBasRegHandle handle, ZyrBasString& out, bool* isMachine) {
  ZyrBasString full;
  ZyrResult r = ZyrBasRegKeyName(handle, full);
  if (ZyrFailed(r)) return r;
  return ZyrBasRegClassesNameOf(full.Text(), full.Length(), out, isMachine);
}

ZyrResult ZyrBasRegReadValue(ZyrBasRegHandle handle, const char16_t* valueName, std::uint32_t* type,
                             void* buffer, std::size_t* size) {
  if (handle == 0 || ZyrBasRegIsPredefined(handle)) return ZYR_E_INVALID_HANDLE;
  return ZyrBasOsRegReadValue(handle, valueName, type, buffer, size);
}

bool ZyrBasRegValueExists(ZyrBasRegHandle handle, const char16_t* valueName) {
  std::size_t size = 0;
  return ZyrBasRegReadValue(handle, valueName, nullptr, nullptr, &size) == ZYR_OK;
}

ZyrResult ZyrBasRegReadValueAll(ZyrBasRegHandle handle, const char16_t* valueName,
                                ZyrBasRegValue& out) {
  out.data.Clear();
  ZyrResult r = out.data.Reserve(256, ZyrBasGrowth::Exact);
  if (ZyrFailed(r)) return r;
  std::size_t size = out.data.Capacity();
  r = ZyrBasRegReadValue(handle, valueName, &out.type, out.data.begin(), &size);
  if (r == ZYR_E_BAD_LENGTH) {
    r = out.data.Reserve(size, ZyrBasGrowth::Exact);
    if (ZyrFailed(r)) return r;
    size = out.data.Capacity();
    r = ZyrBasRegReadValue(handle, valueName, &out.type, out.data.begin(), &size);
  }
  if (ZyrFailed(r)) return r;
  out.data.SetCount(size);
  return ZYR_OK;
}

ZyrResult ZyrBasRegQueryMerged(ZyrBasRegKeyState& state, bool classesMode, ZyrBasRegHandle handle,
                               const char16_t* valueName, ZyrBasRegValue& out) {
  if (classesMode && !ZyrBasRegValueExists(handle, valueName)) {
    ZyrBasString relative;
    bool isMachine = false;
    ZyrResult r = ZyrBasRegClassesName(handle, relative, &isMachine);
    if (r == ZYR_E_OUT_OF_MEMORY) return r;
    if (ZyrSucceeded(r) && !isMachine) {
      // A value missing in the user's classes falls through to the machine's.
      ZyrBasRegHandle machine;
      r = ZyrBasRegOpenKey(state, ZYR_HKEY_LOCAL_MACHINE, &machine, relative.Text(), ZYR_KEY_QUERY_VALUE);
      if (ZyrSucceeded(r)) {
        r = ZyrBasRegReadValueAll(machine, valueName, out);
        ZyrBasRegCloseKey(machine);
        return r;
      }
      if (r == ZYR_E_OUT_OF_MEMORY) return r;
    }
  }
  return ZyrBasRegReadValueAll(handle, valueName, out);
}

// ---------------------------------------------------------------------------
// ZyrBasRegKey

ZyrBasRegKey::ZyrBasRegKey() {
  // A 32-bit process on a system with views.
  if (ZyrBasRegViewsExist() && sizeof(void*) == 4) optionFlags_ |= ZYR_REG_OPT_WOW64;
}

ZyrBasRegKey::~ZyrBasRegKey() {
  Close();
  ZyrDelete(state_);
}

ZyrResult ZyrBasRegKey::EnsureState() {
  if (state_) return ZYR_OK;
  state_ = ZyrNew<ZyrBasRegKeyState>();
  return state_ ? ZYR_OK : ZYR_E_OUT_OF_MEMORY;
}

ZyrResult ZyrBasRegKey::ParentHandle(ZyrBasRegHandle* out) {
  if (!parent_) {
    *out = root_;
    return ZYR_OK;
  }
  if (parent_->IsOpen()) {
    *out = parent_->Handle();
    return ZYR_OK;
  }
  return parent_->ParentHandle(out);
}

std::uint32_t ZyrBasRegKey::ViewAccess() const {
  std::uint32_t access = 0;
  switch (viewFlags_ & 15) {
    case ZYR_REG_VIEW_32: access = ZYR_KEY_WOW64_32KEY; break;
    case ZYR_REG_VIEW_64: access = ZYR_KEY_WOW64_64KEY; break;
    case ZYR_REG_VIEW_PROCESS: access = (optionFlags_ & ZYR_REG_OPT_WOW64) << 8; break;
    default: break;
  }
  if (viewFlags_ & ZYR_REG_VIEW_CREATE) access |= ZYR_REG_OPTION_CREATE;
  // ZYR_REG_VIEW_LEAVE_32 is dropped, as recent systems do: their own
  // redirection already honours the 64-bit view bit.
  return access;
}

ZyrResult ZyrBasRegKey::OpenHandle(const char16_t* subKey, ZyrBasRegHandle* out) {
  ZyrResult r = EnsureState();
  if (ZyrFailed(r)) return r;
  ZyrBasRegHandle parent;
  r = ParentHandle(&parent);
  if (ZyrFailed(r)) return r;
  r = ZyrBasRegOpenMerged(*state_, (optionFlags_ & ZYR_REG_OPT_CLASSES) != 0, parent, out, subKey,
                          ZYR_KEY_READ | ViewAccess());
  if (r == ZyrResultFromWin32Error(2) || r == ZyrResultFromWin32Error(3) ||
      r == ZyrResultFromWin32Error(161))
    return ZYR_E_KEY_NOT_FOUND;
  return r;
}

ZyrResult ZyrBasRegKey::Open(const char16_t* subKey) {
  ZyrBasRegHandle handle;
  ZyrResult r = OpenHandle(subKey, &handle);
  if (ZyrFailed(r)) return r;
  Close();
  state_->readHandle = handle;
  state_->openState = 1;
  return ZYR_OK;
}

bool ZyrBasRegKey::Exists(const char16_t* subKey) {
  ZyrBasRegHandle handle;
  if (ZyrFailed(OpenHandle(subKey, &handle))) return false;
  ZyrBasRegCloseKey(handle);
  return true;
}

void ZyrBasRegKey::Close() {
  if (!state_) return;
  ZyrBasRegCloseKey(state_->readHandle);
  state_->readHandle = 0;
  state_->openState = 0;
}

ZyrResult ZyrBasRegKey::QueryString(const char16_t* valueName, ZyrBasString& out,
                                    std::uint32_t* type) {
  if (!IsOpen()) return ZYR_E_INVALID_HANDLE;
  ZyrBasRegValue value;
  ZyrResult r = ZyrBasRegQueryMerged(*state_, (optionFlags_ & ZYR_REG_OPT_CLASSES) != 0,
                                     state_->readHandle, valueName, value);
  if (ZyrFailed(r)) return r;
  if (value.type != ZYR_REG_SZ && value.type != ZYR_REG_EXPAND_SZ) return ZYR_E_BAD_VALUE_TYPE;
  std::size_t units = value.data.Count() / 2;
  const std::uint8_t* bytes = value.data.begin();
  if (units && bytes[2 * units - 2] == 0 && bytes[2 * units - 1] == 0) --units;  // the terminator
  ZyrBasString result;
  r = result.Resize(units);
  if (ZyrFailed(r)) return r;
  for (std::size_t i = 0; i < units; ++i)
    result.Data()[i] = static_cast<char16_t>(bytes[2 * i] | (bytes[2 * i + 1] << 8));
  out.Swap(result);
  if (type) *type = value.type;
  return ZYR_OK;
}

ZyrResult ZyrBasRegKey::SetViewFlags(std::uint32_t flags) {
  std::uint32_t view = flags & 15;
  if ((IsOpen() || parent_) && view != (viewFlags_ & 15)) return ZYR_E_NOT_SUPPORTED;
  if (view != ZYR_REG_VIEW_DEFAULT && view != ZYR_REG_VIEW_32 && view != ZYR_REG_VIEW_64 &&
      view != ZYR_REG_VIEW_PROCESS)
    return ZYR_E_INVALID_ARGUMENT;
  if ((view == ZYR_REG_VIEW_32 || view == ZYR_REG_VIEW_64) && !ZyrBasRegViewsExist())
    return ZYR_E_NO_WOW64_VIEW;
  if (view == ZYR_REG_VIEW_PROCESS && root_ != 0 && root_ != ZYR_HKEY_LOCAL_MACHINE &&
      root_ != ZYR_HKEY_USERS)
    return ZYR_E_BAD_ROOT_KEY;
  viewFlags_ = flags;
  return ZYR_OK;
}

ZyrResult ZyrBasRegKey::SetRoot(ZyrBasRegHandle root) {
  if ((viewFlags_ & 15) == ZYR_REG_VIEW_PROCESS && root != ZYR_HKEY_LOCAL_MACHINE &&
      root != ZYR_HKEY_USERS)
    return ZYR_E_BAD_ROOT_KEY;
  Close();
  root_ = root;
  parent_ = nullptr;
  optionFlags_ = root == ZYR_HKEY_CLASSES_ROOT ? ZYR_REG_OPT_CLASSES : 0;
  if (ZyrBasRegViewsExist() && sizeof(void*) == 4) optionFlags_ |= ZYR_REG_OPT_WOW64;
  return ZYR_OK;
}

void ZyrBasRegKey::SetParent(ZyrBasRegKey* parent) {
  Close();
  parent_ = parent;
}
