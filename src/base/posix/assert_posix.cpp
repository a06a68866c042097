#include "base/assert.h"

#include <cstdio>
#include <cstdlib>

void ZyrBasAssertFailed(const char* file, int line) {
  std::fprintf(stderr, "An assert is being triggered. (%s:%d)\n", file, line);
  std::abort();
}
