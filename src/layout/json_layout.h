// ZyrLogJsonLayout: one JSON object per line, for collectors that take a
// line apart with a JSON parser instead of a pattern. Every field of the
// event has a stable name; `Fields` chooses which ones go out, in which
// order and under which key:
//
//   Fields = time:@timestamp, severity, logger, msg:message, args
//
// {"time":"2014-11-03T09:41:07.512Z","severity":"WARN","severity_number":300000,
//  "logger":"app.net","host":"WS1","pid":1204,"tid":3388,"file":"net.cpp",
//  "line":223,"build":185,"revision":"8038423","product":7,"msg":"...",
//  "args":[{"errorcode":"0x00000005"},{"str":"c:\\data"},{"bool":false}]}
//
// A line is always one valid object: every character that JSON requires is
// escaped, and a lone surrogate, which no UTF-8 can carry, is written as the
// visible text \uDxxx (its backslash escaped), as the other layouts show it.
// The configuration is compiled once into the text in front of each value
// (comma, escaped key, colon, opening quote; the host, which never changes,
// whole), so that a line is a walk over the changing fields that copies
// those texts and the values.
#ifndef ZYR_LAYOUT_JSON_LAYOUT_H
#define ZYR_LAYOUT_JSON_LAYOUT_H

#include "layout/layout.h"

class ZyrLogJsonLayout final : public ZyrLogLayout {
 public:
  enum Field : std::uint32_t {
    kTime,            // "2014-11-03T09:41:07.512Z", UTC
    kSeverity,        // the name, "WARN"
    kSeverityNumber,  // the number, 300000
    kLogger,
    kHost,
    kPid,
    kTid,
    kFile,
    kLine,
    kBuild,
    kRevision,  // a string: the number in decimal, or the caller's revision text
    kProduct,
    kMessage,   // as composed; a scrambled message is its opaque token
    kArgs,      // the typed values of a typed list; absent otherwise
    kFieldCount,
  };
  // The field names, by Field, as `Fields` names them and as keys by default.
  static const char16_t* const kFieldNames[kFieldCount];

  ZyrResult FormatEvent(ZyrBasString& text, const ZyrLogEvent& event) override;
  ZyrResult Configure(ZyrCfgSection& section) override;
  ZyrResult Save(ZyrCfgSection& section) override;
  void Destroy(std::uint32_t flags) override;
  // JSON readers refuse a byte order mark in front of the first object.
  bool MarksNewFile() const override { return false; }

  // Compiles a `Fields` text: names of fields separated by ",", each
  // optionally followed by ":" and the key it is written under. Blanks
  // around the pieces are ignored; an empty text is every field under its
  // own name. An unknown name, an empty piece or key, and a key used twice
  // give ZYR_E_INVALID_ARGUMENT and leave the old choice in force.
  ZyrResult SetFields(const char16_t* text, std::size_t length);
  // The choice in its normal form, as Save writes it.
  const ZyrBasString& FieldsText() const { return fieldsText_; }

 private:
  // A field whose value changes from line to line, and the literal in
  // front of it: ,"key": (the key escaped), the opening quote of a text
  // value, and any constant field before it (the host) written out whole.
  struct Entry {
    Field field;
    std::uint32_t offset;  // of the literal in literals_
    std::uint32_t length;
    std::uint32_t keep;    // units of the literal that stay when the field is left out
  };
  ZyrBasArray<Entry> entries_;
  Entry tail_{};            // the constant fields behind the last entry
  ZyrBasString literals_;  // back to back, with room for a fixed-size copy behind the last
  ZyrBasString fieldsText_;
};

class ZyrLogJsonLayoutCreator final : public ZyrLogLayoutCreator {
 public:
  ZyrResult Create(ZyrLogLayout** layout, const char16_t* name) override;
};

#endif
