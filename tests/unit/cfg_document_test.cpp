#include <gtest/gtest.h>

#include <iterator>
#include <string>
#include <vector>

#include "base/memory.h"
#include "config/document.h"
#include "config/reader.h"

namespace {

std::u16string S(const ZyrBasString& s) { return std::u16string(s.Text(), s.Length()); }

ZyrCfgSectionRef MakeSection(const char16_t* name) {
  ZyrCfgSectionRef s;
  EXPECT_EQ(ZyrCfgSectionRef::Make(&s), ZYR_OK);
  EXPECT_EQ(s->SetName(name), ZYR_OK);
  return s;
}

ZyrCfgValueRef MakeValue(const char16_t* key, const char16_t* text) {
  ZyrCfgValueRef v;
  EXPECT_EQ(ZyrCfgValueRef::Make(&v), ZYR_OK);
  EXPECT_EQ(v->Set(key, text, nullptr, nullptr), ZYR_OK);
  return v;
}

std::vector<std::u16string> SectionNames(const ZyrCfgDocument& doc) {
  std::vector<std::u16string> names;
  ZyrCfgSectionIterator it = doc.Sections();
  ZyrCfgSectionRef s;
  EXPECT_EQ(it.Reset(), ZYR_OK);
  for (; it.Current(&s) == ZYR_OK; it.Next()) names.push_back(S(s->name));
  return names;
}

void Load(ZyrCfgDocument& doc, const char16_t* text) {
  ZyrStringReader reader(text);
  ASSERT_EQ(doc.Load(reader), ZYR_OK);
}

// The value `key` of section "s".
ZyrCfgValueRef ValueOf(const ZyrCfgDocument& doc, const char16_t* key) {
  ZyrCfgValueRef v;
  EXPECT_EQ(doc.FindSection(u"s")->FindValue(key, &v), ZYR_OK);
  return v;
}

}  // namespace

TEST(CfgDocument, IteratesInByteOrderOfNames) {
  ZyrCfgDocument doc;
  ZyrCfgSectionRef s;
  ZyrCfgSectionIterator empty = doc.Sections();
  EXPECT_EQ(empty.Current(&s), ZYR_E_NO_MORE_ITEMS);
  EXPECT_EQ(empty.Next(), ZYR_I_NO_MORE_ITEMS);
  EXPECT_FALSE(s);
  // U+0100 lies in memory as 00 01 and so sorts before every ASCII name;
  // upper case sorts before lower case; a prefix before its extensions.
  for (const char16_t* name : {u"b", u"root", u"ab", u"\u00e4", u"a", u"Root", u"\u0100"})
    ASSERT_EQ(doc.AddSection(MakeSection(name)), ZYR_OK);
  EXPECT_EQ(SectionNames(doc), (std::vector<std::u16string>{u"\u0100", u"Root", u"a", u"ab",
                                                           u"b", u"root", u"\u00e4"}));
  ZyrCfgSectionIterator it = doc.Sections();
  for (int i = 0; i < 6; ++i) EXPECT_EQ(it.Next(), ZYR_OK);
  EXPECT_EQ(it.Next(), ZYR_I_NO_MORE_ITEMS);  // the move that reaches the end
  EXPECT_EQ(it.Current(&s), ZYR_E_NO_MORE_ITEMS);
}

TEST(CfgDocument, AddFindRemoveSectionsAndValues) {
  ZyrCfgDocument doc;
  ZyrCfgSectionRef first = MakeSection(u"root");
  ASSERT_EQ(doc.AddSection(first), ZYR_OK);
  EXPECT_EQ(doc.AddSection(MakeSection(u"root")), ZYR_E_SECTION_EXISTS);
  EXPECT_EQ(doc.sections.Count(), 1u);
  EXPECT_EQ(doc.FindSection(u"root").Get(), first.Get());  // the first stays
  EXPECT_FALSE(doc.FindSection(u"Root"));
  EXPECT_EQ(doc.RemoveSection(u"Root"), ZYR_I_NOT_FOUND);
  EXPECT_EQ(doc.RemoveSection(u"root"), ZYR_OK);
  EXPECT_FALSE(doc.FindSection(u"root"));
  EXPECT_EQ(first.UseCount(), 1u);  // the document let go of its handle

  ASSERT_EQ(first->AddValue(MakeValue(u"Type", u"Logger")), ZYR_OK);
  EXPECT_EQ(first->AddValue(MakeValue(u"Type", u"Other")), ZYR_E_VALUE_EXISTS);
  ZyrCfgValueRef v;
  EXPECT_EQ(first->FindValue(u"type", &v), ZYR_E_CFG_NOT_FOUND);  // a missing key has its own code
  EXPECT_FALSE(v);
  ASSERT_EQ(first->FindValue(u"Type", &v), ZYR_OK);
  EXPECT_EQ(S(v->text), u"Logger");  // the first value stayed
  first->ClearValues();
  EXPECT_FALSE(first->HasValue(u"Type"));
  EXPECT_EQ(v.UseCount(), 1u);
}

TEST(CfgDocument, SectionOutlivesItsDocument) {
  ZyrCfgSectionRef kept;
  {
    ZyrCfgDocument doc;
    Load(doc, u"[a]\nk = v\n");
    kept = doc.FindSection(u"a");
    ASSERT_TRUE(kept);
  }
  EXPECT_EQ(kept.UseCount(), 1u);
  ZyrCfgValueRef v;
  ASSERT_EQ(kept->FindValue(u"k", &v), ZYR_OK);
  EXPECT_EQ(S(v->text), u"v");
  ZyrCfgWeakRef<ZyrCfgSection> weak(kept);
  EXPECT_TRUE(weak.Lock());
  kept.Reset();
  EXPECT_FALSE(weak.Lock());  // the object is gone, the block still answers
}

TEST(CfgDocument, AddSectionCopySharesValuesButNotTheMap) {
  ZyrCfgDocument source, target;
  Load(source, u"; note\n[s]\nk = v\n");
  ZyrCfgSectionRef original = source.FindSection(u"s");
  ASSERT_EQ(target.AddSectionCopy(*original), ZYR_OK);
  ZyrCfgSectionRef copy = target.FindSection(u"s");
  ASSERT_TRUE(copy);
  EXPECT_NE(copy.Get(), original.Get());
  EXPECT_EQ(S(copy->comment), u" note");
  EXPECT_EQ(ValueOf(target, u"k").Get(), ValueOf(source, u"k").Get());
  ASSERT_EQ(copy->AddValue(MakeValue(u"extra", u"1")), ZYR_OK);
  EXPECT_FALSE(original->HasValue(u"extra"));
  EXPECT_EQ(target.AddSectionCopy(*original), ZYR_E_SECTION_EXISTS);
}

TEST(CfgDocument, FailedAllocationsLeaveTheDocumentAsItWas) {
  ZyrCfgDocument source;
  Load(source,
       u"[a-section-name-longer-than-the-inline-buffer]\n"
       u"first-key-longer-than-inline = 1\nsecond-key-longer-than-inline = 2\n");
  ZyrCfgSectionRef original = source.FindSection(u"a-section-name-longer-than-the-inline-buffer");
  ASSERT_TRUE(original);

  bool succeeded = false;
  for (long budget = 0; budget < 50 && !succeeded; ++budget) {
    ZyrCfgDocument target;
    ASSERT_EQ(target.AddSection(MakeSection(u"other")), ZYR_OK);
    ZyrBasTestFailAllocationsAfter(budget);
    ZyrResult r = target.AddSectionCopy(*original);
    ZyrBasTestFailAllocationsAfter(-1);
    succeeded = r == ZYR_OK;
    if (succeeded) {
      EXPECT_EQ(target.sections.Count(), 2u);
      EXPECT_TRUE(target.FindSection(original->name.Text())->Equals(*original));
    } else {
      EXPECT_EQ(r, ZYR_E_OUT_OF_MEMORY);
      EXPECT_EQ(SectionNames(target), std::vector<std::u16string>{u"other"});
    }
  }
  EXPECT_TRUE(succeeded);

  succeeded = false;
  for (long budget = 0; budget < 50 && !succeeded; ++budget) {
    ZyrCfgSectionRef s = MakeSection(u"s");
    ASSERT_EQ(s->SetValue(u"present", u"x"), ZYR_OK);
    ZyrBasTestFailAllocationsAfter(budget);
    ZyrResult r = s->SetValue(u"a-key-longer-than-the-inline-buffer", u"a value with blanks in it");
    ZyrResult r2 = ZyrSucceeded(r) ? s->SetValue(u"present", u"changed to a long value, quoted") : r;
    ZyrBasTestFailAllocationsAfter(-1);
    ZyrCfgValueRef v;
    ASSERT_EQ(s->FindValue(u"present", &v), ZYR_OK);
    succeeded = r2 == ZYR_OK;
    if (succeeded) {
      EXPECT_EQ(S(v->text), u"\"changed to a long value, quoted\"");
    } else {
      EXPECT_EQ(r2, ZYR_E_OUT_OF_MEMORY);
      EXPECT_EQ(S(v->text), u"x");
      EXPECT_EQ(s->values.Count(), ZyrSucceeded(r) ? 2u : 1u);
    }
  }
  EXPECT_TRUE(succeeded);
}

TEST(CfgDocument, QuoteRule) {
  struct Case {
    const char16_t* in;
    const char16_t* out;
  } cases[] = {
      {u"", u""},           {u"plain", u"plain"},       {u"a\tb", u"\"a\tb\""},
      {u"a,b", u"\"a,b\""}, {u"a;b", u"\"a;b\""},       {u"%date%", u"%date%"},
      {u"C:\\L\\common.log", u"\"C:\\L\\common.log\""},  // backslashes are not doubled
      {u"say \"hi\"", u"\"say \\\"hi\\\"\""},
      {u"C:\\dir\\", u"C:\\dir\\"},  // quoted, the last backslash would escape the quote
      // No spelling of these reads back: refused, the target left alone.
      {u"a b\\", nullptr},  {u"a\"b\\", nullptr},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(std::string(c.in, c.in + ZyrBasStrLen(c.in)));
    ZyrBasString out;
    ASSERT_EQ(out.AssignAscii("stale"), ZYR_OK);
    EXPECT_EQ(ZyrCfgQuote(c.in, ZYR_TERMINATED, &out), c.out ? ZYR_OK : ZYR_E_CFG_BAD_VALUE_LINE);
    EXPECT_EQ(S(out), c.out ? c.out : u"stale");
  }
}

// What SetValue stores, printed by the writer and read back, gives the
// original texts.
TEST(CfgDocument, SetValueQuotesAndReadsBack) {
  const char16_t* texts[] = {u"plain", u"C:\\logs\\x.log", u"a b; c", u"say \"hi\"", u"",
                             u"C:\\dir\\", u"a,b\\"};
  auto key = [](std::size_t i) { return std::u16string{u'k', static_cast<char16_t>(u'a' + i)}; };
  ZyrCfgDocument written, doc;
  ZyrCfgSectionRef s = MakeSection(u"s");
  ASSERT_EQ(written.AddSection(s), ZYR_OK);
  for (std::size_t i = 0; i < std::size(texts); ++i) ASSERT_EQ(s->SetValue(key(i).c_str(), texts[i]), ZYR_OK);
  ZyrBasString printed;
  ZyrStringWriter writer(&printed);
  ASSERT_EQ(written.WriteTo(writer), ZYR_OK);
  Load(doc, printed.Text());
  EXPECT_EQ(doc.lineErrors.Count(), 0u);
  for (std::size_t i = 0; i < std::size(texts); ++i) {
    ZyrCfgValueRef v = ValueOf(doc, key(i).c_str());
    ASSERT_TRUE(v);
    EXPECT_EQ(v->kind, ZYR_CFG_SINGLE);
    EXPECT_EQ(S(v->text), texts[i]);
  }
}

TEST(CfgDocument, SetValueTurnsAListIntoASingleValueAndGetTypeReadsOnlyThat) {
  ZyrCfgDocument doc;
  Load(doc, u"[s]\n; lead\nk = a b ; tail\nType = a b\n[t]\nk = \"a b\"\ntype = Logger\n"
            u"[d]\nType = \"x y\"\n");
  EXPECT_EQ(doc.FindSection(u"s")->GetType(), nullptr);  // a list
  EXPECT_EQ(doc.FindSection(u"t")->GetType(), nullptr);  // the key's case counts
  ASSERT_NE(doc.FindSection(u"d")->GetType(), nullptr);
  EXPECT_EQ(S(*doc.FindSection(u"d")->GetType()), u"x y");

  ZyrCfgSectionRef t = doc.FindSection(u"t");
  ZyrCfgValueRef v = ValueOf(doc, u"k");
  ASSERT_EQ(v->kind, ZYR_CFG_LIST);
  ASSERT_EQ(t->SetValue(u"k", u"x"), ZYR_OK);
  ASSERT_EQ(doc.FindSection(u"s")->SetValue(u"k", u"x"), ZYR_OK);
  EXPECT_EQ(v->kind, ZYR_CFG_SINGLE);
  EXPECT_EQ(S(v->text), u"x");
  EXPECT_EQ(v->items.Count(), 2u);  // stale, and ignored from now on
  EXPECT_EQ(S(v->leadingComment), u" lead");
  EXPECT_EQ(S(v->lineComment), u" tail");
  ZyrCfgValueRef w;
  ASSERT_EQ(t->FindValue(u"k", &w), ZYR_OK);
  EXPECT_TRUE(v->Equals(*w));
}

TEST(CfgDocument, EqualsIgnoresValueCommentsButNotKindOrSectionComment) {
  ZyrCfgDocument a, b, c, d, e, f, g;
  Load(a, u"[s]\n; one\nk = v ; x\nm = \"x y\"\n");
  Load(b, u"[s]\n; two\nk = v ; y\nm = \"x y\"\n");
  Load(c, u"; header\n[s]\nk = v\nm = \"x y\"\n");
  Load(d, u"[s]\nk = v\nm = x y\n");
  Load(e, u"[s]\nk = v\nm = \"x y\"\nn = 1\n");
  ZyrCfgSectionRef sa = a.FindSection(u"s");
  EXPECT_TRUE(sa->Equals(*b.FindSection(u"s")));
  EXPECT_FALSE(sa->Equals(*c.FindSection(u"s")));
  EXPECT_FALSE(sa->Equals(*d.FindSection(u"s")));  // same text, one a list
  EXPECT_FALSE(sa->Equals(*e.FindSection(u"s")));
  EXPECT_FALSE(e.FindSection(u"s")->Equals(*sa));
  EXPECT_EQ(S(ValueOf(a, u"m")->text), S(ValueOf(d, u"m")->text));
  // Lists compare by their items, not by how they were written.
  Load(f, u"[s]\nm = x   y\n");
  Load(g, u"[s]\nm = x z\n");
  EXPECT_TRUE(ValueOf(f, u"m")->Equals(*ValueOf(d, u"m")));
  EXPECT_FALSE(ValueOf(g, u"m")->Equals(*ValueOf(d, u"m")));
}

TEST(CfgDocument, RefusedSettersChangeNothing) {
  ZyrCfgValueRef v = MakeValue(u"k", u"t");
  v->kind = ZYR_CFG_LIST;
  ASSERT_EQ(v->Set(u"key", u"text", u"lead", u"line"), ZYR_OK);
  EXPECT_EQ(v->kind, ZYR_CFG_SINGLE);
  EXPECT_EQ(v->Set(u"", u"x", nullptr, nullptr), ZYR_E_INVALID_ARGUMENT);
  EXPECT_EQ(v->Set(nullptr, u"x", nullptr, nullptr), ZYR_E_INVALID_ARGUMENT);
  EXPECT_EQ(S(v->text), u"text");
  EXPECT_EQ(S(v->leadingComment), u"lead");
  v->kind = ZYR_CFG_LIST;
  ASSERT_EQ(v->SetText(u"a b"), ZYR_OK);  // no quoting here
  EXPECT_EQ(S(v->text), u"a b");
  EXPECT_EQ(v->kind, ZYR_CFG_SINGLE);
  ZyrCfgSectionRef s = MakeSection(u"s");
  EXPECT_EQ(s->SetName(u""), ZYR_E_INVALID_ARGUMENT);
  EXPECT_EQ(S(s->name), u"s");
}
