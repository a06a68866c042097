#include "config/document.h"

namespace {

std::size_t Measure(const char16_t* text, std::size_t length) noexcept {
  if (!text) return 0;
  return length == ZYR_TERMINATED ? ZyrBasStrLen(text) : length;
}

bool IsQuoteTrigger(char16_t c) noexcept {
  return c == u'\t' || c == u' ' || c == u',' || c == u';' || c == u'\\';
}

}  // namespace

// ---------------------------------------------------------------------------

ZyrResult ZyrCfgQuote(const char16_t* text, std::size_t length, ZyrBasString* out) noexcept {
  std::size_t n = Measure(text, length);
  bool quote = false;
  std::size_t quotes = 0;
  for (std::size_t i = 0; i < n; ++i) {
    if (text[i] == u'"') ++quotes;
    else if (IsQuoteTrigger(text[i])) quote = true;
  }
  // Inside quotes a backslash before the closing quote would escape it, so
  // a text that ends in one goes out unquoted, which the reader takes back
  // whole; with a blank, TAB, ";" or quote in it as well, no spelling reads
  // back, and the value is refused rather than written to be misread.
  if ((quote || quotes != 0) && n > 0 && text[n - 1] == u'\\') {
    bool needsQuotes = quotes != 0;
    for (std::size_t i = 0; i < n && !needsQuotes; ++i)
      needsQuotes = text[i] == u'\t' || text[i] == u' ' || text[i] == u';';
    if (needsQuotes) return ZYR_E_CFG_BAD_VALUE_LINE;
    quote = false;
  }
  ZyrBasString result;
  ZyrResult r = ZYR_OK;
  if (!quote && quotes == 0) {
    r = result.Assign(text, n);
  } else {
    r = result.Reserve(n + quotes + 3);
    if (ZyrSucceeded(r)) r = result.Append(u'"');
    for (std::size_t i = 0; i < n && ZyrSucceeded(r); ++i) {
      if (text[i] == u'"') r = result.Append(u'\\');
      if (ZyrSucceeded(r)) r = result.Append(text[i]);
    }
    if (ZyrSucceeded(r)) r = result.Append(u'"');
  }
  if (ZyrFailed(r)) return r;
  out->Swap(result);
  return ZYR_OK;
}

// ---------------------------------------------------------------------------
// ZyrCfgValue

ZyrResult ZyrCfgValue::Set(const char16_t* key, const char16_t* newText, const char16_t* leading,
                           const char16_t* line) noexcept {
  if (Measure(key, ZYR_TERMINATED) == 0) return ZYR_E_INVALID_ARGUMENT;
  // Built aside so that a failure leaves the value whole.
  ZyrBasString k, t, l, c;
  ZyrResult r = k.Assign(key);
  if (ZyrSucceeded(r)) r = t.Assign(newText);
  if (ZyrSucceeded(r)) r = l.Assign(leading);
  if (ZyrSucceeded(r)) r = c.Assign(line);
  if (ZyrFailed(r)) return r;
  name.Swap(k);
  text.Swap(t);
  leadingComment.Swap(l);
  lineComment.Swap(c);
  kind = ZYR_CFG_SINGLE;
  return ZYR_OK;
}

ZyrResult ZyrCfgValue::SetText(const char16_t* newText, std::size_t length) noexcept {
  ZyrResult r = text.Assign(newText, Measure(newText, length));
  if (ZyrFailed(r)) return r;
  kind = ZYR_CFG_SINGLE;
  return ZYR_OK;
}

bool ZyrCfgValue::Equals(const ZyrCfgValue& other) const noexcept {
  if (!name.Equals(other.name) || kind != other.kind) return false;
  if (kind == ZYR_CFG_SINGLE) return text.Equals(other.text);
  if (items.Count() != other.items.Count()) return false;
  for (std::size_t i = 0; i < items.Count(); ++i)
    if (!items[i].Equals(other.items[i])) return false;
  return true;
}

// ---------------------------------------------------------------------------
// ZyrCfgSection

ZyrResult ZyrCfgSection::SetName(const char16_t* newName, std::size_t length) noexcept {
  std::size_t n = Measure(newName, length);
  if (n == 0) return ZYR_E_INVALID_ARGUMENT;
  return name.Assign(newName, n);
}

ZyrResult ZyrCfgSection::FindValue(const char16_t* key, ZyrCfgValueRef* out,
                                   std::size_t length) const noexcept {
  bool found;
  std::size_t i = values.Locate(key ? key : kZyrEmptyText, Measure(key, length), &found);
  if (!found) return ZYR_E_CFG_NOT_FOUND;
  *out = values.At(i).value;
  return ZYR_OK;
}

bool ZyrCfgSection::HasValue(const char16_t* key, std::size_t length) const noexcept {
  bool found;
  values.Locate(key ? key : kZyrEmptyText, Measure(key, length), &found);
  return found;
}

ZyrResult ZyrCfgSection::AddRawValue(const char16_t* key, const char16_t* text) noexcept {
  if (HasValue(key)) return ZYR_E_VALUE_EXISTS;
  ZyrCfgValueRef value;
  ZyrResult r = ZyrCfgValueRef::Make(&value);
  if (ZyrSucceeded(r)) r = value->Set(key, text, nullptr, nullptr);
  if (ZyrSucceeded(r)) r = AddValue(value);
  return r;
}

ZyrResult ZyrCfgSection::AddValue(const ZyrCfgValueRef& value) noexcept {
  ZyrCfgValueRef held(value);
  ZyrResult r = values.Insert(value->name, static_cast<ZyrCfgValueRef&&>(held));
  return r == ZYR_E_ALREADY_EXISTS ? ZYR_E_VALUE_EXISTS : r;
}

ZyrResult ZyrCfgSection::SetValue(const char16_t* key, const char16_t* newText) noexcept {
  std::size_t keyLength = Measure(key, ZYR_TERMINATED);
  if (keyLength == 0) return ZYR_E_INVALID_ARGUMENT;
  ZyrBasString quoted;
  ZyrResult r = ZyrCfgQuote(newText, ZYR_TERMINATED, &quoted);
  if (ZyrFailed(r)) return r;
  if (ZyrCfgValueRef* existing = values.Find(key, keyLength)) {
    (*existing)->text.Swap(quoted);
    (*existing)->kind = ZYR_CFG_SINGLE;
    return ZYR_OK;
  }
  ZyrCfgValueRef value;
  r = ZyrCfgValueRef::Make(&value);
  if (ZyrSucceeded(r)) r = value->name.Assign(key, keyLength);
  if (ZyrFailed(r)) return r;
  value->text.Swap(quoted);
  return values.Insert(key, keyLength, static_cast<ZyrCfgValueRef&&>(value));
}

const ZyrBasString* ZyrCfgSection::GetType() const noexcept {
  bool found;
  std::size_t i = values.Locate(u"Type", 4, &found);
  if (!found) return nullptr;
  const ZyrCfgValueRef& value = values.At(i).value;
  return value->kind == ZYR_CFG_SINGLE ? &value->text : nullptr;
}

bool ZyrCfgSection::Equals(const ZyrCfgSection& other) const noexcept {
  if (!name.Equals(other.name) || !comment.Equals(other.comment)) return false;
  if (values.Count() != other.values.Count()) return false;
  for (std::size_t i = 0; i < values.Count(); ++i) {
    const auto& a = values.At(i);
    const auto& b = other.values.At(i);
    if (!a.name.Equals(b.name) || !a.value->Equals(*b.value)) return false;
  }
  return true;
}

// ---------------------------------------------------------------------------
// ZyrCfgDocument

ZyrCfgSectionRef ZyrCfgDocument::FindSection(const char16_t* name,
                                             std::size_t length) const noexcept {
  bool found;
  std::size_t i = sections.Locate(name ? name : kZyrEmptyText, Measure(name, length), &found);
  if (!found) return ZyrCfgSectionRef();
  return sections.At(i).value;
}

ZyrResult ZyrCfgDocument::AddSection(const ZyrCfgSectionRef& section) noexcept {
  ZyrCfgSectionRef held(section);
  ZyrResult r = sections.Insert(section->name, static_cast<ZyrCfgSectionRef&&>(held));
  return r == ZYR_E_ALREADY_EXISTS ? ZYR_E_SECTION_EXISTS : r;
}

ZyrResult ZyrCfgDocument::AddSectionCopy(const ZyrCfgSection& source) noexcept {
  ZyrCfgSectionRef copy;
  ZyrResult r = ZyrCfgSectionRef::Make(&copy);
  if (ZyrSucceeded(r)) r = copy->name.Assign(source.name);
  if (ZyrSucceeded(r)) r = copy->comment.Assign(source.comment);
  for (std::size_t i = 0; i < source.values.Count() && ZyrSucceeded(r); ++i) {
    const auto& entry = source.values.At(i);
    ZyrCfgValueRef shared(entry.value);
    r = copy->values.Insert(entry.name, static_cast<ZyrCfgValueRef&&>(shared));
  }
  if (ZyrFailed(r)) return r;
  return AddSection(copy);
}

ZyrResult ZyrCfgDocument::RemoveSection(const char16_t* name, std::size_t length) noexcept {
  return sections.Remove(name ? name : kZyrEmptyText, Measure(name, length));
}
