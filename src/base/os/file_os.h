// The system calls behind base/file.h, on native names (base/os/native_path.h)
// and the system's handles: descriptors on Linux, NT handles, whose 32
// significant bits fit the int. Every failure comes back as a ZyrResult.
#ifndef ZYR_BASE_OS_FILE_OS_H
#define ZYR_BASE_OS_FILE_OS_H

#include <cstddef>
#include <cstdint>

#include "base/file.h"
#include "zyrlog/result.h"

// Opens by the mode, access and option numbers of base/file.h. `created`
// tells whether this call made the file.
ZyrResult ZyrBasOsOpen(const char* path, std::uint32_t mode, std::uint32_t access,
                       std::uint32_t options, int* handle, bool* created);
ZyrResult ZyrBasOsClose(int handle);
ZyrResult ZyrBasOsReadAt(int handle, std::int64_t offset, void* buffer, std::size_t count,
                         std::size_t* done);
ZyrResult ZyrBasOsWriteAt(int handle, std::int64_t offset, const void* buffer, std::size_t count,
                          std::size_t* done);
// One write at the end of the file. `appendMode`: the descriptor was opened
// for appending.
ZyrResult ZyrBasOsAppend(int handle, bool appendMode, const void* buffer, std::size_t count,
                         std::size_t* done);
// Turns append mode on for an open handle: from then on a plain write goes
// to the end of the file. A layer whose handles cannot change their mode
// puts a new handle to the same file in place of the old one.
ZyrResult ZyrBasOsSetAppendMode(int* handle);
// The descriptor's position; after an append, the end of the file as that
// write left it.
ZyrResult ZyrBasOsPosition(int handle, std::int64_t* position);
// Writes at `offset` even on a descriptor in append mode. ZYR_E_NOT_SUPPORTED
// where the kernel has no such write (before 6.9).
ZyrResult ZyrBasOsOverwrite(int handle, std::int64_t offset, const void* buffer, std::size_t count);
ZyrResult ZyrBasOsGetSize(int handle, std::uint64_t* size);
ZyrResult ZyrBasOsSetSize(int handle, std::uint64_t size);
ZyrResult ZyrBasOsFlush(int handle);
ZyrResult ZyrBasOsQueryHandle(int handle, ZyrBasDirEntry* entry);
ZyrResult ZyrBasOsSetCreationTime(int handle, std::int64_t time);
ZyrResult ZyrBasOsDeleteName(const char* path);  // unlink, for delete-on-close
// Whether `path` itself (a link not followed) is the open file: same device
// and inode. A name that is gone is not.
ZyrResult ZyrBasOsIsSameFile(int handle, const char* path, bool* same);

std::size_t ZyrBasOsPageSize();
ZyrResult ZyrBasOsMap(int handle, std::uint64_t offset, std::size_t size, bool writable,
                      void** address);
ZyrResult ZyrBasOsUnmap(void* address, std::size_t size);
ZyrResult ZyrBasOsFlushView(void* address, std::size_t size);

// By path; the path itself, links not followed, unless told otherwise.
ZyrResult ZyrBasOsQueryPath(const char* path, ZyrBasDirEntry* entry, bool withCompression);
ZyrResult ZyrBasOsCreateDirectory(const char* path);
ZyrResult ZyrBasOsDeleteFile(const char* path);
// A link to a directory is unlinked; a directory removed.
ZyrResult ZyrBasOsRemoveDirectory(const char* path);
// `crossDevice` is set when the two names lie on different file systems;
// nothing was done then.
ZyrResult ZyrBasOsRename(const char* source, const char* target, bool* crossDevice);
// Renames only if the target does not exist (ZYR_E_ALREADY_EXISTS then).
ZyrResult ZyrBasOsRenameNoReplace(const char* source, const char* target);
ZyrResult ZyrBasOsCopyFile(const char* source, const char* target);

// Directory reading. Kinds of an entry as the directory tells them.
enum ZyrBasOsEntryKind : std::uint32_t {
  ZYR_OS_KIND_UNKNOWN = 0,
  ZYR_OS_KIND_DIRECTORY = 1,
  ZYR_OS_KIND_LINK = 2,
  ZYR_OS_KIND_OTHER = 3,
};
ZyrResult ZyrBasOsDirOpen(const char* path, ZyrBasOsDir** dir);
// The next raw entry: ZYR_OK, or ZYR_I_NO_MORE_ITEMS at the end. The name
// stays valid until the next call.
ZyrResult ZyrBasOsDirRead(ZyrBasOsDir* dir, const char** name, std::size_t* length,
                          ZyrBasOsEntryKind* kind);
// Times, size and attributes of an entry, by its name in the directory.
ZyrResult ZyrBasOsDirQuery(ZyrBasOsDir* dir, const char* name, ZyrBasDirEntry* entry);
void ZyrBasOsDirRewind(ZyrBasOsDir* dir);
void ZyrBasOsDirClose(ZyrBasOsDir* dir);

#endif
