// A broken contract ends the process with the system's status for a failed
// assertion, after a line on the standard error where there is one.
#include <cstring>

#include "base/assert.h"
#include "base/console.h"
#include "base/nt/ntapi.h"

void ZyrBasAssertFailed(const char* file, int line) {
  char text[320] = "An assert is being triggered. (";
  std::size_t n = std::strlen(text);
  for (std::size_t i = 0; file[i] && n < 280; ++i) text[n++] = file[i];
  text[n++] = ':';
  char digits[12];
  int k = 0;
  unsigned value = static_cast<unsigned>(line);
  do digits[k++] = static_cast<char>('0' + value % 10);
  while ((value /= 10) != 0);
  while (k) text[n++] = digits[--k];
  text[n++] = ')';
  text[n++] = '\n';
  (void)ZyrBasConsoleWrite(ZYR_CONSOLE_STDERR, text, n);
  NtTerminateProcess(NtCurrentProcess(), static_cast<NTSTATUS>(0xC0000420u));
}
