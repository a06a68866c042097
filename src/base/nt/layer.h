// What the portable code takes from the NT layer at compile time: the few
// things that must be inline or constant. CMake names this header in
// ZYR_PLATFORM_LAYER; src/base/posix/layer.h is its POSIX twin. Nothing
// here declares a system function, so that a program may include the
// system's own headers beside the base's.
#ifndef ZYR_BASE_NT_LAYER_H
#define ZYR_BASE_NT_LAYER_H

#include <cstddef>

// The lock of a critical section: ntdll's own critical section, 40 bytes.
struct ZyrBasNativeLock {
  alignas(8) unsigned char bytes[40];
};
void ZyrBasNativeLockEnter(ZyrBasNativeLock* lock);
void ZyrBasNativeLockLeave(ZyrBasNativeLock* lock);

// Blocks of the process heap.
void* ZyrBasNativeAlloc(std::size_t size) noexcept;
void* ZyrBasNativeAllocZero(std::size_t size) noexcept;
void ZyrBasNativeFree(void* block) noexcept;
// The heap aligns to 16 bytes only: a larger alignment is cut from a larger
// block, whose start is kept in front of the aligned one.
void* ZyrBasNativeAllocAligned(std::size_t alignment, std::size_t size) noexcept;
void ZyrBasNativeFreeAligned(void* block) noexcept;

// Per-thread data (base/thread_data.h): a slot of the system's own TLS, as
// the compiler's thread_local would need a runtime the module has not.
#define ZYR_THREAD_DATA(Type, name) ZyrBasThreadSlotData<Type> name

// The separator of this platform's paths, and so the one that the path
// algebra writes. Both are read everywhere.
inline constexpr char16_t kZyrBasNativeSeparator = u'\\';

// The suffix of a module file: a module "zyrloga" is the file "zyrloga.dll".
inline constexpr char16_t kZyrBasModuleSuffix[] = u".dll";

#endif
