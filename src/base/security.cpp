#include "base/security.h"

#include <cstring>

#include "base/memory.h"
#include "base/os/native_path.h"
#include "base/os/security_os.h"

namespace {

constexpr std::size_t kHeaderSize = 20;  // self-relative descriptor header
constexpr std::size_t kAclHeaderSize = 8;
constexpr std::size_t kAceHeaderSize = 8;  // type, flags, size, mask
constexpr std::uint16_t kSelfRelative = 0x8000;
constexpr std::uint16_t kDaclPresent = 0x0004;
constexpr std::uint16_t kSaclPresent = 0x0010;
constexpr std::uint8_t kAceAllow = 0;
constexpr std::uint8_t kAceDeny = 1;
constexpr std::uint8_t kAceCompound = 4;
constexpr std::uint8_t kAceLabel = 17;
constexpr std::uint32_t kLabelMask = 4;
constexpr std::uint8_t kLabelAuthority = 16;

void Put16(std::uint8_t* p, std::uint32_t v) {
  p[0] = static_cast<std::uint8_t>(v);
  p[1] = static_cast<std::uint8_t>(v >> 8);
}
void Put32(std::uint8_t* p, std::uint32_t v) {
  Put16(p, v);
  Put16(p + 2, v >> 16);
}
std::uint32_t Get16(const std::uint8_t* p) { return p[0] | (static_cast<std::uint32_t>(p[1]) << 8); }
std::uint32_t Get32(const std::uint8_t* p) { return Get16(p) | (Get16(p + 2) << 16); }

void MakeSid(ZyrBasSid& sid, std::uint8_t authority, const std::uint32_t* subs, std::uint32_t count) {
  std::memset(sid.bytes, 0, sizeof sid.bytes);
  sid.bytes[0] = 1;
  sid.bytes[1] = static_cast<std::uint8_t>(count);
  sid.bytes[7] = authority;
  for (std::uint32_t i = 0; i < count; ++i) Put32(sid.bytes + 8 + 4 * i, subs[i]);
}

std::uint32_t SubAuthority(const ZyrBasSid& sid, std::uint32_t i) { return Get32(sid.bytes + 8 + 4 * i); }

// The table of well-known SIDs: false for ids without a row.
bool TableSid(ZyrBasSid& sid, std::uint32_t id) {
  std::uint32_t subs[2];
  std::uint8_t authority = 5;
  std::uint32_t count = 1;
  if (id <= 2) {
    authority = static_cast<std::uint8_t>(id);
    subs[0] = 0;
  } else if (id <= 6) {
    authority = 3;
    subs[0] = id - 3;
  } else if (id == 7) {
    count = 0;
  } else if (id <= 11) {
    subs[0] = id - 7;
  } else if (id <= 20) {
    subs[0] = id - 6;
  } else if (id == 21) {
    return false;
  } else if (id <= 24) {
    subs[0] = id - 4;
  } else if (id == 25) {
    subs[0] = 32;
  } else if (id <= 49) {
    count = 2;
    subs[0] = 32;
    subs[1] = id <= 34 ? 544 + (id - 26) : id <= 37 ? 554 + (id - 35) : id <= 40 ? 500 + (id - 38) : 512 + (id - 41);
  } else {
    return false;
  }
  MakeSid(sid, authority, subs, count);
  return true;
}

// A SID that the bytes at `p` hold within `available` bytes.
bool ValidSidAt(const std::uint8_t* p, std::size_t available) {
  if (available < 8 || p[0] != 1 || p[1] > kZyrBasSidMaxSubAuthorities) return false;
  return available >= 8u + 4u * p[1];
}

void CopySid(ZyrBasSid& sid, const std::uint8_t* p) {
  std::memset(sid.bytes, 0, sizeof sid.bytes);
  std::memcpy(sid.bytes, p, 8u + 4u * p[1]);
}

// The level of a label SID, 0 when it is none of the known ones.
std::uint32_t LabelLevelOf(const ZyrBasSid& sid) {
  if (sid.bytes[1] != 1 || sid.bytes[7] != kLabelAuthority) return 0;
  for (int i = 2; i < 7; ++i)
    if (sid.bytes[i] != 0) return 0;
  std::uint32_t rid = SubAuthority(sid, 0);
  if (rid % 4096 != 0 || rid > 20480) return 0;
  return rid / 4096 + 1;
}

// An access list inside a descriptor of `size` bytes, at `offset`: its
// bounds and every ACE within them.
bool ValidAcl(const std::uint8_t* d, std::size_t size, std::size_t offset) {
  if (offset < kHeaderSize || offset > size || size - offset < kAclHeaderSize) return false;
  const std::uint8_t* acl = d + offset;
  std::size_t aclSize = Get16(acl + 2);
  if (acl[0] < 2 || acl[0] > 4 || aclSize < kAclHeaderSize || aclSize > size - offset) return false;
  std::size_t at = kAclHeaderSize;
  for (std::uint32_t n = Get16(acl + 4); n > 0; --n) {
    if (aclSize - at < 4) return false;
    std::size_t aceSize = Get16(acl + at + 2);
    if (aceSize < 4 || aceSize > aclSize - at) return false;
    std::uint8_t type = acl[at];
    if (type == kAceAllow || type == kAceDeny || type == kAceLabel) {
      if (aceSize < kAceHeaderSize || !ValidSidAt(acl + at + 8, aceSize - kAceHeaderSize)) return false;
      if (type == kAceLabel) {
        ZyrBasSid sid;
        CopySid(sid, acl + at + 8);
        if (LabelLevelOf(sid) == 0) return false;
      }
    }
    at += aceSize;
  }
  return true;
}

bool ValidDescriptor(const std::uint8_t* d, std::size_t size) {
  if (!d || size < kHeaderSize || d[0] != 1) return false;
  std::uint32_t control = Get16(d + 2);
  if (!(control & kSelfRelative)) return false;
  for (int part = 0; part < 2; ++part) {
    std::size_t offset = Get32(d + 4 + 4 * part);
    if (offset != 0 && (offset < kHeaderSize || offset > size || !ValidSidAt(d + offset, size - offset)))
      return false;
  }
  std::size_t sacl = Get32(d + 12), dacl = Get32(d + 16);
  if ((control & kSaclPresent) && sacl != 0 && !ValidAcl(d, size, sacl)) return false;
  if ((control & kDaclPresent) && dacl != 0 && !ValidAcl(d, size, dacl)) return false;
  return true;
}

// Writes an ACL of `rules` (and the label) at `p`; returns its size.
std::size_t WriteAcl(std::uint8_t* p, const ZyrBasArray<ZyrBasAccessRule>& rules, const ZyrBasSid* label,
                     std::uint32_t labelFlags) {
  std::size_t at = kAclHeaderSize;
  std::uint32_t count = 0;
  auto ace = [&](std::uint8_t type, std::uint32_t flags, std::uint32_t mask, const ZyrBasSid& sid) {
    std::size_t sidLength = ZyrBasSidLength(sid);
    p[at] = type;
    p[at + 1] = static_cast<std::uint8_t>(flags);
    Put16(p + at + 2, static_cast<std::uint32_t>(kAceHeaderSize + sidLength));
    Put32(p + at + 4, mask);
    std::memcpy(p + at + 8, sid.bytes, sidLength);
    at += kAceHeaderSize + sidLength;
    ++count;
  };
  for (const ZyrBasAccessRule& rule : rules)
    ace(static_cast<std::uint8_t>(rule.kind), rule.aceFlags, rule.accessMask, rule.sid);
  if (label) ace(kAceLabel, labelFlags, kLabelMask, *label);
  p[0] = 2;  // revision
  p[1] = 0;
  Put16(p + 2, static_cast<std::uint32_t>(at));  // cut to the end of the last ACE
  Put16(p + 4, count);
  Put16(p + 6, 0);
  return at;
}

std::size_t AclSize(const ZyrBasArray<ZyrBasAccessRule>& rules, const ZyrBasSid* label) {
  std::size_t size = kAclHeaderSize;
  for (const ZyrBasAccessRule& rule : rules) size += kAceHeaderSize + ZyrBasSidLength(rule.sid);
  if (label) size += kAceHeaderSize + ZyrBasSidLength(*label);
  return size;
}

bool SameSid(const ZyrBasArray<ZyrBasAccessRule>& rules, const ZyrBasSid& sid) {
  for (const ZyrBasAccessRule& rule : rules)
    if (ZyrBasSidEqual(rule.sid, sid)) return true;
  return false;
}

// File rights as mode bits of one class (r 4, w 2, x 1).
constexpr std::uint32_t kGenericAll = 0x10000000, kGenericExecute = 0x20000000,
                        kGenericWrite = 0x40000000, kGenericRead = 0x80000000;
std::uint32_t ClassBits(std::uint32_t mask, bool directory) {
  std::uint32_t bits = 0;
  if (mask & (0x1 | kGenericRead | kGenericAll)) bits |= 4;
  if (mask & (0x2 | 0x4 | kGenericWrite | kGenericAll)) bits |= 2;
  if (directory && (mask & (0x20 | kGenericExecute | kGenericAll))) bits |= 1;
  return bits;
}
constexpr std::uint32_t kReadRights = 0x120089, kWriteRights = 0x120116, kExecuteRights = 0x1200a0;
std::uint32_t MaskOfBits(std::uint32_t bits) {
  return (bits & 4 ? kReadRights : 0) | (bits & 2 ? kWriteRights : 0) | (bits & 1 ? kExecuteRights : 0);
}

// Which classes (owner 0100, group 010, others 01, as multipliers) a rule's
// SID stands for here. Restricted code and labels have no meaning on this
// platform; the system and the administrators are root.
std::uint32_t ClassesOf(const ZyrBasAccessRule& rule) {
  if (rule.sidId == ZYR_SID_WORLD) return 0111;
  if (rule.sidId == ZYR_SID_PROCESS_USER || rule.sidId == ZYR_SID_PROCESS_USER_ALT ||
      rule.sidId == ZYR_SID_THREAD_USER)
    return 0100;
  if (rule.sid.bytes[1] == 2 && rule.sid.bytes[7] == kZyrBasUnixAuthority) {
    std::uint32_t kind = SubAuthority(rule.sid, 0);
    if (kind == 1 && SubAuthority(rule.sid, 1) == ZyrBasOsProcessUserId()) return 0100;
    if (kind == 2) return 0010;
  }
  return 0;
}

ZyrResult NativeTarget(const ZyrBasSecurityTarget& target, ZyrBasNarrowText& path) {
  if (target.kind == 2) return ZYR_E_NOT_SUPPORTED;  // the key store is read-only
  if (target.kind != 0 && target.kind != 1) return ZYR_E_NOT_SUPPORTED;
  if (!target.name) return ZYR_E_INVALID_ARGUMENT;
  return ZyrBasNativePath(target.name, ZYR_TERMINATED, path);
}

}  // namespace

std::size_t ZyrBasSidLength(const ZyrBasSid& sid) { return 8u + 4u * sid.bytes[1]; }

bool ZyrBasSidEqual(const ZyrBasSid& a, const ZyrBasSid& b) {
  std::size_t length = ZyrBasSidLength(a);
  return length == ZyrBasSidLength(b) && std::memcmp(a.bytes, b.bytes, length) == 0;
}

void ZyrBasUnixSid(ZyrBasSid& sid, bool group, std::uint32_t id) {
  std::uint32_t subs[2] = {group ? 2u : 1u, id};
  MakeSid(sid, kZyrBasUnixAuthority, subs, 2);
}

ZyrResult ZyrBasWellKnownSid(ZyrBasSid& sid, std::uint32_t id) {
  if (id == ZYR_SID_PROCESS_USER || id == ZYR_SID_PROCESS_USER_ALT) {
    ZyrBasUnixSid(sid, false, ZyrBasOsProcessUserId());
    return ZYR_OK;
  }
  if (id == ZYR_SID_THREAD_USER) {
    ZyrBasUnixSid(sid, false, ZyrBasOsThreadUserId());
    return ZYR_OK;
  }
  if (id == ZYR_SID_OTHER) return ZYR_E_INVALID_ARGUMENT;
  return TableSid(sid, id) ? ZYR_OK : ZYR_E_NOT_IMPLEMENTED;
}

ZyrResult ZyrBasSidId(std::uint32_t* id, const ZyrBasSid& sid) {
  ZyrBasSid known;
  for (std::uint32_t i = 0; i <= 49; ++i) {
    if (TableSid(known, i) && ZyrBasSidEqual(known, sid)) {
      *id = i;
      return ZYR_OK;
    }
  }
  ZyrBasUnixSid(known, false, ZyrBasOsProcessUserId());
  *id = ZyrBasSidEqual(known, sid) ? ZYR_SID_PROCESS_USER : ZYR_SID_OTHER;
  return ZYR_OK;
}

ZyrResult ZyrBasSidText(const ZyrBasSid& sid, char16_t* text, std::size_t capacity, std::size_t* size) {
  std::uint32_t count = sid.bytes[1];
  std::size_t needed = 11u * count + 15u;
  if (count > kZyrBasSidMaxSubAuthorities) return ZYR_E_INVALID_ARGUMENT;
  if (capacity < needed) {
    *size = needed;
    return ZYR_E_BUFFER_TOO_SMALL;
  }
  std::size_t at = 0;
  auto number = [&](std::uint32_t v) {
    char16_t digits[10];
    int n = 0;
    do digits[n++] = static_cast<char16_t>(u'0' + v % 10);
    while ((v /= 10) != 0);
    while (n > 0) text[at++] = digits[--n];
  };
  text[at++] = u'S';
  text[at++] = u'-';
  number(sid.bytes[0]);
  text[at++] = u'-';
  number(sid.bytes[7]);
  for (std::uint32_t i = 0; i < count; ++i) {
    text[at++] = u'-';
    number(SubAuthority(sid, i));
  }
  text[at] = 0;
  *size = at;
  return ZYR_OK;
}

ZyrResult ZyrBasSidText(const ZyrBasSid& sid, ZyrBasString& out) {
  char16_t text[11 * kZyrBasSidMaxSubAuthorities + 15];
  std::size_t size = 0;
  ZyrResult r = ZyrBasSidText(sid, text, sizeof text / sizeof text[0], &size);
  if (ZyrFailed(r)) return r;
  return out.Assign(text, size);
}

ZyrResult ZyrBasProcessUserText(ZyrBasString& out) {
  ZyrBasSid sid;
  ZyrResult r = ZyrBasWellKnownSid(sid, ZYR_SID_PROCESS_USER);
  if (ZyrFailed(r)) return r;
  return ZyrBasSidText(sid, out);
}

// ---------------------------------------------------------------------------

ZyrBasSecurity::~ZyrBasSecurity() { DropBuilt(); }

void ZyrBasSecurity::DropBuilt() {
  ZyrBasFree(built_);
  built_ = nullptr;
  builtSize_ = 0;
}

void ZyrBasSecurity::CopyPartsFrom(const ZyrBasSecurity& other) {
  DropBuilt();
  ownerId_ = other.ownerId_;
  owner_ = other.owner_;
  groupId_ = other.groupId_;
  group_ = other.group_;
  labelId_ = other.labelId_;
  label_ = other.label_;
  labelLevel_ = other.labelLevel_;
  labelFlags_ = other.labelFlags_;
}

void ZyrBasSecurity::Clear() {
  DropBuilt();
  ownerId_ = groupId_ = labelId_ = ZYR_SID_NONE;
  labelLevel_ = labelFlags_ = 0;
  std::memset(&owner_, 0, sizeof owner_);
  std::memset(&group_, 0, sizeof group_);
  std::memset(&label_, 0, sizeof label_);
  dacl_.Clear();
  sacl_.Clear();
}

// Keeps the order that access checks need: special deny, deny, special
// allow, allow, where "special" is a SID kept by value or the process user.
ZyrResult ZyrBasSecurity::Insert(ZyrBasArray<ZyrBasAccessRule>& list, const ZyrBasAccessRule& rule) {
  if (list.Count() == list.Capacity()) {
    ZyrResult r = list.Reserve(list.Count() + list.Count() / 2 + 1, ZyrBasGrowth::Exact);
    if (ZyrFailed(r)) return r;
  }
  DropBuilt();
  auto special = [](const ZyrBasAccessRule& x) { return x.sidId == ZYR_SID_OTHER || x.sidId == ZYR_SID_PROCESS_USER; };
  bool isDeny = rule.kind == 1, isSpecial = special(rule);
  std::size_t at = list.Count();
  if (!list.Empty() && (isDeny || isSpecial)) {
    for (std::size_t i = 0; i < list.Count(); ++i) {
      const ZyrBasAccessRule& x = list[i];
      bool stop = isDeny && isSpecial ? !(x.kind == 1 && special(x)) : x.kind != 1;
      if (stop) {
        at = i;
        break;
      }
    }
  }
  ZyrBasAccessRule copy = rule;
  return list.InsertAt(at, static_cast<ZyrBasAccessRule&&>(copy));
}

ZyrResult ZyrBasSecurity::AddAllowRule(std::uint32_t id, std::uint32_t mask, std::uint32_t aceFlags) {
  ZyrBasAccessRule rule;
  ZyrResult r = ZyrBasWellKnownSid(rule.sid, id);
  if (ZyrFailed(r)) return r;
  rule.kind = 0;
  rule.aceFlags = aceFlags;
  rule.accessMask = mask;
  rule.sidId = id == ZYR_SID_PROCESS_USER_ALT ? ZYR_SID_PROCESS_USER : id;
  return Insert(dacl_, rule);
}

ZyrResult ZyrBasSecurity::AddDaclRule(const ZyrBasAccessRule& rule) { return Insert(dacl_, rule); }
ZyrResult ZyrBasSecurity::AddSaclRule(const ZyrBasAccessRule& rule) { return Insert(sacl_, rule); }

ZyrResult ZyrBasSecurity::SetLabel(const ZyrBasSid& sid, std::uint32_t flags) {
  std::uint32_t level = LabelLevelOf(sid);
  if (level == 0) return ZYR_E_INVALID_ARGUMENT;
  DropBuilt();
  label_ = sid;
  labelId_ = ZYR_SID_OTHER;
  labelLevel_ = level;
  labelFlags_ = flags;
  return ZYR_OK;
}

ZyrResult ZyrBasSecurity::SetLabelLevel(std::uint32_t level, std::uint32_t flags) {
  if (level < 1 || level > 6) return ZYR_E_INVALID_ARGUMENT;
  ZyrBasSid sid;
  std::uint32_t rid = (level - 1) * 4096;
  MakeSid(sid, kLabelAuthority, &rid, 1);
  return SetLabel(sid, flags);
}

ZyrResult ZyrBasSecurity::SetOwner(const ZyrBasSid& sid) {
  DropBuilt();
  owner_ = sid;
  return ZyrBasSidId(&ownerId_, sid);
}

ZyrResult ZyrBasSecurity::SetGroup(const ZyrBasSid& sid) {
  DropBuilt();
  group_ = sid;
  return ZyrBasSidId(&groupId_, sid);
}

std::uint32_t ZyrBasSecurity::Flags() const {
  std::uint32_t flags = 0;
  if (ownerId_ != ZYR_SID_NONE) flags |= ZYR_SECURITY_OWNER;
  if (groupId_ != ZYR_SID_NONE) flags |= ZYR_SECURITY_GROUP;
  if (!dacl_.Empty()) flags |= ZYR_SECURITY_DACL;
  if (!sacl_.Empty()) flags |= ZYR_SECURITY_SACL;
  if (labelId_ != ZYR_SID_NONE && labelLevel_ != 0) flags |= ZYR_SECURITY_LABEL;
  return flags;
}

// One block, laid out as header, owner, group, SACL (with the label last),
// DACL, each part right behind the one before.
ZyrResult ZyrBasSecurity::Build() {
  if (built_) return ZYR_OK;
  std::uint32_t flags = Flags();
  const ZyrBasSid* label = (flags & ZYR_SECURITY_LABEL) ? &label_ : nullptr;
  bool hasSacl = (flags & ZYR_SECURITY_SACL) || label;
  bool hasDacl = flags & ZYR_SECURITY_DACL;
  std::size_t size = kHeaderSize;
  if (flags & ZYR_SECURITY_OWNER) size += ZyrBasSidLength(owner_);
  if (flags & ZYR_SECURITY_GROUP) size += ZyrBasSidLength(group_);
  if (hasSacl) size += AclSize(sacl_, label);
  if (hasDacl) size += AclSize(dacl_, nullptr);
  for (const auto* list : {&sacl_, &dacl_})
    for (const ZyrBasAccessRule& rule : *list)
      if (rule.kind > 1) return ZYR_E_NOT_SUPPORTED;
  if (size > 0xFFFF) return ZYR_E_INVALID_DATA;  // an ACL's size has 16 bits
  auto* d = static_cast<std::uint8_t*>(ZyrBasAllocZero(size));
  if (!d) return ZYR_E_OUT_OF_MEMORY;
  std::uint32_t control = kSelfRelative;
  std::size_t at = kHeaderSize;
  d[0] = 1;
  if (flags & ZYR_SECURITY_OWNER) {
    Put32(d + 4, static_cast<std::uint32_t>(at));
    std::memcpy(d + at, owner_.bytes, ZyrBasSidLength(owner_));
    at += ZyrBasSidLength(owner_);
  }
  if (flags & ZYR_SECURITY_GROUP) {
    Put32(d + 8, static_cast<std::uint32_t>(at));
    std::memcpy(d + at, group_.bytes, ZyrBasSidLength(group_));
    at += ZyrBasSidLength(group_);
  }
  if (hasSacl) {
    control |= kSaclPresent;
    Put32(d + 12, static_cast<std::uint32_t>(at));
    at += WriteAcl(d + at, sacl_, label, labelFlags_);
  }
  if (hasDacl) {
    control |= kDaclPresent;
    Put32(d + 16, static_cast<std::uint32_t>(at));
    at += WriteAcl(d + at, dacl_, nullptr, 0);
  }
  Put16(d + 2, control);
  built_ = d;
  builtSize_ = at;
  return ZYR_OK;
}

ZyrResult ZyrBasSecurity::LoadDescriptor(const std::uint8_t* d, std::size_t size, std::uint32_t flags) {
  if (!ValidDescriptor(d, size)) return ZYR_E_INVALID_ARGUMENT;
  ZyrBasSecurity loaded;
  std::uint32_t control = Get16(d + 2);
  std::size_t owner = Get32(d + 4), group = Get32(d + 8), sacl = Get32(d + 12), dacl = Get32(d + 16);
  ZyrResult r = ZYR_OK;
  if ((flags & ZYR_SECURITY_OWNER) && owner) {
    CopySid(loaded.owner_, d + owner);
    r = ZyrBasSidId(&loaded.ownerId_, loaded.owner_);
  }
  if (ZyrSucceeded(r) && (flags & ZYR_SECURITY_GROUP) && group) {
    CopySid(loaded.group_, d + group);
    r = ZyrBasSidId(&loaded.groupId_, loaded.group_);
  }
  auto walk = [&](std::size_t offset, bool isSacl) -> ZyrResult {
    const std::uint8_t* acl = d + offset;
    std::size_t at = kAclHeaderSize;
    for (std::uint32_t n = Get16(acl + 4); n > 0; --n) {
      std::uint8_t type = acl[at];
      std::size_t aceSize = Get16(acl + at + 2);
      if (type == kAceLabel) {
        if (isSacl && (flags & ZYR_SECURITY_LABEL)) {
          ZyrBasSid sid;
          CopySid(sid, acl + at + 8);
          ZyrResult lr = loaded.SetLabel(sid, acl[at + 1]);
          if (ZyrFailed(lr)) return lr;
        }
      } else if ((type == kAceAllow || type == kAceDeny) && (!isSacl || (flags & ZYR_SECURITY_SACL))) {
        ZyrBasAccessRule rule;
        rule.kind = type;
        rule.aceFlags = acl[at + 1];
        rule.accessMask = Get32(acl + at + 4);
        CopySid(rule.sid, acl + at + 8);
        ZyrResult ir = ZyrBasSidId(&rule.sidId, rule.sid);
        if (ZyrSucceeded(ir)) ir = loaded.Insert(isSacl ? loaded.sacl_ : loaded.dacl_, rule);
        if (ZyrFailed(ir)) return ir;
      }
      at += aceSize;
    }
    return ZYR_OK;
  };
  if (ZyrSucceeded(r) && (flags & (ZYR_SECURITY_SACL | ZYR_SECURITY_LABEL)) && (control & kSaclPresent) && sacl)
    r = walk(sacl, true);
  if (ZyrSucceeded(r) && (flags & ZYR_SECURITY_DACL) && (control & kDaclPresent) && dacl) r = walk(dacl, false);
  if (ZyrFailed(r)) return r;
  Clear();
  CopyPartsFrom(loaded);
  dacl_.Swap(loaded.dacl_);
  sacl_.Swap(loaded.sacl_);
  return ZYR_OK;
}

ZyrResult ZyrBasSecurity::Clone(ZyrBasSecurity** copy) const {
  *copy = nullptr;
  ZyrBasSecurity* c = ZyrNew<ZyrBasSecurity>();
  if (!c) return ZYR_E_OUT_OF_MEMORY;
  ZyrResult r = ZYR_OK;
  for (const ZyrBasAccessRule& rule : dacl_)
    if (ZyrSucceeded(r)) r = c->dacl_.Append(rule);
  for (const ZyrBasAccessRule& rule : sacl_)
    if (ZyrSucceeded(r)) r = c->sacl_.Append(rule);
  if (ZyrFailed(r)) {
    c->Destroy();
    return r;
  }
  c->CopyPartsFrom(*this);
  *copy = c;
  return ZYR_OK;
}

ZyrResult ZyrBasSecurity::Serialize(std::uint8_t* buffer, std::size_t capacity, std::size_t* size) const {
  if (!built_) return ZYR_E_NOT_INITIALIZED;
  *size = 4 + builtSize_;
  if (capacity < *size) return ZYR_E_BUFFER_TOO_SMALL;
  Put32(buffer, Flags());
  std::memcpy(buffer + 4, built_, builtSize_);
  return ZYR_OK;
}

ZyrResult ZyrBasSecurity::Deserialize(const std::uint8_t* buffer, std::size_t size) {
  if (!buffer || size < 4) return ZYR_E_INVALID_ARGUMENT;
  ZyrResult r = LoadDescriptor(buffer + 4, size - 4, Get32(buffer));
  if (ZyrSucceeded(r)) r = Build();
  return r;
}

ZyrResult ZyrBasSecurity::MergeOver(const ZyrBasSecurity& present, ZyrBasSecurity& out) const {
  out.Clear();
  std::uint32_t flags = Flags();
  ZyrResult r = ZYR_OK;
  auto merge = [&](const ZyrBasArray<ZyrBasAccessRule>& mine, const ZyrBasArray<ZyrBasAccessRule>& theirs,
                   ZyrBasArray<ZyrBasAccessRule>& into) {
    for (const ZyrBasAccessRule& rule : mine)
      if (ZyrSucceeded(r)) r = out.Insert(into, rule);
    for (const ZyrBasAccessRule& rule : theirs)
      if (ZyrSucceeded(r) && !SameSid(mine, rule.sid)) r = out.Insert(into, rule);
  };
  if (flags & ZYR_SECURITY_DACL) merge(dacl_, present.dacl_, out.dacl_);
  if (flags & ZYR_SECURITY_SACL) merge(sacl_, present.sacl_, out.sacl_);
  if (ZyrFailed(r)) return r;
  out.CopyPartsFrom(*this);
  return ZYR_OK;
}

ZyrResult ZyrBasSecurity::FileMode(bool directory, std::uint32_t* mode) const {
  std::uint32_t allowed = 0, denied = 0;
  bool named = false;
  for (const ZyrBasAccessRule& rule : dacl_) {
    std::uint32_t classes = ClassesOf(rule);
    if (classes == 0) continue;
    named = true;
    std::uint32_t bits = ClassBits(rule.accessMask, directory) * classes;
    if (rule.kind == 1) denied |= bits;
    else allowed |= bits;
  }
  if (!named) return ZYR_I_NOT_FOUND;
  *mode = allowed & ~denied;
  return ZYR_OK;
}

// A file's owner, group and mode as rules: one allow rule for each class
// that has a bit, in the rights that those bits give.
ZyrResult ZyrBasSecurity::ReadFrom(const ZyrBasSecurityTarget& target, std::uint32_t* flags) {
  ZyrBasNarrowText path;
  ZyrResult r = NativeTarget(target, path);
  ZyrBasOsPathSecurity present;
  if (ZyrSucceeded(r)) r = ZyrBasOsReadPathSecurity(path.Data(), &present);
  if (ZyrFailed(r)) return r;
  Clear();
  std::uint32_t want = *flags;
  ZyrBasSid sid;
  if (want & ZYR_SECURITY_OWNER) {
    ZyrBasUnixSid(sid, false, present.uid);
    r = SetOwner(sid);
  }
  if (ZyrSucceeded(r) && (want & ZYR_SECURITY_GROUP)) {
    ZyrBasUnixSid(sid, true, present.gid);
    r = SetGroup(sid);
  }
  if (ZyrSucceeded(r) && (want & ZYR_SECURITY_DACL)) {
    const std::uint32_t classes[3] = {(present.mode >> 6) & 7, (present.mode >> 3) & 7, present.mode & 7};
    for (int c = 0; c < 3 && ZyrSucceeded(r); ++c) {
      if (classes[c] == 0) continue;
      ZyrBasAccessRule rule;
      rule.accessMask = MaskOfBits(classes[c]);
      if (c == 2) {
        rule.sidId = ZYR_SID_WORLD;
        TableSid(rule.sid, ZYR_SID_WORLD);
      } else {
        ZyrBasUnixSid(rule.sid, c == 1, c == 0 ? present.uid : present.gid);
        r = ZyrBasSidId(&rule.sidId, rule.sid);
      }
      if (ZyrSucceeded(r)) r = Insert(dacl_, rule);
    }
  }
  // The system and label parts have nothing to be read from here.
  *flags = want & (ZYR_SECURITY_OWNER | ZYR_SECURITY_GROUP | ZYR_SECURITY_DACL);
  return r;
}

ZyrResult ZyrBasSecurity::WriteTo(const ZyrBasSecurityTarget& target) {
  ZyrBasNarrowText path;
  ZyrResult r = NativeTarget(target, path);
  ZyrBasOsPathSecurity present;
  if (ZyrSucceeded(r)) r = ZyrBasOsReadPathSecurity(path.Data(), &present);
  if (ZyrFailed(r)) return r;
  if (!present.keepsModes) return ZYR_I_NOT_SUPPORTED;
  r = Build();
  if (ZyrFailed(r)) return r;
  std::uint32_t mode = 0;
  if (FileMode(present.directory, &mode) != ZYR_OK) return ZYR_OK;  // nothing with a meaning here
  // Special bits (set-group-id on a folder, sticky) stay as they are.
  mode |= present.mode & 07000;
  if (mode == present.mode) return ZYR_OK;
  return ZyrBasOsWritePathMode(path.Data(), mode);
}

ZyrResult ZyrBasSecurity::Merge(const ZyrBasSecurityTarget& target) {
  std::uint32_t flags = Flags();
  ZyrBasSecurity present, merged;
  ZyrResult r = present.ReadFrom(target, &flags);
  if (ZyrSucceeded(r)) r = MergeOver(present, merged);
  if (ZyrSucceeded(r)) r = merged.WriteTo(target);
  return r;
}

ZyrResult ZyrBasSecurityForForm(ZyrBasSecurity& security, std::uint32_t form) {
  security.Clear();
  // Allow rules carry flags 3 (inherited by files and folders below); the
  // label of a single file carries none, that of a folder the same 3.
  constexpr std::uint32_t kInherit = 3;
  ZyrResult r = ZYR_OK;
  switch (form) {
    case ZYR_SECURITY_LOG_FILE:
      r = security.AddAllowRule(ZYR_SID_WORLD, 0x1301ff, kInherit);
      if (ZyrSucceeded(r)) r = security.AddAllowRule(ZYR_SID_RESTRICTED, 0x1301ff, kInherit);
      if (ZyrSucceeded(r)) r = security.AddAllowRule(ZYR_SID_LOCAL_SYSTEM, 0x1f01ff, kInherit);
      if (ZyrSucceeded(r)) r = security.AddAllowRule(ZYR_SID_ADMINISTRATORS, 0x1f01ff, kInherit);
      if (ZyrSucceeded(r)) r = security.SetLabelLevel(ZYR_LABEL_LOW, 0);
      return r;
    case ZYR_SECURITY_PROTECTED_CONFIG:
      r = security.AddAllowRule(ZYR_SID_WORLD, 0x1301bf, kInherit);
      if (ZyrSucceeded(r)) r = security.AddAllowRule(ZYR_SID_RESTRICTED, 0x1301bf, kInherit);
      if (ZyrSucceeded(r)) r = security.SetLabelLevel(ZYR_LABEL_LOW, 0);
      return r;
    case ZYR_SECURITY_FOLDER_RESTRICTED:
      return security.AddAllowRule(ZYR_SID_RESTRICTED, 0x1301bf, kInherit);
    case ZYR_SECURITY_FOLDER_LOW_LABEL:
      return security.SetLabelLevel(ZYR_LABEL_LOW, kInherit);
    default:
      return ZYR_E_INVALID_ARGUMENT;
  }
}
