#include <gtest/gtest.h>

#include <string>

#include "config/document.h"
#include "layout/custom_layout.h"
#include "records/event.h"
#include "records/standard_line.h"

namespace {

ZyrCfgSectionRef Section(std::initializer_list<std::pair<const char16_t*, const char16_t*>> values) {
  ZyrCfgSectionRef section;
  ZyrCfgSectionRef::Make(&section);
  section->SetName(u"custom");
  for (auto& kv : values) {  // as written, unquoted
    ZyrCfgValueRef value;
    ZyrCfgValueRef::Make(&value);
    value->Set(kv.first, kv.second, nullptr, nullptr);
    section->AddValue(value);
  }
  return section;
}

struct Layout {
  Layout() { ZyrLogCustomLayoutCreator().Create(&layout, u"custom"); }
  ~Layout() { layout->Destroy(1); }
  ZyrLogCustomLayout& Get() { return *static_cast<ZyrLogCustomLayout*>(layout); }
  std::u16string Format(const char16_t* format, const ZyrLogEvent& e) {
    EXPECT_EQ(layout->Configure(*Section({{u"LayoutType", u"Custom"}, {u"Format", format}})), ZYR_OK);
    ZyrBasString text;
    EXPECT_EQ(layout->FormatEvent(text, e), ZYR_OK);
    return std::u16string(text.Text(), text.Length());
  }
  ZyrLogLayout* layout = nullptr;
};

ZyrLogEvent Event() {
  ZyrLogEvent e;
  e.LoggerName.Assign(u"svc");
  e.Message.Assign(u"hello");
  e.Severity = ZYR_SEVERITY_WARN;
  e.Timestamp = 130594812675120000ull;  // 2014-11-03 09:41:07,512
  e.SvnRev = 0xffffffffu;
  e.Line = 12;
  e.ProcessId = 4000000000u;
  return e;
}

}  // namespace

TEST(CustomLayout, TokensLiteralsAndEscapes) {
  Layout l;
  ZyrLogEvent e = Event();
  const ZyrBasString& host = ZyrLogCachedHostName();
  EXPECT_EQ(l.Format(kZyrFwFormat, e),  // the fixed form "Fw"
            u"2014-11-03 09:41:07,512 " + std::u16string(host.Text(), host.Length()) + u" hello");
  EXPECT_EQ(l.Format(u"100%% %msg", e), u"100% hello");
  EXPECT_EQ(l.Format(u"%%msg", e), u"%msg");
  EXPECT_EQ(l.Format(u"%foo", e), u"%foo");
  EXPECT_EQ(l.Format(u"%Msg|%dates", e), u"hello|2014-11-03s");
  EXPECT_EQ(l.Format(u"a\\nb", e), u"a\nb");
  EXPECT_EQ(l.Format(u"[%filename]%line.%svnrev %pid %severity %logger", e), u"[]12.-1 4000000000 WARN svc");
  EXPECT_EQ(l.Format(u"a %msg", e), u"a hello");
  EXPECT_EQ(l.Format(u"b %msg", e), u"b hello");  // a new format replaces the literals
  EXPECT_EQ(l.Format(u"", e), u"");
  e.Timestamp = ~0ull;
  EXPECT_EQ(l.Format(u"%date", e), u"1600-12-31");
  e.Timestamp = 1;
  ZyrBasString text;
  EXPECT_EQ(l.layout->FormatEvent(text, e), ZYR_E_TIME_OUT_OF_RANGE);
}

TEST(CustomLayout, ConfigureHeaderFooterAndSave) {
  Layout l;
  EXPECT_EQ(l.layout->Configure(*Section({{u"LayoutType", u"Standard"}, {u"Format", u"%msg"}})),
            ZYR_E_WRONG_LAYOUT_TYPE);
  EXPECT_EQ(l.layout->Configure(*Section({{u"LayoutType", u"Custom"}})), ZYR_E_CFG_NOT_FOUND);
  ASSERT_EQ(l.layout->Configure(*Section({{u"LayoutType", u"Custom"},
                                          {u"Format", u"100%% %Msg"},
                                          {u"Header", u"-- start %msg --"},
                                          {u"Footer", u"-- end --"}})),
            ZYR_OK);
  ZyrBasString header, footer;
  ASSERT_EQ(l.layout->GetHeader(header), ZYR_OK);
  ASSERT_EQ(l.layout->GetFooter(footer), ZYR_OK);
  EXPECT_EQ(std::u16string(header.Text()), u"-- start %msg --");
  EXPECT_EQ(std::u16string(footer.Text()), u"-- end --");
  ZyrCfgSectionRef saved;
  ZyrCfgSectionRef::Make(&saved);
  ASSERT_EQ(l.layout->Save(*saved), ZYR_OK);
  ZyrCfgValueRef format;
  ASSERT_EQ(saved->FindValue(u"Format", &format), ZYR_OK);
  EXPECT_EQ(std::u16string(format->text.Text()), u"100%% %msg");  // tokens saved in their own spelling
}
