// Contract checks. A broken precondition is a program error, never a result:
// input from files, configuration or the system always ends in a result
// code. Debug builds stop at the check; release builds run on to the
// orderly return that follows it.
#ifndef ZYR_BASE_ASSERT_H
#define ZYR_BASE_ASSERT_H

void ZyrBasAssertFailed(const char* file, int line);

#ifdef NDEBUG
#define ZYR_ASSERT(condition) ((void)0)
#else
#define ZYR_ASSERT(condition) \
  ((condition) ? (void)0 : ZyrBasAssertFailed(__FILE__, __LINE__))
#endif

#endif
