#include "config/keys.h"

namespace {
using K = ZyrCfgKeyKind;
using S = ZyrCfgScope;
}  // namespace

// Rows in the order of the reference documentation. A new key of a class
// gets its row here, and the documentation test asks for its description.
const ZyrCfgKey kZyrCfgKeys[] = {
    {S::kAnySection, nullptr, u"Type", K::kWord, u"Logger|Appender|Layout", false, u"Logger"},

    {S::kLogger, nullptr, u"AddAppenders", K::kNameList, nullptr, false, u"no appenders of its own"},
    {S::kLogger, nullptr, u"Additive", K::kFalseWords, u"false|no|0", false,
     u"true below the root; the root is never additive"},
    {S::kLogger, nullptr, u"Severity", K::kSeverity, nullptr, false, u"INFO"},
    {S::kRoot, nullptr, u"MaxQueueSize", K::kUnsigned, nullptr, false, u"33554432"},
    {S::kRoot, nullptr, u"DisableDefaultAppenders", K::kText, nullptr, false, u"(read by nothing)"},

    {S::kAppender, nullptr, u"AppenderType", K::kWord,
     u"RollingFile|RollingDateFile|File|Console|Null|SharedFile|Syslog", true, nullptr},
    {S::kAppender, nullptr, u"Layout", K::kName, nullptr, false, u"defaultLayout"},
    {S::kAppender, nullptr, u"BreakSeverity", K::kSeverity, nullptr, false, u"ALL"},

    {S::kAppenderOf, u"File", u"FileName", K::kPath, nullptr, true, nullptr},
    {S::kAppenderOf, u"File", u"ImmediateWrite", K::kTrueWords, u"true|yes|1", false, u"false"},

    {S::kAppenderOf, u"RollingFile", u"FileName", K::kPath, nullptr, true, nullptr},
    {S::kAppenderOf, u"RollingFile", u"ImmediateWrite", K::kTrueWords, u"true|yes|1", false, u"false"},
    {S::kAppenderOf, u"RollingFile", u"Size", K::kSigned, nullptr, false, u"1048576"},
    {S::kAppenderOf, u"RollingFile", u"FilesCount", K::kUnsigned, nullptr, false, u"10"},

    {S::kAppenderOf, u"RollingDateFile", u"FileName", K::kPath, nullptr, true, nullptr},
    {S::kAppenderOf, u"RollingDateFile", u"ImmediateWrite", K::kTrueWords, u"true|yes|1", false, u"false"},
    {S::kAppenderOf, u"RollingDateFile", u"FilesCount", K::kUnsigned, nullptr, false, u"0"},
    {S::kAppenderOf, u"RollingDateFile", u"DaysCount", K::kUnsigned, nullptr, false, u"0"},

    {S::kAppenderOf, u"Console", u"Target", K::kWord, u"System.out|System.err", false, u"System.out"},

    {S::kLayout, nullptr, u"LayoutType", K::kWord, u"Standard|Custom|Fw|Json", true, nullptr},
    {S::kLayoutOf, u"Custom", u"Format", K::kText, nullptr, true, nullptr},
    {S::kLayoutOf, u"Custom", u"Header", K::kText, nullptr, false, u"none"},
    {S::kLayoutOf, u"Custom", u"Footer", K::kText, nullptr, false, u"none"},

    {S::kLayoutOf, u"Json", u"Fields", K::kFieldList, nullptr, false, u"every field under its own name"},
};
const std::size_t kZyrCfgKeyCount = sizeof kZyrCfgKeys / sizeof kZyrCfgKeys[0];

const char16_t* const kZyrCfgAppenderTypes[] = {u"RollingFile", u"RollingDateFile", u"File", u"Console",
                                                u"Null"};
const std::size_t kZyrCfgAppenderTypeCount = sizeof kZyrCfgAppenderTypes / sizeof kZyrCfgAppenderTypes[0];
const char16_t* const kZyrCfgLayoutTypes[] = {u"Standard", u"Custom", u"Fw", u"Json"};
const std::size_t kZyrCfgLayoutTypeCount = sizeof kZyrCfgLayoutTypes / sizeof kZyrCfgLayoutTypes[0];
