#include "config/variables.h"

#include "base/folders.h"
#include "base/identity.h"
#include "base/path.h"
#include "records/standard_line.h"

namespace {

bool NameIs(const char16_t* name, std::size_t length, const char16_t* expected) {
  return ZyrBasCompareOrdinal(name, length, expected, ZYR_TERMINATED) == 0;
}

ZyrResult AppendFolder(ZyrBasString& target, std::uint32_t id) {
  ZyrBasString folder;
  ZyrResult r = ZyrBasGetFolder(id, folder);
  if (ZyrFailed(r)) return r;
  return target.Append(folder);
}

}  // namespace

ZyrResult ZyrCfgResolveVariable(const char16_t* name, std::size_t length, ZyrBasString& target,
                                bool* known) {
  *known = true;
  if (NameIs(name, length, u"process")) {
    ZyrBasString image, stem;
    ZyrResult r = ZyrBasProcessName(ZyrBasCurrentProcessId(), image);
    if (ZyrSucceeded(r)) r = ZyrBasPathStem(stem, image.Text(), image.Length());
    if (ZyrSucceeded(r)) r = target.Append(stem);
    return r;
  }
  if (NameIs(name, length, u"pid")) return ZyrBasAppendDecimal(target, ZyrBasCurrentProcessId());
  if (NameIs(name, length, u"hostname")) return target.Append(ZyrLogCachedHostName());
  if (NameIs(name, length, u"winlocalappdata")) return AppendFolder(target, ZYR_FOLDER_LOCAL_APPDATA);
  if (NameIs(name, length, u"home")) return AppendFolder(target, ZYR_FOLDER_PROFILE);
  if (NameIs(name, length, u"user")) {
    // The login name of the account the process runs as; empty if the
    // system cannot tell.
    ZyrBasString user;
    if (ZyrSucceeded(ZyrBasCurrentUserName(user))) return target.Append(user);
    return ZYR_OK;
  }
  *known = false;
  return ZYR_E_INVALID_DATA;
}

ZyrResult ZyrCfgExpandVariables(const ZyrBasString& text, ZyrBasString& out) {
  out.Clear();
  enum { kText, kDollar, kName } state = kText;
  const char16_t* p = text.Text();
  std::size_t n = text.Length();
  std::size_t nameStart = 0;
  ZyrResult r = ZYR_OK;
  for (std::size_t i = 0; i < n && ZyrSucceeded(r); ++i) {
    char16_t c = p[i];
    switch (state) {
      case kText:
        if (c == u'$') state = kDollar;
        else r = out.Append(c);
        break;
      case kDollar:
        if (c == u'$') {
          r = out.Append(u'$');
          state = kText;
        } else if (c == u'{') {
          nameStart = i + 1;
          state = kName;
        } else {
          r = out.Append(u'$');
          if (ZyrSucceeded(r)) r = out.Append(c);
          state = kText;
        }
        break;
      case kName:
        if (c == u'}') {
          bool known = false;
          r = ZyrCfgResolveVariable(p + nameStart, i - nameStart, out, &known);
          if (!known) r = ZYR_E_INVALID_DATA;
          state = kText;
        }
        break;
    }
  }
  if (ZyrFailed(r)) return r;
  if (state == kDollar) return out.Append(u'$');
  if (state == kName) {
    r = out.Append(u"${", 2);
    if (ZyrSucceeded(r)) r = out.Append(p + nameStart, p + n);
  }
  return r;
}
