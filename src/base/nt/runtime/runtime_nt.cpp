// What the compiler expects of a language runtime, for the module alone,
// which links none: allocation over the process heap and the handler of a
// pure virtual call. Programs that link the library's objects bring their
// own runtime and never see this file. The memory functions the compiler
// calls (memcpy and its kin) are ntdll's own exports.
#include <cstddef>
#include <new>

#include "base/nt/ntapi.h"
#include ZYR_PLATFORM_LAYER

void* operator new(std::size_t size) { return ZyrBasNativeAlloc(size ? size : 1); }
void* operator new[](std::size_t size) { return ZyrBasNativeAlloc(size ? size : 1); }
void* operator new(std::size_t size, const std::nothrow_t&) noexcept { return ZyrBasNativeAlloc(size ? size : 1); }
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept { return ZyrBasNativeAlloc(size ? size : 1); }
void operator delete(void* block) noexcept { ZyrBasNativeFree(block); }
void operator delete[](void* block) noexcept { ZyrBasNativeFree(block); }
void operator delete(void* block, std::size_t) noexcept { ZyrBasNativeFree(block); }
void operator delete[](void* block, std::size_t) noexcept { ZyrBasNativeFree(block); }

// A pure virtual call is a broken object: end the process with the
// system's status for it rather than run on.
extern "C" void __cxa_pure_virtual() { NtTerminateProcess(NtCurrentProcess(), static_cast<NTSTATUS>(0xC0000409u)); }
