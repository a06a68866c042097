// Trust of configuration files. Configuration decides where this process
// writes and what it writes there (a file name, a header): a file that
// another account could have written would let that account make this
// process write into a shell's start file, or anywhere else this process
// may write. So a configuration file is read only when nobody but root and
// the process's own account can have changed it.
//
// The rule, as careful Unix programs judge it: the open file is a regular
// file owned by root or by the process's effective account, and neither
// group nor others may write it; the folder its name stands in (and, when
// the name is a link, the folder the file really lies in) is owned by root
// or by that account, and either group and others may not write it, or it
// has the sticky bit, under which nobody but a file's owner, the folder's
// owner and root can remove or rename the file. Access control lists are
// not looked at: mode bits only.
#ifndef ZYR_BASE_TRUST_H
#define ZYR_BASE_TRUST_H

#include "base/file.h"
#include "zyrlog/result.h"

// ZYR_OK for a trusted file; ZYR_E_UNTRUSTED_FILE; or the failure of a
// query. `path` is the name by which `file` was opened.
ZyrResult ZyrBasCheckTrusted(const ZyrBasFileBase& file, const char16_t* path);

#endif
