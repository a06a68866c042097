// System information: the facts of this system, and the composition of a
// system's name as a pure function of its version facts.
#include <gtest/gtest.h>
#include <sys/utsname.h>
#include <unistd.h>

#include <string>

#include "base/sysinfo.h"
#include "test_support.h"

namespace {

std::u16string Nt(std::uint32_t major, std::uint32_t minor, std::uint32_t productType, std::uint32_t kind,
                  std::uint32_t suite = 0, std::int32_t productInfo = -1, const char16_t* csd = u"") {
  ZyrBasNtVersion v{major, minor, 7601, csd, suite, productType, kind, productInfo};
  ZyrBasString text;
  EXPECT_EQ(ZyrBasComposeNtOsText(v, text), ZYR_OK);
  return zyrtest::Str(text);
}

}  // namespace

TEST(SystemInfo, FactsOfThisSystem) {
  const ZyrBasSystemInfo& info = ZyrBasSystem();
  ASSERT_TRUE(info.initialised.load());
  struct utsname u;
  ASSERT_EQ(uname(&u), 0);
  std::uint32_t major, minor, patch;
  ZyrBasParseKernelRelease(u.release, &major, &minor, &patch);
  EXPECT_EQ(info.major, major);
  EXPECT_GE(info.major, 3u);
  EXPECT_EQ(info.minor, minor);
  EXPECT_EQ(info.processWidth, sizeof(void*) == 8 ? 2u : 1u);
  EXPECT_EQ(info.pageSize, static_cast<std::uint64_t>(sysconf(_SC_PAGESIZE)));
  EXPECT_NE(info.processorMask, 0u);
  std::u16string text(info.osText);
  EXPECT_EQ(text.rfind(zyrtest::U16(std::string(u.sysname) + " " + u.release), 0), 0u) << zyrtest::Narrow(text);
  // Functions this C library has are bound; the table is what callers test.
  EXPECT_NE(ZyrBasOptional().statx, nullptr);
  EXPECT_EQ(ZyrBasSystemInfoInit(), ZYR_OK);  // a second fill does nothing
}

TEST(SystemInfo, KernelNamesAndKinds) {
  std::uint32_t major, minor, patch;
  for (auto [release, number] : {std::pair{"6.1.0-13-amd64", 60100u}, {"5.15", 51500u}, {"", 0u}}) {
    ZyrBasParseKernelRelease(release, &major, &minor, &patch);
    EXPECT_EQ(major * 10000 + minor * 100 + patch, number) << release;
  }
  for (auto [name, kind] : {std::pair{"x86_64", ZYR_ARCH_AMD64}, {"aarch64", ZYR_ARCH_AMD64},
                            {"ia64", ZYR_ARCH_IA64}, {"i686", ZYR_ARCH_X86}})
    EXPECT_EQ(ZyrBasArchitectureKindOf(name), kind) << name;
  ZyrBasString text;
  ASSERT_EQ(ZyrBasComposeKernelOsText("Linux", "6.1.0", "#1 SMP", ZYR_ARCH_AMD64, text), ZYR_OK);
  EXPECT_EQ(zyrtest::Str(text), u"Linux 6.1.0 (64-bit), #1 SMP");
  std::string longVersion(300, 'v');
  ASSERT_EQ(ZyrBasComposeKernelOsText("Linux", "6.1.0", longVersion.c_str(), ZYR_ARCH_X86, text), ZYR_OK);
  EXPECT_EQ(text.Length(), 255u);
}

TEST(SystemInfo, NtNamesFromTheirTables) {
  EXPECT_EQ(Nt(6, 1, 1, 2, 0, -1, u"Service Pack 1"),
            u"Microsoft(R) Windows(R) 7 (64-bit), 6.1.7601 Service Pack 1 Build 7601");
  EXPECT_EQ(Nt(6, 4, 1, 2), u"Microsoft(R) Windows(R), 6.4.7601  Build 7601");  // no width
  EXPECT_EQ(Nt(5, 1, 2, 1), u", 5.1.7601  Build 7601");                          // only the tail
  EXPECT_EQ(Nt(6, 3, 3, 2), u"Microsoft(R) Windows(R) Server 2012 R2 (64-bit), 6.3.7601  Build 7601");
  // Editions only on 6.0, for product numbers 1 to 29.
  EXPECT_EQ(Nt(6, 0, 1, 1, 0, 28), u"Microsoft(R) Windows(R) Vista Ultimate Edition (32-bit), 6.0.7601  Build 7601");
  EXPECT_EQ(Nt(6, 0, 3, 3, 0, 15),
            u"Microsoft(R) Windows(R) Server 2008 Server Enterprise Edition for Itanium-based Systems (64-bit "
            u"Itanium), 6.0.7601  Build 7601");
  EXPECT_EQ(Nt(6, 0, 1, 2, 0, 30), u"Microsoft(R) Windows(R) Vista (64-bit), 6.0.7601  Build 7601");
  EXPECT_EQ(Nt(6, 1, 1, 2, 0, 28), u"Microsoft(R) Windows(R) 7 (64-bit), 6.1.7601  Build 7601");
  // NT 5.x by suite mask.
  EXPECT_EQ(Nt(5, 0, 1, 1, 0x200), u"Microsoft(R) Windows(R) 2000 Professional, 5.0.7601  Build 7601");
  EXPECT_EQ(Nt(5, 1, 1, 1, 0x200), u"Microsoft(R) Windows(R) XP Home Edition, 5.1.7601  Build 7601");
  EXPECT_EQ(Nt(5, 2, 1, 2), u"Microsoft(R) Windows(R) XP Professional x64 Edition, 5.2.7601  Build 7601");
  EXPECT_EQ(Nt(5, 2, 3, 2, 0x2), u"Microsoft(R) Windows(R) Server 2003 Enterprise x64 Edition, 5.2.7601  Build 7601");
  EXPECT_EQ(Nt(5, 2, 3, 3), u"Microsoft(R) Windows(R) Server 2003, 5.2.7601  Build 7601");
  EXPECT_EQ(Nt(5, 2, 3, 1, 0x4082), u"Microsoft(R) Windows(R) Server 2003 Compute Cluster Edition, 5.2.7601  Build 7601");
  std::u16string csd(300, u'x');
  EXPECT_EQ(Nt(6, 1, 1, 2, 0, -1, csd.c_str()).size(), 255u);
}
