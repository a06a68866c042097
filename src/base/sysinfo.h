// System information: what the process runs on, learnt once at the base's
// start and read without a lock afterwards, and the optional functions of
// the system bound by name, so that the module loads where one is missing.
#ifndef ZYR_BASE_SYSINFO_H
#define ZYR_BASE_SYSINFO_H

#include <atomic>
#include <cstddef>
#include <cstdint>

#include "base/string.h"
#include "zyrlog/result.h"

// Architecture kinds: the system's width, not the process's.
inline constexpr std::uint32_t ZYR_ARCH_X86 = 1;
inline constexpr std::uint32_t ZYR_ARCH_AMD64 = 2;
inline constexpr std::uint32_t ZYR_ARCH_IA64 = 3;

inline constexpr std::size_t kZyrBasOsTextMax = 255;

struct ZyrBasSystemInfo {
  std::uint32_t platform = 1;
  // The kernel's version: "6.1.0-13-amd64" gives 6, 1 and 0.
  std::uint32_t major = 0;
  std::uint32_t minor = 0;
  std::uint16_t build = 0;
  std::uint32_t suiteMask = 0;    // no meaning here: 0
  std::uint8_t productType = 0;   // no meaning here: 0
  std::uint8_t servicePackMajor = 0;
  std::uint8_t servicePackMinor = 0;
  std::uint32_t architectureKind = 0;
  std::uint32_t processWidth = 0;
  char16_t osText[kZyrBasOsTextMax + 1] = {};
  std::uint64_t pageSize = 0;
  std::uint64_t allocationGranularity = 0;  // the page size: mappings start on any page
  std::uint64_t processorMask = 0;          // the CPUs (0 to 63) the process may run on
  std::atomic<bool> initialised{false};
};

// The optional functions of the C library, each null where this system's
// library lacks it. Callers test their slot before use.
struct ZyrBasOptionalFunctions {
  void* statx = nullptr;
  void* renameat2 = nullptr;
  void* copyFileRange = nullptr;
  void* closeRange = nullptr;
  void* pidfdOpen = nullptr;
  void* gettid = nullptr;
};

// Fills the facts and the table the first time (under the base's start
// lock, see base/startup), and answers the same object afterwards. A failed
// fill leaves `initialised` clear, and the next call tries again.
ZyrResult ZyrBasSystemInfoInit();
// The facts, filled first if need be; `initialised` tells whether that
// worked.
const ZyrBasSystemInfo& ZyrBasSystem();
const ZyrBasOptionalFunctions& ZyrBasOptional();

// The name of an NT system composed from its version facts, as the system
// presents itself: "Microsoft(R) Windows(R) 7 (64-bit), 6.1.7601 Service
// Pack 1 Build 7601". `productInfo` is the product number of NT 6.0, or -1
// where it is not known. Cut to 255 characters.
struct ZyrBasNtVersion {
  std::uint32_t major;
  std::uint32_t minor;
  std::uint32_t build;
  const char16_t* csdText;  // "Service Pack 1", may be empty
  std::uint32_t suiteMask;
  std::uint32_t productType;  // 1 workstation
  std::uint32_t architectureKind;
  std::int32_t productInfo;
};
ZyrResult ZyrBasComposeNtOsText(const ZyrBasNtVersion& version, ZyrBasString& out);
// This platform's: the kernel's name and release with the width, then its
// build text: "Linux 6.1.0-13-amd64 (64-bit), #1 SMP PREEMPT_DYNAMIC ...".
// Texts are UTF-8 as the kernel gives them. Cut to 255 characters.
ZyrResult ZyrBasComposeKernelOsText(const char* sysname, const char* release, const char* version,
                                    std::uint32_t architectureKind, ZyrBasString& out);
// "6.1.0-13-amd64" into 6, 1, 0; missing parts are 0.
void ZyrBasParseKernelRelease(const char* release, std::uint32_t* major, std::uint32_t* minor,
                              std::uint32_t* patch);
// The kind of a machine name as the kernel spells it ("x86_64", "i686",
// "ia64", "aarch64"...).
std::uint32_t ZyrBasArchitectureKindOf(const char* machine);

#endif
