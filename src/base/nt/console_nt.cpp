// The console through the subsystem's WriteFile, bound by name at the start
// when kernel32.dll is loaded already: the module never loads it. A process
// without it, or without standard handles, writes nothing and succeeds.
#include "base/console.h"
#include "base/lock.h"
#include "base/nt/nt_support.h"
#include "base/nt/nt_tables.h"

namespace {

typedef int(__stdcall* WriteFileFn)(HANDLE, const void*, ULONG, ULONG*, void*);

ZyrBasSpinLock g_consoleLock;

// Standard handles from the process parameters: input, output, error.
HANDLE StandardHandle(ZyrBasConsoleTarget target) {
  std::uint8_t* params = NtField<std::uint8_t*>(NtPeb(), kPebProcessParameters);
  return NtField<HANDLE>(params, target == ZYR_CONSOLE_STDOUT ? 0x28 : 0x30);
}


}  // namespace

ZyrResult ZyrBasConsoleWrite(ZyrBasConsoleTarget target, const char* bytes, std::size_t count) {
  auto write = reinterpret_cast<WriteFileFn>(ZyrNtOptional().win32[ZYR_WIN32_WRITE_FILE]);
  HANDLE h = StandardHandle(target);
  if (!write || !h || h == reinterpret_cast<HANDLE>(static_cast<std::intptr_t>(-1))) return ZYR_OK;
  ZyrBasSpinGuard guard(g_consoleLock);
  while (count > 0) {
    ULONG chunk = count > 0x10000 ? 0x10000 : static_cast<ULONG>(count);
    ULONG done = 0;
    if (!write(h, bytes, chunk, &done, nullptr) || done == 0) return ZYR_E_WRITE_FAULT;
    bytes += done;
    count -= done;
  }
  return ZYR_OK;
}
