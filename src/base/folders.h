// Known folders and product directories. The ids stay those of the folder
// table; on this platform each is found in the order store, environment,
// then the default below the user's profile (XDG locations).
#ifndef ZYR_BASE_FOLDERS_H
#define ZYR_BASE_FOLDERS_H

#include <cstddef>
#include <cstdint>

#include "base/string.h"
#include "zyrlog/result.h"

enum ZyrBasFolderId : std::uint32_t {
  ZYR_FOLDER_PROFILE = 0,
  ZYR_FOLDER_DESKTOP = 1,
  ZYR_FOLDER_APPDATA = 2,
  ZYR_FOLDER_SYSTEM = 3,
  ZYR_FOLDER_SYSTEM_X86 = 4,
  ZYR_FOLDER_SYSTEM_NATIVE = 5,
  ZYR_FOLDER_WINDOWS = 6,
  ZYR_FOLDER_PROGRAM_FILES = 7,
  ZYR_FOLDER_PROGRAM_FILES_X86 = 8,
  ZYR_FOLDER_PROGRAM_FILES_NATIVE = 9,
  ZYR_FOLDER_COMMON_FILES = 10,
  ZYR_FOLDER_COMMON_FILES_X86 = 11,
  ZYR_FOLDER_COMMON_FILES_NATIVE = 12,
  ZYR_FOLDER_COMMON_STARTUP = 13,
  ZYR_FOLDER_STARTUP = 14,
  ZYR_FOLDER_PERSONAL = 15,
  ZYR_FOLDER_COMMON_DOCUMENTS = 16,
  ZYR_FOLDER_UNUSED = 17,
  ZYR_FOLDER_SYSTEM_DRIVE = 18,
  ZYR_FOLDER_SYSTEM_PARTITION = 19,
  ZYR_FOLDER_COMMON_APPDATA = 20,
  ZYR_FOLDER_LOCAL_APPDATA = 21,
  ZYR_FOLDER_COUNT = 22,
};

enum ZyrBasProductDirectoryKind : std::uint32_t {
  ZYR_DIR_INSTALL = 0,
  ZYR_DIR_ALL_USERS = 1,
  ZYR_DIR_ADMIN_COMMON = 2,
  ZYR_DIR_ADMIN_ALL_USERS = 3,
  ZYR_DIR_ADMIN_SERVER = 4,
  ZYR_DIR_USER_ROAMING = 5,
  ZYR_DIR_USER_LOCAL = 6,
  ZYR_DIR_DATABASE = 7,
  ZYR_DIR_QUA_COMMON = 8,
  ZYR_DIR_FRAMEWORK = 9,
  ZYR_DIR_SETUP = 10,
};

// The folder as a string. The folders of the system (ids 3 to 12, 18 and
// 19) are learnt once, at the base's start, and kept for the life of the
// process. The folders of the user are found afresh at each call, so that
// a process (or a test) that changes its environment (HOME, the XDG
// variables) is followed: they are asked for when configuration is read,
// never on the way of a message. ZYR_E_PATH_NOT_FOUND for a folder this
// platform does not have; ZYR_E_INVALID_ARGUMENT for an id of 22 or more.
// The profile (home) folder is the store's, else $HOME or $USERPROFILE
// where it names an existing folder, else the account database's home
// where that exists; with none of them the user's folders are not found.
// Local data is $LOCALAPPDATA, else $XDG_STATE_HOME, else ~/.local/state;
// roaming data $APPDATA, else $XDG_CONFIG_HOME, else ~/.config.
ZyrResult ZyrBasGetFolder(std::uint32_t id, ZyrBasString& path);
// The same into a counted buffer: ZYR_E_BUFFER_TOO_SMALL with the size
// needed, terminator included; on success `needed` is the length written.
ZyrResult ZyrBasGetFolderFixed(std::uint32_t id, char16_t* buffer, std::size_t capacity, std::size_t* needed);

// Learns the folders of the system, once per process; a second call does
// nothing and answers as the first did: the first failure of its steps. A
// folder whose source is missing stays empty, which is no failure.
ZyrResult ZyrBasInitFolders();

// What the folders of the system are learnt from: the file of the loaded
// C library (its folder is ZYR_FOLDER_SYSTEM), and the widths of the system
// and of the process (architecture kinds). Program and common files come
// from the store's system values ("SYSTEM\CurrentControlSet\Services\Zyr\SystemValues"),
// then the environment; the native program files default to "/opt".
// Values of 259 characters or more are not kept (ZYR_E_BUFFER_TOO_SMALL is
// noted). Used by the start, and by tests that play another system.
struct ZyrBasFolderFacts {
  const char16_t* systemLibrary;
  std::uint32_t architectureKind;
  std::uint32_t processWidth;
};
ZyrResult ZyrBasFillSystemFolders(const ZyrBasFolderFacts& facts);

// The roaming (ZYR_FOLDER_APPDATA) or local (ZYR_FOLDER_LOCAL_APPDATA) data
// folder of another account; any other id is the machine-wide folder of
// ZyrBasGetFolder. The account is named by its SID text "S-1-22-1-<uid>"
// or by its login name; its store key is its login name (as for the
// current user). Its profile is the store's profile list, else its home
// folder; its folders are its store keys, else the XDG defaults below the
// profile (another account's environment is not ours to read).
// ZYR_E_PATH_NOT_FOUND for an account without a profile.
ZyrResult ZyrBasGetUserFolder(std::uint32_t id, ZyrBasString& path, const char16_t* user);

// The directory of a product, normalised to a full path: the root of the
// kind, with the version glued behind it, and `subpath` joined. The
// install-time kinds read their root from the key store (an expand_sz
// value is expanded); a missing store or key gives ZYR_E_KEY_NOT_FOUND, a
// missing value ZYR_E_FILE_NOT_FOUND, an empty one ZYR_E_PATH_NOT_FOUND.
// Kinds of 11 or more give ZYR_E_NOT_IMPLEMENTED. With a `user`, the
// per-user kinds take that account's folders (ZyrBasGetUserFolder).
ZyrResult ZyrBasProductDirectory(std::uint32_t kind, ZyrBasString& path, const char16_t* subpath,
                                 const char16_t* version, const char16_t* user = nullptr);

#endif
