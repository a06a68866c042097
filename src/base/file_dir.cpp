// Operations by path, the directory enumerator and temporary names.
#include <cstring>

#include "base/array.h"
#include "base/file.h"
#include "base/path.h"
#include "base/os/file_os.h"
#include "base/os/native_path.h"
#include "base/random.h"

namespace {

ZyrResult Native(const char16_t* path, std::size_t length, ZyrBasNarrowText& out) {
  if (!path) return ZYR_E_INVALID_ARGUMENT;
  return ZyrBasNativePath(path, length, out);
}

ZyrResult DirectoryExists(const char16_t* path, std::size_t length) {
  ZyrBasNarrowText native;
  ZyrResult r = Native(path, length, native);
  if (ZyrFailed(r)) return r;
  ZyrBasDirEntry e;
  r = ZyrBasOsQueryPath(native.Data(), &e, false);
  if (r == ZYR_E_FILE_NOT_FOUND) return ZYR_E_PATH_NOT_FOUND;
  if (ZyrFailed(r)) return r;
  return (e.attributes & ZYR_ATTR_DIRECTORY) ? ZYR_OK : ZYR_E_PATH_NOT_FOUND;
}

ZyrResult CreateDirectory(const char16_t* path, std::size_t length) {
  ZyrBasNarrowText native;
  ZyrResult r = Native(path, length, native);
  if (ZyrFailed(r)) return r;
  return ZyrBasOsCreateDirectory(native.Data());
}

ZyrResult RemoveDirectory(const char16_t* path, std::size_t length) {
  ZyrBasNarrowText native;
  ZyrResult r = Native(path, length, native);
  if (ZyrFailed(r)) return r;
  return ZyrBasOsRemoveDirectory(native.Data());
}

}  // namespace

ZyrResult ZyrBasFileAttributes(std::uint32_t* attributes, const char16_t* path) {
  ZyrBasNarrowText native;
  ZyrResult r = Native(path, ZYR_TERMINATED, native);
  if (ZyrFailed(r)) return r;
  ZyrBasDirEntry e;
  r = ZyrBasOsQueryPath(native.Data(), &e, true);
  if (ZyrSucceeded(r)) *attributes = e.attributes;
  return r;
}

ZyrResult ZyrBasFileInformation(ZyrBasDirEntry* entry, const char16_t* path) {
  ZyrBasNarrowText native;
  ZyrResult r = Native(path, ZYR_TERMINATED, native);
  if (ZyrFailed(r)) return r;
  return ZyrBasOsQueryPath(native.Data(), entry, true);
}

ZyrResult ZyrBasDirectoryExists(const char16_t* path) { return DirectoryExists(path, ZYR_TERMINATED); }

ZyrResult ZyrBasCreateDirectory(const char16_t* path) { return CreateDirectory(path, ZYR_TERMINATED); }

ZyrResult ZyrBasCreateDirectoryTree(const char16_t* path) {
  if (!path) return ZYR_E_INVALID_ARGUMENT;
  std::size_t n = ZyrBasStrLen(path);
  if (n >= 2 && ZyrBasIsPathSeparator(path[n - 1])) --n;

  // Walk up to the first parent that is a directory; the lengths of the
  // missing ones are kept, deepest first.
  ZyrBasArray<std::size_t> missing;
  std::size_t end = n;
  for (;;) {
    std::size_t i = end;
    while (i > 0 && !ZyrBasIsPathSeparator(path[i - 1])) --i;
    while (i > 0 && ZyrBasIsPathSeparator(path[i - 1])) --i;
    if (i == 0 || path[i - 1] == u':') break;
    if (DirectoryExists(path, i) == ZYR_OK) break;
    ZyrResult r = missing.Append(i);
    if (ZyrFailed(r)) return r;
    end = i;
  }

  // Top down, then the path itself; on a failure undo what this call made.
  ZyrBasArray<std::size_t> made;  // lengths of the levels this call made, top first
  ZyrResult failure = ZYR_OK;
  for (std::size_t k = missing.Count() + 1; k-- > 0;) {
    std::size_t length = k == 0 ? n : missing[k - 1];
    ZyrResult r = CreateDirectory(path, length);
    // Another process may make the same tree at the same moment (every
    // writer of a shared log makes its folder): a parent that stands as a
    // directory by now is no failure, and it is not ours to undo.
    if (r == ZYR_E_ALREADY_EXISTS && k != 0 && DirectoryExists(path, length) == ZYR_OK) continue;
    if (ZyrSucceeded(r) && k != 0) r = made.Append(length);
    if (ZyrFailed(r)) {
      failure = r;
      break;
    }
  }
  if (ZyrSucceeded(failure)) return ZYR_OK;
  for (std::size_t j = made.Count(); j-- > 0;) {  // the deepest level first
    ZyrBasString level;
    if (ZyrFailed(level.Assign(path, made[j]))) break;
    if (ZyrFailed(ZyrBasDeleteTree(level.Text(), false, 0))) break;
  }
  return failure;
}

ZyrResult ZyrBasDeleteFile(const char16_t* path, std::uint32_t) {
  ZyrBasNarrowText native;
  ZyrResult r = Native(path, ZYR_TERMINATED, native);
  if (ZyrFailed(r)) return r;
  return ZyrBasOsDeleteFile(native.Data());
}

ZyrResult ZyrBasRemoveDirectory(const char16_t* path) { return RemoveDirectory(path, ZYR_TERMINATED); }

ZyrResult ZyrBasDeleteTree(const char16_t* path, bool recursive, std::uint32_t flags) {
  if (!path) return ZYR_E_INVALID_ARGUMENT;
  if (!recursive) return ZyrBasRemoveDirectory(path);
  {
    ZyrBasDirEnum e;
    ZyrResult r = e.Open(path, u"*", ZYR_ENUM_ALL);
    ZyrBasString full;
    while (r == ZYR_OK) {
      const ZyrBasDirItem* item;
      r = e.Current(&item);
      if (ZyrFailed(r)) return r;
      std::size_t len = item->NameLength();
      const char16_t* name = item->Name();
      bool dots = (len == 1 && name[0] == u'.') || (len == 2 && name[0] == u'.' && name[1] == u'.');
      if (!dots) {
        r = item->FullPath(full);
        if (ZyrFailed(r)) return r;
        std::uint32_t a = item->Attributes();
        if (a & ZYR_ATTR_REPARSE_POINT) {
          // A link goes itself; what it leads to stays.
          r = (a & ZYR_ATTR_DIRECTORY) ? ZyrBasRemoveDirectory(full.Text()) : ZyrBasDeleteFile(full.Text(), flags);
        } else if (a & ZYR_ATTR_DIRECTORY) {
          r = ZyrBasDeleteTree(full.Text(), true, flags);
        } else {
          r = ZyrBasDeleteFile(full.Text(), flags);
        }
        if (ZyrFailed(r)) return r;
      }
      r = e.Next();
    }
    if (ZyrFailed(r)) return r;
  }
  return ZyrBasRemoveDirectory(path);
}

ZyrResult ZyrBasDeleteMatching(const char16_t* folder, const char16_t* pattern, std::uint32_t flags) {
  if (!folder) return ZYR_E_INVALID_ARGUMENT;
  ZyrResult r = ZyrBasDirectoryExists(folder);
  if (ZyrFailed(r)) return r;
  ZyrBasDirEnum e;
  r = e.Open(folder, pattern, ZYR_ENUM_FILES);
  ZyrBasString full;
  while (r == ZYR_OK) {
    const ZyrBasDirItem* item;
    r = e.Current(&item);
    if (ZyrSucceeded(r)) r = item->FullPath(full);
    if (ZyrSucceeded(r)) r = ZyrBasDeleteFile(full.Text(), flags);
    if (ZyrFailed(r)) return r;
    r = e.Next();
  }
  return r == ZYR_I_NO_MORE_ITEMS ? ZYR_OK : r;
}

ZyrResult ZyrBasMoveFile(const char16_t* source, const char16_t* target) {
  ZyrBasNarrowText from, to;
  ZyrResult r = Native(source, ZYR_TERMINATED, from);
  if (ZyrSucceeded(r)) r = Native(target, ZYR_TERMINATED, to);
  if (ZyrFailed(r)) return r;
  bool crossDevice = false;
  r = ZyrBasOsRename(from.Data(), to.Data(), &crossDevice);
  if (!crossDevice) return r;
  r = ZyrBasOsCopyFile(from.Data(), to.Data());
  if (ZyrFailed(r)) return r;
  ZyrResult d = ZyrBasOsDeleteFile(from.Data());
  return ZyrFailed(d) ? d : r;
}

ZyrResult ZyrBasMoveFileNoReplace(const char16_t* source, const char16_t* target) {
  ZyrBasNarrowText from, to;
  ZyrResult r = Native(source, ZYR_TERMINATED, from);
  if (ZyrSucceeded(r)) r = Native(target, ZYR_TERMINATED, to);
  if (ZyrFailed(r)) return r;
  return ZyrBasOsRenameNoReplace(from.Data(), to.Data());
}

ZyrResult ZyrBasCopyFile(const char16_t* source, const char16_t* target) {
  ZyrBasNarrowText from, to;
  ZyrResult r = Native(source, ZYR_TERMINATED, from);
  if (ZyrSucceeded(r)) r = Native(target, ZYR_TERMINATED, to);
  if (ZyrFailed(r)) return r;
  return ZyrBasOsCopyFile(from.Data(), to.Data());
}

// ---------------------------------------------------------------------------
// Temporary names

ZyrResult ZyrBasMakeTempStem(ZyrBasString& out) {
  unsigned char b[16];
  ZyrBasRandomBytes(b, sizeof b);
  b[6] = static_cast<unsigned char>((b[6] & 15) | 64);   // version 4
  b[8] = static_cast<unsigned char>((b[8] & 63) | 128);  // the standard variant
  static const char kHex[] = "0123456789abcdef";
  char16_t text[40];
  std::size_t w = 0;
  for (char c : {'z', 'y', 'r', '-'}) text[w++] = static_cast<char16_t>(c);
  for (int i = 0; i < 16; ++i) {
    text[w++] = static_cast<char16_t>(kHex[b[i] >> 4]);
    text[w++] = static_cast<char16_t>(kHex[b[i] & 15]);
    if (i == 3 || i == 5 || i == 7 || i == 9) text[w++] = u'-';
  }
  return out.Assign(text, w);
}

ZyrResult ZyrBasMakeTempName(ZyrBasString& out) {
  ZyrBasString built;
  ZyrResult r = built.Reserve(45, true);
  if (ZyrSucceeded(r)) r = ZyrBasMakeTempStem(built);
  if (ZyrSucceeded(r)) r = built.AppendAscii(".tmp");
  if (ZyrFailed(r)) return r;
  out.Swap(built);
  return ZYR_OK;
}

// ---------------------------------------------------------------------------
// Wildcards

bool ZyrBasMatchPattern(const char16_t* pattern, std::size_t patternLength, const char16_t* name,
                        std::size_t nameLength) {
  std::size_t p = 0, n = 0;
  std::size_t starP = ZYR_NPOS, starN = 0;
  while (n < nameLength) {
    if (p < patternLength && (pattern[p] == u'?' || pattern[p] == name[n])) {
      ++p;
      ++n;
    } else if (p < patternLength && pattern[p] == u'*') {
      starP = p++;
      starN = n;
    } else if (starP != ZYR_NPOS) {
      // Let the last "*" take one more character and try again.
      p = starP + 1;
      n = ++starN;
    } else {
      return false;
    }
  }
  while (p < patternLength && pattern[p] == u'*') ++p;
  return p == patternLength;
}

// ---------------------------------------------------------------------------
// Directory enumeration

ZyrResult ZyrBasDirItem::FullPath(ZyrBasString& out) const {
  return ZyrBasPathJoin(out, directory_.Text(), directory_.Length(), entry_.name, entry_.nameLength);
}

ZyrBasDirEnum::~ZyrBasDirEnum() { Close(); }

void ZyrBasDirEnum::Close() {
  ZyrBasOsDirClose(dir_);
  dir_ = nullptr;
  atEnd_ = true;
  left_ = false;
}

ZyrResult ZyrBasDirEnum::Open(const char16_t* directory, const char16_t* pattern, std::uint32_t flags) {
  Close();
  ZyrBasNarrowText native;
  ZyrResult r = Native(directory, ZYR_TERMINATED, native);
  if (ZyrSucceeded(r)) r = item_.directory_.Assign(directory);
  std::size_t p = pattern ? ZyrBasStrLen(pattern) : 0;
  if (ZyrSucceeded(r)) {
    bool all = p == 0 || (p == 3 && pattern[0] == u'*' && pattern[1] == u'.' && pattern[2] == u'*');
    r = all ? pattern_.Assign(u"*", 1) : pattern_.Assign(pattern, p);
  }
  if (ZyrSucceeded(r)) r = ZyrBasOsDirOpen(native.Data(), &dir_);
  if (ZyrFailed(r)) return r;
  flags_ = flags;
  atEnd_ = false;
  return Advance();
}

ZyrResult ZyrBasDirEnum::Advance() {
  ZyrBasDirEntry& e = item_.entry_;
  char16_t name[260];
  for (;;) {
    const char* raw;
    std::size_t rawLength;
    ZyrBasOsEntryKind kind;
    ZyrResult r = ZyrBasOsDirRead(dir_, &raw, &rawLength, &kind);
    if (r == ZYR_I_NO_MORE_ITEMS) {
      atEnd_ = true;
      return r;
    }
    if (ZyrFailed(r)) return r;
    std::size_t length;
    r = ZyrBasWideFromNativeFixed(raw, rawLength, name, 260, &length);
    if (ZyrFailed(r)) return r;
    if (!ZyrBasMatchPattern(pattern_.Text(), pattern_.Length(), name, length)) continue;
    bool dot = length == 1 && name[0] == u'.';
    bool dotdot = length == 2 && name[0] == u'.' && name[1] == u'.';
    if (dot && !(flags_ & ZYR_ENUM_DOT)) continue;
    if (dotdot && !(flags_ & ZYR_ENUM_DOTDOT)) continue;
    // The kind from the directory saves a query for what is passed over.
    if (!dot && !dotdot) {
      if (kind == ZYR_OS_KIND_LINK && !(flags_ & ZYR_ENUM_LINKS)) continue;
      if (kind == ZYR_OS_KIND_DIRECTORY && !(flags_ & ZYR_ENUM_DIRECTORIES)) continue;
      if (kind == ZYR_OS_KIND_OTHER && !(flags_ & ZYR_ENUM_FILES)) continue;
    }
    if ((flags_ & ZYR_ENUM_NAMES_ONLY) && kind != ZYR_OS_KIND_UNKNOWN) {
      e = ZyrBasDirEntry{};
      r = ZYR_OK;
    } else {
      r = ZyrBasOsDirQuery(dir_, raw, &e);
    }
    if (r == ZYR_E_FILE_NOT_FOUND) continue;  // gone since it was listed
    if (ZyrFailed(r)) return r;
    if (!dot && !dotdot && kind == ZYR_OS_KIND_UNKNOWN) {
      std::uint32_t a = e.attributes;
      if ((a & ZYR_ATTR_REPARSE_POINT) ? !(flags_ & ZYR_ENUM_LINKS)
          : (a & ZYR_ATTR_DIRECTORY)   ? !(flags_ & ZYR_ENUM_DIRECTORIES)
                                       : !(flags_ & ZYR_ENUM_FILES))
        continue;
    }
    std::memcpy(e.name, name, (length + 1) * sizeof(char16_t));
    e.nameLength = static_cast<std::uint16_t>(length);
    return ZYR_OK;
  }
}

ZyrResult ZyrBasDirEnum::Current(const ZyrBasDirItem** item) const {
  if (!dir_ || atEnd_) return ZYR_E_NO_MORE_ITEMS;
  *item = &item_;
  return ZYR_OK;
}

ZyrResult ZyrBasDirEnum::Next() {
  if (!dir_ || atEnd_) return ZYR_E_NO_MORE_ITEMS;
  left_ = true;
  return Advance();
}

ZyrResult ZyrBasDirEnum::Rewind() {
  if (!dir_) return ZYR_E_INVALID_HANDLE;
  if (!left_ && !atEnd_) return ZYR_OK;
  ZyrBasOsDirRewind(dir_);
  left_ = false;
  atEnd_ = false;
  return Advance();
}
