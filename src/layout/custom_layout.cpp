#include "layout/custom_layout.h"

#include "base/memory.h"
#include "base/time.h"
#include "config/document.h"
#include "records/event.h"
#include "records/severity.h"
#include "records/standard_line.h"

namespace {

// Token texts in the order they are tried; the index + 1 is the token.
constexpr const char16_t* kTokenTexts[] = {
    u"%logger", u"%severity", u"%hostname", u"%date",    u"%time", u"%filename", u"%line",
    u"%buildnr", u"%svnrev",  u"%msg",      u"%product", u"%pid",  u"%tid",
};

ZyrResult AppendSigned(ZyrBasString& text, std::uint32_t value) {
  std::int32_t v = static_cast<std::int32_t>(value);
  std::uint64_t magnitude = v < 0 ? 0ull - static_cast<std::int64_t>(v) : static_cast<std::uint64_t>(v);
  return ZyrBasAppendDecimal(text, magnitude, v < 0);
}

ZyrResult AppendPadded(ZyrBasString& text, unsigned value, int width) {
  char16_t digits[8];
  for (int i = width - 1; i >= 0; --i) {
    digits[i] = static_cast<char16_t>(u'0' + value % 10);
    value /= 10;
  }
  return text.Append(digits, digits + width);
}

// A literal: each pair of backslash and "n" becomes one line feed.
ZyrResult FlushLiteral(ZyrBasString& buffer, ZyrBasArray<ZyrBasString>& literals,
                       ZyrBasArray<std::uint32_t>& tokens) {
  ZyrResult r = buffer.ReplaceAll(u"\\n", 2, u"\n", 1);
  if (ZyrFailed(r)) return r;
  ZyrBasString literal;
  literal.Swap(buffer);
  r = literals.Append(static_cast<ZyrBasString&&>(literal));
  if (ZyrSucceeded(r)) r = tokens.Append(static_cast<std::uint32_t>(ZyrLogCustomLayout::kLiteral));
  return r;
}

}  // namespace

ZyrResult ZyrLogCustomLayout::Compile(const char16_t* format, std::size_t length) {
  ZyrBasArray<ZyrBasString> literals;
  ZyrBasArray<std::uint32_t> tokens;
  ZyrBasString buffer;
  ZyrResult r = ZYR_OK;
  std::size_t i = 0;
  while (i < length && ZyrSucceeded(r)) {
    char16_t c = format[i];
    if (c != u'%') {
      r = buffer.Append(c);
      ++i;
      continue;
    }
    if (i + 1 < length && format[i + 1] == u'%') {  // "%%" is one "%", ahead of any token
      r = buffer.Append(u'%');
      i += 2;
      continue;
    }
    std::uint32_t found = 0;
    std::size_t tokenLength = 0;
    for (std::uint32_t t = 0; t < sizeof kTokenTexts / sizeof kTokenTexts[0]; ++t) {
      std::size_t n = ZyrBasStrLen(kTokenTexts[t]);
      if (i + n <= length && ZyrBasCompareNoCase(format + i, n, kTokenTexts[t], n) == 0) {
        found = t + 1;
        tokenLength = n;
        break;
      }
    }
    if (!found) {  // an unknown "%x" stays in the line
      r = buffer.Append(u'%');
      ++i;
    } else if (!buffer.Empty()) {
      r = FlushLiteral(buffer, literals, tokens);  // then look at the same place again
    } else {
      r = tokens.Append(found);
      i += tokenLength;
    }
  }
  if (ZyrSucceeded(r) && !buffer.Empty()) r = FlushLiteral(buffer, literals, tokens);
  if (ZyrFailed(r)) return r;
  literals_.Swap(literals);
  tokens_.Swap(tokens);
  return ZYR_OK;
}

ZyrResult ZyrLogCustomLayout::FormatEvent(ZyrBasString& text, const ZyrLogEvent& e) {
  text.Clear();
  std::size_t literal = 0;
  ZyrBasTimeFields t{};
  bool split = false;
  ZyrResult r = ZYR_OK;
  for (std::uint32_t token : tokens_) {
    if ((token == kDate || token == kTime) && !split) {
      r = ZyrBasTimeToFields(t, e.Timestamp);  // all ones splits into 1600-12-31 with a remark
      if (ZyrFailed(r)) return r;
      split = true;
    }
    switch (token) {
      case kLiteral: r = text.Append(literals_[literal++]); break;
      case kLogger: r = text.Append(e.LoggerName); break;
      case kSeverity: r = text.Append(ZyrLogSeverityName(e.Severity)); break;
      case kHostName: r = text.Append(ZyrLogCachedHostName()); break;
      case kDate:
        r = AppendPadded(text, t.year, 4);
        if (ZyrSucceeded(r)) r = text.Append(u'-');
        if (ZyrSucceeded(r)) r = AppendPadded(text, t.month, 2);
        if (ZyrSucceeded(r)) r = text.Append(u'-');
        if (ZyrSucceeded(r)) r = AppendPadded(text, t.day, 2);
        break;
      case kTime:
        r = AppendPadded(text, t.hour, 2);
        if (ZyrSucceeded(r)) r = text.Append(u':');
        if (ZyrSucceeded(r)) r = AppendPadded(text, t.minute, 2);
        if (ZyrSucceeded(r)) r = text.Append(u':');
        if (ZyrSucceeded(r)) r = AppendPadded(text, t.second, 2);
        if (ZyrSucceeded(r)) r = text.Append(u',');
        if (ZyrSucceeded(r)) r = AppendPadded(text, t.millisecond, 3);
        break;
      case kFileName: r = text.Append(e.FileName); break;
      case kLine: r = AppendSigned(text, e.Line); break;
      case kBuildNr: r = AppendSigned(text, e.BuildNr); break;
      case kSvnRev: r = AppendSigned(text, e.SvnRev); break;
      case kMessage: r = text.Append(e.Message); break;
      case kProduct: r = AppendSigned(text, e.Product); break;
      case kPid: r = ZyrBasAppendDecimal(text, e.ProcessId); break;
      case kTid: r = ZyrBasAppendDecimal(text, e.ThreadId); break;
      default: break;
    }
    if (ZyrFailed(r)) return r;
  }
  return ZYR_OK;
}

ZyrResult ZyrLogCustomLayout::Configure(ZyrCfgSection& section) {
  ZyrCfgValueRef value;
  ZyrResult r = section.FindValue(u"LayoutType", &value);
  if (ZyrFailed(r) || !value->text.Equals(u"Custom")) return ZYR_E_WRONG_LAYOUT_TYPE;
  r = section.FindValue(u"Format", &value);
  if (ZyrFailed(r)) return r;
  r = Compile(value->text.Text(), value->text.Length());
  if (ZyrFailed(r)) return r;
  header_.Clear();
  footer_.Clear();
  if (ZyrSucceeded(section.FindValue(u"Header", &value))) {
    r = header_.Assign(value->text);
    if (ZyrFailed(r)) return r;
  }
  if (ZyrSucceeded(section.FindValue(u"Footer", &value))) r = footer_.Assign(value->text);
  return r;
}

ZyrResult ZyrLogCustomLayout::Save(ZyrCfgSection& section) {
  section.ClearValues();
  ZyrResult r = section.SetName(Name().Text(), Name().Length());
  ZyrBasString format;
  std::size_t literal = 0;
  for (std::uint32_t token : tokens_) {
    if (ZyrFailed(r)) break;
    if (token == kLiteral) {
      const ZyrBasString& l = literals_[literal++];
      // A line feed goes back to the "\n" it was compiled from, so that the
      // saved format stays on its line.
      for (std::size_t i = 0; i < l.Length() && ZyrSucceeded(r); ++i)
        r = l[i] == u'%'    ? format.Append(u"%%", 2)
            : l[i] == u'\n' ? format.Append(u"\\n", 2)
                            : format.Append(l[i]);
    } else {
      r = format.Append(kTokenTexts[token - 1]);
    }
  }
  if (ZyrSucceeded(r)) r = section.AddRawValue(u"Type", u"Layout");
  if (ZyrSucceeded(r)) r = section.AddRawValue(u"LayoutType", u"Custom");
  if (ZyrSucceeded(r)) r = ZyrLogSaveLayoutText(section, u"Format", format);
  if (ZyrSucceeded(r) && !header_.Empty()) r = ZyrLogSaveLayoutText(section, u"Header", header_);
  if (ZyrSucceeded(r) && !footer_.Empty()) r = ZyrLogSaveLayoutText(section, u"Footer", footer_);
  return r;
}

void ZyrLogCustomLayout::Destroy(std::uint32_t flags) {
  this->~ZyrLogCustomLayout();
  if (flags & 1) ZyrBasFree(this);
}

ZyrResult ZyrLogCustomLayoutCreator::Create(ZyrLogLayout** layout, const char16_t* name) {
  return ZyrLogMakeLayout<ZyrLogCustomLayout>(layout, name);
}
