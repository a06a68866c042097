// The plain questions the library asks of the system it runs on: the name
// of the computer, environment variables, the image of a process, the
// module that holds an address, and the ids of the process and thread.
#ifndef ZYR_BASE_IDENTITY_H
#define ZYR_BASE_IDENTITY_H

#include <cstddef>
#include <cstdint>

#include "base/string.h"
#include "zyrlog/result.h"

// First answer wins: "_CLUSTER_NETWORK_NAME_", "COMPUTERNAME" (empty values
// count as none), the system's host name, then "localhost". Callers keep
// the answer for the life of the process.
ZyrResult ZyrBasComputerName(ZyrBasStringRef& out);

// 0 with the value; ZYR_I_VARIABLE_EMPTY, with the target emptied, for a
// variable that is unset or empty.
ZyrResult ZyrBasGetEnv(const char16_t* name, ZyrBasString& out);
// The same into a counted buffer: ZYR_E_BUFFER_TOO_SMALL with the size
// needed, terminator included, and the buffer left as it was.
ZyrResult ZyrBasGetEnvRaw(const char16_t* name, ZyrBasCountedBuffer& target,
                          std::size_t* needed);

// What ZyrBasModuleAt fills; `filled` tells which of the parts were asked.
enum : std::uint32_t {
  ZYR_MODULE_BASE = 1,
  ZYR_MODULE_SIZE = 2,
  ZYR_MODULE_PATH = 4,  // full path of the module's file
  ZYR_MODULE_NAME = 8,  // its last component
};

struct ZyrBasModuleInfo {
  const void* base = nullptr;
  std::size_t size = 0;
  ZyrBasString path;
  ZyrBasString name;
  std::uint32_t filled = 0;
};

// The loaded module whose image holds the address; ZYR_E_INVALID_DATA when
// none does.
ZyrResult ZyrBasModuleAt(ZyrBasModuleInfo& out, std::uint32_t what, const void* address);
// The file of the module that holds this code: the shared library, or the
// program when the base is linked into it. The directory is the path up to
// its last separator ("/" for a file in the root).
ZyrResult ZyrBasOwnModulePath(ZyrBasString& out);
ZyrResult ZyrBasOwnModuleDirectory(ZyrBasString& out);

// The full path of a process's image file. The own process always answers;
// another one answers when the system lets this process look at it
// (ZYR_E_ACCESS_DENIED otherwise). No such process: ZYR_E_INVALID_ARGUMENT;
// a process without an image file: ZYR_E_FILE_NOT_FOUND.
ZyrResult ZyrBasProcessImagePath(std::uint32_t processId, ZyrBasCountedBuffer& target,
                                 std::size_t* needed);
// The same into a string. A process that exists but has no image file (a
// kernel thread, the nearest thing here to the system process) is "System".
ZyrResult ZyrBasProcessName(std::uint32_t processId, ZyrBasString& out);

// The login name of the account the process runs as; empty and
// ZYR_I_NOT_FOUND when the system knows no name for it.
ZyrResult ZyrBasCurrentUserName(ZyrBasString& out);

std::uint32_t ZyrBasCurrentProcessId();
std::uint32_t ZyrBasCurrentThreadId();

#endif
