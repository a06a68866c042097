#include "base/sysinfo.h"

#include <cstring>

#include "base/lock.h"
#include "base/os/native_path.h"
#include "base/os/sysinfo_os.h"

namespace {

ZyrBasSystemInfo g_info;
ZyrBasOptionalFunctions g_optional;
ZyrBasSpinLock g_infoLock;

ZyrResult AppendNumber(ZyrBasString& out, std::uint64_t value) {
  char16_t digits[20];
  int n = 0;
  do digits[n++] = static_cast<char16_t>(u'0' + value % 10);
  while ((value /= 10) != 0);
  ZyrResult r = ZYR_OK;
  while (n > 0 && ZyrSucceeded(r)) r = out.Append(digits[--n]);
  return r;
}

const char16_t* WidthText(std::uint32_t kind) {
  switch (kind) {
    case ZYR_ARCH_X86: return u" (32-bit)";
    case ZYR_ARCH_AMD64: return u" (64-bit)";
    case ZYR_ARCH_IA64: return u" (64-bit Itanium)";
    default: return u"";
  }
}

// Editions of NT 6.0 by product number, 1 to 29.
const char16_t* const kEditions[30] = {
    nullptr,
    u" Ultimate Edition",
    u" Home Basic Edition",
    u" Home Premium Edition",
    u" Enterprise Edition",
    u" Home Basic Edition",
    u" Business Edition",
    u" Server Standard Edition",
    u" Server Datacenter Edition",
    u" Small Business Server",
    u" Server Enterprise Edition",
    u" Starter Edition",
    u" Server Datacenter Edition - core",
    u" Server Standard Edition - core",
    u" Server Enterprise Edition - core",
    u" Server Enterprise Edition for Itanium-based Systems",
    u" Business Edition",
    u" Web Server Edition",
    u" Cluster Server Edition",
    u" Home Server Edition",
    u" Storage Server Express Edition",
    u" Storage Server Standard Edition",
    u" Storage Server Workgroup Edition",
    u" Storage Server Enterprise Edition",
    u" Server for Small Business Edition",
    u" Small Business Server Premium Edition",
    u" Home Premium Edition",
    u" Enterprise Edition",
    u" Ultimate Edition",
    u" Web Server Edition - core",
};

// NT 6.0 to 6.3: [minor][workstation].
const char16_t* const kNt6Names[4][2] = {
    {u"Microsoft(R) Windows(R) Server 2008", u"Microsoft(R) Windows(R) Vista"},
    {u"Microsoft(R) Windows(R) Server 2008 R2", u"Microsoft(R) Windows(R) 7"},
    {u"Microsoft(R) Windows(R) Server 2012", u"Microsoft(R) Windows(R) 8"},
    {u"Microsoft(R) Windows(R) Server 2012 R2", u"Microsoft(R) Windows(R) 8.1"},
};

// The name part of an NT system's text, without the tail.
ZyrResult NtName(const ZyrBasNtVersion& v, ZyrBasString& out) {
  bool workstation = v.productType == 1;
  std::uint32_t suite = v.suiteMask;
  if (v.major == 6 && v.minor <= 3) {
    ZyrResult r = out.Assign(kNt6Names[v.minor][workstation ? 1 : 0]);
    if (ZyrSucceeded(r) && v.minor == 0 && v.productInfo >= 1 && v.productInfo <= 29)
      r = out.Append(kEditions[v.productInfo]);
    if (ZyrSucceeded(r)) r = out.Append(WidthText(v.architectureKind));
    return r;
  }
  if (v.major == 5 && v.minor == 0) {
    ZyrResult r = out.Assign(u"Microsoft(R) Windows(R) 2000");
    if (ZyrFailed(r)) return r;
    if (workstation) return (suite & 0x200) ? out.Append(u" Professional") : ZYR_OK;
    return out.Append((suite & 0x80) ? u" Datacenter Server" : (suite & 0x2) ? u" Advanced Server" : u" Server");
  }
  if (v.major == 5 && v.minor == 1) {
    if (!workstation) return ZYR_OK;  // no name: only the tail
    return out.Assign((suite & 0x200) ? u"Microsoft(R) Windows(R) XP Home Edition"
                                      : u"Microsoft(R) Windows(R) XP Professional");
  }
  if (v.major == 5 && v.minor == 2) {
    ZyrResult r = out.Assign(suite == 0x2000                                ? u"Microsoft(R) Windows(R) Storage Server 2003"
                             : workstation && v.architectureKind == ZYR_ARCH_AMD64 ? u"Microsoft(R) Windows(R) XP Professional x64 Edition"
                                                                             : u"Microsoft(R) Windows(R) Server 2003");
    if (ZyrFailed(r) || workstation) return r;
    if (v.architectureKind == ZYR_ARCH_IA64) {
      if (suite & 0x80) return out.Append(u" Datacenter Edition for Itanium-based Systems");
      if (suite & 0x2) return out.Append(u" Enterprise Edition for Itanium-based Systems");
      return ZYR_OK;
    }
    if (v.architectureKind == ZYR_ARCH_AMD64)
      return out.Append((suite & 0x80) ? u" Datacenter x64 Edition"
                        : (suite & 0x2) ? u" Enterprise x64 Edition"
                                        : u" Standard x64 Edition");
    return out.Append((suite & 0x4000) ? u" Compute Cluster Edition"
                      : (suite & 0x80) ? u" Datacenter Edition"
                      : (suite & 0x2)  ? u" Enterprise Edition"
                      : (suite & 0x400) ? u" Web Edition"
                                        : u" Standard Edition");
  }
  return out.Assign(u"Microsoft(R) Windows(R)");
}

void Cut(ZyrBasString& text) {
  if (text.Length() > kZyrBasOsTextMax) (void)text.Resize(kZyrBasOsTextMax);
}

ZyrResult AppendNative(ZyrBasString& out, const char* text) {
  if (!*text) return ZYR_OK;
  ZyrBasString wide;
  ZyrResult r = ZyrBasWideFromNative(text, std::strlen(text), wide);
  return ZyrSucceeded(r) ? out.Append(wide) : r;
}

ZyrResult Fill() {
  ZyrResult r = ZyrBasOsSystemFacts(g_info, g_optional);
  if (ZyrFailed(r)) return r;
  g_info.initialised.store(true, std::memory_order_release);
  return ZYR_OK;
}

}  // namespace

ZyrResult ZyrBasSystemInfoInit() {
  if (g_info.initialised.load(std::memory_order_acquire)) return ZYR_OK;
  ZyrBasSpinGuard guard(g_infoLock);
  if (g_info.initialised.load(std::memory_order_relaxed)) return ZYR_OK;
  return Fill();
}

const ZyrBasSystemInfo& ZyrBasSystem() {
  (void)ZyrBasSystemInfoInit();
  return g_info;
}

const ZyrBasOptionalFunctions& ZyrBasOptional() {
  (void)ZyrBasSystemInfoInit();
  return g_optional;
}

ZyrResult ZyrBasComposeNtOsText(const ZyrBasNtVersion& version, ZyrBasString& out) {
  ZyrBasString text;
  ZyrResult r = NtName(version, text);
  // The tail: ", major.minor.build csd Build build".
  if (ZyrSucceeded(r)) r = text.Append(u", ");
  if (ZyrSucceeded(r)) r = AppendNumber(text, version.major);
  if (ZyrSucceeded(r)) r = text.Append(u'.');
  if (ZyrSucceeded(r)) r = AppendNumber(text, version.minor);
  if (ZyrSucceeded(r)) r = text.Append(u'.');
  if (ZyrSucceeded(r)) r = AppendNumber(text, version.build);
  if (ZyrSucceeded(r)) r = text.Append(u' ');
  if (ZyrSucceeded(r) && version.csdText) r = text.Append(version.csdText);
  if (ZyrSucceeded(r)) r = text.Append(u" Build ");
  if (ZyrSucceeded(r)) r = AppendNumber(text, version.build);
  if (ZyrFailed(r)) return r;
  Cut(text);
  out.Swap(text);
  return ZYR_OK;
}

ZyrResult ZyrBasComposeKernelOsText(const char* sysname, const char* release, const char* version,
                                    std::uint32_t architectureKind, ZyrBasString& out) {
  ZyrBasString text;
  ZyrResult r = AppendNative(text, sysname);
  if (ZyrSucceeded(r) && *release) r = text.Append(u' ');
  if (ZyrSucceeded(r)) r = AppendNative(text, release);
  if (ZyrSucceeded(r)) r = text.Append(WidthText(architectureKind));
  if (ZyrSucceeded(r) && *version) r = text.Append(u", ");
  if (ZyrSucceeded(r)) r = AppendNative(text, version);
  if (ZyrFailed(r)) return r;
  Cut(text);
  out.Swap(text);
  return ZYR_OK;
}

void ZyrBasParseKernelRelease(const char* release, std::uint32_t* major, std::uint32_t* minor,
                              std::uint32_t* patch) {
  std::uint32_t* parts[3] = {major, minor, patch};
  for (std::uint32_t* p : parts) *p = 0;
  for (int i = 0; i < 3; ++i) {
    if (*release < '0' || *release > '9') break;
    std::uint64_t value = 0;
    while (*release >= '0' && *release <= '9') {
      if (value < 0xFFFFFFFFu) value = value * 10 + static_cast<std::uint32_t>(*release - '0');
      ++release;
    }
    *parts[i] = value > 0xFFFFFFFFu ? 0xFFFFFFFFu : static_cast<std::uint32_t>(value);
    if (*release != '.') break;
    ++release;
  }
}

// 64-bit machines other than the two of the table count as AMD64: what the
// library asks of the kind is the system's width.
std::uint32_t ZyrBasArchitectureKindOf(const char* machine) {
  if (std::strcmp(machine, "ia64") == 0) return ZYR_ARCH_IA64;
  static const char* const k64[] = {"x86_64", "aarch64", "arm64", "ppc64", "ppc64le", "s390x",
                                     "riscv64", "loongarch64", "mips64", "sparc64", "alpha"};
  for (const char* name : k64)
    if (std::strcmp(machine, name) == 0) return ZYR_ARCH_AMD64;
  return ZYR_ARCH_X86;
}
