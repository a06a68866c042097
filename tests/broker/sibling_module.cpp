// A sibling module for the broker's tests. Which of the four entry points
// it exports is chosen at build time; every call is told to the test
// program through ZyrTestNote, which the program exports.
#include <cstdint>
#include <cstring>

#include "zyrlog/result.h"

extern "C" void ZyrTestNote(const char* module, const char* event);

#define SIB_EXPORT extern "C" __attribute__((visibility("default")))

namespace {
// The one identifier this module answers: bytes 1 to 16.
[[maybe_unused]] bool Known(const void* iid) {
  static const std::uint8_t kIid[16] = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16};
  return std::memcmp(iid, kIid, 16) == 0;
}
}  // namespace

#ifdef SIB_V2
SIB_EXPORT ZyrResult GetZyrObject2(const void* iid, std::uint32_t size, void** object) {
  ZyrTestNote(SIB_NAME, "v2");
  if (size != 16 || !Known(iid)) return ZYR_E_NOT_SUPPORTED;
  *object = const_cast<char*>("v2:" SIB_NAME);
  return ZYR_OK;
}
#endif

#ifdef SIB_V1
SIB_EXPORT ZyrResult GetZyrObject(const void* iid, void** object) {
  ZyrTestNote(SIB_NAME, "v1");
  if (!Known(iid)) return ZYR_E_NOT_SUPPORTED;
  *object = const_cast<char*>("v1:" SIB_NAME);
  return ZYR_OK;
}
#endif

#ifdef SIB_INIT
SIB_EXPORT ZyrResult ZyrModuleInit() {
  ZyrTestNote(SIB_NAME, "init");
#ifdef SIB_INIT_FAILS
  return ZYR_E_ACCESS_DENIED;
#else
  return ZYR_OK;
#endif
}
#endif

#ifdef SIB_FINISH
SIB_EXPORT ZyrResult ZyrModuleFinish() {
  ZyrTestNote(SIB_NAME, "finish");
  return ZYR_OK;
}
#endif
