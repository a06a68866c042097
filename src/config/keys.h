// The vocabulary of configuration keys: which keys each kind of section
// reads, what value each takes, its default and what a wrong value does.
// The objects read their keys themselves (their Configure); this table is
// the one description of them, read by the checker tool and held against
// the reference documentation by a test, so that neither falls behind.
#ifndef ZYR_CONFIG_KEYS_H
#define ZYR_CONFIG_KEYS_H

#include <cstddef>

// How the value text is read.
enum class ZyrCfgKeyKind {
  kWord,         // one of `words`, compared exactly ("Logger|Appender|Layout")
  kFalseWords,   // false for exactly one of `words`, true for any other text
  kTrueWords,    // true for exactly one of `words`, false for any other text
  kSeverity,     // a severity name in any case; any other text counts as INFO
  kUnsigned,     // decimal or 0x hexadecimal; reading stops at the first non-digit
  kSigned,       // the same with an optional leading "-"
  kName,         // the name of another section
  kNameList,     // names of appender sections, split at "," and ";"
  kPath,         // a file name, relative ones below the log folder
  kFieldList,    // the Json layout's fields, "name" or "name:key", split at ","
  kText,         // any text
};

// Where a key is read. A section is a logger, an appender of an
// AppenderType or a layout of a LayoutType; the root logger has keys of its
// own besides those of every logger.
enum class ZyrCfgScope {
  kAnySection,  // `Type`
  kLogger,      // every logger, the root included
  kRoot,        // the section "root" only
  kAppender,    // every appender, whatever its type
  kAppenderOf,  // appenders whose AppenderType is `type`
  kLayout,      // every layout
  kLayoutOf,    // layouts whose LayoutType is `type`
};

struct ZyrCfgKey {
  ZyrCfgScope scope;
  const char16_t* type;      // the AppenderType or LayoutType for the *Of scopes, else null
  const char16_t* key;
  ZyrCfgKeyKind kind;
  const char16_t* words;     // kWord, kFalseWords, kTrueWords: the words, "|" between them
  bool required;             // missing: ZYR_E_CFG_NOT_FOUND, the build stops
  const char16_t* fallback;  // what an absent key means, for people
};

// The table, and its number of rows.
extern const ZyrCfgKey kZyrCfgKeys[];
extern const std::size_t kZyrCfgKeyCount;

// The values of AppenderType and LayoutType that make an object. Types that
// are accepted and then refused by the class (SharedFile, Syslog) are not
// in these lists.
extern const char16_t* const kZyrCfgAppenderTypes[];
extern const std::size_t kZyrCfgAppenderTypeCount;
extern const char16_t* const kZyrCfgLayoutTypes[];
extern const std::size_t kZyrCfgLayoutTypeCount;

#endif
