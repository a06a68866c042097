// The optional functions of the system, bound by name at the base's start
// (base/nt/sysinfo_nt.cpp): ntdll's, null where this version lacks one, and
// kernel32's, null unless the process had it loaded already. Users test
// their slot before a call.
#ifndef ZYR_BASE_NT_NT_TABLES_H
#define ZYR_BASE_NT_NT_TABLES_H

#include <cstddef>

inline constexpr std::size_t kZyrNtFunctionCount = 21;
inline constexpr std::size_t kZyrWin32FunctionCount = 18;

// Slots of the ntdll table that the layer calls.
enum : std::size_t {
  ZYR_NT_RTL_GET_VERSION = 0,
  ZYR_NT_RTL_GET_PRODUCT_INFO = 1,
  ZYR_NT_RTL_ADD_MANDATORY_ACE = 3,
  ZYR_NT_CANCEL_IO_FILE_EX = 18,
};
// Slots of the kernel32 table that the layer calls.
enum : std::size_t {
  ZYR_WIN32_COPY_FILE_W = 0,
  ZYR_WIN32_WRITE_FILE = 3,
};

struct ZyrNtTables {
  void* nt[kZyrNtFunctionCount];
  void* win32[kZyrWin32FunctionCount];
};

// Filled once at the start; read without a lock afterwards.
const ZyrNtTables& ZyrNtOptional();

#endif
