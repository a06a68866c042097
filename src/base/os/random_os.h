// The system's share of the random generator's seed.
#ifndef ZYR_BASE_OS_RANDOM_OS_H
#define ZYR_BASE_OS_RANDOM_OS_H

#include <cstddef>

// Fills `buffer` with seed material and answers the count of bytes written,
// at most `capacity`. Sources that fail are left out.
std::size_t ZyrBasOsSeedMaterial(unsigned char* buffer, std::size_t capacity);

#endif
