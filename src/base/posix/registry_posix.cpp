// The key store of this platform: read-only, in files. Its root is the
// environment variable ZYR_REGISTRY_ROOT, else /etc/zyr/registry; a key
// path maps to a folder (each "\\" component one folder level, compared
// without case); its values live in the file ".values" of that folder, one
// "name = type:data" per line. The installer of a suite writes it.
#include <cstring>

#include "base/file.h"
#include "base/identity.h"
#include "base/memory.h"
#include "base/os/registry_os.h"
#include "base/textconv.h"

namespace {

constexpr char16_t kRegistry[] = u"\\REGISTRY";
constexpr char16_t kValuesFile[] = u".values";
constexpr char16_t kDefaultStoreRoot[] = u"/etc/zyr/registry";

// A key name handed to the store is cut to what the system takes: 65532
// bytes.
constexpr std::size_t kMaxKeyNameLength = 65532 / 2;
// Values files are small; anything beyond this is not one.
constexpr std::uint64_t kMaxValuesFileSize = 4u << 20;
// Rights that would change the store.
constexpr std::uint32_t kWriteRights = 0x2 | 0x4 | 0x20 | 0x10000 | 0x40000 | 0x80000;

bool NoCaseEqual(const char16_t* a, const char16_t* b, std::size_t n) {
  return ZyrBasCompareNoCase(a, n, b, n) == 0;
}

// An open key of the store.
struct KeyObject {
  ZyrBasString name;    // full native name, as the store spells it
  ZyrBasString folder;  // the key's folder
  std::uint32_t access = 0;
};

KeyObject* AsObject(ZyrBasRegHandle handle) {
  if (handle == 0 || ZyrBasRegIsPredefined(handle)) return nullptr;
  return reinterpret_cast<KeyObject*>(handle);
}

// A new handle. A block that happens to sit at the address of a predefined
// handle is kept aside while another is made, so that the two never meet.
ZyrResult NewHandle(ZyrBasRegHandle* out) {
  KeyObject* object = ZyrNew<KeyObject>();
  if (object && ZyrBasRegIsPredefined(reinterpret_cast<ZyrBasRegHandle>(object))) {
    KeyObject* other = ZyrNew<KeyObject>();
    ZyrDelete(object);
    object = other;
  }
  if (!object) return ZYR_E_OUT_OF_MEMORY;
  *out = reinterpret_cast<ZyrBasRegHandle>(object);
  return ZYR_OK;
}

ZyrResult StoreRoot(ZyrBasString& out) {
  ZyrResult r = ZyrBasGetEnv(u"ZYR_REGISTRY_ROOT", out);
  if (ZyrFailed(r)) return r;
  if (r == ZYR_OK && !out.Empty()) return ZYR_OK;
  return out.Assign(kDefaultStoreRoot);
}

// A key name component that can stand as a folder of the store.
bool IsFolderName(const char16_t* name, std::size_t length) {
  if (length == 1 && name[0] == u'.') return false;
  if (length == 2 && name[0] == u'.' && name[1] == u'.') return false;
  for (std::size_t i = 0; i < length; ++i)
    if (name[i] == u'/' || name[i] == 0) return false;
  return true;
}

// The sub-folder of `folder` that carries the name: the exact spelling
// first, else the first that matches by fold. `onDisk` gets its spelling.
ZyrResult FindChild(const ZyrBasString& folder, const char16_t* name, std::size_t length,
                    ZyrBasString& onDisk) {
  ZyrBasString path;
  ZyrResult r = path.Assign(folder);
  if (ZyrSucceeded(r)) r = path.Append(u'\\');
  if (ZyrSucceeded(r)) r = path.Append(name, length);
  if (ZyrFailed(r)) return r;
  r = ZyrBasDirectoryExists(path.Text());
  if (r == ZYR_OK) return onDisk.Assign(name, length);
  if (r == ZYR_E_OUT_OF_MEMORY) return r;

  ZyrBasDirEnum entries;
  r = entries.Open(folder.Text(), u"*", ZYR_ENUM_DIRECTORIES | ZYR_ENUM_LINKS);
  while (r == ZYR_OK) {
    const ZyrBasDirItem* item;
    r = entries.Current(&item);
    if (ZyrFailed(r)) return r;
    if ((item->Attributes() & ZYR_ATTR_DIRECTORY) &&
        ZyrBasCompareNoCase(item->Name(), item->NameLength(), name, length) == 0)
      return onDisk.Assign(item->Name(), item->NameLength());
    r = entries.Next();
  }
  if (ZyrFailed(r)) return r == ZYR_E_FILE_NOT_FOUND ? ZYR_E_PATH_NOT_FOUND : r;
  return ZYR_E_FILE_NOT_FOUND;
}

// Opens `name` in the store: below the parent's key, or, without a parent,
// as a full native name beginning with "\REGISTRY".
ZyrResult OpenInStore(const KeyObject* parent, const char16_t* name, std::size_t length,
                      std::uint32_t access, ZyrBasRegHandle* out) {
  if (access & kWriteRights) return ZYR_E_ACCESS_DENIED;
  ZyrBasString keyName, folder;
  ZyrResult r;
  if (parent) {
    r = keyName.Assign(parent->name);
    if (ZyrSucceeded(r)) r = folder.Assign(parent->folder);
    if (ZyrFailed(r)) return r;
  } else {
    constexpr std::size_t n = sizeof(kRegistry) / sizeof(char16_t) - 1;
    if (length < n || !NoCaseEqual(name, kRegistry, n) || (length > n && name[n] != u'\\'))
      return ZYR_E_PATH_NOT_FOUND;
    name += n;
    length -= n;
    r = keyName.Assign(kRegistry);
    if (ZyrSucceeded(r)) r = StoreRoot(folder);
    if (ZyrFailed(r)) return r;
    r = ZyrBasDirectoryExists(folder.Text());
    if (r != ZYR_OK) return r == ZYR_E_OUT_OF_MEMORY ? r : ZYR_E_PATH_NOT_FOUND;
  }
  if (length > kMaxKeyNameLength) length = kMaxKeyNameLength;

  ZyrBasString onDisk;
  std::size_t i = 0;
  while (i < length) {
    std::size_t end = i;
    while (end < length && name[end] != u'\\') ++end;
    if (end > i) {
      if (!IsFolderName(name + i, end - i)) return ZYR_E_INVALID_NAME;
      r = FindChild(folder, name + i, end - i, onDisk);
      if (r == ZYR_E_FILE_NOT_FOUND) {
        std::size_t next = end;
        while (next < length && name[next] == u'\\') ++next;
        if (next < length) return ZYR_E_PATH_NOT_FOUND;  // a component before the last is missing
      }
      if (ZyrFailed(r)) return r;
      r = keyName.Append(u'\\');
      if (ZyrSucceeded(r)) r = keyName.Append(onDisk);
      if (ZyrSucceeded(r)) r = folder.Append(u'\\');
      if (ZyrSucceeded(r)) r = folder.Append(onDisk);
      if (ZyrFailed(r)) return r;
    }
    i = end + 1;
  }

  ZyrBasRegHandle handle;
  r = NewHandle(&handle);
  if (ZyrFailed(r)) return r;
  KeyObject* object = AsObject(handle);
  object->name.Swap(keyName);
  object->folder.Swap(folder);
  object->access = access;
  *out = handle;
  return ZYR_OK;
}

// The text of a values file: UTF-16 with its mark, else UTF-8 with or
// without one, decoded line by line so that one broken line costs only
// itself. A missing file is an empty text.
ZyrResult LoadValues(const ZyrBasString& folder, ZyrBasString& text) {
  text.Clear();
  ZyrBasString path;
  ZyrResult r = path.Assign(folder);
  if (ZyrSucceeded(r)) r = path.Append(u'\\');
  if (ZyrSucceeded(r)) r = path.Append(kValuesFile);
  if (ZyrFailed(r)) return r;
  ZyrBasFile file;
  r = file.Open(path.Text(), ZYR_FILE_OPEN_EXISTING, ZYR_FILE_READ,
                ZYR_FILE_SHARE_READ | ZYR_FILE_SHARE_WRITE | ZYR_FILE_SHARE_DELETE, 0);
  if (r == ZYR_E_FILE_NOT_FOUND || r == ZYR_E_PATH_NOT_FOUND) return ZYR_OK;
  if (ZyrFailed(r)) return r;
  std::uint64_t size = 0;
  r = file.GetSize(&size);
  if (ZyrFailed(r)) return r;
  if (size > kMaxValuesFileSize) return ZYR_E_SIZE_TOO_LARGE;
  if (size == 0) return ZYR_OK;
  ZyrBasArray<char> bytes;
  r = bytes.Reserve(static_cast<std::size_t>(size), ZyrBasGrowth::Exact);
  if (ZyrFailed(r)) return r;
  std::size_t got = 0;
  r = file.ReadAt(0, bytes.begin(), static_cast<std::size_t>(size), &got);
  if (ZyrFailed(r)) return r;
  bytes.SetCount(got);

  const char* p = bytes.begin();
  std::size_t n = got;
  if (n >= 2 && static_cast<unsigned char>(p[0]) == 0xFF && static_cast<unsigned char>(p[1]) == 0xFE) {
    r = text.Resize((n - 2) / 2);
    if (ZyrFailed(r)) return r;
    for (std::size_t i = 0; i < (n - 2) / 2; ++i)
      text.Data()[i] = static_cast<char16_t>(static_cast<unsigned char>(p[2 + 2 * i]) |
                                             (static_cast<unsigned char>(p[3 + 2 * i]) << 8));
    return ZYR_OK;
  }
  if (n >= 3 && static_cast<unsigned char>(p[0]) == 0xEF && static_cast<unsigned char>(p[1]) == 0xBB &&
      static_cast<unsigned char>(p[2]) == 0xBF) {
    p += 3;
    n -= 3;
  }
  std::size_t i = 0;
  while (i < n) {
    std::size_t end = i;
    while (end < n && p[end] != '\n') ++end;
    if (end > i) {
      r = ZyrBasAppendWide(text, p + i, end - i, ZYR_CP_UTF8);
      if (r == ZYR_E_OUT_OF_MEMORY) return r;  // a line that does not decode is left out
    }
    r = text.Append(u'\n');
    if (ZyrFailed(r)) return r;
    i = end + 1;
  }
  return ZYR_OK;
}

// The current user's key: USER/<login name>, else USER/.DEFAULT, as the
// system falls back to the default user's hive when the account has none.
}  // namespace

ZyrResult ZyrBasOsRegOpenCurrentUser(std::uint32_t access, ZyrBasRegHandle* out) {
  ZyrBasString user, name;
  ZyrResult r = ZyrBasCurrentUserName(user);
  if (ZyrFailed(r)) return r;
  if (!user.Empty() && IsFolderName(user.Text(), user.Length())) {
    r = name.Assign(u"\\REGISTRY\\USER\\");
    if (ZyrSucceeded(r)) r = name.Append(user);
    if (ZyrFailed(r)) return r;
    r = OpenInStore(nullptr, name.Text(), name.Length(), access, out);
    if (ZyrSucceeded(r) || r == ZYR_E_OUT_OF_MEMORY || r == ZYR_E_ACCESS_DENIED) return r;
  }
  const char16_t* fallback = u"\\REGISTRY\\USER\\.DEFAULT";
  return OpenInStore(nullptr, fallback, ZyrBasStrLen(fallback), access, out);
}


ZyrResult ZyrBasOsRegOpen(ZyrBasRegHandle parent, const char16_t* name, std::size_t length, std::uint32_t access,
                          ZyrBasRegHandle* out) {
  return OpenInStore(AsObject(parent), name, length, access, out);
}

void ZyrBasOsRegClose(ZyrBasRegHandle handle) { ZyrDelete(AsObject(handle)); }

ZyrResult ZyrBasOsRegKeyName(ZyrBasRegHandle handle, ZyrBasString& out) {
  const KeyObject* object = AsObject(handle);
  if (!object) return ZYR_E_INVALID_HANDLE;
  return out.Assign(object->name);
}

ZyrResult ZyrBasOsRegReadValue(ZyrBasRegHandle handle, const char16_t* valueName, std::uint32_t* type,
                             void* buffer, std::size_t* size) {
  const KeyObject* object = AsObject(handle);
  if (!object) return ZYR_E_INVALID_HANDLE;
  if (!(object->access & ZYR_KEY_QUERY_VALUE)) return ZYR_E_ACCESS_DENIED;
  ZyrBasString text, data;
  ZyrResult r = LoadValues(object->folder, text);
  if (ZyrFailed(r)) return r;
  std::uint32_t kind, number;
  r = ZyrBasRegFindValueInText(text.Text(), text.Length(), valueName, &kind, data, &number);
  if (ZyrFailed(r)) return r;
  std::size_t needed = kind == ZYR_REG_DWORD ? 4 : (data.Length() + 1) * sizeof(char16_t);
  if (type) *type = kind;
  std::size_t room = size ? *size : 0;
  if (size) *size = needed;
  if (!buffer) return ZYR_OK;
  if (room < needed) return ZYR_E_BAD_LENGTH;
  std::uint8_t* target = static_cast<std::uint8_t*>(buffer);
  if (kind == ZYR_REG_DWORD) {
    for (int i = 0; i < 4; ++i) target[i] = static_cast<std::uint8_t>(number >> (8 * i));
  } else {
    const char16_t* units = data.Text();
    for (std::size_t i = 0; i <= data.Length(); ++i) {
      target[2 * i] = static_cast<std::uint8_t>(units[i] & 0xFF);
      target[2 * i + 1] = static_cast<std::uint8_t>(units[i] >> 8);
    }
  }
  return ZYR_OK;
}

