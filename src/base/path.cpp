#include "base/path.h"

#include <cstring>

#include "base/os/native_path.h"

namespace {

inline bool IsSep(char16_t c) { return ZyrBasIsPathSeparator(c); }

// What the algebra writes between components: the platform's own separator.
constexpr char16_t kSep = kZyrBasPathSeparator;

inline bool IsAsciiLetter(char16_t c) { return (c >= u'a' && c <= u'z') || (c >= u'A' && c <= u'Z'); }

inline std::size_t Measure(const char16_t* text, std::size_t length) {
  if (!text) return 0;
  return length == ZYR_TERMINATED ? ZyrBasStrLen(text) : length;
}

// Leaves the target untouched unless the whole result could be built.
ZyrResult Commit(ZyrBasString& out, ZyrBasString& built) {
  out.Swap(built);
  return ZYR_OK;
}

ZyrResult AssignTo(ZyrBasString& out, const char16_t* text, std::size_t length) {
  ZyrBasString built;
  ZyrResult r = built.Assign(text, length);
  if (ZyrFailed(r)) return r;
  return Commit(out, built);
}

ZyrResult ToRef(ZyrBasStringRef& out, ZyrResult r, const ZyrBasString& built) {
  if (ZyrFailed(r)) return r;
  return out.Assign(built.Text(), built.Length());
}

// ASCII-insensitive prefix test: NT object names ignore case.
bool StartsNoCase(const char16_t* p, std::size_t n, const char* prefix) {
  std::size_t k = std::strlen(prefix);
  if (n < k) return false;
  for (std::size_t i = 0; i < k; ++i) {
    char16_t a = p[i];
    char16_t b = static_cast<unsigned char>(prefix[i]);
    if (a >= u'a' && a <= u'z') a = static_cast<char16_t>(a - 32);
    if (b >= u'a' && b <= u'z') b = static_cast<char16_t>(b - 32);
    if (a != b) return false;
  }
  return true;
}

// "X:" at the start. A leading separator makes a rooted path whatever
// follows, so "\:x" names ":x" at the root and not a drive "\:".
bool HasDrive(const char16_t* p, std::size_t n) { return n >= 2 && p[1] == u':' && !IsSep(p[0]); }

bool IsDriveForm(const char16_t* p, std::size_t n) { return HasDrive(p, n) && (n == 2 || IsSep(p[2])); }

}  // namespace

// ---------------------------------------------------------------------------
// Forms and parts

bool ZyrBasPathIsAbsolute(const char16_t* path, std::size_t length) {
  std::size_t n = Measure(path, length);
  if (IsDriveForm(path, n)) return true;
  return n >= 2 && IsSep(path[0]) && IsSep(path[1]);
}

std::size_t ZyrBasPathRootLength(const char16_t* path, std::size_t length) {
  std::size_t n = Measure(path, length);
  if (HasDrive(path, n)) return (n > 2 && IsSep(path[2])) ? 3 : 2;
  if (n >= 2 && IsSep(path[0]) && IsSep(path[1])) {
    if (n == 2) return 2;
    std::size_t i = 2;
    while (i < n && !IsSep(path[i])) ++i;  // behind the server name
    if (i == n) return n;
    if (i + 1 == n) return i + 1;
    ++i;
    while (i < n && !IsSep(path[i])) ++i;  // behind the share name
    return i;
  }
  if (n >= 1 && IsSep(path[0])) return 1;
  return 0;
}

ZyrResult ZyrBasPathRoot(ZyrBasString& out, const char16_t* path, std::size_t length) {
  std::size_t n = Measure(path, length);
  return AssignTo(out, path, ZyrBasPathRootLength(path, n));
}

ZyrResult ZyrBasPathDirectory(ZyrBasString& out, const char16_t* path, std::size_t length) {
  std::size_t n = Measure(path, length);
  if (n == 0) {
    out.Clear();
    return ZYR_OK;
  }
  // From the last character but one, so that a trailing separator is no cut.
  std::size_t i = n >= 2 ? n - 2 : 0;
  while (i > 0 && !IsSep(path[i])) --i;
  if (IsSep(path[i]))
    while (i > 0 && IsSep(path[i - 1])) --i;
  ZyrBasString built;
  ZyrResult r = ZYR_OK;
  if (i == 0) {
    if (IsSep(path[0])) {
      r = built.Append(kSep);
    } else if (n >= 2 && path[1] == u':') {
      // "C:" and "C:x": the drive's root, never the bare "C:".
      r = built.Assign(path, 2);
      if (ZyrSucceeded(r)) r = built.Append(kSep);
    }
  } else {
    std::size_t keep = path[i - 1] == u':' ? i + 1 : i;  // "C:\x" gives "C:\"
    r = built.Assign(path, keep);
    if (ZyrSucceeded(r) && built[built.Length() - 1] == u':') r = built.Append(kSep);
  }
  if (ZyrFailed(r)) return r;
  return Commit(out, built);
}

ZyrResult ZyrBasPathDirectory(ZyrBasStringRef& out, const char16_t* path, std::size_t length) {
  ZyrBasString built;
  return ToRef(out, ZyrBasPathDirectory(built, path, length), built);
}

ZyrResult ZyrBasPathDriveRoot(ZyrBasString& out, const char16_t* path, std::size_t length) {
  std::size_t n = Measure(path, length);
  std::size_t colon = ZYR_NPOS;
  for (std::size_t i = 0; i < n; ++i)
    if (path[i] == u':') {
      colon = i;
      break;
    }
  if (colon == ZYR_NPOS) {
    out.Clear();
    return ZYR_E_INVALID_DATA;
  }
  ZyrBasString built;
  ZyrResult r = built.Assign(path, colon + 1);
  if (ZyrSucceeded(r)) r = built.Append(kSep);
  if (ZyrFailed(r)) return r;
  return Commit(out, built);
}

ZyrResult ZyrBasPathFileName(ZyrBasString& out, const char16_t* path, std::size_t length) {
  std::size_t n = Measure(path, length);
  if (n == 2 && path[1] == u':' && IsAsciiLetter(path[0])) {
    out.Clear();
    return ZYR_OK;
  }
  std::size_t start = n;
  while (start > 0 && !IsSep(path[start - 1])) --start;
  return AssignTo(out, path + start, n - start);
}

ZyrResult ZyrBasPathStem(ZyrBasString& out, const char16_t* path, std::size_t length) {
  std::size_t n = Measure(path, length);
  std::size_t start = n;
  while (start > 0 && !IsSep(path[start - 1]) && path[start - 1] != u':') --start;
  std::size_t end = n;
  for (std::size_t i = n; i > start; --i)
    if (path[i - 1] == u'.') {
      end = i - 1;
      break;
    }
  return AssignTo(out, path + start, end - start);
}

ZyrResult ZyrBasPathExtension(ZyrBasString& out, const char16_t* path, std::size_t length) {
  std::size_t n = Measure(path, length);
  for (std::size_t i = n; i > 0; --i) {
    char16_t c = path[i - 1];
    if (IsSep(c) || c == u':') break;
    if (c == u'.') {
      if (i == n) break;  // a name ending in "." has no extension
      return AssignTo(out, path + i - 1, n - (i - 1));
    }
  }
  out.Clear();
  return ZYR_OK;
}

ZyrResult ZyrBasPathChangeExtension(ZyrBasString& out, const char16_t* path, std::size_t pathLength,
                                    const char16_t* extension, std::size_t extensionLength) {
  std::size_t n = Measure(path, pathLength);
  std::size_t e = Measure(extension, extensionLength);
  if (e == 0) return ZYR_E_INVALID_ARGUMENT;
  if (n == 0) {
    out.Clear();
    return ZYR_OK;
  }
  std::size_t cut = n;
  for (std::size_t i = n; i > 0; --i) {
    char16_t c = path[i - 1];
    if (IsSep(c) || c == u':') {
      if (i == n) return AssignTo(out, path, n);  // a directory has no extension
      break;
    }
    if (c == u'.') {
      cut = i - 1;
      break;
    }
  }
  ZyrBasString built;
  ZyrResult r = built.Reserve(cut + e + 2);
  if (ZyrSucceeded(r)) r = built.Assign(path, cut);
  if (ZyrSucceeded(r) && extension[0] != u'.') r = built.Append(u'.');
  if (ZyrSucceeded(r)) r = built.Append(extension, e);
  if (ZyrFailed(r)) return r;
  return Commit(out, built);
}

namespace {

ZyrResult Join(ZyrBasString& out, const char16_t* base, std::size_t baseLength, const char16_t* tail,
               std::size_t tailLength, bool simple) {
  std::size_t b = Measure(base, baseLength);
  std::size_t t = Measure(tail, tailLength);
  if (t == 0) return AssignTo(out, base, b);
  if (b == 0 || ZyrBasPathIsAbsolute(tail, t)) return AssignTo(out, tail, t);
  ZyrBasString built;
  ZyrResult r;
  if (IsSep(tail[0])) {
    if (simple || !(ZyrBasPathIsAbsolute(base, b) && base[1] == u':')) return AssignTo(out, tail, t);
    // The drive of the base, then the rooted tail: "C:" + "\x".
    r = built.Reserve(t + 3);
    if (ZyrSucceeded(r)) r = built.Assign(base, 2);
  } else {
    r = built.Reserve(b + t + 2);
    if (ZyrSucceeded(r)) r = built.Assign(base, b);
    if (ZyrSucceeded(r) && !IsSep(base[b - 1])) r = built.Append(kSep);
  }
  if (ZyrSucceeded(r)) r = built.Append(tail, t);
  if (ZyrFailed(r)) return r;
  return Commit(out, built);
}

}  // namespace

ZyrResult ZyrBasPathJoin(ZyrBasString& out, const char16_t* base, std::size_t baseLength,
                         const char16_t* tail, std::size_t tailLength) {
  return Join(out, base, baseLength, tail, tailLength, false);
}

ZyrResult ZyrBasPathJoin(ZyrBasStringRef& out, const char16_t* base, std::size_t baseLength,
                         const char16_t* tail, std::size_t tailLength) {
  ZyrBasString built;
  return ToRef(out, Join(built, base, baseLength, tail, tailLength, false), built);
}

ZyrResult ZyrBasPathJoinSimple(ZyrBasString& out, const char16_t* base, std::size_t baseLength,
                               const char16_t* tail, std::size_t tailLength) {
  return Join(out, base, baseLength, tail, tailLength, true);
}

// ---------------------------------------------------------------------------
// Full path

namespace {

// Appends the components of path[from, n) to `built`, which holds the root
// (rootEnd characters). "." is dropped; ".." removes the last component
// written behind the root and never the root itself. A trailing separator
// of the path stays.
ZyrResult AppendNormalised(ZyrBasString& built, std::size_t rootEnd, const char16_t* path,
                           std::size_t from, std::size_t n) {
  std::size_t i = from;
  while (i < n) {
    while (i < n && IsSep(path[i])) ++i;
    std::size_t start = i;
    while (i < n && !IsSep(path[i])) ++i;
    std::size_t len = i - start;
    if (len == 0) break;
    if (len == 1 && path[start] == u'.') continue;
    if (len == 2 && path[start] == u'.' && path[start + 1] == u'.') {
      std::size_t end = built.Length();
      while (end > rootEnd && built[end - 1] != kSep) --end;
      built.Erase(end > rootEnd ? end - 1 : rootEnd, built.Length());
      continue;
    }
    std::size_t have = built.Length();
    ZyrResult r = ZYR_OK;
    if (have > 0 && built[have - 1] != kSep) r = built.Append(kSep);
    if (ZyrSucceeded(r)) r = built.Append(path + start, len);
    if (ZyrFailed(r)) return r;
  }
  std::size_t have = built.Length();
  if (n > from && IsSep(path[n - 1]) && have > rootEnd && built[have - 1] != kSep)
    return built.Append(kSep);
  return ZYR_OK;
}

ZyrResult Normalise(ZyrBasString& built, const char16_t* path, std::size_t n, const char16_t* cwd,
                    std::size_t cwdLength) {
  ZyrResult r;
  if (n >= 2 && IsSep(path[0]) && IsSep(path[1])) {
    // UNC, and the long and device forms "\\?\" and "\\.\", whose first
    // component stands as the share: ".." never climbs above it.
    std::size_t root = ZyrBasPathRootLength(path, n);
    r = built.Reserve(n + 2);
    for (std::size_t i = 0; ZyrSucceeded(r) && i < root; ++i)
      r = built.Append(IsSep(path[i]) ? kSep : path[i]);
    if (ZyrFailed(r)) return r;
    std::size_t rootEnd = built.Length();
    if (root < n && built[rootEnd - 1] != kSep) {
      r = built.Append(kSep);
      if (ZyrFailed(r)) return r;
    }
    r = AppendNormalised(built, built.Length(), path, root, n);
    // A UNC root with nothing behind it keeps no separator.
    if (ZyrSucceeded(r) && built.Length() == rootEnd + 1 && rootEnd > 2 &&
        !(root < n && IsSep(path[n - 1])))
      built.Erase(rootEnd, rootEnd + 1);
    return r;
  }
  if (HasDrive(path, n)) {
    // Drive, absolute or relative to the drive: there is no per-drive
    // current directory here, so "C:x" is taken from the drive's root.
    r = built.Reserve(n + 2);
    if (ZyrSucceeded(r)) r = built.Assign(path, 2);
    if (ZyrSucceeded(r)) r = built.Append(kSep);
    if (ZyrFailed(r)) return r;
    return AppendNormalised(built, 3, path, 2, n);
  }
  if (n >= 1 && IsSep(path[0])) {
    // Rooted: the drive of the current directory, if it has one.
    r = built.Reserve(n + 4);
    if (ZyrSucceeded(r) && HasDrive(cwd, cwdLength)) r = built.Assign(cwd, 2);
    if (ZyrSucceeded(r)) r = built.Append(kSep);
    if (ZyrFailed(r)) return r;
    return AppendNormalised(built, built.Length(), path, 1, n);
  }
  // Relative: behind the current directory, which must not be relative.
  bool cwdAbsolute = cwdLength > 0 && (IsSep(cwd[0]) || HasDrive(cwd, cwdLength));
  if (!cwdAbsolute) return ZYR_E_UNEXPECTED_SYSTEM_RESULT;
  ZyrBasString joined;
  r = joined.Reserve(cwdLength + n + 2);
  if (ZyrSucceeded(r)) r = joined.Assign(cwd, cwdLength);
  if (ZyrSucceeded(r) && !IsSep(cwd[cwdLength - 1])) r = joined.Append(kSep);
  if (ZyrSucceeded(r)) r = joined.Append(path, n);
  if (ZyrFailed(r)) return r;
  return Normalise(built, joined.Text(), joined.Length(), nullptr, 0);
}

}  // namespace

ZyrResult ZyrBasFullPathFrom(ZyrBasString& out, const char16_t* path, std::size_t length,
                             const char16_t* currentDirectory, std::size_t currentLength) {
  std::size_t n = Measure(path, length);
  if (n == 0) return ZYR_E_UNEXPECTED_SYSTEM_RESULT;
  ZyrBasString built;
  ZyrResult r = Normalise(built, path, n, currentDirectory, Measure(currentDirectory, currentLength));
  if (ZyrFailed(r)) return r;
  return Commit(out, built);
}

ZyrResult ZyrBasFullPath(ZyrBasString& out, const char16_t* path, std::size_t length) {
  std::size_t n = Measure(path, length);
  if (n == 0) return ZYR_E_UNEXPECTED_SYSTEM_RESULT;
  ZyrBasString cwd;
  // Only the relative and rooted forms depend on the current directory.
  if (!ZyrBasPathIsAbsolute(path, n) && !HasDrive(path, n)) {
    ZyrResult r = ZyrBasCurrentDirectory(cwd);
    if (ZyrFailed(r)) return r;
  }
  return ZyrBasFullPathFrom(out, path, n, cwd.Text(), cwd.Length());
}

ZyrResult ZyrBasFullPath(ZyrBasStringRef& out, const char16_t* path, std::size_t length) {
  ZyrBasString built;
  return ToRef(out, ZyrBasFullPath(built, path, length), built);
}

// ---------------------------------------------------------------------------
// Drive map

void ZyrBasDriveMapClear(ZyrBasDriveMap& map) {
  map.count = 0;
  map.loaded = false;
}

ZyrResult ZyrBasDriveMapAdd(ZyrBasDriveMap& map, char16_t letter, const char16_t* target,
                            std::size_t length) {
  std::size_t n = Measure(target, length);
  if (map.count >= 26) return ZYR_E_INVALID_ARGUMENT;
  ZyrBasDriveMapEntry& e = map.entries[map.count];
  e.letter = letter;
  std::size_t w = 0;
  auto put = [&](const char16_t* p, std::size_t k) {
    for (std::size_t i = 0; i < k && w < kZyrBasDriveTargetMax; ++i) e.target[w++] = p[i];
  };
  // "\Device\LanmanRedirector\;Z:0000000000012345\server\share": the
  // session part between ";" and the next "\" names the logon, not the
  // share, and is cut out so that the target compares with device names.
  if (n > 24 && StartsNoCase(target, n, "\\Device\\LanmanRedirector") && target[25] == u';') {
    std::size_t k = 25;
    while (k < n && target[k] != u'\\') ++k;
    put(target, 25);
    if (k < n) put(target + k + 1, n - k - 1);
  } else {
    put(target, n);
  }
  e.target[w] = 0;
  e.targetLength = static_cast<std::uint16_t>(w);
  ++map.count;
  return ZYR_OK;
}

void ZyrBasDriveMapFinish(ZyrBasDriveMap& map) {
  for (std::uint32_t i = 1; i < 3 && i < map.count; ++i)
    if (map.entries[i].letter == u'C' || map.entries[i].letter == u'c') {
      ZyrBasDriveMapEntry t = map.entries[0];
      map.entries[0] = map.entries[i];
      map.entries[i] = t;
      break;
    }
  map.loaded = true;
}

ZyrResult ZyrBasBuildDriveMap(ZyrBasDriveMap& out) {
  // No drive letters exist on this platform: the same answer as a process
  // whose drive mask is zero.
  ZyrBasDriveMapClear(out);
  ZyrBasDriveMapFinish(out);
  return ZYR_OK;
}

ZyrResult ZyrBasDeviceToDrive(const ZyrBasDriveMap& map, ZyrBasString& out, const char16_t* device,
                              std::size_t length) {
  if (!map.loaded) return ZYR_E_NOT_INITIALIZED;
  std::size_t n = Measure(device, length);
  for (std::uint32_t i = 0; i < map.count; ++i) {
    const ZyrBasDriveMapEntry& e = map.entries[i];
    if (e.targetLength == n && std::memcmp(e.target, device, n * sizeof(char16_t)) == 0) {
      char16_t drive[2] = {e.letter, u':'};
      return AssignTo(out, drive, 2);
    }
  }
  return ZYR_E_PATH_NOT_FOUND;
}

// ---------------------------------------------------------------------------
// NT names to DOS names

namespace {

bool BeginsWith(const char16_t* p, std::size_t n, const char16_t* prefix) {
  std::size_t k = ZyrBasStrLen(prefix);
  return n >= k && std::memcmp(p, prefix, k * sizeof(char16_t)) == 0;
}

ZyrResult TranslateDevice(const ZyrBasDriveMap* map, ZyrBasString& out, const char16_t* p,
                          std::size_t n) {
  if (n < 3 || p[0] != u'\\') return ZYR_E_INVALID_ARGUMENT;
  if (p[1] == u'\\') return AssignTo(out, p, n);
  if (!StartsNoCase(p, n, "\\Device\\") || n < 8 + 5) return ZYR_E_INVALID_ARGUMENT;

  // Redirectors: the share's name stands behind the prefix, after any
  // session parts (";X:0000..." or "X:..." up to the next "\").
  static const char* const kRedirectors[] = {"LanmanRedirector\\", "NwRdr\\",  "Mup\\DfsClient\\",
                                             "Mup\\",              "WinDfs\\Root\\", "WinDfs\\",
                                             "HGFS\\",             "NetWareRedirector\\"};
  const char16_t* rest = p + 8;
  std::size_t restLength = n - 8;
  for (const char* prefix : kRedirectors) {
    if (!StartsNoCase(rest, restLength, prefix)) continue;
    std::size_t k = std::strlen(prefix);
    const char16_t* q = rest + k;
    std::size_t left = restLength - k;
    while (left > 3 && (q[0] == u';' || q[1] == u':')) {
      std::size_t skip = q[2] == u':' ? 3 : 2;
      q += skip;
      left -= skip;
      while (left > 0 && *q != u'\\') {
        ++q;
        --left;
      }
      if (left > 0) {
        ++q;
        --left;
      }
    }
    ZyrBasString built;
    ZyrResult r = built.Reserve(left + 3);
    if (ZyrSucceeded(r)) r = built.Assign(u"\\\\", 2);
    if (ZyrSucceeded(r)) r = built.Append(q, left);
    if (ZyrFailed(r)) return r;
    return Commit(out, built);
  }

  // Drives of the map: the first target that is a proper prefix.
  if (map) {
    for (std::uint32_t i = 0; i < map->count; ++i) {
      const ZyrBasDriveMapEntry& e = map->entries[i];
      if (e.targetLength < n && std::memcmp(e.target, p, e.targetLength * sizeof(char16_t)) == 0) {
        ZyrBasString built;
        char16_t drive[2] = {e.letter, u':'};
        ZyrResult r = built.Reserve(n - e.targetLength + 3);
        if (ZyrSucceeded(r)) r = built.Assign(drive, 2);
        if (ZyrSucceeded(r)) r = built.Append(p + e.targetLength, n - e.targetLength);
        if (ZyrFailed(r)) return r;
        return Commit(out, built);
      }
    }
  }
  // Resolving drive links and volume mount points on the fly needs the NT
  // object namespace, which this platform does not have.
  return ZYR_E_PATH_NOT_FOUND;
}

}  // namespace

ZyrResult ZyrBasNtToDosPath(const ZyrBasDriveMap* map, ZyrBasString& out, const char16_t* path,
                            std::size_t length) {
  std::size_t n = Measure(path, length);
  if (n == 0) return ZYR_E_INVALID_ARGUMENT;
  if (n >= 2 && path[1] == u':') {
    if (n == 2 || IsSep(path[2])) return AssignTo(out, path, n);
    return ZYR_E_INVALID_ARGUMENT;
  }
  if (path[0] != u'\\') return ZYR_E_INVALID_ARGUMENT;
  bool longPrefix = BeginsWith(path, n, u"\\\\?\\");
  bool objectPrefix = BeginsWith(path, n, u"\\??\\");
  if ((longPrefix || objectPrefix) && n >= 6 && path[5] == u':') {
    if (n == 6 || IsSep(path[6])) return AssignTo(out, path + 4, n - 4);
    return ZYR_E_INVALID_ARGUMENT;
  }
  const char16_t* p = path;
  if (longPrefix) {
    if (StartsNoCase(path, n, "\\\\?\\UNC\\")) {
      p = path + 3;
      n -= 3;
    } else {
      return ZYR_E_INVALID_ARGUMENT;
    }
  } else if (BeginsWith(path, n, u"\\\\.\\")) {
    return ZYR_E_UNSUPPORTED_TYPE;
  } else if (BeginsWith(path, n, u"\\\\")) {
    return AssignTo(out, path, n);
  } else if (objectPrefix) {
    p = path + 3;  // go on with the "\" that ends the prefix
    n -= 3;
  }
  if (n > 5 && StartsNoCase(p, n, "\\UNC\\")) {
    ZyrBasString built;
    ZyrResult r = built.Reserve(n - 5 + 3);
    if (ZyrSucceeded(r)) r = built.Assign(u"\\\\", 2);
    if (ZyrSucceeded(r)) r = built.Append(p + 5, n - 5);
    if (ZyrFailed(r)) return r;
    return Commit(out, built);
  }
  // The system root is a folder of the NT system; nothing stands for it here.
  if (StartsNoCase(p, n, "\\SYSTEMROOT\\")) return ZYR_E_PATH_NOT_FOUND;
  return TranslateDevice(map, out, p, n);
}
