// Accounts by number have no meaning here; the system's own library is
// ntdll.dll, whose folder is the system folder.
#include "base/nt/nt_support.h"
#include "base/os/account_os.h"
#include "base/os/identity_os.h"

ZyrResult ZyrBasOsAccountById(std::uint32_t, ZyrBasNarrowText*, ZyrBasNarrowText*) { return ZYR_I_NOT_FOUND; }
ZyrResult ZyrBasOsAccountByName(const char*, std::uint32_t*, ZyrBasNarrowText*) { return ZYR_I_NOT_FOUND; }
// The account's home is its profile folder, which the known folders give.
ZyrResult ZyrBasOsCurrentAccount(ZyrBasNarrowText*, ZyrBasNarrowText*) { return ZYR_I_NOT_FOUND; }

// By the loader's handle of ntdll.dll, which is its base address: the
// address of one of its functions as this module knows it would be the
// module's own import thunk.
ZyrResult ZyrBasOsSystemLibraryPath(ZyrBasNarrowText& out) {
  UNICODE_STRING name = NtCountedString(u"ntdll.dll", 9);
  HANDLE ntdll = nullptr;
  if (!NtSucceeded(LdrGetDllHandle(nullptr, nullptr, &name, &ntdll))) return ZYR_E_OBJECT_NOT_FOUND;
  void* base = nullptr;
  std::size_t size = 0;
  return ZyrBasOsModuleAt(ntdll, &base, &size, &out);
}
