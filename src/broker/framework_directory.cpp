#include "broker/framework_directory.h"

#include <cstring>

#include "base/registry.h"

namespace {

constexpr std::size_t kNameLimit = 32768;

bool HasPrefixNoCase(const char16_t* text, const char16_t* prefix, std::size_t* length) {
  std::size_t i = 0;
  for (; prefix[i]; ++i) {
    char16_t a = text[i], b = prefix[i];
    if (a >= u'a' && a <= u'z') a = static_cast<char16_t>(a - 32);
    if (b >= u'a' && b <= u'z') b = static_cast<char16_t>(b - 32);
    if (a != b) return false;
  }
  *length = i;
  return true;
}

}  // namespace

ZyrResult ZyrBasReadRegistryString(ZyrBasString& out, const char16_t* keyPath, const char16_t* valueName) {
  if (!keyPath || !valueName) return ZYR_E_INVALID_ARGUMENT;
  std::size_t keyLength = 0, valueLength = 0;
  while (keyPath[keyLength] && keyLength < kNameLimit) ++keyLength;
  while (valueName[valueLength] && valueLength < kNameLimit) ++valueLength;
  if (keyLength >= kNameLimit || valueLength >= kNameLimit) return ZYR_E_INVALID_ARGUMENT;

  ZyrBasRegHandle root = 0;
  std::size_t skip = 0;
  if (HasPrefixNoCase(keyPath, u"\\Registry\\Machine\\", &skip)) root = ZYR_HKEY_LOCAL_MACHINE;
  else if (HasPrefixNoCase(keyPath, u"\\Registry\\User\\", &skip)) root = ZYR_HKEY_USERS;
  else return ZYR_E_FILE_NOT_FOUND;  // no such key in the store

  ZyrBasRegKeyState state;
  ZyrBasRegHandle key = 0;
  ZyrResult r = ZyrBasRegOpenKey(state, root, &key, keyPath + skip, ZYR_KEY_QUERY_VALUE);
  if (ZyrFailed(r)) return r == ZYR_E_PATH_NOT_FOUND ? ZYR_E_FILE_NOT_FOUND : r;
  ZyrBasRegValue value;
  r = ZyrBasRegReadValueAll(key, valueName, value);
  ZyrBasRegCloseKey(key);
  if (ZyrFailed(r)) return r;
  std::size_t size = value.data.Count();
  if (value.type != ZYR_REG_SZ || size == 0 || size % 2 != 0) return ZYR_E_BAD_VALUE_TYPE;
  std::size_t characters = size / 2;
  ZyrBasString text;
  r = text.Resize(characters);
  if (ZyrFailed(r)) return r;
  std::memcpy(text.Data(), value.data.begin(), size);
  if (text[characters - 1] != 0) return ZYR_E_BAD_VALUE_TYPE;
  r = text.Resize(characters - 1);
  if (ZyrFailed(r)) return r;
  out.Swap(text);
  return ZYR_OK;
}

ZyrResult ZyrBasFrameworkDirectory(ZyrBasString& out, const char16_t* product, std::size_t productLength,
                                   const char16_t* version, std::size_t versionLength) {
  if (productLength == 9 && versionLength == 1 && version[0] == u'0' &&
      std::memcmp(product, u"Framework", 9 * sizeof(char16_t)) == 0)
    return ZyrBasReadRegistryString(out, u"\\Registry\\Machine\\SYSTEM\\CurrentControlSet\\Services\\Zyr\\Zyr2014",
                                    u"ZyrDir");
  ZyrBasString key;
  ZyrResult r = key.Assign(u"\\Registry\\Machine\\SOFTWARE\\Zyr\\");
  if (ZyrSucceeded(r)) r = key.Append(product, productLength);
  if (ZyrSucceeded(r)) r = key.Append(u'\\');
  if (ZyrSucceeded(r)) r = key.Append(version, versionLength);
  if (ZyrFailed(r)) return r;
  return ZyrBasReadRegistryString(out, key.Text(), u"Dir");
}
