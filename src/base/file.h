// Files and directories: a byte stream over an open file with mapped views,
// operations by path, a directory enumerator with wildcards, and unique
// temporary names.
//
// Paths are DOS-style wide paths (base/path.h); each operation turns them
// into the native name at its start. Every operation answers a ZyrResult.
#ifndef ZYR_BASE_FILE_H
#define ZYR_BASE_FILE_H

#include <cstddef>
#include <cstdint>

#include "base/string.h"
#include "zyrlog/result.h"

// Open modes.
inline constexpr std::uint32_t ZYR_FILE_CREATE_NEW = 0;          // fails if the file exists
inline constexpr std::uint32_t ZYR_FILE_CREATE_ALWAYS = 1;       // create or replace
inline constexpr std::uint32_t ZYR_FILE_OPEN_EXISTING = 2;       // fails if the file is missing
inline constexpr std::uint32_t ZYR_FILE_OPEN_ALWAYS = 3;         // open or create
inline constexpr std::uint32_t ZYR_FILE_TRUNCATE_EXISTING = 4;   // open and empty; fails if missing
inline constexpr std::uint32_t ZYR_FILE_APPEND = 5;              // open or create; every write at the end

// Access flags.
inline constexpr std::uint32_t ZYR_FILE_READ = 1;
inline constexpr std::uint32_t ZYR_FILE_WRITE = 2;

// Share flags. They cannot be enforced on this platform: they are recorded
// (SharedAccess) and decide whether the file counts as stable.
inline constexpr std::uint32_t ZYR_FILE_SHARE_READ = 1;
inline constexpr std::uint32_t ZYR_FILE_SHARE_WRITE = 2;
inline constexpr std::uint32_t ZYR_FILE_SHARE_DELETE = 4;

// Option flags.
inline constexpr std::uint32_t ZYR_FILE_DELETE_ON_CLOSE = 1;
inline constexpr std::uint32_t ZYR_FILE_ASYNCHRONOUS = 2;  // recorded; I/O stays synchronous here
inline constexpr std::uint32_t ZYR_FILE_RANDOM_ACCESS = 4;
inline constexpr std::uint32_t ZYR_FILE_SEQUENTIAL = 8;
// The access rules of log and lock files: a file that this open creates is
// made readable and writable by every account (mode 0666, whatever the
// umask, on Linux; the log-file descriptor of base/security.h on NT),
// because processes of all accounts share one log.
inline constexpr std::uint32_t ZYR_FILE_SHARED_BY_ALL = 0x100;
// The final name must be the file itself: a symbolic link standing there,
// dangling or not, fails the open with ZYR_E_INVALID_NAME, and nothing is
// opened, created or written through it. For log, lock and temporary files
// in folders that other accounts may write to, where a planted link would
// otherwise make this process write wherever the link points.
inline constexpr std::uint32_t ZYR_FILE_NO_LINK = 0x200;

// Attributes, in the numbers the upper layers test.
inline constexpr std::uint32_t ZYR_ATTR_READONLY = 0x1;
inline constexpr std::uint32_t ZYR_ATTR_DIRECTORY = 0x10;
inline constexpr std::uint32_t ZYR_ATTR_NORMAL = 0x80;
inline constexpr std::uint32_t ZYR_ATTR_REPARSE_POINT = 0x400;  // a symbolic link
inline constexpr std::uint32_t ZYR_ATTR_COMPRESSED = 0x800;

// Largest view that Map makes: 128 MiB.
inline constexpr std::size_t kZyrBasMaxView = 0x8000000;

class ZyrBasFile;
class ZyrBasFileView;

// What one directory entry (or one path) gives. Times are NT times: UTC,
// 100-nanosecond units since 1601-01-01.
struct ZyrBasDirEntry {
  std::uint32_t attributes;
  std::int64_t creationTime;
  std::int64_t lastAccessTime;
  std::int64_t lastWriteTime;
  std::uint32_t sizeHigh;
  std::uint32_t sizeLow;
  char16_t name[260];
  char16_t shortName[13];  // always empty here
  std::int64_t changeTime;
  std::uint32_t extendedAttributesSize;
  std::uint16_t nameLength;
};

// ---------------------------------------------------------------------------
// Streams

class ZyrBasStream;

// Hand an open file's handle to another holder: the exporter writes what
// stands for the handle into the serial stream, the importer gives a handle
// back for it. Both are the caller's; the library brings none.
class ZyrBasHandleExporter {
 public:
  virtual ZyrResult Export(ZyrBasStream& target, int handle) = 0;

 protected:
  ~ZyrBasHandleExporter() = default;
};

class ZyrBasHandleImporter {
 public:
  virtual ZyrResult Import(ZyrBasStream& source, int* handle) = 0;

 protected:
  ~ZyrBasHandleImporter() = default;
};

class ZyrBasStream {
 public:
  virtual ~ZyrBasStream() = default;
  virtual bool IsOpen() const = 0;
  virtual bool IsAsynchronous() const = 0;
  virtual bool CanRead() const { return false; }
  virtual bool CanWrite() const { return false; }
  // `done`, if given, receives the count moved, also on failure.
  virtual ZyrResult Read(void* buffer, std::size_t count, std::size_t* done, std::uint32_t flags = 0) = 0;
  virtual ZyrResult Write(const void* buffer, std::size_t count, std::size_t* done,
                          std::uint32_t flags = 0) = 0;
  virtual bool CanSerialize() const { return false; }
  virtual ZyrResult Serialize(ZyrBasStream& target, ZyrBasHandleExporter& exporter, std::uint32_t flags);
  virtual ZyrResult Deserialize(ZyrBasStream& source, ZyrBasHandleImporter& importer, std::uint32_t flags);
};

// A stream with a position over addressable bytes. Read and Write go
// through ReadAt and WriteAt at the position, which moves on by the count
// moved (by the count asked when no `done` is given); a failure leaves it.
class ZyrBasRandomStream : public ZyrBasStream {
 public:
  ZyrResult Read(void* buffer, std::size_t count, std::size_t* done, std::uint32_t flags = 0) override;
  ZyrResult Write(const void* buffer, std::size_t count, std::size_t* done,
                  std::uint32_t flags = 0) override;
  // A negative offset gives ZYR_E_INVALID_ARGUMENT. A read of fewer bytes
  // than asked gives ZYR_I_SHORT_READ, or ZYR_E_END_OF_DATA with none read
  // or without `done`.
  virtual ZyrResult ReadAt(std::int64_t offset, void* buffer, std::size_t count, std::size_t* done,
                           std::uint32_t flags = 0) = 0;
  virtual ZyrResult WriteAt(std::int64_t offset, const void* buffer, std::size_t count,
                            std::size_t* done, std::uint32_t flags = 0) = 0;
  virtual ZyrResult Tell(std::int64_t* position);
  // Origin 0 from the start, 1 from the position, 2 from the end. A result
  // below 0 gives ZYR_E_NEGATIVE_SEEK and leaves the position; past the end
  // is allowed.
  virtual ZyrResult Seek(std::int64_t offset, int origin);
  virtual ZyrResult GetSize(std::uint64_t* size) = 0;
  virtual ZyrResult SetSize(std::uint64_t size) = 0;
  virtual ZyrResult Map(std::uint64_t offset, std::size_t size, ZyrBasFileView** view,
                        std::uint32_t flags = 0) = 0;

 protected:
  std::int64_t position_ = 0;
};

class ZyrBasFileBase : public ZyrBasRandomStream {
 public:
  ZyrBasFileBase() = default;
  ZyrBasFileBase(const ZyrBasFileBase&) = delete;
  ZyrBasFileBase& operator=(const ZyrBasFileBase&) = delete;
  ~ZyrBasFileBase() override = default;

  bool IsOpen() const override { return handle_ >= 0 || sectionHeld_; }
  bool IsAsynchronous() const override { return false; }
  bool CanRead() const override { return IsOpen() && (access_ & ZYR_FILE_READ); }
  bool CanWrite() const override { return IsOpen() && (access_ & ZYR_FILE_WRITE); }
  ZyrResult ReadAt(std::int64_t offset, void* buffer, std::size_t count, std::size_t* done,
                   std::uint32_t flags = 0) override;
  ZyrResult WriteAt(std::int64_t offset, const void* buffer, std::size_t count, std::size_t* done,
                    std::uint32_t flags = 0) override;
  ZyrResult GetSize(std::uint64_t* size) override;
  ZyrResult SetSize(std::uint64_t size) override;
  // A view of the file from `offset`: `size` 0 asks for all a view may hold
  // (128 MiB); a larger size counts as that limit. An offset at or beyond
  // the end gives ZYR_E_END_OF_DATA. The view is freed with ZyrDelete, and
  // must not outlive this object.
  ZyrResult Map(std::uint64_t offset, std::size_t size, ZyrBasFileView** view,
                std::uint32_t flags = 0) override;
  // Closes the file and forgets the mapping; views already made stay valid
  // until they are unmapped. The last failure is the result.
  virtual ZyrResult Close();

  // Appends the buffer at the end of the file in one system write, so that
  // writers in several processes never overwrite or tear each other's
  // lines, whatever mode the file was opened in.
  ZyrResult Append(const void* buffer, std::size_t count, std::size_t* done);
  // Append mode from now on, for a file opened without it: Append is then
  // one plain write, the cheapest call that appends atomically.
  ZyrResult SetAppendMode();
  // The end of the file as the last Append left it: the position after the
  // bytes it placed, so it counts what others had appended before them.
  ZyrResult AppendEnd(std::int64_t* end);
  // Writes over bytes at `offset`, in append mode too; never beyond what
  // the caller wrote itself. ZYR_E_NOT_SUPPORTED where the system can't.
  ZyrResult Overwrite(std::int64_t offset, const void* buffer, std::size_t count);
  // Data to the disk.
  ZyrResult Flush();
  // Creation time (NT time): the file system's birth time where it keeps
  // one; else the time stored by SetCreationTime or at creation; else the
  // last-write time.
  ZyrResult GetCreationTime(std::int64_t* time);
  ZyrResult SetCreationTime(std::int64_t time);
  // Times, size and attributes of the open file.
  ZyrResult Query(ZyrBasDirEntry* entry);
  // Whether `path` (a link there not followed) still names this open file:
  // false once the file was removed or renamed away, or another file or a
  // link stands at the name. Two system calls.
  ZyrResult IsAt(const char16_t* path, bool* same);

  std::uint32_t SharedAccess() const { return share_; }
  bool IsStable() const { return stable_; }
  // The system's handle (a descriptor), for the platform layer only.
  int NativeHandle() const { return handle_; }

 protected:
  friend class ZyrBasFileView;

  std::uint32_t access_ = 0;
  int handle_ = -1;
  bool sectionHeld_ = false;  // a mapping exists over the file
  bool stable_ = false;       // read-only access, no sharing for writers
  std::uint32_t viewCount_ = 0;
  std::uint64_t sectionSize_ = 0;
  std::uint64_t reserved_ = 0;
  bool sizeKnown_ = false;
  std::uint64_t cachedSize_ = 0;
  bool asynchronous_ = false;
  bool append_ = false;
  std::uint32_t share_ = 0;
  std::uint32_t generation_ = 0;  // counts closes, so that old views leave the count alone
  ZyrBasNarrowText deleteOnClose_;  // the native name, for option ZYR_FILE_DELETE_ON_CLOSE
  bool deleteOnCloseArmed_ = false;
};

class ZyrBasFile : public ZyrBasFileBase {
 public:
  ZyrBasFile() = default;
  ~ZyrBasFile() override;  // closes what is open; the result is dropped

  // Opens `path` (terminated); an open file is closed first. Failures are
  // the system's, mapped: ZYR_E_FILE_NOT_FOUND, ZYR_E_ALREADY_EXISTS,
  // ZYR_E_ACCESS_DENIED and so on.
  ZyrResult Open(const char16_t* path, std::uint32_t mode, std::uint32_t access, std::uint32_t share,
                 std::uint32_t options);
  bool IsAsynchronous() const override { return asynchronous_; }

  // The serial form: version (16 bits, 4), a byte telling whether the
  // handle is valid and then the handle through the exporter, a byte for
  // the section (always 0 here: a mapping has no handle of its own), the
  // access byte, the section size, the reserved value, the stable and
  // size-known bytes, the cached size and the asynchronous byte; numbers
  // little-endian. Reading closes what is open first; a flag byte of 2 or
  // more, another version or a cut stream gives ZYR_E_CORRUPT_STREAM. The
  // position is not carried.
  bool CanSerialize() const override { return true; }
  ZyrResult Serialize(ZyrBasStream& target, ZyrBasHandleExporter& exporter, std::uint32_t flags) override;
  ZyrResult Deserialize(ZyrBasStream& source, ZyrBasHandleImporter& importer, std::uint32_t flags) override;
};

// A mapped view. Address() points at the offset asked for in Map, and
// Size() bytes from there are usable.
class ZyrBasFileView {
 public:
  virtual ~ZyrBasFileView();  // unmaps a view still mapped
  virtual ZyrResult Flush();
  virtual ZyrResult Unmap();

  void* Address() const { return address_; }
  std::uint64_t Offset() const { return offset_; }
  std::size_t Size() const { return size_; }
  std::uint64_t AlignedOffset() const { return alignedOffset_; }
  std::size_t AlignedSize() const { return alignedSize_; }
  bool ReachesEnd() const { return reachesEnd_; }
  std::uint32_t Flags() const { return flags_; }

 private:
  friend class ZyrBasFileBase;
  ZyrBasFileView() = default;

  void* address_ = nullptr;
  std::uint64_t offset_ = 0;
  std::size_t size_ = 0;
  std::uint64_t alignedOffset_ = 0;
  std::size_t alignedSize_ = 0;
  bool reachesEnd_ = false;
  std::uint32_t flags_ = 0;
  ZyrBasFileBase* file_ = nullptr;
  std::uint32_t generation_ = 0;
  void* base_ = nullptr;  // the mapping as the system made it
};

// ---------------------------------------------------------------------------
// By path. A null path gives ZYR_E_INVALID_ARGUMENT in all of them.

// Attributes of the path itself: a link answers for itself (with the
// directory bit when it leads to a directory).
ZyrResult ZyrBasFileAttributes(std::uint32_t* attributes, const char16_t* path);
// Attributes, times and size of the path itself.
ZyrResult ZyrBasFileInformation(ZyrBasDirEntry* entry, const char16_t* path);
// ZYR_OK for a directory; ZYR_E_PATH_NOT_FOUND for a file or nothing.
ZyrResult ZyrBasDirectoryExists(const char16_t* path);
// One level; an existing directory gives ZYR_E_ALREADY_EXISTS.
ZyrResult ZyrBasCreateDirectory(const char16_t* path);
// The directory and its missing parents. If one level fails, the levels
// made by this call are removed again and that failure is the result. The
// path itself is not looked at first: if it exists, the result is
// ZYR_E_ALREADY_EXISTS.
ZyrResult ZyrBasCreateDirectoryTree(const char16_t* path);
// Removes a file or link (never a directory). No flag changes anything
// here: the mode of a file does not stop its removal.
ZyrResult ZyrBasDeleteFile(const char16_t* path, std::uint32_t flags);
// Removes an empty directory, or a link to one (the link itself).
ZyrResult ZyrBasRemoveDirectory(const char16_t* path);
// Without `recursive` ZyrBasRemoveDirectory; with it, the content first.
// Links are removed, never followed.
ZyrResult ZyrBasDeleteTree(const char16_t* path, bool recursive, std::uint32_t flags);
// Deletes the files of `folder` that match `pattern`. A missing folder gives
// ZYR_E_PATH_NOT_FOUND; no match gives ZYR_OK; the first failure stops.
ZyrResult ZyrBasDeleteMatching(const char16_t* folder, const char16_t* pattern, std::uint32_t flags);
// Renames, replacing the target. Across file systems: copy, then delete the
// source, with the same result to the caller.
ZyrResult ZyrBasMoveFile(const char16_t* source, const char16_t* target);
// Renames only where the target does not exist yet: ZYR_E_ALREADY_EXISTS
// otherwise, with nothing changed. Both names on one file system.
ZyrResult ZyrBasMoveFileNoReplace(const char16_t* source, const char16_t* target);
// Copies content, times and mode, replacing the target. A failure of the
// copy leaves no half target; an owner that cannot be carried over gives
// ZYR_I_SECURITY_NOT_COPIED with the copy standing.
ZyrResult ZyrBasCopyFile(const char16_t* source, const char16_t* target);

// "zyr-" and a version-4 GUID in lower-case text (40 characters); the name
// adds ".tmp" (44 characters).
ZyrResult ZyrBasMakeTempStem(ZyrBasString& out);
ZyrResult ZyrBasMakeTempName(ZyrBasString& out);

// True if `name` matches `pattern`: "*" any run, "?" one character, all
// else exactly (names here are case-sensitive).
bool ZyrBasMatchPattern(const char16_t* pattern, std::size_t patternLength, const char16_t* name,
                        std::size_t nameLength);

// ---------------------------------------------------------------------------
// Directory enumeration

inline constexpr std::uint32_t ZYR_ENUM_DOTDOT = 1;       // the ".." entry
inline constexpr std::uint32_t ZYR_ENUM_DOT = 2;          // the "." entry
inline constexpr std::uint32_t ZYR_ENUM_DIRECTORIES = 4;
inline constexpr std::uint32_t ZYR_ENUM_FILES = 8;        // anything not a directory
inline constexpr std::uint32_t ZYR_ENUM_LINKS = 16;       // without it links are skipped
inline constexpr std::uint32_t ZYR_ENUM_ALL = 255;
// Names only: an entry whose kind the directory tells is not queried, and
// its times, size and attributes read 0. For callers that want a listing
// at the cost of reading the directory alone.
inline constexpr std::uint32_t ZYR_ENUM_NAMES_ONLY = 0x100;

// The present entry of an enumeration, with the enumerated directory.
class ZyrBasDirItem {
 public:
  const char16_t* Name() const { return entry_.name; }
  std::size_t NameLength() const { return entry_.nameLength; }
  const char16_t* Directory() const { return directory_.Text(); }
  // The directory joined with the name.
  ZyrResult FullPath(ZyrBasString& out) const;
  const char16_t* ShortName() const { return entry_.shortName; }
  std::int64_t CreationTime() const { return entry_.creationTime; }
  std::int64_t LastAccessTime() const { return entry_.lastAccessTime; }
  std::int64_t LastWriteTime() const { return entry_.lastWriteTime; }
  std::int64_t ChangeTime() const { return entry_.changeTime; }
  std::uint32_t ExtendedAttributesSize() const { return entry_.extendedAttributesSize; }
  std::uint64_t Size() const { return (static_cast<std::uint64_t>(entry_.sizeHigh) << 32) | entry_.sizeLow; }
  std::uint32_t Attributes() const { return entry_.attributes; }
  const ZyrBasDirEntry& Entry() const { return entry_; }

 private:
  friend class ZyrBasDirEnum;
  ZyrBasString directory_;
  ZyrBasDirEntry entry_{};
};

struct ZyrBasOsDir;

class ZyrBasDirEnum {
 public:
  ZyrBasDirEnum() = default;
  ~ZyrBasDirEnum();
  ZyrBasDirEnum(const ZyrBasDirEnum&) = delete;
  ZyrBasDirEnum& operator=(const ZyrBasDirEnum&) = delete;

  // Opens and moves to the first entry that the flags and the pattern admit
  // (empty and "*.*" mean "*"). ZYR_I_NO_MORE_ITEMS if there is none.
  ZyrResult Open(const char16_t* directory, const char16_t* pattern, std::uint32_t flags);
  // The present entry; ZYR_E_NO_MORE_ITEMS after the end.
  ZyrResult Current(const ZyrBasDirItem** item) const;
  // Moves on; ZYR_I_NO_MORE_ITEMS at the end, ZYR_E_NO_MORE_ITEMS beyond it.
  ZyrResult Next();
  // Back to the first entry; nothing to do while that one was not left.
  ZyrResult Rewind();
  void Close();

 private:
  ZyrResult Advance();

  ZyrBasOsDir* dir_ = nullptr;
  ZyrBasString pattern_;
  std::uint32_t flags_ = 0;
  bool atEnd_ = true;
  bool left_ = false;  // the first entry was left
  ZyrBasDirItem item_;
};

#endif
