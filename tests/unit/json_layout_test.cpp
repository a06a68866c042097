// The Json layout: every line is one object that a strict reader accepts,
// whatever the message holds; typed lists come out as typed values; Fields
// chooses and renames; a new file gets no mark.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <limits>
#include <string>
#include <vector>

#include "base/format.h"
#include "config/document.h"
#include "file_appender_fixture.h"
#include "json_reader.h"
#include "layout/json_layout.h"
#include "records/event.h"
#include "records/scramble.h"
#include "records/standard_line.h"
#include "test_support.h"

namespace {

using zyrtest::Json;

std::uint64_t P(const void* p) { return ZyrBasSlotFromPointer(p); }

class JsonLayoutTest : public ::testing::Test {
 protected:
  JsonLayoutTest() {
    ZyrLogJsonLayoutCreator().Create(&layout_, u"json");
    Configure(nullptr);
  }
  ~JsonLayoutTest() override { layout_->Destroy(1); }

  ZyrResult Configure(const char16_t* fields) {
    ZyrCfgSection section;
    section.SetName(u"json");
    section.AddRawValue(u"LayoutType", u"Json");
    if (fields) section.AddRawValue(u"Fields", fields);
    return layout_->Configure(section);
  }

  static ZyrLogEvent Event(const std::u16string& message) {
    ZyrLogEvent e;
    e.LoggerName.Assign(u"app.net");
    e.Message.Assign(message.data(), message.size());
    e.Severity = ZYR_SEVERITY_WARN;
    e.Timestamp = 130594812675120000ull;  // 2014-11-03 09:41:07,512
    e.SvnRev = 0xffffffffu;
    e.Line = 12;
    e.ProcessId = 4000000000u;
    return e;
  }

  static ZyrLogEvent Typed(const std::vector<std::uint64_t>& slots) {
    ZyrLogEvent e;
    ZyrLogEventSource s{u"typed", ZYR_SEVERITY_INFO, nullptr, u"f.cpp", 1, 2, 3, nullptr, 4,
                        ZYR_LOGGER_PUBLIC, 0, slots.data(), nullptr};
    EXPECT_EQ(ZyrLogComposeEvent(e, s), ZYR_OK);
    return e;
  }

  // The line, proved to be one object of a strict reader, and read.
  Json Line(const ZyrLogEvent& e) {
    ZyrBasString line;
    EXPECT_EQ(layout_->FormatEvent(line, e), ZYR_OK);
    std::u16string text(line.Text(), line.Length());
    for (std::size_t i = 0; i < text.size(); ++i) {
      bool high = text[i] >= 0xd800 && text[i] <= 0xdbff, low = text[i] >= 0xdc00 && text[i] <= 0xdfff;
      if (high && i + 1 < text.size() && text[i + 1] >= 0xdc00 && text[i + 1] <= 0xdfff) ++i;
      else EXPECT_FALSE(high || low) << "a lone surrogate at " << i << " cannot become UTF-8";
    }
    Json json;
    std::string error;
    EXPECT_TRUE(zyrtest::JsonReader::Parse(zyrtest::Utf8(text), &json, &error)) << error << "\n" << zyrtest::Utf8(text);
    EXPECT_EQ(json.kind, Json::kObject);
    return json;
  }

  ZyrLogLayout* layout_ = nullptr;
};

std::vector<std::string> Keys(const Json& j) {
  std::vector<std::string> keys;
  for (const auto& [key, value] : j.members) keys.push_back(key);
  return keys;
}

}  // namespace

TEST_F(JsonLayoutTest, EveryMessageStaysOneValidObject) {
  std::u16string controls;
  for (char16_t c = 0; c < 0x20; ++c) controls += c;
  controls += u"\x7f";
  std::u16string longText;
  for (int i = 0; i < 20000; ++i) longText += i % 997 == 0 ? u"\"\\\x01\xd800" : u"ab\x00e9";
  struct Case {
    const char* what;
    std::u16string message;
  } cases[] = {
      {"empty", u""},
      {"quotes and backslashes", u"say \"hi\" to C:\\dir\\"},
      {"every control character", controls},
      {"non-ASCII and a pair", u"\x00e9t\x00e9 \x6f22 \xd83d\xde00"},
      {"lone high surrogate", u"a\xd800" u"b"},
      {"lone low surrogate first, high last", u"\xdc01x\xdbff"},
      {"two highs", u"\xd800\xd800\xdc00"},
      {"a walked typed list that is text", u"'DWORD:0x00000001'"},
      {"very long", longText},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    Json line = Line(Event(c.message));
    const Json* msg = line.Get("msg");
    ASSERT_NE(msg, nullptr);
    EXPECT_EQ(msg->text, zyrtest::Utf8(c.message));
    EXPECT_EQ(line.Get("args"), nullptr);  // format text: no typed values
  }
}

TEST_F(JsonLayoutTest, DefaultFieldsNamesAndTypes) {
  ZyrLogEvent e = Event(u"m");
  e.FileName.Assign(u"src/\"net\".cpp");
  Json line = Line(e);
  EXPECT_EQ(Keys(line), (std::vector<std::string>{"time", "severity", "severity_number", "logger", "host", "pid",
                                                  "tid", "file", "line", "build", "revision", "product", "msg"}));
  const ZyrBasString& host = ZyrLogCachedHostName();
  struct {
    const char* key;
    Json::Kind kind;
    std::string text;
  } expected[] = {
      {"time", Json::kString, "2014-11-03T09:41:07.512Z"},
      {"severity", Json::kString, "WARN"},
      {"severity_number", Json::kNumber, "300000"},
      {"logger", Json::kString, "app.net"},
      {"host", Json::kString, zyrtest::Utf8(std::u16string(host.Text(), host.Length()))},
      {"pid", Json::kNumber, "4000000000"},
      {"file", Json::kString, "src/\"net\".cpp"},
      {"line", Json::kNumber, "12"},
      {"revision", Json::kString, "-1"},  // as the Standard line prints it
  };
  for (const auto& x : expected) {
    const Json* v = line.Get(x.key);
    ASSERT_NE(v, nullptr) << x.key;
    EXPECT_EQ(v->kind, x.kind) << x.key;
    EXPECT_EQ(v->text, x.text) << x.key;
  }
  e.RevisionText.Assign(u"0123456789abcdef0123456789abcdef01234567");
  EXPECT_EQ(Line(e).Get("revision")->text, "0123456789abcdef0123456789abcdef01234567");
  e.Timestamp = 2700000000000000000ull;  // a year of five digits
  std::string time = Line(e).Get("time")->text;
  ASSERT_EQ(time.size(), 25u);
  EXPECT_EQ(time.substr(5, 1) + time.substr(11, 1) + time.substr(24), "-TZ");
}

TEST_F(JsonLayoutTest, TypedListsGiveTypedValues) {
  const char16_t withNul[] = {u'a', 0, u'b'};
  const std::uint64_t all = ~0ull;
  struct Case {
    std::vector<std::uint64_t> slots;
    const char* kind;  // the key of the one member; null for a null item
    Json::Kind type;
    std::string text;
  } cases[] = {
      {{ZYR_TAG_ERRORCODE, 0xe0010058}, "errorcode", Json::kString, "0xe0010058"},
      {{ZYR_TAG_SIZE, 1ull << 40}, "size", Json::kNumber, "1099511627776"},
      {{ZYR_TAG_INT8, all}, "int8", Json::kNumber, "-1"},
      {{ZYR_TAG_BYTE, 0x1ff}, "byte", Json::kNumber, "255"},
      {{ZYR_TAG_INT16, 0x8000}, "int16", Json::kNumber, "-32768"},
      {{ZYR_TAG_WORD, all}, "word", Json::kNumber, "65535"},
      {{ZYR_TAG_INT32, 0x80000000}, "int32", Json::kNumber, "-2147483648"},
      {{ZYR_TAG_DWORD, all}, "dword", Json::kNumber, "4294967295"},
      {{ZYR_TAG_INT64, 1ull << 63}, "int64", Json::kNumber, "-9223372036854775808"},
      {{ZYR_TAG_QWORD, all}, "qword", Json::kNumber, "18446744073709551615"},
      {{ZYR_TAG_FILESIZE, 10}, "filesize", Json::kNumber, "10"},
      {{ZYR_TAG_BOOL, 0x100}, "bool", Json::kBool, ""},
      {{ZYR_TAG_CHAR, 0x41}, "char", Json::kString, "A"},
      {{ZYR_TAG_CHAR, 0xd800}, "char", Json::kString, "\\uD800"},
      {{ZYR_TAG_STR, P(u"it's \"q\" \\ \r\n")}, "str", Json::kString, "it's \"q\" \\ \x0b\x0b"},
      {{ZYR_TAG_STR, 0}, "str", Json::kString, ""},
      {{ZYR_TAG_TIME, P(u"'09:41'")}, "time", Json::kString, "'09:41'"},
      {{ZYR_TAG_COUNTED_STR, P(withNul), 3}, "str", Json::kString, "a\\0b"},  // as the walk prints NUL
      {{ZYR_TAG_DOUBLE, ZyrBasSlotFromDouble(std::numeric_limits<double>::quiet_NaN())}, "double", Json::kString, ""},
      {{ZYR_TAG_UNASSIGNED, 7}, nullptr, Json::kNull, ""},
      {{99}, nullptr, Json::kNull, ""},  // an unknown tag has no value slot
  };
  for (const Case& c : cases) {
    std::vector<std::uint64_t> slots = c.slots;
    slots.push_back(ZYR_TAG_END);
    SCOPED_TRACE(c.kind ? c.kind : "null");
    Json line = Line(Typed(slots));
    const Json* args = line.Get("args");
    ASSERT_NE(args, nullptr);
    ASSERT_EQ(args->items.size(), 1u);
    const Json& item = args->items[0];
    if (!c.kind) {
      EXPECT_EQ(item.kind, Json::kNull);
      continue;
    }
    ASSERT_EQ(item.members.size(), 1u);
    EXPECT_EQ(item.members[0].first, c.kind);
    EXPECT_EQ(item.members[0].second.kind, c.type);
    if (c.type != Json::kBool && c.slots[0] != ZYR_TAG_DOUBLE) {
      EXPECT_EQ(item.members[0].second.text, c.text);
    }
  }
  // A double is a number a reader takes back exactly; several items keep
  // their order.
  double value = -1.0 / 3;
  std::vector<std::uint64_t> slots = {ZYR_TAG_DOUBLE, ZyrBasSlotFromDouble(value), ZYR_TAG_BOOL, 1,
                                      ZYR_TAG_STR, P(u"x"), ZYR_TAG_END};
  Json line = Line(Typed(slots));
  const Json& args = *line.Get("args");
  ASSERT_EQ(args.items.size(), 3u);
  EXPECT_EQ(std::strtod(args.items[0].Get("double")->text.c_str(), nullptr), value);
  EXPECT_TRUE(args.items[1].Get("bool")->boolean);
  ZyrBasString walked;  // msg is the message as composed: the walk
  ASSERT_EQ(ZyrLogWalkTypedList(walked, slots.data()), ZYR_OK);
  EXPECT_EQ(line.Get("msg")->text, zyrtest::Utf8(std::u16string(walked.Text(), walked.Length())));
  EXPECT_EQ(Line(Typed({ZYR_TAG_END})).Get("args")->items.size(), 0u);
}

TEST_F(JsonLayoutTest, AScrambledTypedListStaysTheToken) {
  ZyrLogEvent e = Typed({ZYR_TAG_STR, P(u"secret"), ZYR_TAG_END});
  e.ScrambleMode = 1;
  ASSERT_EQ(ZyrLogScrambleEvent(e), ZYR_OK);
  Json line = Line(e);
  EXPECT_EQ(line.Get("args"), nullptr);
  EXPECT_EQ(line.Get("msg")->text, zyrtest::Utf8(std::u16string(e.Message.Text(), e.Message.Length())));
  EXPECT_EQ(line.Get("msg")->text.find("secret"), std::string::npos);
}

TEST_F(JsonLayoutTest, FieldsChooseOrderAndRename) {
  struct Case {
    const char16_t* fields;
    std::vector<std::string> keys;  // empty: refused
  } cases[] = {
      {u"msg", {"msg"}},
      {u"time:@timestamp, msg:message,severity", {"@timestamp", "message", "severity"}},
      {u"  severity_number :  level ", {"level"}},
      {u"msg:a\"b\\c", {"a\"b\\c"}},
      {u"logger:msg, msg:logger", {"msg", "logger"}},
      {u"args, msg", {"msg"}},  // no typed list: no args
      {u"nope", {}},
      {u"Msg", {}},
      {u"msg,", {}},
      {u",msg", {}},
      {u"msg:", {}},
      {u"msg, msg", {}},
      {u"time:x, msg:x", {}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(zyrtest::Narrow(c.fields));
    ASSERT_EQ(Configure(u"time, msg"), ZYR_OK);
    ZyrResult r = Configure(c.fields);
    if (c.keys.empty()) {
      EXPECT_EQ(r, ZYR_E_INVALID_ARGUMENT);
      EXPECT_EQ(Keys(Line(Event(u"m"))), (std::vector<std::string>{"time", "msg"}));  // the old choice stays
    } else {
      EXPECT_EQ(r, ZYR_OK);
      EXPECT_EQ(Keys(Line(Event(u"m"))), c.keys);
    }
  }
  // The time is needed only where it is written.
  ZyrLogEvent e = Event(u"m");
  e.Timestamp = 1;
  ZyrBasString text;
  ASSERT_EQ(Configure(u"msg"), ZYR_OK);
  EXPECT_EQ(layout_->FormatEvent(text, e), ZYR_OK);
  ASSERT_EQ(Configure(u"msg, time"), ZYR_OK);
  EXPECT_EQ(layout_->FormatEvent(text, e), ZYR_E_TIME_OUT_OF_RANGE);
}

TEST_F(JsonLayoutTest, SaveWritesTheNormalForm) {
  ZyrCfgSection wrong;
  wrong.AddRawValue(u"LayoutType", u"Custom");
  EXPECT_EQ(layout_->Configure(wrong), ZYR_E_WRONG_LAYOUT_TYPE);
  for (auto [fields, saved] : {std::pair{u"msg :message ,time", u"msg:message, time"},
                               std::pair{u"msg:a;b", u"\"msg:a;b\""}}) {
    ASSERT_EQ(Configure(fields), ZYR_OK);
    ZyrCfgSection section;
    ASSERT_EQ(layout_->Save(section), ZYR_OK);
    ZyrCfgValueRef value;
    ASSERT_EQ(section.FindValue(u"Fields", &value), ZYR_OK);
    EXPECT_EQ(zyrtest::Narrow(std::u16string(value->text.Text(), value->text.Length())), zyrtest::Narrow(saved));
    ASSERT_EQ(section.FindValue(u"LayoutType", &value), ZYR_OK);
    EXPECT_TRUE(value->text.Equals(u"Json"));
  }
}

// A new file of a Json appender starts with the first object: no mark.
class JsonFileTest : public zyrtest::FileAppenderTest {};

TEST_F(JsonFileTest, NewFileHasNoMarkAndIsContinuedWithout) {
  ZyrLogLayout* json = nullptr;
  ASSERT_EQ(ZyrLogJsonLayoutCreator().Create(&json, u"json"), ZYR_OK);
  for (const char16_t* type : {u"File", u"RollingFile", u"RollingDateFile"}) {
    std::string name = zyrtest::Narrow(type) + ".log";
    auto* a = Make<ZyrLogAppender>(type, {{u"FileName", zyrtest::U16(name)}});
    a->SetLayout(json);
    ZyrLogEvent e;
    e.Message.Assign(u"x");
    e.Timestamp = 130594812675120000ull;
    ASSERT_EQ(a->DoAppend(e), ZYR_OK);
    ASSERT_EQ(a->Close(), ZYR_OK);
    ASSERT_EQ(a->DoAppend(e), ZYR_OK);
    a->Release();
    a->SetLayout(nullptr);
    std::string text = zyrtest::ReadFile(Path(name));
    ASSERT_FALSE(text.empty()) << name;
    EXPECT_EQ(text[0], '{') << name;
    std::size_t end = text.find("\r\n");
    ASSERT_NE(end, std::string::npos);
    EXPECT_EQ(text.substr(end + 2, end + 2), text.substr(0, end + 2)) << name;  // two lines, alike
    Json line;
    std::string error;
    EXPECT_TRUE(zyrtest::JsonReader::Parse(text.substr(0, end + 2), &line, &error)) << error;
  }
  json->Destroy(1);
}
