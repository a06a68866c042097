// What the system is, from RtlGetVersion and the PEB.
#include <cstring>

#include "base/nt/nt_support.h"
#include "base/os/sysinfo_os.h"

namespace {
struct OsVersionInfo {
  ULONG size;
  ULONG major;
  ULONG minor;
  ULONG build;
  ULONG platform;
  char16_t csd[128];
};

void Put(char* to, std::size_t capacity, std::uint64_t a, std::uint64_t b, std::uint64_t c) {
  char digits[64];
  std::size_t n = 0;
  for (std::uint64_t v : {a, b, c}) {
    char reversed[20];
    std::size_t k = 0;
    do reversed[k++] = static_cast<char>('0' + v % 10);
    while ((v /= 10) != 0);
    if (n) digits[n++] = '.';
    while (k) digits[n++] = reversed[--k];
  }
  if (n >= capacity) n = capacity - 1;
  std::memcpy(to, digits, n);
  to[n] = 0;
}
}  // namespace

// The names in the kernel's shape: "Windows NT", "6.1.7601", the service
// pack text and the machine.
ZyrResult ZyrBasOsKernelNamesGet(ZyrBasOsKernelNames* out) {
  OsVersionInfo v{};
  v.size = sizeof v;
  NTSTATUS s = RtlGetVersion(&v);
  if (!NtSucceeded(s)) return NtResult(s);
  std::memcpy(out->sysname, "Windows NT", 11);
  Put(out->release, sizeof out->release, v.major, v.minor, v.build);
  std::size_t n = 0;
  for (; n < 64 && v.csd[n]; ++n) out->version[n] = v.csd[n] < 0x80 ? static_cast<char>(v.csd[n]) : '?';
  out->version[n] = 0;
  std::memcpy(out->machine, "x86_64", 7);
  return ZYR_OK;
}

std::uint64_t ZyrBasOsPageSizeBytes() { return 4096; }

std::uint64_t ZyrBasOsProcessorMask() {
  ULONG count = NtField<ULONG>(NtPeb(), kPebNumberOfProcessors);
  return count >= 64 ? ~std::uint64_t{0} : (std::uint64_t{1} << count) - 1;
}

// The optional functions of this platform are ntdll's, bound by name.
void* ZyrBasOsFindFunction(const char* name) {
  UNICODE_STRING ntdll = NtCountedString(u"ntdll.dll", 9);
  HANDLE module = nullptr;
  if (!NtSucceeded(LdrGetDllHandle(nullptr, nullptr, &ntdll, &module))) return nullptr;
  std::size_t n = std::strlen(name);
  ANSI_STRING ansi{static_cast<USHORT>(n), static_cast<USHORT>(n + 1), const_cast<char*>(name)};
  void* address = nullptr;
  return NtSucceeded(LdrGetProcedureAddress(module, &ansi, 0, &address)) ? address : nullptr;
}
