// What the portable code takes from the POSIX layer at compile time: the
// few things that must be inline or constant. CMake names this header in
// ZYR_PLATFORM_LAYER; src/base/nt/layer.h is its NT twin.
#ifndef ZYR_BASE_POSIX_LAYER_H
#define ZYR_BASE_POSIX_LAYER_H

#include <pthread.h>

#include <cstdlib>

// The lock of a critical section: a recursive mutex. Entering and leaving
// stay inline, since every logger and appender lock on the message road
// goes through them.
using ZyrBasNativeLock = pthread_mutex_t;
inline void ZyrBasNativeLockEnter(ZyrBasNativeLock* lock) { pthread_mutex_lock(lock); }
inline void ZyrBasNativeLockLeave(ZyrBasNativeLock* lock) { pthread_mutex_unlock(lock); }

// Blocks of the C library's heap, inline: strings of the message road
// allocate through them.
inline void* ZyrBasNativeAlloc(std::size_t size) noexcept { return std::malloc(size); }
inline void* ZyrBasNativeAllocZero(std::size_t size) noexcept { return std::calloc(1, size); }
inline void ZyrBasNativeFree(void* block) noexcept { std::free(block); }
// `size` a multiple of `alignment`, as the C library asks.
inline void* ZyrBasNativeAllocAligned(std::size_t alignment, std::size_t size) noexcept {
  return std::aligned_alloc(alignment, size);
}
inline void ZyrBasNativeFreeAligned(void* block) noexcept { std::free(block); }

// Per-thread data (base/thread_data.h): the language's thread_local, which
// glibc gives without allocating for data without a destructor.
#define ZYR_THREAD_DATA(Type, name) thread_local ZyrBasThreadLocalData<Type> name

// The separator of this platform's paths, and so the one that the path
// algebra writes. Both are read everywhere.
inline constexpr char16_t kZyrBasNativeSeparator = u'/';

// The suffix of a module file: a module "zyrloga" is the file "zyrloga.so".
inline constexpr char16_t kZyrBasModuleSuffix[] = u".so";

#endif
