// Path algebra over DOS-style wide paths: forms, root, directory, name,
// stem, extension, joining and lexical normalisation, and the text rules
// that turn NT object and device names back into DOS names.
//
// Both "\" and "/" are read as separators wherever a path is taken apart;
// only the platform's own separator (kZyrBasPathSeparator) is written, so
// that every path a user sees looks like a path of the system. Lengths of all ones (ZYR_TERMINATED) mean
// terminated text; a null path is the empty path. Every operation that
// writes a string builds its result aside and hands it over only on
// success, so the target stays as it was on failure (for instance
// ZYR_E_OUT_OF_MEMORY) and may alias an input.
//
// Forms: Drive "C:", "C:\x"; UNC "\\server\share"; Rooted "\x" (a POSIX
// absolute "/var/log/a.log" is this form); Relative "x\y"; NT object
// "\??\C:\x"; Device "\Device\HarddiskVolume1\x"; Long "\\?\C:\x".
#ifndef ZYR_BASE_PATH_H
#define ZYR_BASE_PATH_H

#include <cstddef>
#include <cstdint>

#include "base/string.h"
#include "zyrlog/result.h"
#include ZYR_PLATFORM_LAYER  // kZyrBasNativeSeparator

inline constexpr bool ZyrBasIsPathSeparator(char16_t c) { return c == u'\\' || c == u'/'; }

// The separator that the algebra writes.
inline constexpr char16_t kZyrBasPathSeparator = kZyrBasNativeSeparator;

// True for the Drive form ("X:" alone or followed by a separator) and the
// UNC form (two leading separators in any mix).
bool ZyrBasPathIsAbsolute(const char16_t* path, std::size_t length = ZYR_TERMINATED);

// Length of the root: 2 for "C:" and "C:x", 3 for "C:\x"; for UNC the
// server and share without the separator behind the share ("\\s\share\x"
// gives 9); 1 for one leading separator; 0 otherwise.
std::size_t ZyrBasPathRootLength(const char16_t* path, std::size_t length = ZYR_TERMINATED);
ZyrResult ZyrBasPathRoot(ZyrBasString& out, const char16_t* path, std::size_t length = ZYR_TERMINATED);

// The directory part: "C:\x\y" gives "C:\x", "C:\x" and "C:" give "C:\",
// "\" gives "\", a bare name gives the empty text. A trailing separator of
// the path is not a cut.
ZyrResult ZyrBasPathDirectory(ZyrBasString& out, const char16_t* path,
                              std::size_t length = ZYR_TERMINATED);
ZyrResult ZyrBasPathDirectory(ZyrBasStringRef& out, const char16_t* path,
                              std::size_t length = ZYR_TERMINATED);

// The text before the first ":", then ":\". A path without ":" gives
// ZYR_E_INVALID_DATA and an empty target.
ZyrResult ZyrBasPathDriveRoot(ZyrBasString& out, const char16_t* path,
                              std::size_t length = ZYR_TERMINATED);

// The part after the last separator; the whole path if it has none; empty
// for "X:" with a letter X. ":" is no separator here.
ZyrResult ZyrBasPathFileName(ZyrBasString& out, const char16_t* path,
                             std::size_t length = ZYR_TERMINATED);

// The file name without its last extension; ":" ends the name like a
// separator, and a "." before the name does not count.
ZyrResult ZyrBasPathStem(ZyrBasString& out, const char16_t* path, std::size_t length = ZYR_TERMINATED);

// From the last "." to the end, dot included; empty if a separator or ":"
// comes first from the end, or if the "." is the last character.
ZyrResult ZyrBasPathExtension(ZyrBasString& out, const char16_t* path,
                              std::size_t length = ZYR_TERMINATED);

// Replaces the last extension of the name, or adds one. A "." is put in
// front of an extension that has none. A path ending in a separator or ":"
// is a directory and stays as it is. An empty path gives an empty result;
// an empty extension is a broken contract (ZYR_E_INVALID_ARGUMENT).
ZyrResult ZyrBasPathChangeExtension(ZyrBasString& out, const char16_t* path, std::size_t pathLength,
                                    const char16_t* extension,
                                    std::size_t extensionLength = ZYR_TERMINATED);

// Joins base and tail. An empty tail gives the base; an empty base or an
// absolute tail gives the tail. A tail with one leading separator keeps the
// drive of an absolute drive base ("C:\dir" + "\x" = "C:\x") and otherwise
// stands alone. Else base, a separator unless the base ends in one, tail.
ZyrResult ZyrBasPathJoin(ZyrBasString& out, const char16_t* base, std::size_t baseLength,
                         const char16_t* tail, std::size_t tailLength = ZYR_TERMINATED);
ZyrResult ZyrBasPathJoin(ZyrBasStringRef& out, const char16_t* base, std::size_t baseLength,
                         const char16_t* tail, std::size_t tailLength = ZYR_TERMINATED);
// As ZyrBasPathJoin, except that any tail with a leading separator replaces
// the base. Used for module paths.
ZyrResult ZyrBasPathJoinSimple(ZyrBasString& out, const char16_t* base, std::size_t baseLength,
                               const char16_t* tail, std::size_t tailLength = ZYR_TERMINATED);

// The path made absolute against the current directory and normalised by
// text alone: "." and ".." resolved (never above the root), runs of
// separators made one, a trailing separator kept. Links are not
// followed. An empty path gives ZYR_E_UNEXPECTED_SYSTEM_RESULT, as the
// system's normaliser answers nothing for it.
ZyrResult ZyrBasFullPath(ZyrBasString& out, const char16_t* path, std::size_t length = ZYR_TERMINATED);
ZyrResult ZyrBasFullPath(ZyrBasStringRef& out, const char16_t* path,
                         std::size_t length = ZYR_TERMINATED);
// The same against a given current directory, which must be absolute or
// rooted; the rule itself, free of process state.
ZyrResult ZyrBasFullPathFrom(ZyrBasString& out, const char16_t* path, std::size_t length,
                             const char16_t* currentDirectory,
                             std::size_t currentLength = ZYR_TERMINATED);

// ---------------------------------------------------------------------------
// NT names back to DOS names.

inline constexpr std::size_t kZyrBasDriveTargetMax = 259;

struct ZyrBasDriveMapEntry {
  char16_t letter;
  char16_t target[kZyrBasDriveTargetMax + 1];
  std::uint16_t targetLength;
};

// The drive letters of the process and the device each one stands for.
struct ZyrBasDriveMap {
  ZyrBasDriveMapEntry entries[26];
  std::uint32_t count;
  bool loaded;
};

// Fills the map from the process's drive letters. This platform has none,
// so the map comes back empty and loaded, as for a zero drive mask.
ZyrResult ZyrBasBuildDriveMap(ZyrBasDriveMap& out);
// The building blocks of that fill, for a map told by hand: Clear empties
// it; Add appends a letter with its target, cutting the session part out of
// a redirector target ("\Device\LanmanRedirector\;Z:0000000000012345\s\h"
// is stored "\Device\LanmanRedirector\s\h") and the target to 259
// characters; Finish moves "C" to the front if it stands second or third
// and marks the map loaded.
void ZyrBasDriveMapClear(ZyrBasDriveMap& map);
ZyrResult ZyrBasDriveMapAdd(ZyrBasDriveMap& map, char16_t letter, const char16_t* target,
                            std::size_t length = ZYR_TERMINATED);
void ZyrBasDriveMapFinish(ZyrBasDriveMap& map);

// "X:" for the first entry whose target equals the device exactly.
// ZYR_E_NOT_INITIALIZED for a map not loaded, ZYR_E_PATH_NOT_FOUND for no
// match.
ZyrResult ZyrBasDeviceToDrive(const ZyrBasDriveMap& map, ZyrBasString& out, const char16_t* device,
                              std::size_t length = ZYR_TERMINATED);

// An NT or DOS name to its DOS form: DOS names as they stand, the NT forms
// of drives and UNC paths unwrapped, redirector devices made UNC, other
// devices through the drive map (null: no map). "\\.\" names give
// ZYR_E_UNSUPPORTED_TYPE; malformed names ZYR_E_INVALID_ARGUMENT. What only
// the NT object namespace could answer (a device without a map entry,
// volumes, "\SystemRoot") gives ZYR_E_PATH_NOT_FOUND here.
ZyrResult ZyrBasNtToDosPath(const ZyrBasDriveMap* map, ZyrBasString& out, const char16_t* path,
                            std::size_t length = ZYR_TERMINATED);

#endif
