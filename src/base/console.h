// The process's standard output and standard error. On this platform the
// console code page is UTF-8; a process without those descriptors writes
// nothing and succeeds.
#ifndef ZYR_BASE_CONSOLE_H
#define ZYR_BASE_CONSOLE_H

#include <cstddef>

#include "zyrlog/result.h"

enum ZyrBasConsoleTarget { ZYR_CONSOLE_STDOUT = 0, ZYR_CONSOLE_STDERR = 1 };

// Writes all bytes, going on from where a short write stopped. The console
// output lock of the process is held around it, so that lines of different
// appenders never interleave.
ZyrResult ZyrBasConsoleWrite(ZyrBasConsoleTarget target, const char* bytes, std::size_t count);

#endif
