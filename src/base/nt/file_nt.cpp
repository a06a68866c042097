// Files, views and directories over the native interface. Names come in as
// NT names (base/os/native_path.h); every open is synchronous
// (FILE_SYNCHRONOUS_IO_NONALERT), so the system keeps each handle's
// position and a call returns when its I/O is done.
//
// A handle of the system fits the int of the portable file object: the
// system gives handles 32 significant bits, so that processes of both
// widths can share them.
#include <cstring>

#include "base/memory.h"
#include "base/nt/nt_support.h"
#include "base/os/file_os.h"
#include "base/os/security_os.h"
#include "base/security.h"

namespace {

constexpr ULONG kMaxIo = 0x7ffff000;
constexpr std::int64_t kWriteToEnd = -1;  // FILE_WRITE_TO_END_OF_FILE

HANDLE H(int handle) { return NtHandle(handle); }
int Int(HANDLE h) { return static_cast<int>(NtHandleValue(h)); }

ZyrResult Fail(NTSTATUS s) { return NtResult(s); }

std::uint32_t AttributesOf(ULONG a) {
  std::uint32_t out = a & (ZYR_ATTR_READONLY | ZYR_ATTR_DIRECTORY | ZYR_ATTR_REPARSE_POINT | ZYR_ATTR_COMPRESSED);
  return out ? out : ZYR_ATTR_NORMAL;
}

void FillEntry(ZyrBasDirEntry* e, std::int64_t creation, std::int64_t access, std::int64_t write,
               std::int64_t change, std::int64_t size, ULONG attributes) {
  e->attributes = AttributesOf(attributes);
  e->creationTime = creation;
  e->lastAccessTime = access;
  e->lastWriteTime = write;
  e->changeTime = change;
  e->sizeHigh = static_cast<std::uint32_t>(static_cast<std::uint64_t>(size) >> 32);
  e->sizeLow = static_cast<std::uint32_t>(size);
  e->extendedAttributesSize = 0;
  e->shortName[0] = 0;
}

// Opens by native name with the given rights, for the operations by path.
NTSTATUS OpenPath(const char* path, ACCESS_MASK access, ULONG share, ULONG options, HANDLE* out,
                  ZyrResult* nameResult) {
  ZyrNtName name(path);
  *nameResult = name.Result();
  if (!name.Ok()) return STATUS_NO_MEMORY;
  OBJECT_ATTRIBUTES oa = NtObjectAttributes(name.Counted());
  IO_STATUS_BLOCK io{};
  return NtOpenFile(out, access | SYNCHRONIZE, &oa, &io, share, options | FILE_SYNCHRONOUS_IO_NONALERT);
}

ZyrResult PathResult(NTSTATUS s, ZyrResult nameResult) {
  return ZyrFailed(nameResult) ? nameResult : Fail(s);
}

constexpr ULONG kShareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;

}  // namespace

// ---------------------------------------------------------------------------
// Open files

ZyrResult ZyrBasOsOpen(const char* path, std::uint32_t mode, std::uint32_t access,
                       std::uint32_t options, int* handle, bool* created) {
  *handle = -1;
  *created = false;
  ULONG disposition;
  switch (mode) {
    case ZYR_FILE_CREATE_NEW: disposition = FILE_CREATE; break;
    case ZYR_FILE_CREATE_ALWAYS: disposition = FILE_OVERWRITE_IF; break;
    case ZYR_FILE_OPEN_EXISTING: disposition = FILE_OPEN; break;
    case ZYR_FILE_OPEN_ALWAYS: disposition = FILE_OPEN_IF; break;
    case ZYR_FILE_TRUNCATE_EXISTING: disposition = FILE_OVERWRITE; break;
    case ZYR_FILE_APPEND: disposition = FILE_OPEN_IF; break;
    default: return ZYR_E_INVALID_ARGUMENT;
  }
  ACCESS_MASK rights = SYNCHRONIZE | FILE_READ_ATTRIBUTES | FILE_WRITE_ATTRIBUTES;
  if (access & ZYR_FILE_READ) rights |= FILE_GENERIC_READ;
  // Append mode asks for appending alone: then the system places every
  // write at the end of the file at the moment of the write, atomically
  // between processes.
  if (mode == ZYR_FILE_APPEND) rights |= FILE_APPEND_DATA;
  else if (access & ZYR_FILE_WRITE) rights |= FILE_GENERIC_WRITE;
  if (options & ZYR_FILE_DELETE_ON_CLOSE) rights |= DELETE;
  ULONG createOptions = FILE_SYNCHRONOUS_IO_NONALERT | FILE_NON_DIRECTORY_FILE;
  if (options & ZYR_FILE_RANDOM_ACCESS) createOptions |= FILE_RANDOM_ACCESS;
  if (options & ZYR_FILE_SEQUENTIAL) createOptions |= FILE_SEQUENTIAL_ONLY;
  if (options & ZYR_FILE_NO_LINK) createOptions |= FILE_OPEN_REPARSE_POINT;

  ZyrNtName name(path);
  if (!name.Ok()) return name.Result();
  // Log and lock files get the descriptor that lets every account of the
  // machine write them, at creation: an existing file keeps its own.
  ZyrBasSecurity security;
  void* descriptor = nullptr;
  if ((options & ZYR_FILE_SHARED_BY_ALL) && ZyrSucceeded(ZyrBasSecurityForForm(security, ZYR_SECURITY_LOG_FILE)) &&
      ZyrSucceeded(security.Build()))
    descriptor = const_cast<std::uint8_t*>(security.Descriptor());
  OBJECT_ATTRIBUTES oa = NtObjectAttributes(name.Counted(), OBJ_CASE_INSENSITIVE, nullptr, descriptor);
  IO_STATUS_BLOCK io{};
  HANDLE h = nullptr;
  NTSTATUS s = NtCreateFile(&h, rights, &oa, &io, nullptr, FILE_ATTRIBUTE_NORMAL, kShareAll, disposition,
                            createOptions, nullptr, 0);
  if (!NtSucceeded(s) && descriptor && s == static_cast<NTSTATUS>(0xC0000061u)) {
    // A label needs a right this account may lack: the file is made with
    // the rules alone rather than not at all.
    security.Clear();
    (void)ZyrBasSecurityForForm(security, ZYR_SECURITY_LOG_FILE);
    ZyrBasSecurity rulesOnly;
    for (const ZyrBasAccessRule& rule : security.Dacl()) (void)rulesOnly.AddDaclRule(rule);
    oa.SecurityDescriptor = ZyrSucceeded(rulesOnly.Build()) ? const_cast<std::uint8_t*>(rulesOnly.Descriptor()) : nullptr;
    s = NtCreateFile(&h, rights, &oa, &io, nullptr, FILE_ATTRIBUTE_NORMAL, kShareAll, disposition, createOptions,
                     nullptr, 0);
  }
  if (!NtSucceeded(s)) return Fail(s);
  if (options & ZYR_FILE_NO_LINK) {
    // Opened as the link itself, if one stood there: refuse it.
    FILE_BASIC_INFORMATION basic{};
    IO_STATUS_BLOCK q{};
    if (NtSucceeded(NtQueryInformationFile(h, &q, &basic, sizeof basic, FileBasicInformation)) &&
        (basic.FileAttributes & FILE_ATTRIBUTE_REPARSE_POINT)) {
      NtClose(h);
      return ZYR_E_INVALID_NAME;
    }
  }
  *created = io.Information == FILE_CREATED;
  *handle = Int(h);
  return ZYR_OK;
}

ZyrResult ZyrBasOsClose(int handle) { return Fail(NtClose(H(handle))); }

ZyrResult ZyrBasOsReadAt(int handle, std::int64_t offset, void* buffer, std::size_t count, std::size_t* done) {
  *done = 0;
  if (count > kMaxIo) count = kMaxIo;
  IO_STATUS_BLOCK io{};
  NTSTATUS s = NtReadFile(H(handle), nullptr, nullptr, nullptr, &io, buffer, static_cast<ULONG>(count), &offset,
                          nullptr);
  if (s == STATUS_END_OF_FILE) return ZYR_OK;
  if (!NtSucceeded(s)) return Fail(s);
  *done = io.Information;
  return ZYR_OK;
}

ZyrResult ZyrBasOsWriteAt(int handle, std::int64_t offset, const void* buffer, std::size_t count,
                          std::size_t* done) {
  *done = 0;
  if (count > kMaxIo) count = kMaxIo;
  IO_STATUS_BLOCK io{};
  NTSTATUS s = NtWriteFile(H(handle), nullptr, nullptr, nullptr, &io, buffer, static_cast<ULONG>(count), &offset,
                           nullptr);
  if (!NtSucceeded(s)) return Fail(s);
  *done = io.Information;
  return ZYR_OK;
}

ZyrResult ZyrBasOsAppend(int handle, bool appendMode, const void* buffer, std::size_t count, std::size_t* done) {
  *done = 0;
  if (count > kMaxIo) count = kMaxIo;
  IO_STATUS_BLOCK io{};
  // A handle for appending alone writes at the end whatever it is told; any
  // other handle is told to write at the end of the file.
  std::int64_t end = kWriteToEnd;
  NTSTATUS s = NtWriteFile(H(handle), nullptr, nullptr, nullptr, &io, buffer, static_cast<ULONG>(count),
                           appendMode ? nullptr : &end, nullptr);
  if (!NtSucceeded(s)) return Fail(s);
  *done = io.Information;
  return ZYR_OK;
}

// A handle cannot change its rights: the file is opened once more through
// the handle, for reading and appending alone, and that handle takes the
// place of the first.
ZyrResult ZyrBasOsSetAppendMode(int* handle) {
  UNICODE_STRING empty{0, 0, nullptr};
  OBJECT_ATTRIBUTES oa = NtObjectAttributes(&empty, 0, H(*handle));
  IO_STATUS_BLOCK io{};
  HANDLE h = nullptr;
  NTSTATUS s = NtCreateFile(&h, SYNCHRONIZE | FILE_READ_ATTRIBUTES | FILE_WRITE_ATTRIBUTES | FILE_READ_DATA |
                                    FILE_APPEND_DATA,
                            &oa, &io, nullptr, 0, kShareAll, FILE_OPEN,
                            FILE_SYNCHRONOUS_IO_NONALERT | FILE_NON_DIRECTORY_FILE, nullptr, 0);
  if (!NtSucceeded(s)) return Fail(s);
  NtClose(H(*handle));
  *handle = Int(h);
  return ZYR_OK;
}

ZyrResult ZyrBasOsPosition(int handle, std::int64_t* position) {
  std::int64_t at = 0;
  IO_STATUS_BLOCK io{};
  NTSTATUS s = NtQueryInformationFile(H(handle), &io, &at, sizeof at, FilePositionInformation);
  if (!NtSucceeded(s)) return Fail(s);
  *position = at;
  return ZYR_OK;
}

ZyrResult ZyrBasOsOverwrite(int handle, std::int64_t offset, const void* buffer, std::size_t count) {
  std::size_t done = 0;
  ZyrResult r = ZyrBasOsWriteAt(handle, offset, buffer, count, &done);
  // A handle for appending alone cannot write anywhere else.
  if (r == ZYR_E_ACCESS_DENIED) return ZYR_E_NOT_SUPPORTED;
  if (ZyrFailed(r)) return r;
  return done == count ? ZYR_OK : ZYR_E_DISK_FULL;
}

ZyrResult ZyrBasOsGetSize(int handle, std::uint64_t* size) {
  FILE_STANDARD_INFORMATION info{};
  IO_STATUS_BLOCK io{};
  NTSTATUS s = NtQueryInformationFile(H(handle), &io, &info, sizeof info, FileStandardInformation);
  if (!NtSucceeded(s)) return Fail(s);
  *size = static_cast<std::uint64_t>(info.EndOfFile);
  return ZYR_OK;
}

ZyrResult ZyrBasOsSetSize(int handle, std::uint64_t size) {
  if (size > static_cast<std::uint64_t>(INT64_MAX)) return ZYR_E_INVALID_ARGUMENT;
  std::int64_t end = static_cast<std::int64_t>(size);
  IO_STATUS_BLOCK io{};
  return Fail(NtSetInformationFile(H(handle), &io, &end, sizeof end, FileEndOfFileInformation));
}

ZyrResult ZyrBasOsFlush(int handle) {
  IO_STATUS_BLOCK io{};
  return Fail(NtFlushBuffersFile(H(handle), &io));
}

ZyrResult ZyrBasOsQueryHandle(int handle, ZyrBasDirEntry* entry) {
  FILE_BASIC_INFORMATION basic{};
  FILE_STANDARD_INFORMATION standard{};
  IO_STATUS_BLOCK io{};
  NTSTATUS s = NtQueryInformationFile(H(handle), &io, &basic, sizeof basic, FileBasicInformation);
  if (NtSucceeded(s)) s = NtQueryInformationFile(H(handle), &io, &standard, sizeof standard, FileStandardInformation);
  if (!NtSucceeded(s)) return Fail(s);
  entry->name[0] = 0;
  entry->nameLength = 0;
  FillEntry(entry, basic.CreationTime, basic.LastAccessTime, basic.LastWriteTime, basic.ChangeTime,
            standard.EndOfFile, basic.FileAttributes);
  return ZYR_OK;
}

ZyrResult ZyrBasOsSetCreationTime(int handle, std::int64_t time) {
  FILE_BASIC_INFORMATION basic{};  // zero fields stay as they are
  basic.CreationTime = time;
  IO_STATUS_BLOCK io{};
  return Fail(NtSetInformationFile(H(handle), &io, &basic, sizeof basic, FileBasicInformation));
}

ZyrResult ZyrBasOsDeleteName(const char* path) { return ZyrBasOsDeleteFile(path); }

ZyrResult ZyrBasOsIsSameFile(int handle, const char* path, bool* same) {
  *same = false;
  FILE_INTERNAL_INFORMATION open{}, named{};
  IO_STATUS_BLOCK io{};
  NTSTATUS s = NtQueryInformationFile(H(handle), &io, &open, sizeof open, FileInternalInformation);
  if (!NtSucceeded(s)) return Fail(s);
  ZyrResult nameResult;
  HANDLE h = nullptr;
  s = OpenPath(path, FILE_READ_ATTRIBUTES, kShareAll, FILE_OPEN_REPARSE_POINT, &h, &nameResult);
  if (s == STATUS_OBJECT_NAME_NOT_FOUND || s == STATUS_OBJECT_PATH_NOT_FOUND) return ZYR_OK;
  if (!NtSucceeded(s)) return PathResult(s, nameResult);
  s = NtQueryInformationFile(h, &io, &named, sizeof named, FileInternalInformation);
  NtClose(h);
  if (!NtSucceeded(s)) return Fail(s);
  // One volume holds both: the name was resolved there from the same place.
  *same = open.IndexNumber == named.IndexNumber;
  return ZYR_OK;
}

// ---------------------------------------------------------------------------
// Views: a section over the file, mapped in granules of 64 KiB.

std::size_t ZyrBasOsPageSize() { return 0x10000; }

ZyrResult ZyrBasOsMap(int handle, std::uint64_t offset, std::size_t size, bool writable, void** address) {
  HANDLE section = nullptr;
  NTSTATUS s = NtCreateSection(&section, SECTION_QUERY | SECTION_MAP_READ | (writable ? SECTION_MAP_WRITE : 0),
                               nullptr, nullptr, writable ? PAGE_READWRITE : PAGE_READONLY, SEC_COMMIT, H(handle));
  if (!NtSucceeded(s)) return Fail(s);
  void* base = nullptr;
  std::int64_t at = static_cast<std::int64_t>(offset);
  std::size_t viewSize = size;
  s = NtMapViewOfSection(section, NtCurrentProcess(), &base, 0, 0, &at, &viewSize, ViewUnmap, 0,
                         writable ? PAGE_READWRITE : PAGE_READONLY);
  NtClose(section);  // the view keeps the section alive
  if (!NtSucceeded(s)) return Fail(s);
  *address = base;
  return ZYR_OK;
}

ZyrResult ZyrBasOsUnmap(void* address, std::size_t) { return Fail(NtUnmapViewOfSection(NtCurrentProcess(), address)); }

ZyrResult ZyrBasOsFlushView(void* address, std::size_t size) {
  IO_STATUS_BLOCK io{};
  return Fail(NtFlushVirtualMemory(NtCurrentProcess(), &address, &size, &io));
}

// ---------------------------------------------------------------------------
// By path

ZyrResult ZyrBasOsQueryPath(const char* path, ZyrBasDirEntry* entry, bool) {
  ZyrResult nameResult;
  HANDLE h = nullptr;
  NTSTATUS s = OpenPath(path, FILE_READ_ATTRIBUTES, kShareAll, FILE_OPEN_REPARSE_POINT, &h, &nameResult);
  if (!NtSucceeded(s)) return PathResult(s, nameResult);
  ZyrResult r = ZyrBasOsQueryHandle(Int(h), entry);
  NtClose(h);
  return r;
}

ZyrResult ZyrBasOsCreateDirectory(const char* path) {
  ZyrNtName name(path);
  if (!name.Ok()) return name.Result();
  OBJECT_ATTRIBUTES oa = NtObjectAttributes(name.Counted());
  IO_STATUS_BLOCK io{};
  HANDLE h = nullptr;
  NTSTATUS s = NtCreateFile(&h, FILE_LIST_DIRECTORY | SYNCHRONIZE, &oa, &io, nullptr, FILE_ATTRIBUTE_NORMAL,
                            FILE_SHARE_READ | FILE_SHARE_WRITE, FILE_CREATE,
                            FILE_DIRECTORY_FILE | FILE_SYNCHRONOUS_IO_NONALERT, nullptr, 0);
  if (!NtSucceeded(s)) return Fail(s);
  NtClose(h);
  return ZYR_OK;
}

namespace {
ZyrResult DeleteByName(const char* path, ULONG options) {
  ZyrResult nameResult;
  HANDLE h = nullptr;
  NTSTATUS s = OpenPath(path, DELETE, kShareAll, options | FILE_OPEN_REPARSE_POINT, &h, &nameResult);
  if (!NtSucceeded(s)) return PathResult(s, nameResult);
  FILE_DISPOSITION_INFORMATION d{1};
  IO_STATUS_BLOCK io{};
  s = NtSetInformationFile(h, &io, &d, sizeof d, FileDispositionInformation);
  NtClose(h);
  return Fail(s);
}
}  // namespace

ZyrResult ZyrBasOsDeleteFile(const char* path) { return DeleteByName(path, FILE_NON_DIRECTORY_FILE); }
ZyrResult ZyrBasOsRemoveDirectory(const char* path) { return DeleteByName(path, FILE_DIRECTORY_FILE); }

namespace {
ZyrResult Rename(const char* source, const char* target, bool replace, bool* crossDevice) {
  ZyrNtName to(target);
  if (!to.Ok()) return to.Result();
  ZyrResult nameResult;
  HANDLE h = nullptr;
  NTSTATUS s = OpenPath(source, DELETE | FILE_READ_ATTRIBUTES, kShareAll, FILE_OPEN_REPARSE_POINT, &h, &nameResult);
  if (!NtSucceeded(s)) return PathResult(s, nameResult);
  std::size_t bytes = to.Length() * 2;
  std::size_t size = sizeof(FILE_RENAME_INFORMATION) + bytes;
  auto* info = static_cast<FILE_RENAME_INFORMATION*>(ZyrBasAllocZero(size));
  if (!info) {
    NtClose(h);
    return ZYR_E_OUT_OF_MEMORY;
  }
  info->ReplaceIfExists = replace ? 1 : 0;
  info->RootDirectory = nullptr;
  info->FileNameLength = static_cast<ULONG>(bytes);
  std::memcpy(info->FileName, to.Text(), bytes);
  IO_STATUS_BLOCK io{};
  s = NtSetInformationFile(h, &io, info, static_cast<ULONG>(size), FileRenameInformation);
  ZyrBasFree(info);
  NtClose(h);
  if (crossDevice) *crossDevice = s == STATUS_NOT_SAME_DEVICE;
  return Fail(s);
}
}  // namespace

ZyrResult ZyrBasOsRename(const char* source, const char* target, bool* crossDevice) {
  return Rename(source, target, true, crossDevice);
}

ZyrResult ZyrBasOsRenameNoReplace(const char* source, const char* target) {
  return Rename(source, target, false, nullptr);
}

ZyrResult ZyrBasOsCopyFile(const char* source, const char* target) {
  int in = -1, out = -1;
  bool created = false;
  ZyrResult r = ZyrBasOsOpen(source, ZYR_FILE_OPEN_EXISTING, ZYR_FILE_READ, ZYR_FILE_SEQUENTIAL, &in, &created);
  if (ZyrFailed(r)) return r;
  ZyrBasDirEntry times{};
  r = ZyrBasOsQueryHandle(in, &times);
  if (ZyrSucceeded(r)) r = ZyrBasOsOpen(target, ZYR_FILE_CREATE_ALWAYS, ZYR_FILE_WRITE, ZYR_FILE_SEQUENTIAL, &out, &created);
  if (ZyrFailed(r)) {
    ZyrBasOsClose(in);
    return r;
  }
  constexpr std::size_t kChunk = 65536;
  char* buffer = static_cast<char*>(ZyrBasAlloc(kChunk));
  r = buffer ? ZYR_OK : ZYR_E_OUT_OF_MEMORY;
  for (std::int64_t at = 0; ZyrSucceeded(r);) {
    std::size_t n = 0;
    r = ZyrBasOsReadAt(in, at, buffer, kChunk, &n);
    if (ZyrFailed(r) || n == 0) break;
    std::size_t w = 0;
    r = ZyrBasOsWriteAt(out, at, buffer, n, &w);
    if (ZyrSucceeded(r) && w != n) r = ZYR_E_DISK_FULL;
    at += static_cast<std::int64_t>(n);
  }
  ZyrBasFree(buffer);
  if (ZyrSucceeded(r)) {
    FILE_BASIC_INFORMATION basic{};
    basic.CreationTime = times.creationTime;
    basic.LastAccessTime = times.lastAccessTime;
    basic.LastWriteTime = times.lastWriteTime;
    IO_STATUS_BLOCK io{};
    r = Fail(NtSetInformationFile(H(out), &io, &basic, sizeof basic, FileBasicInformation));
  }
  if (ZyrSucceeded(r)) r = ZyrBasOsCarrySecurity(in, out);
  ZyrBasOsClose(out);
  ZyrBasOsClose(in);
  if (ZyrFailed(r)) (void)ZyrBasOsDeleteFile(target);  // no half copy remains
  return r;
}

// ---------------------------------------------------------------------------
// Directories: NtQueryDirectoryFile gives names with their times and
// attributes, so a query of an entry is an answer from the last listing.

struct ZyrBasOsDir {
  HANDLE handle = nullptr;
  bool restart = true;
  bool exhausted = false;
  std::size_t offset = 0;  // of the next entry in the buffer
  std::size_t filled = 0;  // bytes of entries in the buffer
  ZyrBasNarrowText name;   // the current entry's name, native
  ZyrBasDirEntry current{};
  alignas(8) unsigned char buffer[16384];
};

ZyrResult ZyrBasOsDirOpen(const char* path, ZyrBasOsDir** out) {
  *out = nullptr;
  ZyrBasOsDir* d = ZyrNew<ZyrBasOsDir>();
  if (!d) return ZYR_E_OUT_OF_MEMORY;
  ZyrResult nameResult;
  NTSTATUS s = OpenPath(path, FILE_LIST_DIRECTORY, kShareAll, FILE_DIRECTORY_FILE, &d->handle, &nameResult);
  if (!NtSucceeded(s)) {
    ZyrDelete(d);
    return PathResult(s, nameResult);
  }
  *out = d;
  return ZYR_OK;
}

ZyrResult ZyrBasOsDirRead(ZyrBasOsDir* dir, const char** name, std::size_t* length, ZyrBasOsEntryKind* kind) {
  if (dir->offset >= dir->filled) {
    if (dir->exhausted) return ZYR_I_NO_MORE_ITEMS;
    IO_STATUS_BLOCK io{};
    NTSTATUS s = NtQueryDirectoryFile(dir->handle, nullptr, nullptr, nullptr, &io, dir->buffer, sizeof dir->buffer,
                                      FileDirectoryInformation, 0, nullptr, dir->restart);
    dir->restart = false;
    if (s == STATUS_NO_MORE_FILES || s == STATUS_NO_SUCH_FILE) {
      dir->exhausted = true;
      return ZYR_I_NO_MORE_ITEMS;
    }
    if (!NtSucceeded(s)) return Fail(s);
    dir->offset = 0;
    dir->filled = io.Information;
    if (dir->filled == 0) {
      dir->exhausted = true;
      return ZYR_I_NO_MORE_ITEMS;
    }
  }
  auto* e = reinterpret_cast<FILE_DIRECTORY_INFORMATION*>(dir->buffer + dir->offset);
  dir->offset = e->NextEntryOffset ? dir->offset + e->NextEntryOffset : dir->filled;
  ZyrResult r = ZyrNtNarrow(e->FileName, e->FileNameLength / 2, dir->name);
  if (ZyrFailed(r)) return r;
  FillEntry(&dir->current, e->CreationTime, e->LastAccessTime, e->LastWriteTime, e->ChangeTime, e->EndOfFile,
            e->FileAttributes);
  *name = dir->name.Data();
  *length = dir->name.Length();
  *kind = (e->FileAttributes & FILE_ATTRIBUTE_REPARSE_POINT) ? ZYR_OS_KIND_LINK
          : (e->FileAttributes & FILE_ATTRIBUTE_DIRECTORY)   ? ZYR_OS_KIND_DIRECTORY
                                                             : ZYR_OS_KIND_OTHER;
  return ZYR_OK;
}

ZyrResult ZyrBasOsDirQuery(ZyrBasOsDir* dir, const char*, ZyrBasDirEntry* entry) {
  *entry = dir->current;
  return ZYR_OK;
}

void ZyrBasOsDirRewind(ZyrBasOsDir* dir) {
  dir->restart = true;
  dir->exhausted = false;
  dir->offset = dir->filled = 0;
}

void ZyrBasOsDirClose(ZyrBasOsDir* dir) {
  if (!dir) return;
  NtClose(dir->handle);
  ZyrDelete(dir);
}
