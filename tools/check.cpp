// zyrlog-check: reads configuration files as the library does and prints
// every problem with file, line and name:
//   - lines the reader records and skips (errors),
//   - sections that fail to build, with the result (errors),
//   - what the library accepts without a word but a user almost never
//     means (warnings): unknown keys, keys of another kind of section,
//     unknown severity names, numbers with trailing text, boolean words in
//     the wrong case, a Severity that additivity overrides, an appender no
//     logger uses, a FileName whose folder cannot be written, a Json
//     layout's field that does not exist.
// Exit status: 0 clean, 1 warnings only, 2 errors (or a file that cannot be
// read). --quiet prints nothing; --default checks the built-in configuration.
//
// Nothing is logged and no log file is touched: sections are built in a
// manager of this process whose log folder is a temporary one, and every
// FileName is pointed there for the build, so that a lower FilesCount
// removes no rolled file of a real log.
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "base/folders.h"
#include "base/path.h"
#include "base/textconv.h"
#include "config/document.h"
#include "config/keys.h"
#include "config/locations.h"
#include "config/reader.h"
#include "config/variables.h"
#include "engine/manager.h"
#include "layout/custom_layout.h"
#include "layout/json_layout.h"
#include "records/severity.h"
#include "result_names.h"

namespace {

std::string Utf8(const char16_t* text, std::size_t length) {
  ZyrBasArray<char> bytes;
  if (ZyrFailed(ZyrBasEncodeUtf8(bytes, text, length))) return "?";
  return std::string(bytes.begin(), bytes.end());
}
std::string Utf8(const ZyrBasString& s) { return Utf8(s.Text(), s.Length()); }
std::string Utf8(const char16_t* s) { return Utf8(s, std::char_traits<char16_t>::length(s)); }
std::string Utf8(const std::u16string& s) { return Utf8(s.data(), s.size()); }

std::u16string Lower(std::u16string s) {
  for (char16_t& c : s)
    if (c >= u'A' && c <= u'Z') c = static_cast<char16_t>(c + 32);
  return s;
}

// Edit distance without case, for "did you mean".
std::size_t Distance(const std::u16string& a0, const std::u16string& b0) {
  std::u16string a = Lower(a0), b = Lower(b0);
  std::vector<std::size_t> row(b.size() + 1);
  for (std::size_t j = 0; j <= b.size(); ++j) row[j] = j;
  for (std::size_t i = 1; i <= a.size(); ++i) {
    std::size_t diagonal = row[0];
    row[0] = i;
    for (std::size_t j = 1; j <= b.size(); ++j) {
      std::size_t up = row[j];
      row[j] = std::min({row[j] + 1, row[j - 1] + 1, diagonal + (a[i - 1] == b[j - 1] ? 0 : 1)});
      diagonal = up;
    }
  }
  return row[b.size()];
}

std::vector<std::u16string> SplitWords(const char16_t* words) {
  std::vector<std::u16string> out;
  std::u16string current;
  for (const char16_t* p = words; p && *p; ++p) {
    if (*p == u'|') {
      out.push_back(current);
      current.clear();
    } else {
      current += *p;
    }
  }
  if (words) out.push_back(current);
  return out;
}

bool IsTrim(char16_t c) { return c == u' ' || c == u'\t' || c == u'\r' || c == u'\n' || c == 0x0b; }
std::u16string Trim(const std::u16string& s) {
  std::size_t b = 0, e = s.size();
  while (b < e && IsTrim(s[b])) ++b;
  while (e > b && IsTrim(s[e - 1])) --e;
  return s.substr(b, e - b);
}

// What kind of object a section makes, as the builder sorts it.
enum class Kind { kRoot, kLogger, kAppender, kLayout, kOther };

struct Finding {
  std::uint64_t line;
  bool error;
  std::string text;
};

class Checker {
 public:
  Checker(std::string label, bool quiet) : label_(std::move(label)), quiet_(quiet) {}

  // Reads the bytes as the library reads a file; false if nothing could be
  // read at all.
  void Run(const std::string& bytes, ZyrLogManager* manager, const ZyrBasString& buildFolder,
           const ZyrBasString& logFolder) {
    ZyrCfgMemoryFile file(bytes.data(), bytes.size());
    ZyrFileTextStream stream(&file);
    ZyrResult r = document_.Load(stream);
    if (ZyrFailed(r)) Add(0, true, "reading stopped: " + Named(r));
    MapLines(bytes);
    for (const ZyrCfgLineError& e : document_.lineErrors) Add(e.line, true, Named(e.result));
    Sort();
    CheckValues(logFolder);
    CheckUse();
    Build(manager, buildFolder);
    std::stable_sort(findings_.begin(), findings_.end(),
                     [](const Finding& a, const Finding& b) { return a.line < b.line; });
  }

  int Report() const {
    int status = 0;
    for (const Finding& f : findings_) {
      status = std::max(status, f.error ? 2 : 1);
      if (quiet_) continue;
      std::printf("%s:%llu: %s: %s\n", label_.c_str(), static_cast<unsigned long long>(f.line),
                  f.error ? "error" : "warning", f.text.c_str());
    }
    return status;
  }

 private:
  static std::string Named(ZyrResult r) {
    const zyrtool::ResultName* row = zyrtool::FindResult(r);
    return row ? std::string(row->name) + ": " + row->meaning : zyrtool::Hex(r);
  }

  void Add(std::uint64_t line, bool error, std::string text) {
    findings_.push_back({line, error, std::move(text)});
  }

  // The line of each section header and of the first value of each key,
  // found with the reader's own rules for headers and value lines.
  void MapLines(const std::string& bytes) {
    ZyrCfgMemoryFile file(bytes.data(), bytes.size());
    ZyrFileTextStream stream(&file);
    ZyrBasString line;
    std::uint64_t number = 0;
    std::u16string section;
    bool inSection = false;
    while (ZyrSucceeded(stream.ReadLine(&line))) {
      ++number;
      std::u16string text(line.Text(), line.Length());
      std::size_t first = text.find_first_not_of(u" \t\v");
      if (first == std::u16string::npos) continue;
      if (text[first] == u';') continue;
      if (text[first] == u'[') {
        std::size_t close = text.find(u']', first);
        inSection = close != std::u16string::npos && close > first + 1;
        if (inSection) {
          section = text.substr(first + 1, close - first - 1);
          sectionLines_.emplace(section, number);
        }
        continue;
      }
      std::size_t equals = text.find(u'=');
      if (inSection && equals != std::u16string::npos)
        keyLines_.emplace(std::make_pair(section, Trim(text.substr(0, equals))), number);
    }
  }

  std::uint64_t LineOf(const std::u16string& section) const {
    auto it = sectionLines_.find(section);
    return it == sectionLines_.end() ? 0 : it->second;
  }
  std::uint64_t LineOf(const std::u16string& section, const std::u16string& key) const {
    auto it = keyLines_.find({section, key});
    return it == keyLines_.end() ? LineOf(section) : it->second;
  }

  static std::u16string Value(const ZyrCfgSection& s, const char16_t* key, bool* present) {
    ZyrCfgValueRef value;
    *present = ZyrSucceeded(s.FindValue(key, &value));
    if (!*present) return u"";
    // Values are read after variable expansion; a failing expansion is the
    // build's error, and the raw text stands in here.
    ZyrBasString expanded;
    if (ZyrSucceeded(ZyrCfgExpandVariables(value->text, expanded)))
      return std::u16string(expanded.Text(), expanded.Length());
    return std::u16string(value->text.Text(), value->text.Length());
  }

  void Sort() {
    ZyrCfgSectionIterator it = document_.Sections();
    ZyrCfgSectionRef s;
    while (ZyrSucceeded(it.Current(&s))) {
      it.Next();
      std::u16string name(s->name.Text(), s->name.Length());
      bool hasType = false;
      std::u16string type = Value(*s, u"Type", &hasType);
      Kind kind = Kind::kOther;
      if (name == u"root") kind = Kind::kRoot;
      else if (!hasType || type == u"Logger") kind = Kind::kLogger;
      else if (type == u"Appender") kind = Kind::kAppender;
      else if (type == u"Layout") kind = Kind::kLayout;
      sections_.push_back({s, name, kind});
      if (kind == Kind::kOther) {
        std::string hint;
        for (const char16_t* word : {u"Logger", u"Appender", u"Layout"})
          if (Lower(type) == Lower(word)) hint = "; write '" + Utf8(word) + "' (the word is case-sensitive)";
        Add(LineOf(name, u"Type"), false,
            "type-unknown: [" + Utf8(name) + "] Type = " + Utf8(type.c_str()) +
                " is no known type, so the section is stored and applied to nothing" + hint);
      } else if (kind == Kind::kLogger && !hasType) {
        bool appenderType = false, layoutType = false;
        Value(*s, u"AppenderType", &appenderType);
        Value(*s, u"LayoutType", &layoutType);
        if (appenderType || layoutType)
          Add(LineOf(name), false,
              "type-missing: [" + Utf8(name) + "] has " + (appenderType ? "AppenderType" : "LayoutType") +
                  " but no 'Type = " + (appenderType ? "Appender" : "Layout") +
                  "', so it is read as a logger");
      }
    }
  }

  static bool Applies(const ZyrCfgKey& k, Kind kind, const std::u16string& subtype) {
    switch (k.scope) {
      case ZyrCfgScope::kAnySection: return kind != Kind::kRoot;
      case ZyrCfgScope::kLogger: return kind == Kind::kLogger || kind == Kind::kRoot;
      case ZyrCfgScope::kRoot: return kind == Kind::kRoot;
      case ZyrCfgScope::kAppender: return kind == Kind::kAppender;
      case ZyrCfgScope::kAppenderOf: return kind == Kind::kAppender && subtype == k.type;
      case ZyrCfgScope::kLayout: return kind == Kind::kLayout;
      case ZyrCfgScope::kLayoutOf: return kind == Kind::kLayout && subtype == k.type;
    }
    return false;
  }

  static std::string ScopeText(const ZyrCfgKey& k) {
    switch (k.scope) {
      case ZyrCfgScope::kAnySection: return "any section";
      case ZyrCfgScope::kLogger: return "a logger";
      case ZyrCfgScope::kRoot: return "[root]";
      case ZyrCfgScope::kAppender: return "an appender";
      case ZyrCfgScope::kAppenderOf: return "an appender of AppenderType " + Utf8(k.type);
      case ZyrCfgScope::kLayout: return "a layout";
      case ZyrCfgScope::kLayoutOf: return "a layout of LayoutType " + Utf8(k.type);
    }
    return "";
  }

  void CheckValues(const ZyrBasString& logFolder) {
    for (const Section& sec : sections_) {
      if (sec.kind == Kind::kOther) continue;
      bool present = false;
      std::u16string subtype;
      if (sec.kind == Kind::kAppender) subtype = Value(*sec.section, u"AppenderType", &present);
      if (sec.kind == Kind::kLayout) subtype = Value(*sec.section, u"LayoutType", &present);
      // A type that makes no object of its own (SharedFile, Syslog, a
      // misspelling) is the build's error; its other keys say nothing more.
      bool knownType = sec.kind != Kind::kAppender && sec.kind != Kind::kLayout;
      for (std::size_t i = 0; i < kZyrCfgAppenderTypeCount; ++i)
        knownType = knownType || (sec.kind == Kind::kAppender && subtype == kZyrCfgAppenderTypes[i]);
      for (std::size_t i = 0; i < kZyrCfgLayoutTypeCount; ++i)
        knownType = knownType || (sec.kind == Kind::kLayout && subtype == kZyrCfgLayoutTypes[i]);
      // "Fw" is a fixed Custom format that reads no other key.
      ZyrCfgValueIterator values = sec.section->Values();
      ZyrCfgValueRef value;
      while (ZyrSucceeded(values.Current(&value))) {
        values.Next();
        std::u16string key(value->name.Text(), value->name.Length());
        const ZyrCfgKey* row = nullptr;
        const ZyrCfgKey* elsewhere = nullptr;
        for (std::size_t i = 0; i < kZyrCfgKeyCount; ++i) {
          if (key != kZyrCfgKeys[i].key) continue;
          if (Applies(kZyrCfgKeys[i], sec.kind, subtype)) row = &kZyrCfgKeys[i];
          else if (!elsewhere) elsewhere = &kZyrCfgKeys[i];
        }
        if (!knownType && key != u"Type" && key != u"AppenderType" && key != u"LayoutType") continue;
        std::uint64_t line = LineOf(sec.name, key);
        std::string where = "[" + Utf8(sec.name) + "] " + Utf8(key.c_str());
        if (sec.kind == Kind::kLayout && subtype == u"Fw" && key != u"Type" && key != u"LayoutType") {
          Add(line, false, "key-ignored: " + where + " has no effect: LayoutType Fw has a fixed format");
          continue;
        }
        if (!row && elsewhere) {
          Add(line, false, "key-misplaced: " + where + " has no effect here; it is a key of " +
                               ScopeText(*elsewhere));
          continue;
        }
        if (!row) {
          std::string text = "key-unknown: " + where + " is no key and has no effect";
          const char16_t* best = nullptr;
          std::size_t bestDistance = 3;
          for (std::size_t i = 0; i < kZyrCfgKeyCount; ++i) {
            std::size_t d = Distance(key, kZyrCfgKeys[i].key);
            if (d < bestDistance && Applies(kZyrCfgKeys[i], sec.kind, subtype)) {
              bestDistance = d;
              best = kZyrCfgKeys[i].key;
            }
          }
          if (best) text += "; did you mean " + Utf8(best) + "?";
          Add(line, false, text);
          continue;
        }
        bool dummy = false;
        CheckValue(*row, where, line, Value(*sec.section, row->key, &dummy), logFolder);
      }
      if (sec.kind == Kind::kLogger) {
        bool hasSeverity = false, hasAdditive = false;
        Value(*sec.section, u"Severity", &hasSeverity);
        std::u16string additive = Value(*sec.section, u"Additive", &hasAdditive);
        bool isAdditive = !(additive == u"false" || additive == u"no" || additive == u"0");
        if (hasSeverity && (!hasAdditive || isAdditive))
          Add(LineOf(sec.name, u"Severity"), false,
              "severity-overridden: [" + Utf8(sec.name) +
                  "] Severity has no effect: an additive logger takes its parent's severity; "
                  "add 'Additive = false' to give it its own");
      }
    }
  }

  void CheckValue(const ZyrCfgKey& row, const std::string& where, std::uint64_t line,
                  const std::u16string& text, const ZyrBasString& logFolder) {
    std::vector<std::u16string> words = SplitWords(row.words);
    auto caseHint = [&](const char* meaning) {
      for (const std::u16string& w : words)
        if (Lower(w) == Lower(text) && w != text) {
          Add(line, false, "word-case: " + where + " = " + Utf8(text.c_str()) + " is " + meaning +
                               "; the words are case-sensitive: write " + Utf8(w.c_str()));
          return true;
        }
      return false;
    };
    switch (row.kind) {
      case ZyrCfgKeyKind::kWord:
        if (std::find(words.begin(), words.end(), text) != words.end()) break;
        if (row.key == std::u16string(u"Target")) {
          if (!caseHint("standard error"))
            Add(line, false, "word-unknown: " + where + " = " + Utf8(text.c_str()) +
                                 " selects standard error; only System.out selects standard output");
        } else {
          caseHint("not known");  // an unknown type is the build's error
        }
        break;
      case ZyrCfgKeyKind::kFalseWords:
        if (std::find(words.begin(), words.end(), text) == words.end() && !caseHint("read as true") &&
            text != u"true" && text != u"yes" && text != u"1")
          Add(line, false, "boolean-word: " + where + " = " + Utf8(text.c_str()) +
                               " is read as true; only false, no and 0 mean false");
        break;
      case ZyrCfgKeyKind::kTrueWords:
        if (std::find(words.begin(), words.end(), text) == words.end() && !caseHint("read as false") &&
            text != u"false" && text != u"no" && text != u"0")
          Add(line, false, "boolean-word: " + where + " = " + Utf8(text.c_str()) +
                               " is read as false; only true, yes and 1 mean true");
        break;
      case ZyrCfgKeyKind::kSeverity: {
        constexpr ZyrLogSeverity kUnknown = 123457;  // no point of the scale
        if (ZyrLogSeverityFromName(text.c_str(), kUnknown) == kUnknown)
          Add(line, false, "severity-unknown: " + where + " = " + Utf8(text.c_str()) +
                               " is no severity name and counts as INFO; the names are ALL, DEBUG, "
                               "DETAIL, INFO, WARN, ERROR, FATAL, OFF");
        break;
      }
      case ZyrCfgKeyKind::kUnsigned:
      case ZyrCfgKeyKind::kSigned:
        CheckNumber(row, where, line, text);
        break;
      case ZyrCfgKeyKind::kPath:
        CheckFolder(where, line, text, logFolder);
        break;
      case ZyrCfgKeyKind::kText:
        if (row.key == std::u16string(u"Format")) CheckFormat(where, line, text);
        break;
      case ZyrCfgKeyKind::kFieldList:
        CheckFields(where, line, text);
        break;
      default:
        break;
    }
  }

  // The build refuses a Fields list with an unknown name (the names are
  // case-sensitive); this says which name and what the names are.
  void CheckFields(const std::string& where, std::uint64_t line, const std::u16string& text) {
    std::string names;
    for (const char16_t* name : ZyrLogJsonLayout::kFieldNames) names += (names.empty() ? "" : ", ") + Utf8(name);
    std::size_t start = 0;
    while (start <= text.size()) {
      std::size_t end = std::min(text.find(u',', start), text.size());
      std::u16string name = Trim(text.substr(start, std::min(text.find(u':', start), end) - start));
      bool known = false;
      for (const char16_t* field : ZyrLogJsonLayout::kFieldNames) known = known || name == field;
      if (!known && !name.empty())
        Add(line, false, "field-unknown: " + where + ": " + Utf8(name) + " is no field; the fields are " + names);
      start = end + 1;
    }
  }

  // A "%word" that the Custom layout does not know stays in every line as
  // it stands. Each "%word" of the text (not "%%") is compiled by the layout
  // itself: a literal first entry means no token begins there.
  void CheckFormat(const std::string& where, std::uint64_t line, const std::u16string& text) {
    ZyrLogLayout* made = nullptr;
    if (ZyrFailed(ZyrLogCustomLayoutCreator().Create(&made, u"check"))) return;
    auto* layout = static_cast<ZyrLogCustomLayout*>(made);
    for (std::size_t at = 0; at < text.size(); ++at) {
      if (text[at] != u'%') continue;
      if (at + 1 < text.size() && text[at + 1] == u'%') {
        ++at;
        continue;
      }
      std::size_t end = at + 1;
      while (end < text.size() && ((text[end] >= u'a' && text[end] <= u'z') || (text[end] >= u'A' && text[end] <= u'Z')))
        ++end;
      if (end == at + 1) continue;
      std::u16string word = text.substr(at, end - at);
      if (ZyrSucceeded(layout->Compile(word.c_str(), word.size())) && layout->Tokens().Count() > 0 &&
          layout->Tokens()[0] == ZyrLogCustomLayout::kLiteral)
        Add(line, false, "format-token: " + where + ": " + Utf8(word) +
                             " is no token and prints as it stands; write %% for a percent sign");
    }
    made->Destroy(1);
  }

  void CheckNumber(const ZyrCfgKey& row, const std::string& where, std::uint64_t line,
                   const std::u16string& text) {
    std::size_t i = 0;
    if (text.empty()) {
      Add(line, false, "number-empty: " + where + " is empty, which reads as 0");
      return;
    }
    if (text[0] == u'-') {
      if (row.kind == ZyrCfgKeyKind::kUnsigned) {
        // FilesCount fails the build; MaxQueueSize keeps the budget as it was.
        if (row.key == std::u16string(u"MaxQueueSize"))
          Add(line, false, "number-negative: " + where + " is negative and leaves the queue budget unchanged");
        return;
      }
      ++i;
    }
    bool hex = text.size() > i + 2 && text[i] == u'0' && (text[i + 1] == u'x' || text[i + 1] == u'X');
    if (hex) i += 2;
    std::size_t digits = i;
    while (i < text.size() &&
           ((text[i] >= u'0' && text[i] <= u'9') ||
            (hex && ((text[i] >= u'a' && text[i] <= u'f') || (text[i] >= u'A' && text[i] <= u'F')))))
      ++i;
    if (i == text.size() && i > digits) return;
    std::u16string read = text.substr(0, i);
    if (i == digits) read += u"0";
    Add(line, false, "number-text: " + where + " = " + Utf8(text.c_str()) + " is read as " +
                         Utf8(read.c_str()) + ": reading stops at '" + Utf8(text.c_str() + i, 1) +
                         "'; there are no units, write the plain number");
  }

  void CheckFolder(const std::string& where, std::uint64_t line, const std::u16string& text,
                   const ZyrBasString& logFolder) {
    ZyrBasString full;
    if (ZyrFailed(ZyrBasPathJoin(full, logFolder.Text(), logFolder.Length(), text.c_str()))) return;
    std::string path = Utf8(full);
    std::string dir = path.substr(0, path.find_last_of('/') == std::string::npos ? 0 : path.find_last_of('/'));
    if (dir.empty()) dir = path.rfind('/', 0) == 0 ? "/" : ".";
    // The appender makes missing folders at its first line: the nearest
    // folder that exists must let this user make them or write in it.
    std::string probe = dir;
    while (access(probe.c_str(), F_OK) != 0 && probe.size() > 1) {
      std::size_t slash = probe.find_last_of('/');
      probe = slash == 0 || slash == std::string::npos ? "/" : probe.substr(0, slash);
    }
    struct stat st;
    std::string problem;
    if (stat(probe.c_str(), &st) != 0 || !S_ISDIR(st.st_mode))
      problem = probe + " is no folder, so " + dir + " cannot be made";
    else if (access(probe.c_str(), W_OK | X_OK) != 0)
      problem = probe == dir ? "the folder " + dir + " cannot be written by this user"
                             : "the folder " + dir + " does not exist and " + probe +
                                   " cannot be written by this user, so it cannot be made";
    if (!problem.empty())
      Add(line, false, "folder-not-writable: " + where + " = " + Utf8(text.c_str()) + ": " + problem +
                           "; every line through this appender will fail");
  }

  // Appenders that no logger of the file names.
  void CheckUse() {
    std::set<std::u16string> used;
    for (const Section& sec : sections_) {
      if (sec.kind != Kind::kLogger && sec.kind != Kind::kRoot) continue;
      bool present = false;
      std::u16string list = Value(*sec.section, u"AddAppenders", &present);
      std::u16string piece;
      for (char16_t c : list + u",") {
        if (c == u',' || c == u';') {
          piece = Trim(piece);
          if (piece.find_first_of(u" \t") != std::u16string::npos)
            Add(LineOf(sec.name, u"AddAppenders"), false,
                "appender-list-blank: [" + Utf8(sec.name) + "] AddAppenders names one appender '" +
                    Utf8(piece) + "': names are separated by ',' (or ';' in quotes), not by blanks");
          used.insert(piece);
          piece.clear();
        } else {
          piece += c;
        }
      }
    }
    for (const Section& sec : sections_)
      if (sec.kind == Kind::kAppender && !used.count(sec.name))
        Add(LineOf(sec.name), false,
            "appender-unused: [" + Utf8(sec.name) + "] is an appender that no logger names in AddAppenders");
  }

  // The key whose line a build failure points at; the header's line when
  // the section has no such key (a required key that is missing).
  static std::u16string KeyOf(ZyrResult r, Kind kind) {
    if (r == ZYR_E_LAYOUT_NOT_FOUND) return kind == Kind::kLayout ? u"LayoutType" : u"Layout";
    if (r == ZYR_E_APPENDER_NOT_FOUND) return kind == Kind::kAppender ? u"AppenderType" : u"AddAppenders";
    if (r == ZYR_E_WRONG_APPENDER_TYPE) return u"AppenderType";
    if (r == ZYR_E_WRONG_LAYOUT_TYPE) return u"LayoutType";
    if (r == ZYR_E_INVALID_ARGUMENT) return kind == Kind::kLayout ? u"Fields" : u"FilesCount";
    return u"";
  }

  // Each section on its own, in the builder's order, so that one failure
  // does not hide the next.
  void Build(ZyrLogManager* manager, const ZyrBasString& buildFolder) {
    if (!manager) return;
    for (Kind kind : {Kind::kLayout, Kind::kAppender, Kind::kRoot, Kind::kLogger}) {
      for (const Section& sec : sections_) {
        if (sec.kind != kind) continue;
        ZyrCfgDocument one;
        if (ZyrFailed(one.AddSectionCopy(*sec.section))) continue;
        ZyrCfgSectionRef copy = one.FindSection(sec.name.c_str(), sec.name.size());
        ZyrCfgValueRef fileName;
        if (ZyrSucceeded(copy->FindValue(u"FileName", &fileName))) {
          // Into the temporary folder, unless the name has a variable the
          // build must refuse.
          ZyrBasString expanded;
          std::u16string safe = u"checked-" + std::u16string(sec.name) + u".log";
          for (char16_t& c : safe)
            if (c == u'/' || c == u'\\') c = u'_';
          if (ZyrSucceeded(ZyrCfgExpandVariables(fileName->text, expanded))) {
            (void)copy->values.Remove(u"FileName");
            (void)copy->AddRawValue(u"FileName", safe.c_str());
          }
        }
        ZyrResult r = manager->ApplyDocument(one, buildFolder);
        if (ZyrFailed(r))
          Add(LineOf(sec.name, KeyOf(r, kind)), true, "[" + Utf8(sec.name) + "] does not build: " + Named(r));
      }
    }
  }

  struct Section {
    ZyrCfgSectionRef section;
    std::u16string name;
    Kind kind;
  };

  std::string label_;
  bool quiet_;
  ZyrCfgDocument document_;
  std::vector<Section> sections_;
  std::map<std::u16string, std::uint64_t> sectionLines_;
  std::map<std::pair<std::u16string, std::u16string>, std::uint64_t> keyLines_;
  std::vector<Finding> findings_;
};

bool ReadBytes(const std::string& path, std::string* bytes) {
  std::ifstream in(path, std::ios::binary);
  if (!in) return false;
  std::stringstream ss;
  ss << in.rdbuf();
  *bytes = ss.str();
  return true;
}

}  // namespace

int main(int argc, char** argv) {
  bool quiet = false, builtIn = false;
  std::vector<std::string> files;
  for (int i = 1; i < argc; ++i) {
    std::string a = argv[i];
    if (a == "-q" || a == "--quiet") quiet = true;
    else if (a == "--default") builtIn = true;
    else if (a == "-h" || a == "--help") {
      std::printf("usage: zyrlog-check [--quiet] [--default] FILE...\n"
                  "Reads each configuration file as the library does and prints its problems.\n"
                  "  --default  check the built-in default configuration too\n"
                  "  --quiet    print nothing; the exit status tells\n"
                  "Exit status: 0 no problem, 1 warnings only, 2 errors.\n");
      return 0;
    } else files.push_back(a);
  }
  if (files.empty() && !builtIn) {
    std::fprintf(stderr, "usage: zyrlog-check [--quiet] [--default] FILE...\n");
    return 2;
  }

  // The user's real log folder, where relative file names will go; not
  // made here.
  ZyrBasString logFolder;
  (void)ZyrBasProductDirectory(ZYR_DIR_USER_LOCAL, logFolder, u"log", u"\\OPH2015");

  // A manager of this process, its own log folder in a temporary place.
  char templ[] = "/tmp/zyrlog-check-XXXXXX";
  const char* temp = mkdtemp(templ);
  ZyrLogManager* manager = nullptr;
  ZyrBasString buildFolder;
  if (temp) {
    // Only the manager's start sees the temporary folder; ${winlocalappdata}
    // in the files checked is the user's own again.
    const char* original = getenv("LOCALAPPDATA");
    std::string saved = original ? original : "";
    setenv("LOCALAPPDATA", temp, 1);
    if (ZyrFailed(ZyrLogManager::Acquire(&manager))) manager = nullptr;
    if (original) setenv("LOCALAPPDATA", saved.c_str(), 1);
    else unsetenv("LOCALAPPDATA");
    (void)buildFolder.Assign(std::u16string(temp, temp + std::strlen(temp)).c_str());
  }

  int status = 0;
  if (builtIn) {
    std::string text = Utf8(kZyrBuiltInConfig);
    Checker checker("<built-in>", quiet);
    checker.Run(text, manager, buildFolder, logFolder);
    status = std::max(status, checker.Report());
  }
  for (const std::string& path : files) {
    std::string bytes;
    if (!ReadBytes(path, &bytes)) {
      if (!quiet) std::printf("%s:0: error: cannot be read\n", path.c_str());
      status = 2;
      continue;
    }
    Checker checker(path, quiet);
    checker.Run(bytes, manager, buildFolder, logFolder);
    status = std::max(status, checker.Report());
  }
  if (manager) manager->Release();
  if (temp) {
    std::string cmd = std::string("rm -rf '") + temp + "'";
    (void)!system(cmd.c_str());
  }
  return status;
}
