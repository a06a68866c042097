// ZyrLogCustomLayout: a line described by a format text such as
// "%date %time %hostname %msg", compiled once at configuration into token
// numbers and literal strings, so that writing a line is a walk over the
// tokens with no parsing. Also holds the Header and Footer of a log file.
#ifndef ZYR_LAYOUT_CUSTOM_LAYOUT_H
#define ZYR_LAYOUT_CUSTOM_LAYOUT_H

#include "layout/layout.h"

class ZyrLogCustomLayout final : public ZyrLogLayout {
 public:
  enum Token : std::uint32_t {
    kLiteral = 0,
    kLogger,
    kSeverity,
    kHostName,
    kDate,
    kTime,
    kFileName,
    kLine,
    kBuildNr,
    kSvnRev,
    kMessage,
    kProduct,
    kPid,
    kTid,
  };

  ZyrResult FormatEvent(ZyrBasString& text, const ZyrLogEvent& event) override;
  ZyrResult Configure(ZyrCfgSection& section) override;
  ZyrResult Save(ZyrCfgSection& section) override;
  void Destroy(std::uint32_t flags) override;
  ZyrResult GetHeader(ZyrBasString& text) override { return text.Assign(header_); }
  ZyrResult GetFooter(ZyrBasString& text) override { return text.Assign(footer_); }

  // Compiles a format text; the old format is replaced only on success.
  ZyrResult Compile(const char16_t* format, std::size_t length);
  const ZyrBasArray<std::uint32_t>& Tokens() const { return tokens_; }
  const ZyrBasArray<ZyrBasString>& Literals() const { return literals_; }

 private:
  ZyrBasArray<ZyrBasString> literals_;
  ZyrBasArray<std::uint32_t> tokens_;
  ZyrBasString header_;
  ZyrBasString footer_;
};

class ZyrLogCustomLayoutCreator final : public ZyrLogLayoutCreator {
 public:
  ZyrResult Create(ZyrLogLayout** layout, const char16_t* name) override;
};

// The fixed format of LayoutType "Fw".
inline constexpr char16_t kZyrFwFormat[] = u"%date %time %hostname %msg";

#endif
