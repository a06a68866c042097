// Descriptors applied for real: the portable code builds the binary
// descriptor, the system takes it as it stands. Accounts here are SIDs,
// not numbers: the numeric ids of the POSIX layer have no counterpart.
#include "base/nt/nt_support.h"
#include "base/os/security_os.h"
#include "base/security.h"

namespace {
constexpr ULONG kDaclInformation = 0x4;
constexpr ULONG kLabelInformation = 0x10;
constexpr std::uint32_t kNoUnixId = 0xffffffffu;
}  // namespace

std::uint32_t ZyrBasOsProcessUserId() { return kNoUnixId; }
std::uint32_t ZyrBasOsThreadUserId() { return kNoUnixId; }

ZyrResult ZyrBasOsApplySecurityForm(int handle, std::uint32_t form, bool) {
  ZyrBasSecurity security;
  ZyrResult r = ZyrBasSecurityForForm(security, form);
  if (ZyrSucceeded(r)) r = security.Build();
  if (ZyrFailed(r)) return r;
  ULONG parts = (security.Flags() & ZYR_SECURITY_DACL ? kDaclInformation : 0) |
                (security.Flags() & ZYR_SECURITY_LABEL ? kLabelInformation : 0);
  return NtResult(NtSetSecurityObject(NtHandle(handle), parts, const_cast<std::uint8_t*>(security.Descriptor())));
}

ZyrResult ZyrBasOsCarrySecurity(int from, int to) {
  alignas(8) unsigned char descriptor[4096];
  ULONG needed = 0;
  if (!NtSucceeded(NtQuerySecurityObject(NtHandle(from), kDaclInformation, descriptor, sizeof descriptor, &needed)))
    return ZYR_I_SECURITY_NOT_COPIED;
  return NtSucceeded(NtSetSecurityObject(NtHandle(to), kDaclInformation, descriptor)) ? ZYR_OK
                                                                                      : ZYR_I_SECURITY_NOT_COPIED;
}

// Owner, group and mode bits are the POSIX layer's picture of security;
// reading and writing whole descriptors by path is not built here yet.
ZyrResult ZyrBasOsReadPathSecurity(const char*, ZyrBasOsPathSecurity*) { return ZYR_E_NOT_IMPLEMENTED; }
ZyrResult ZyrBasOsWritePathMode(const char*, std::uint32_t) { return ZYR_E_NOT_IMPLEMENTED; }
