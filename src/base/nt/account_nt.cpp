// Accounts by number have no meaning here; the system's own library is
// ntdll.dll, whose folder is the system folder.
#include "base/nt/nt_support.h"
#include "base/os/account_os.h"
#include "base/os/identity_os.h"

ZyrResult ZyrBasOsAccountById(std::uint32_t, ZyrBasNarrowText*, ZyrBasNarrowText*) { return ZYR_I_NOT_FOUND; }
ZyrResult ZyrBasOsAccountByName(const char*, std::uint32_t*, ZyrBasNarrowText*) { return ZYR_I_NOT_FOUND; }

ZyrResult ZyrBasOsSystemLibraryPath(ZyrBasNarrowText& out) {
  void* base = nullptr;
  std::size_t size = 0;
  return ZyrBasOsModuleAt(reinterpret_cast<const void*>(&RtlAllocateHeap), &base, &size, &out);
}
