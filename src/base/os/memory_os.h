// What the system is told about the library's large blocks.
#ifndef ZYR_BASE_OS_MEMORY_OS_H
#define ZYR_BASE_OS_MEMORY_OS_H

#include <cstddef>

// Asks that the whole pages of a block be backed by huge pages where the
// system offers them on request. Advice only: nothing fails if it is not
// taken.
void ZyrBasOsAdviseLargeBlock(void* block, std::size_t size) noexcept;

#endif
