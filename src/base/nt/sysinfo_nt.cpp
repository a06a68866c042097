// What the system is: the shared user data page, the PEB, the basic and
// processor information of the system, and its version as RtlGetVersion
// tells it. The optional functions of ntdll, and those of kernel32 where
// the process has it loaded already, are bound by name here, once.
#include <cstring>

#include "base/nt/nt_support.h"
#include "base/nt/nt_tables.h"
#include "base/os/sysinfo_os.h"

namespace {

// OSVERSIONINFOEXW, 284 bytes.
struct OsVersionInfoEx {
  ULONG size;
  ULONG major;
  ULONG minor;
  ULONG build;
  ULONG platform;
  char16_t csd[128];
  USHORT servicePackMajor;
  USHORT servicePackMinor;
  USHORT suiteMask;
  std::uint8_t productType;
  std::uint8_t reserved;
};
static_assert(sizeof(OsVersionInfoEx) == 284, "the extended version record");

// SYSTEM_BASIC_INFORMATION, class 0.
struct BasicInformation {
  ULONG reserved;
  ULONG timerResolution;
  ULONG pageSize;
  ULONG physicalPages;
  ULONG lowestPhysicalPage;
  ULONG highestPhysicalPage;
  ULONG allocationGranularity;
  std::uintptr_t lowestUserAddress;
  std::uintptr_t highestUserAddress;
  std::uintptr_t activeProcessors;
  std::uint8_t processorCount;
};

// SYSTEM_PROCESSOR_INFORMATION, class 1: the architecture word first.
struct ProcessorInformation {
  USHORT architecture;
  USHORT level;
  USHORT revision;
  USHORT maximumProcessors;
  ULONG featureBits;
};

ZyrNtTables g_tables;

const char* const kNtNames[] = {
    "RtlGetVersion", "RtlGetProductInfo", "ZwCreateMutant", "RtlAddMandatoryAce", "ZwQueryDirectoryObject",
    "RtlGetUnloadEventTraceEx", "ZwCreateTransaction", "RtlGetCurrentTransaction", "RtlSetCurrentTransaction",
    "ZwCommitTransaction", "ZwRollbackTransaction", "RtlWow64EnableFsRedirectionEx", "ZwOpenKeyTransacted",
    "ZwCreateKeyTransacted", "EtwEventRegister", "EtwEventUnregister", "EtwEventWrite", "EtwEventWriteEx",
    "ZwCancelIoFileEx", "RtlEncodePointer", "RtlDecodePointer"};
const char* const kWin32Names[] = {
    "CopyFileW", "CopyFileA", "ReadFile", "WriteFile", "UnhandledExceptionFilter", "SetUnhandledExceptionFilter",
    "GlobalMemoryStatusEx", "GetEnvironmentStringsA", "GetEnvironmentStringsW", "FreeEnvironmentStringsA",
    "FreeEnvironmentStringsW", "CreateProcessW", "CreateProcessA", "DefineDosDeviceW", "DefineDosDeviceA", "GetACP",
    "FindResourceExA", "FindResourceExW"};
static_assert(sizeof kNtNames / sizeof *kNtNames == kZyrNtFunctionCount, "one name per slot");
static_assert(sizeof kWin32Names / sizeof *kWin32Names == kZyrWin32FunctionCount, "one name per slot");

void* Bind(HANDLE module, const char* name) {
  std::size_t n = std::strlen(name);
  ANSI_STRING ansi{static_cast<USHORT>(n), static_cast<USHORT>(n + 1), const_cast<char*>(name)};
  void* address = nullptr;
  return NtSucceeded(LdrGetProcedureAddress(module, &ansi, 0, &address)) ? address : nullptr;
}

HANDLE Loaded(const char16_t* name, std::size_t length) {
  UNICODE_STRING counted = NtCountedString(name, length);
  HANDLE module = nullptr;
  return NtSucceeded(LdrGetDllHandle(nullptr, nullptr, &counted, &module)) ? module : nullptr;
}

volatile std::uint8_t* SharedData() { return reinterpret_cast<volatile std::uint8_t*>(kUserSharedData); }
template <class T>
T Shared(std::size_t offset) {
  return *reinterpret_cast<volatile T*>(SharedData() + offset);
}

}  // namespace

const ZyrNtTables& ZyrNtOptional() { return g_tables; }

ZyrResult ZyrBasOsSystemFacts(ZyrBasSystemInfo& info, ZyrBasOptionalFunctions&) {
  HANDLE ntdll = Loaded(u"ntdll.dll", 9);
  if (!ntdll) return ZYR_E_OBJECT_NOT_FOUND;
  for (std::size_t i = 0; i < kZyrNtFunctionCount; ++i) g_tables.nt[i] = Bind(ntdll, kNtNames[i]);
  // Never loaded from here: a process without the subsystem has no slot.
  if (HANDLE kernel32 = Loaded(u"kernel32.dll", 12)) {
    for (std::size_t i = 0; i < kZyrWin32FunctionCount; ++i) g_tables.win32[i] = Bind(kernel32, kWin32Names[i]);
  }

  BasicInformation basic{};
  NTSTATUS s = NtQuerySystemInformation(0, &basic, sizeof basic, nullptr);
  if (!NtSucceeded(s)) return NtResult(s);
  ProcessorInformation processor{};
  s = NtQuerySystemInformation(1, &processor, sizeof processor, nullptr);
  if (!NtSucceeded(s)) return NtResult(s);
  std::uint8_t* peb = NtPeb();
  if (!peb) return ZYR_E_OBJECT_NOT_FOUND;

  OsVersionInfoEx version{};
  version.size = sizeof version;
  auto getVersion = reinterpret_cast<NTSTATUS(__stdcall*)(void*)>(g_tables.nt[ZYR_NT_RTL_GET_VERSION]);
  if (getVersion) s = getVersion(&version);
  if (!getVersion || !NtSucceeded(s)) {
    version.major = Shared<ULONG>(0x26c);
    version.minor = Shared<ULONG>(0x270);
    version.build = NtField<USHORT>(peb, kPebOsBuild);
    version.suiteMask = static_cast<USHORT>(Shared<ULONG>(0x2d0));
    version.productType = static_cast<std::uint8_t>(Shared<ULONG>(0x264));
  }
  std::int32_t productInfo = -1;
  auto getProductInfo =
      reinterpret_cast<BOOLEAN(__stdcall*)(ULONG, ULONG, ULONG, ULONG, ULONG*)>(g_tables.nt[ZYR_NT_RTL_GET_PRODUCT_INFO]);
  if (version.major == 6 && version.minor == 0 && getProductInfo) {
    ULONG product = 0;
    if (getProductInfo(6, 0, 0, 0, &product)) productInfo = static_cast<std::int32_t>(product);
  }
  std::uint32_t kind = processor.architecture == 9 ? ZYR_ARCH_AMD64 : processor.architecture == 6 ? ZYR_ARCH_IA64
                                                                                                  : ZYR_ARCH_X86;
  ZyrBasNtVersion nt{version.major, version.minor, version.build, version.csd, version.suiteMask,
                     version.productType, kind, productInfo};
  ZyrBasString text;
  ZyrResult r = ZyrBasComposeNtOsText(nt, text);
  if (ZyrFailed(r)) return r;

  USHORT csdVersion = NtField<USHORT>(peb, kPebOsBuild + 2);
  info.platform = 1;
  info.major = Shared<ULONG>(0x26c);
  info.minor = Shared<ULONG>(0x270);
  info.build = NtField<USHORT>(peb, kPebOsBuild);
  info.suiteMask = Shared<ULONG>(0x2d0);
  info.productType = static_cast<std::uint8_t>(Shared<ULONG>(0x264));
  info.servicePackMajor = static_cast<std::uint8_t>(csdVersion >> 8);
  info.servicePackMinor = static_cast<std::uint8_t>(csdVersion);
  info.architectureKind = kind;
  info.processWidth = ZYR_ARCH_AMD64;
  std::memcpy(info.osText, text.Text(), text.Length() * sizeof(char16_t));
  info.osText[text.Length()] = 0;
  info.pageSize = basic.pageSize;
  info.allocationGranularity = basic.allocationGranularity;
  info.processorMask = basic.activeProcessors;
  return ZYR_OK;
}
