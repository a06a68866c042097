#include "layout/layout.h"

#include "base/memory.h"
#include "config/document.h"
#include "records/standard_line.h"

ZyrResult ZyrLogLayout::GetHeader(ZyrBasString&) { return ZYR_OK; }
ZyrResult ZyrLogLayout::GetFooter(ZyrBasString&) { return ZYR_OK; }

ZyrResult ZyrLogStandardLayout::FormatEvent(ZyrBasString& text, const ZyrLogEvent& event) {
  return ZyrLogComposeStandardLine(event, text);
}

ZyrResult ZyrLogStandardLayout::Configure(ZyrCfgSection& section) {
  ZyrCfgValueRef value;
  ZyrResult r = section.FindValue(u"LayoutType", &value);
  if (r == ZYR_E_CFG_NOT_FOUND) return ZYR_OK;  // a missing key is accepted
  if (ZyrFailed(r)) return r;
  return value->text.Equals(u"Standard") ? ZYR_OK : ZYR_E_WRONG_LAYOUT_TYPE;
}

ZyrResult ZyrLogStandardLayout::Save(ZyrCfgSection& section) {
  section.ClearValues();
  ZyrResult r = section.SetName(Name().Text(), Name().Length());
  if (ZyrSucceeded(r)) r = section.AddRawValue(u"Type", u"Layout");
  if (ZyrSucceeded(r)) r = section.AddRawValue(u"LayoutType", u"Standard");
  return r;
}

void ZyrLogStandardLayout::Destroy(std::uint32_t flags) {
  this->~ZyrLogStandardLayout();
  if (flags & 1) ZyrBasFree(this);
}

ZyrResult ZyrLogStandardLayoutCreator::Create(ZyrLogLayout** layout, const char16_t* name) {
  return ZyrLogMakeLayout<ZyrLogStandardLayout>(layout, name);
}

ZyrResult ZyrLogSaveLayoutText(ZyrCfgSection& section, const char16_t* key, const ZyrBasString& text) {
  for (std::size_t i = 0; i < text.Length(); ++i)
    if (text[i] == u';' || text[i] == u'"') return section.SetValue(key, text.Text());
  return section.AddRawValue(key, text.Text());
}

ZyrResult ZyrLogLayoutList::Find(const char16_t* name, ZyrLogLayout** layout) {
  if (!name) return ZYR_E_LAYOUT_NAME_MISSING;
  std::size_t length = ZyrBasStrLen(name);
  for (ZyrLogLayout* l : layouts_)
    if (ZyrBasCompareNoCaseAscii(l->Name().Text(), l->Name().Length(), name, length) == 0) {
      *layout = l;
      return ZYR_OK;
    }
  return ZYR_E_LAYOUT_NOT_FOUND;
}

void ZyrLogLayoutList::DestroyAll() {
  for (ZyrLogLayout* l : layouts_) l->Destroy(1);
  layouts_.Free();
}
