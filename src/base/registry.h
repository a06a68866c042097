// Registry access: a read-only key store kept in files, with the predefined
// root keys, the 32-bit and 64-bit views of keys, the merged view of the
// per-user and per-machine classes, and reading values of unknown size.
//
// The store on this platform
// - Its root folder is the environment variable ZYR_REGISTRY_ROOT, else
//   /etc/zyr/registry. The root folder stands for the native key
//   "\REGISTRY": every "\" component of a native key name below it is one
//   folder level, found without regard to case (the system fold). A folder
//   whose name matches exactly wins over one that matches only by fold.
//   Empty components (a doubled or trailing "\") are skipped; ".", ".." and
//   names holding "/" cannot be folders of the store and give
//   ZYR_E_INVALID_NAME.
// - The predefined roots are the store's top folders:
//     HKEY_LOCAL_MACHINE   MACHINE
//     HKEY_USERS           USER
//     HKEY_CURRENT_USER    USER/<login name of the process's account>, and
//                          USER/.DEFAULT when that folder is missing or the
//                          system knows no name for the account
//     HKEY_CLASSES_ROOT    MACHINE/SOFTWARE/Classes (read merged, below)
//     HKEY_CURRENT_CONFIG  MACHINE/SYSTEM/CurrentControlSet/Hardware Profiles/Current
//   HKEY_PERFORMANCE_DATA, HKEY_PERFORMANCE_NLSTEXT and HKEY_DYN_DATA name
//   no folder and are never found.
// - The values of a key live in the file ".values" in its folder (a name
//   that no installer gives a sub-key), one value a line:
//       name = type:data
//   UTF-8 with or without a byte order mark (UTF-16 with its mark is read
//   as well); LF or CRLF line ends. The type is "sz", "expand_sz" or
//   "dword" (ASCII case ignored). Name and data are trimmed of blanks; the
//   name "@" is the key's unnamed value. A dword is decimal or "0x" hex and
//   must fit 32 bits. Lines starting with "#" or ";", blank lines, and bad
//   lines are skipped. Names compare without case; of two lines with the
//   same name the first counts. A missing file is a key without values.
// - The store is read-only: an open that asks for any write right gives
//   ZYR_E_ACCESS_DENIED, and a missing key is never created.
// - The view bits are not a property of the store: the name rules below
//   rewrite names into and out of the "Wow6432Node" folders, and an access
//   bit left over after the rules changes nothing.
//
// Answers: a missing key is ZYR_E_FILE_NOT_FOUND (last component) or
// ZYR_E_PATH_NOT_FOUND (a component before it) from ZyrBasRegOpenKey, and
// ZYR_E_KEY_NOT_FOUND from ZyrBasRegKey::Open; a missing value is
// ZYR_E_FILE_NOT_FOUND. A missing store is a missing key.
#ifndef ZYR_BASE_REGISTRY_H
#define ZYR_BASE_REGISTRY_H

#include <atomic>
#include <cstddef>
#include <cstdint>

#include "base/array.h"
#include "base/string.h"
#include "zyrlog/result.h"

// An open key, or one of the predefined roots. 0 is no key.
using ZyrBasRegHandle = std::uintptr_t;

inline constexpr ZyrBasRegHandle ZYR_HKEY_CLASSES_ROOT = 0x80000000;
inline constexpr ZyrBasRegHandle ZYR_HKEY_CURRENT_USER = 0x80000001;
inline constexpr ZyrBasRegHandle ZYR_HKEY_LOCAL_MACHINE = 0x80000002;
inline constexpr ZyrBasRegHandle ZYR_HKEY_USERS = 0x80000003;
inline constexpr ZyrBasRegHandle ZYR_HKEY_PERFORMANCE_DATA = 0x80000004;
inline constexpr ZyrBasRegHandle ZYR_HKEY_PERFORMANCE_TEXT = 0x80000050;
inline constexpr ZyrBasRegHandle ZYR_HKEY_PERFORMANCE_NLSTEXT = 0x80000060;
inline constexpr ZyrBasRegHandle ZYR_HKEY_CURRENT_CONFIG = 0x80000005;
inline constexpr ZyrBasRegHandle ZYR_HKEY_DYN_DATA = 0x80000006;
inline constexpr std::size_t kZyrBasRegRootSlots = 9;

// Value types.
inline constexpr std::uint32_t ZYR_REG_SZ = 1;
inline constexpr std::uint32_t ZYR_REG_EXPAND_SZ = 2;
inline constexpr std::uint32_t ZYR_REG_DWORD = 4;

// Access rights and the option bits carried in the top four bits of an
// access word.
inline constexpr std::uint32_t ZYR_KEY_QUERY_VALUE = 0x1;
inline constexpr std::uint32_t ZYR_KEY_READ = 0x20019;
inline constexpr std::uint32_t ZYR_KEY_ALL_ACCESS = 0xF003F;
inline constexpr std::uint32_t ZYR_KEY_WOW64_64KEY = 0x100;
inline constexpr std::uint32_t ZYR_KEY_WOW64_32KEY = 0x200;
// Create a missing key: never done by this read-only store.
inline constexpr std::uint32_t ZYR_REG_OPTION_CREATE = 0x10000000;
// In a 32-bit process, take the name out of the 32-bit node by the rules of
// the 64-bit view (ZyrBasRegRewriteFor64).
inline constexpr std::uint32_t ZYR_REG_OPTION_LEAVE_32 = 0x20000000;

// View flags of ZyrBasRegKey: the low four bits select the view.
inline constexpr std::uint32_t ZYR_REG_VIEW_DEFAULT = 0;
inline constexpr std::uint32_t ZYR_REG_VIEW_32 = 1;
inline constexpr std::uint32_t ZYR_REG_VIEW_64 = 2;
inline constexpr std::uint32_t ZYR_REG_VIEW_PROCESS = 4;
inline constexpr std::uint32_t ZYR_REG_VIEW_CREATE = 16;
inline constexpr std::uint32_t ZYR_REG_VIEW_LEAVE_32 = 32;

// Option flags of ZyrBasRegKey.
inline constexpr std::uint32_t ZYR_REG_OPT_WOW64 = 1;    // 32-bit process on a system with views
inline constexpr std::uint32_t ZYR_REG_OPT_CLASSES = 2;  // merged classes mode

bool ZyrBasRegIsPredefined(ZyrBasRegHandle handle);
// True when the system has 32-bit and 64-bit views: a 64-bit system. A
// 64-bit build runs on one; a 32-bit build is taken to run on a 32-bit one.
bool ZyrBasRegViewsExist();

// ---------------------------------------------------------------------------
// The name rules, as pure text functions.

enum ZyrBasRegRewrite : std::uint32_t {
  ZYR_REG_REWRITE_NONE = 0,      // open the name as given
  ZYR_REG_REWRITE_RELATIVE = 1,  // `out` replaces the sub-key name, same parent
  ZYR_REG_REWRITE_ABSOLUTE = 2,  // `out` is a full native name: no parent, no 0x200
  ZYR_REG_REWRITE_MACHINE = 3,   // `out` is relative to HKEY_LOCAL_MACHINE; 0x100 becomes 0x200
  ZYR_REG_REWRITE_USER_WALK = 4  // open the sub-key one segment at a time
};

// The 32-bit view in a 64-bit process: `parentName` is the parent's full
// native name, `subKey` the name opened below it (may be empty). Inserts
// "\Wow6432Node" behind "\REGISTRY\MACHINE\SOFTWARE", behind a user's
// "..._CLASSES" hive, or behind a user's "\SOFTWARE\CLASSES"; a name that
// holds the segment in parent and sub-key loses the doubled one.
ZyrResult ZyrBasRegRewriteFor32(const char16_t* parentName, std::size_t parentLength,
                                const char16_t* subKey, std::size_t subKeyLength, ZyrBasString& out,
                                ZyrBasRegRewrite* outcome);
// The 64-bit view in a 32-bit process: `fullName` is the parent's name with
// "\" and the sub-key name. A machine name loses its "\Wow6432Node" segment
// and becomes relative to HKEY_LOCAL_MACHINE; a user name asks for the
// walk (ZYR_E_NOT_IMPLEMENTED when `hasSubKey` is false).
ZyrResult ZyrBasRegRewriteFor64(const char16_t* fullName, std::size_t length, bool hasSubKey,
                                ZyrBasString& out, ZyrBasRegRewrite* outcome);
// The name of a classes key relative to its hive: "\REGISTRY\MACHINE\X" is
// "X" of the machine; "\REGISTRY\USER\S_CLASSES\X" is "SOFTWARE\CLASSES\X"
// of the user; "\REGISTRY\USER\S\X" is "X" of the user. A user hive name
// with nothing behind it gives "SOFTWARE\CLASSES" for a "_CLASSES" hive
// and the empty text otherwise. 17 characters or fewer:
// ZYR_E_INVALID_ARGUMENT.
ZyrResult ZyrBasRegClassesNameOf(const char16_t* fullName, std::size_t length, ZyrBasString& out,
                                 bool* isMachine);

// Expands "%NAME%" references from the environment. A name that is not set
// (or set empty) and a lone "%" stay as they stand.
ZyrResult ZyrBasRegExpandString(const char16_t* text, std::size_t length, ZyrBasString& out);

// ---------------------------------------------------------------------------
// Values files, as text.

// One line: ZYR_OK with the parts; ZYR_I_NOT_FOUND for a blank or comment
// line; ZYR_E_INVALID_DATA for a bad line. `name` is empty for "@".
// `number` gets a dword's value (0 for the other types).
ZyrResult ZyrBasRegParseValueLine(const char16_t* line, std::size_t length, ZyrBasString& name,
                                  std::uint32_t* type, ZyrBasString& data, std::uint32_t* number);
// The value `valueName` in the text of a values file (already decoded).
// ZYR_E_FILE_NOT_FOUND if no good line names it.
ZyrResult ZyrBasRegFindValueInText(const char16_t* text, std::size_t length,
                                   const char16_t* valueName, std::uint32_t* type,
                                   ZyrBasString& data, std::uint32_t* number);

// A value in memory: type and bytes. Strings are UTF-16 with their
// terminator, a dword is 4 bytes in little-endian order.
struct ZyrBasRegValue {
  std::uint32_t type = 0;
  ZyrBasArray<std::uint8_t> data;
};

// ---------------------------------------------------------------------------
// Keys by handle.

// The shared working state of one key: what the process is, and the cache
// of opened roots, which lives as long as the state.
struct ZyrBasRegKeyState {
  ZyrBasRegKeyState();
  ~ZyrBasRegKeyState();  // closes the cached roots
  ZyrBasRegKeyState(const ZyrBasRegKeyState&) = delete;
  ZyrBasRegKeyState& operator=(const ZyrBasRegKeyState&) = delete;

  bool is64BitProcess;
  bool isWow64Process;
  std::atomic<ZyrBasRegHandle> rootCache[kZyrBasRegRootSlots];
  ZyrBasRegHandle readHandle = 0;
  std::uint32_t openState = 0;  // 0 closed, 1 open for reading
};

// Replaces a predefined handle by an open one (cached in the state). 0
// gives ZYR_E_INVALID_HANDLE; a real handle stays as it is.
ZyrResult ZyrBasRegResolveRoot(ZyrBasRegKeyState& state, ZyrBasRegHandle* handle);
// The one place where keys are opened. `access` carries the option bits in
// its top four bits. A new handle is closed with ZyrBasRegCloseKey.
ZyrResult ZyrBasRegOpenKey(ZyrBasRegKeyState& state, ZyrBasRegHandle parent, ZyrBasRegHandle* out,
                           const char16_t* subKey, std::uint32_t access);
// As above; in classes mode the name is looked for below the current user
// first, then below the machine.
ZyrResult ZyrBasRegOpenMerged(ZyrBasRegKeyState& state, bool classesMode, ZyrBasRegHandle parent,
                              ZyrBasRegHandle* out, const char16_t* subKey, std::uint32_t access);
// Closes a handle that is not predefined; 0 and the predefined ones stay.
void ZyrBasRegCloseKey(ZyrBasRegHandle handle);
// The key's full native name, as the store spells it.
ZyrResult ZyrBasRegKeyName(ZyrBasRegHandle handle, ZyrBasString& out);
ZyrResult ZyrBasRegClassesName(ZyrBasRegHandle handle, ZyrBasString& out, bool* isMachine);
bool ZyrBasRegValueExists(ZyrBasRegHandle handle, const char16_t* valueName);
// Reads one value. `size` is in bytes: in, the buffer's size; out, the
// value's. No buffer reports only type and size. A buffer too small gives
// ZYR_E_BAD_LENGTH with the size needed. A predefined or 0 handle gives
// ZYR_E_INVALID_HANDLE. A null value name is the unnamed value.
ZyrResult ZyrBasRegReadValue(ZyrBasRegHandle handle, const char16_t* valueName, std::uint32_t* type,
                             void* buffer, std::size_t* size);
// A value of any size: starts with 256 bytes and grows once to the size
// reported.
ZyrResult ZyrBasRegReadValueAll(ZyrBasRegHandle handle, const char16_t* valueName,
                                ZyrBasRegValue& out);
// In classes mode, a value missing in a user's classes key is read from the
// same key of the machine.
ZyrResult ZyrBasRegQueryMerged(ZyrBasRegKeyState& state, bool classesMode, ZyrBasRegHandle handle,
                               const char16_t* valueName, ZyrBasRegValue& out);

// ---------------------------------------------------------------------------
// The object that callers hold. Not shared between threads.

class ZyrBasRegKey {
 public:
  ZyrBasRegKey();
  ~ZyrBasRegKey();
  ZyrBasRegKey(const ZyrBasRegKey&) = delete;
  ZyrBasRegKey& operator=(const ZyrBasRegKey&) = delete;

  // Opens `subKey` for reading below the parent key, or below the root.
  // A missing key gives ZYR_E_KEY_NOT_FOUND; on failure the key stays as
  // it was.
  ZyrResult Open(const char16_t* subKey);
  // Opens and closes at once; true on success.
  bool Exists(const char16_t* subKey);
  // Closes what is open and returns to the closed state.
  void Close();
  // A string value, terminator stripped. Only sz and expand_sz are taken
  // (ZYR_E_BAD_VALUE_TYPE otherwise); references are not expanded here,
  // and `type`, if given, tells which of the two it was. A closed key gives
  // ZYR_E_INVALID_HANDLE.
  ZyrResult QueryString(const char16_t* valueName, ZyrBasString& out, std::uint32_t* type = nullptr);
  // The view. On an open key or one with a parent only the same view is
  // taken (ZYR_E_NOT_SUPPORTED); the 32-bit and 64-bit views need a system
  // with views (ZYR_E_NO_WOW64_VIEW); the process view needs the root
  // HKEY_LOCAL_MACHINE or HKEY_USERS (ZYR_E_BAD_ROOT_KEY).
  ZyrResult SetViewFlags(std::uint32_t flags);
  // Closes the key and sets its root, clearing the parent. With the process
  // view only HKEY_LOCAL_MACHINE and HKEY_USERS are taken: another root
  // gives ZYR_E_BAD_ROOT_KEY and leaves the key as it was.
  ZyrResult SetRoot(ZyrBasRegHandle root);
  // Closes the key; it then opens below `parent` (open or not: a closed
  // key stands for what it would open below). Null returns to the root.
  void SetParent(ZyrBasRegKey* parent);

  bool IsOpen() const { return state_ && state_->openState != 0; }
  // The open handle, 0 when closed.
  ZyrBasRegHandle Handle() const { return state_ ? state_->readHandle : 0; }
  ZyrBasRegHandle Root() const { return root_; }
  std::uint32_t ViewFlags() const { return viewFlags_; }
  std::uint32_t OptionFlags() const { return optionFlags_; }

 private:
  ZyrResult EnsureState();
  ZyrResult ParentHandle(ZyrBasRegHandle* out);
  std::uint32_t ViewAccess() const;
  ZyrResult OpenHandle(const char16_t* subKey, ZyrBasRegHandle* out);

  ZyrBasRegKeyState* state_ = nullptr;
  ZyrBasRegHandle root_ = ZYR_HKEY_LOCAL_MACHINE;
  ZyrBasRegKey* parent_ = nullptr;
  std::uint32_t viewFlags_ = 0;
  std::uint32_t optionFlags_ = 0;
};

#endif
