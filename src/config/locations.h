// Where configuration and logs live: the default log folder, the private
// configuration folder, and the built-in default configuration text.
#ifndef ZYR_CONFIG_LOCATIONS_H
#define ZYR_CONFIG_LOCATIONS_H

#include <cstdint>

#include "base/string.h"
#include "zyrlog/result.h"

// Log folder flags. Bits 0 and 1 ask for folder access rules that have no
// meaning on this platform; the word stays as an interface.
inline constexpr std::uint32_t ZYR_LOG_FOLDER_RESTRICTED_RULE = 1;
inline constexpr std::uint32_t ZYR_LOG_FOLDER_LOW_LABEL = 2;
inline constexpr std::uint32_t ZYR_LOG_FOLDER_ROAMING = 4;
inline constexpr std::uint32_t ZYR_LOG_FOLDER_IGNORE_RULE_FAILURE = 8;
inline constexpr std::uint32_t ZYR_LOG_FOLDER_DEFAULT_FLAGS = 11;

// Finds and creates a log folder for the current user: the per-user product
// directory ("...\Zyr\OPH2015") joined with `subfolder`.
ZyrResult ZyrLogFolder(ZyrBasString& path, std::uint32_t flags, const char16_t* subfolder);

// The default log folder: $LOGS_DIRECTORY (its first folder), which
// systemd gives a service with LogsDirectory=, else ZyrLogFolder with
// flags 11 and subfolder "log"; made if missing. On failure `path` still
// names the folder that could not be made, or is empty when none could be
// found (no home folder).
ZyrResult ZyrDefaultLogFolder(ZyrBasString& path);

// The private configuration folder: the all-users product directory's "log"
// folder if it exists, else the folder of the library's own file.
ZyrResult ZyrPrivateConfigFolder(ZyrBasString& path);

// The built-in default configuration: a root logger at INFO with one rolling
// file appender, "common.log" in the log folder.
extern const char16_t kZyrBuiltInConfig[];

// The name of the private configuration file, tried once per manager just
// before the first named file.
inline constexpr char16_t kZyrPrivateConfigName[] = u"privlog.cfg";

// One configuration file that was loaded, kept for re-reading.
struct ZyrCfgSource {
  ZyrBasString fileName;   // as the caller gave it; the key
  ZyrBasString fullPath;   // resolved against the configuration folder
  std::uint64_t lastWrite = 0;
  ZyrBasString logFolder;  // used again by each re-read
};

// The name resolved against the configuration folder unless absolute.
ZyrResult ZyrCfgResolveFileName(ZyrBasString& path, const char16_t* fileName,
                                const ZyrBasString& configFolder);

// The pattern of leftover temporary files swept from a log folder.
inline constexpr char16_t kZyrTempPattern[] = u"zyr-*.tmp";

#endif
