// The registry of the system, read through NtOpenKey and NtQueryValueKey.
// The portable rules above (views, the classes merge) hand over names in
// the system's own spelling; a handle here is a key handle of the system.
#include "base/nt/nt_support.h"
#include "base/os/registry_os.h"
#include "base/security.h"

namespace {

// The view bits are the portable rules' business; the system's open takes
// what is left of the access mask.
constexpr std::uint32_t kViewBits = 0x300;
constexpr ULONG kTokenUser = 1;

HANDLE Key(ZyrBasRegHandle handle) { return reinterpret_cast<HANDLE>(handle); }

ZyrResult KeyResult(NTSTATUS s) {
  if (s == STATUS_OBJECT_NAME_NOT_FOUND) return ZYR_E_FILE_NOT_FOUND;
  if (s == STATUS_OBJECT_PATH_NOT_FOUND) return ZYR_E_PATH_NOT_FOUND;
  return NtResult(s);
}

// The SID of the account that the process runs as, from its token.
ZyrResult ProcessUserSid(ZyrBasSid& sid) {
  HANDLE token = nullptr;
  NTSTATUS s = NtOpenProcessToken(NtCurrentProcess(), TOKEN_QUERY, &token);
  if (!NtSucceeded(s)) return NtResult(s);
  alignas(8) unsigned char buffer[128];
  ULONG needed = 0;
  s = NtQueryInformationToken(token, kTokenUser, buffer, sizeof buffer, &needed);
  NtClose(token);
  if (!NtSucceeded(s)) return NtResult(s);
  const std::uint8_t* bytes = *reinterpret_cast<std::uint8_t**>(buffer);  // SID_AND_ATTRIBUTES
  std::size_t length = 8u + 4u * bytes[1];
  if (bytes[1] > kZyrBasSidMaxSubAuthorities) return ZYR_E_INVALID_DATA;
  for (std::size_t i = 0; i < length; ++i) sid.bytes[i] = bytes[i];
  return ZYR_OK;
}

}  // namespace

ZyrResult ZyrBasOsRegOpen(ZyrBasRegHandle parent, const char16_t* name, std::size_t length, std::uint32_t access,
                          ZyrBasRegHandle* out) {
  UNICODE_STRING counted = NtCountedString(name, length);
  OBJECT_ATTRIBUTES oa = NtObjectAttributes(&counted, OBJ_CASE_INSENSITIVE, parent ? Key(parent) : nullptr);
  HANDLE key = nullptr;
  NTSTATUS s = NtOpenKey(&key, access & ~kViewBits, &oa);
  if (!NtSucceeded(s)) return KeyResult(s);
  *out = reinterpret_cast<ZyrBasRegHandle>(key);
  return ZYR_OK;
}

// "\REGISTRY\USER\<the account's SID>", else the default user's hive, as the
// system falls back to it for an account whose hive is not loaded.
ZyrResult ZyrBasOsRegOpenCurrentUser(std::uint32_t access, ZyrBasRegHandle* out) {
  ZyrBasSid sid{};
  ZyrBasString name, text;
  ZyrResult r = ProcessUserSid(sid);
  if (ZyrSucceeded(r)) r = ZyrBasSidText(sid, text);
  if (ZyrSucceeded(r)) r = name.Assign(u"\\REGISTRY\\USER\\");
  if (ZyrSucceeded(r)) r = name.Append(text);
  if (ZyrSucceeded(r)) {
    r = ZyrBasOsRegOpen(0, name.Text(), name.Length(), access, out);
    if (ZyrSucceeded(r) || r == ZYR_E_OUT_OF_MEMORY || r == ZYR_E_ACCESS_DENIED) return r;
  }
  if (r == ZYR_E_OUT_OF_MEMORY) return r;
  const char16_t* fallback = u"\\REGISTRY\\USER\\.DEFAULT";
  return ZyrBasOsRegOpen(0, fallback, ZyrBasStrLen(fallback), access, out);
}

void ZyrBasOsRegClose(ZyrBasRegHandle handle) { NtClose(Key(handle)); }

ZyrResult ZyrBasOsRegKeyName(ZyrBasRegHandle handle, ZyrBasString& out) {
  alignas(8) unsigned char stack[512];
  ULONG needed = 0;
  NTSTATUS s = NtQueryKey(Key(handle), KeyNameInformation, stack, sizeof stack, &needed);
  unsigned char* buffer = stack;
  ZyrBasString big;  // room for a long name, as wide units
  if (s == STATUS_BUFFER_OVERFLOW || s == STATUS_BUFFER_TOO_SMALL) {
    ZyrResult r = big.Resize(needed / 2 + 4);
    if (ZyrFailed(r)) return r;
    buffer = reinterpret_cast<unsigned char*>(big.Data());
    s = NtQueryKey(Key(handle), KeyNameInformation, buffer, static_cast<ULONG>(big.Length() * 2), &needed);
  }
  if (!NtSucceeded(s)) return NtResult(s);
  ULONG bytes = *reinterpret_cast<ULONG*>(buffer);  // KEY_NAME_INFORMATION: length, then the name
  return out.Assign(reinterpret_cast<const char16_t*>(buffer + 4), bytes / 2);
}

ZyrResult ZyrBasOsRegReadValue(ZyrBasRegHandle handle, const char16_t* valueName, std::uint32_t* type,
                               void* buffer, std::size_t* size) {
  UNICODE_STRING name = NtCountedString(valueName ? valueName : u"", valueName ? ZyrBasStrLen(valueName) : 0);
  constexpr std::size_t kHeader = sizeof(KEY_VALUE_PARTIAL_INFORMATION) - 1;
  std::size_t room = size ? *size : 0;
  ZyrBasArray<std::uint8_t> block;
  ZyrResult r = block.Reserve(kHeader + (buffer ? room : 0) + 8, ZyrBasGrowth::Exact);
  if (ZyrFailed(r)) return r;
  ULONG needed = 0;
  NTSTATUS s = NtQueryValueKey(Key(handle), &name, KeyValuePartialInformation, block.begin(),
                               static_cast<ULONG>(block.Capacity()), &needed);
  auto* info = reinterpret_cast<KEY_VALUE_PARTIAL_INFORMATION*>(block.begin());
  if (s == STATUS_BUFFER_OVERFLOW || s == STATUS_BUFFER_TOO_SMALL) {
    // The header came, or at least its size is known: type and size first.
    if (s == STATUS_BUFFER_OVERFLOW) {
      if (type) *type = info->Type;
      if (size) *size = info->DataLength;
    } else if (size) {
      *size = needed > kHeader ? needed - kHeader : 0;
    }
    return buffer ? ZYR_E_BAD_LENGTH : ZYR_OK;
  }
  if (!NtSucceeded(s)) return KeyResult(s);
  if (type) *type = info->Type;
  if (size) *size = info->DataLength;
  if (!buffer) return ZYR_OK;
  if (room < info->DataLength) return ZYR_E_BAD_LENGTH;
  std::uint8_t* target = static_cast<std::uint8_t*>(buffer);
  for (ULONG i = 0; i < info->DataLength; ++i) target[i] = info->Data[i];
  return ZYR_OK;
}
