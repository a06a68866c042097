// Allocation counting for the comparison program: the program's own malloc
// family forwards to the C library and counts every allocation, so that
// whatever a contender allocates (its own code, the C++ runtime, the C
// library) is seen.
#ifndef ZYR_BENCH_COMPARE_ALLOC_COUNT_H
#define ZYR_BENCH_COMPARE_ALLOC_COUNT_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

// Allocations made by all threads of the process so far.
uint64_t ZyrBenchAllocations(void);

#ifdef __cplusplus
}
#endif

#endif
