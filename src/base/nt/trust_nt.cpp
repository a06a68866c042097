// Trust on NT (the rule of base/trust.h in this system's terms): the owner
// of the file must be the process's own account, Local System, the
// Administrators or the TrustedInstaller service (which owns what an
// installer puts under Program Files), and no other identity may be allowed
// to change the file (write or append to it, delete it, change its rules or
// owner). In the folder that holds it, no other identity may delete or
// replace its files or change the folder's rules; a folder where others may
// only add files of their own (as ProgramData) is the kin of a sticky
// folder. Only allow rules are weighed: a deny rule that would take such a
// right back is not looked for, so the check errs on refusing.
#include "base/trust.h"

#include "base/nt/nt_support.h"
#include "base/os/native_path.h"
#include ZYR_PLATFORM_LAYER

namespace {

constexpr ULONG kOwnerInformation = 1;
constexpr ULONG kDaclInformation = 4;
constexpr ULONG kTokenUser = 1;
constexpr std::uint16_t kDaclPresent = 0x4;
constexpr std::uint8_t kInheritOnly = 0x8;
constexpr ACCESS_MASK kGenericWrite = 0x40000000;
constexpr ACCESS_MASK kGenericAll = 0x10000000;
// FILE_WRITE_DATA, FILE_APPEND_DATA; on a folder FILE_ADD_FILE and
// FILE_ADD_SUBDIRECTORY, which only add.
constexpr ACCESS_MASK kWriteData = 0x2 | 0x4;
constexpr ACCESS_MASK kDeleteChild = 0x40;
constexpr ACCESS_MASK kChange = DELETE | WRITE_DAC | WRITE_OWNER | kGenericAll;

// The SIDs that may own and change a configuration file besides the
// process's own account, in their binary form.
constexpr std::uint8_t kLocalSystem[] = {1, 1, 0, 0, 0, 0, 0, 5, 18, 0, 0, 0};
constexpr std::uint8_t kAdministrators[] = {1, 2, 0, 0, 0, 0, 0, 5, 32, 0, 0, 0, 0x20, 2, 0, 0};
constexpr std::uint8_t kCreatorOwner[] = {1, 1, 0, 0, 0, 0, 0, 3, 0, 0, 0, 0};
constexpr std::uint8_t kTrustedInstaller[] = {1, 6, 0, 0, 0, 0, 0, 5, 80, 0, 0, 0,
                                              0xb5, 0x26, 0xfc, 0x38, 0x19, 0x1e, 0xb7, 0xcb,
                                              0x9c, 0x91, 0x22, 0x6d, 0x57, 0x64, 0x6f, 0x6e,
                                              0xc0, 0xe4, 0x72, 0x87};

std::size_t SidLength(const std::uint8_t* sid) { return 8u + 4u * sid[1]; }

bool SidIs(const std::uint8_t* sid, const std::uint8_t* known, std::size_t size) {
  if (SidLength(sid) != size) return false;
  for (std::size_t i = 0; i < size; ++i)
    if (sid[i] != known[i]) return false;
  return true;
}

class Trusted {
 public:
  ZyrResult Init() {
    HANDLE token = nullptr;
    NTSTATUS s = NtOpenProcessToken(NtCurrentProcess(), TOKEN_QUERY, &token);
    if (!NtSucceeded(s)) return NtResult(s);
    ULONG needed = 0;
    s = NtQueryInformationToken(token, kTokenUser, user_, sizeof user_, &needed);
    NtClose(token);
    if (!NtSucceeded(s)) return NtResult(s);
    self_ = *reinterpret_cast<const std::uint8_t* const*>(user_);  // SID_AND_ATTRIBUTES
    return ZYR_OK;
  }
  bool Is(const std::uint8_t* sid) const {
    return SidIs(sid, self_, SidLength(self_)) || SidIs(sid, kLocalSystem, sizeof kLocalSystem) ||
           SidIs(sid, kAdministrators, sizeof kAdministrators) ||
           SidIs(sid, kTrustedInstaller, sizeof kTrustedInstaller);
  }

 private:
  alignas(8) std::uint8_t user_[128];
  const std::uint8_t* self_ = nullptr;
};

std::uint16_t Word(const std::uint8_t* p) { return static_cast<std::uint16_t>(p[0] | p[1] << 8); }
std::uint32_t Dword(const std::uint8_t* p) {
  return p[0] | p[1] << 8 | p[2] << 16 | static_cast<std::uint32_t>(p[3]) << 24;
}

// The owner and the allow rules of an open file or folder; `changing`: the
// rights that no other identity may hold.
ZyrResult Judge(HANDLE handle, const Trusted& trusted, ACCESS_MASK changing) {
  alignas(8) std::uint8_t sd[4096];
  ULONG needed = 0;
  NTSTATUS s = NtQuerySecurityObject(handle, kOwnerInformation | kDaclInformation, sd, sizeof sd, &needed);
  if (!NtSucceeded(s)) return NtResult(s);
  // Self-relative: revision, padding, control, then the offsets of owner,
  // group, system list and access list.
  std::uint32_t owner = Dword(sd + 4), dacl = Dword(sd + 16);
  if (!owner || !trusted.Is(sd + owner)) return ZYR_E_UNTRUSTED_FILE;
  // No access list at all lets everyone do everything.
  if (!(Word(sd + 2) & kDaclPresent) || !dacl) return ZYR_E_UNTRUSTED_FILE;
  const std::uint8_t* acl = sd + dacl;
  const std::uint8_t* ace = acl + 8;
  for (std::uint16_t i = 0, count = Word(acl + 4); i < count; ++i, ace += Word(ace + 2)) {
    std::uint8_t type = ace[0];
    if (type == 1 || (ace[1] & kInheritOnly)) continue;  // a deny rule, or one for what is made below
    std::uint32_t mask = Dword(ace + 4);
    if (!(mask & changing)) continue;
    // Only the plain allow rule (0) and its callback form (9) put the SID
    // right behind the mask; any other allow form with such rights counts
    // as someone else's.
    const std::uint8_t* sid = ace + 8;
    if ((type != 0 && type != 9) ||
        !(trusted.Is(sid) || SidIs(sid, sd + owner, SidLength(sd + owner)) ||
          SidIs(sid, kCreatorOwner, sizeof kCreatorOwner)))
      return ZYR_E_UNTRUSTED_FILE;
  }
  return ZYR_OK;
}

}  // namespace

ZyrResult ZyrBasCheckTrusted(const ZyrBasFileBase& file, const char16_t* path) {
  Trusted trusted;
  ZyrResult r = trusted.Init();
  if (ZyrSucceeded(r)) r = Judge(NtHandle(file.NativeHandle()), trusted, kWriteData | kGenericWrite | kChange);
  if (ZyrFailed(r)) return r;
  // The folder, by the name's native form cut at its last separator.
  ZyrBasNarrowText native;
  r = ZyrBasNativePath(path, ZYR_TERMINATED, native);
  if (ZyrFailed(r)) return r;
  std::size_t cut = native.Length();
  while (cut > 0 && native.Data()[cut - 1] != '\\') --cut;
  if (cut <= 1) return ZYR_E_PATH_NOT_FOUND;
  native.Data()[cut - 1] = 0;
  ZyrNtName name(native.Data());
  if (!name.Ok()) return name.Result();
  OBJECT_ATTRIBUTES oa = NtObjectAttributes(name.Counted());
  IO_STATUS_BLOCK io{};
  HANDLE folder = nullptr;
  NTSTATUS s = NtOpenFile(&folder, READ_CONTROL | SYNCHRONIZE, &oa, &io,
                          FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                          FILE_DIRECTORY_FILE | FILE_SYNCHRONOUS_IO_NONALERT);
  if (!NtSucceeded(s)) return NtResult(s);
  r = Judge(folder, trusted, kDeleteChild | kChange);
  NtClose(folder);
  return r;
}
