// Identity of the process and the computer from the PEB, the TEB, the
// loader's list and the registry. Texts go out in UTF-8, as every native
// text of the layer does (base/nt/nt_support.h).
#include "base/nt/nt_support.h"
#include "base/os/identity_os.h"

namespace {

constexpr ULONG kProcessImageFileNameWin32 = 43;
constexpr ACCESS_MASK kProcessQueryLimitedInformation = 0x1000;

ZyrResult Narrow(const UNICODE_STRING& text, ZyrBasNarrowText& out) {
  return ZyrNtNarrow(text.Buffer, text.Length / 2, out);
}

}  // namespace

ZyrResult ZyrBasOsGetEnv(const char* name, ZyrBasNarrowText& out) {
  ZyrNtName wide(name);
  if (!wide.Ok()) return wide.Result();
  char16_t stack[256];
  UNICODE_STRING value{0, sizeof stack, stack};
  NTSTATUS s = RtlQueryEnvironmentVariable_U(nullptr, wide.Counted(), &value);
  ZyrBasString big;
  if (s == STATUS_BUFFER_TOO_SMALL) {
    ZyrResult r = big.Resize(value.Length / 2 + 1);
    if (ZyrFailed(r)) return r;
    value = UNICODE_STRING{0, static_cast<USHORT>((value.Length / 2 + 1) * 2), big.Data()};
    s = RtlQueryEnvironmentVariable_U(nullptr, wide.Counted(), &value);
  }
  if (s == STATUS_VARIABLE_NOT_FOUND) return ZYR_I_NOT_FOUND;
  if (!NtSucceeded(s)) return NtResult(s);
  return Narrow(value, out);
}

// The name the system gives itself: the active computer name of the
// registry.
ZyrResult ZyrBasOsHostName(ZyrBasNarrowText& out) {
  UNICODE_STRING keyName = NtCountedString(
      u"\\Registry\\Machine\\System\\CurrentControlSet\\Control\\ComputerName\\ActiveComputerName", 82);
  OBJECT_ATTRIBUTES oa = NtObjectAttributes(&keyName);
  HANDLE key = nullptr;
  if (!NtSucceeded(NtOpenKey(&key, KEY_QUERY_VALUE, &oa))) return ZYR_I_NOT_FOUND;
  UNICODE_STRING valueName = NtCountedString(u"ComputerName", 12);
  alignas(8) unsigned char buffer[sizeof(KEY_VALUE_PARTIAL_INFORMATION) + 64 * 2];
  ULONG needed = 0;
  NTSTATUS s = NtQueryValueKey(key, &valueName, KeyValuePartialInformation, buffer, sizeof buffer, &needed);
  NtClose(key);
  auto* info = reinterpret_cast<KEY_VALUE_PARTIAL_INFORMATION*>(buffer);
  if (!NtSucceeded(s) || info->Type != 1 || info->DataLength < 2) return ZYR_I_NOT_FOUND;
  const char16_t* text = reinterpret_cast<const char16_t*>(info->Data);
  std::size_t n = info->DataLength / 2;
  while (n > 0 && text[n - 1] == 0) --n;
  if (n == 0) return ZYR_I_NOT_FOUND;
  return ZyrNtNarrow(text, n, out);
}

// Names of accounts live with the security authority, which ntdll does not
// reach; the environment's USERNAME is what the process was told.
ZyrResult ZyrBasOsUserName(ZyrBasNarrowText& out) {
  ZyrResult r = ZyrBasOsGetEnv("USERNAME", out);
  return r == ZYR_OK && out.Length() > 0 ? ZYR_OK : (ZyrFailed(r) ? r : ZYR_I_NOT_FOUND);
}

std::uint32_t ZyrBasOsProcessId() {
  return static_cast<std::uint32_t>(reinterpret_cast<std::uintptr_t>(NtField<HANDLE>(NtTeb(), kTebClientId)));
}

std::uint32_t ZyrBasOsThreadId() {
  return static_cast<std::uint32_t>(reinterpret_cast<std::uintptr_t>(NtField<HANDLE>(NtTeb(), kTebClientId + 8)));
}

ZyrResult ZyrBasOsProcessImage(std::uint32_t processId, ZyrBasNarrowText& out) {
  if (processId == ZyrBasOsProcessId()) {
    std::uint8_t* params = NtField<std::uint8_t*>(NtPeb(), kPebProcessParameters);
    return Narrow(NtField<UNICODE_STRING>(params, kParamsImagePathName), out);
  }
  if (processId == 0 || processId == 4) return ZYR_I_NOT_FOUND;  // the idle and system processes
  CLIENT_ID client{reinterpret_cast<HANDLE>(static_cast<std::uintptr_t>(processId)), nullptr};
  OBJECT_ATTRIBUTES oa = NtObjectAttributes(nullptr, 0);
  HANDLE process = nullptr;
  NTSTATUS s = NtOpenProcess(&process, kProcessQueryLimitedInformation, &oa, &client);
  if (s == STATUS_INVALID_PARAMETER || s == static_cast<NTSTATUS>(0xC000000Bu))  // no such client id
    return ZYR_E_INVALID_ARGUMENT;
  if (!NtSucceeded(s)) return NtResult(s);
  alignas(8) unsigned char buffer[sizeof(UNICODE_STRING) + 1024 * 2];
  ULONG needed = 0;
  s = NtQueryInformationProcess(process, kProcessImageFileNameWin32, buffer, sizeof buffer, &needed);
  NtClose(process);
  if (!NtSucceeded(s)) return NtResult(s);
  const UNICODE_STRING& name = *reinterpret_cast<UNICODE_STRING*>(buffer);
  if (name.Length == 0) return ZYR_I_NOT_FOUND;
  return Narrow(name, out);
}

// The loader's list in load order, read under the loader lock.
ZyrResult ZyrBasOsModuleAt(const void* address, void** base, std::size_t* size, ZyrBasNarrowText* path) {
  std::uintptr_t cookie = 0;
  LdrLockLoaderLock(0, nullptr, &cookie);
  std::uint8_t* ldr = NtField<std::uint8_t*>(NtPeb(), kPebLdr);
  void** head = reinterpret_cast<void**>(ldr + kLdrInLoadOrderList);
  ZyrResult r = ZYR_E_INVALID_DATA;
  for (void** link = static_cast<void**>(head[0]); link != head; link = static_cast<void**>(link[0])) {
    auto* entry = reinterpret_cast<LDR_DATA_TABLE_ENTRY*>(link);
    auto* start = static_cast<const std::uint8_t*>(entry->DllBase);
    auto* at = static_cast<const std::uint8_t*>(address);
    if (at < start || at >= start + entry->SizeOfImage) continue;
    *base = entry->DllBase;
    *size = entry->SizeOfImage;
    r = path ? Narrow(entry->FullDllName, *path) : ZYR_OK;
    break;
  }
  LdrUnlockLoaderLock(0, cookie);
  return r;
}
