// Security descriptors: an object model of owner, group, label and access
// rules, and the binary self-relative descriptor it builds, byte for byte
// as the system that defined the format lays it out. The model is portable;
// what a rule means for a file on this platform (its mode bits) is worked
// out here too, and applied by the layer (base/os/security_os.h): as mode bits on Linux, as
// the descriptor itself on NT.
#ifndef ZYR_BASE_SECURITY_H
#define ZYR_BASE_SECURITY_H

#include <cstddef>
#include <cstdint>

#include "base/array.h"
#include "base/string.h"
#include "zyrlog/result.h"

// A SID in its binary form: revision 1, count of sub-authorities, 6 bytes of
// identifier authority (big-endian), then the sub-authorities (32 bits each,
// little-endian). 68 bytes hold the largest, with 15 sub-authorities.
inline constexpr std::size_t kZyrBasSidSize = 68;
inline constexpr std::uint32_t kZyrBasSidMaxSubAuthorities = 15;

struct ZyrBasSid {
  std::uint8_t bytes[kZyrBasSidSize];
};

// Ids of well-known SIDs (the table of ZyrBasWellKnownSid).
inline constexpr std::uint32_t ZYR_SID_NONE = 0xFFFFFFFF;
inline constexpr std::uint32_t ZYR_SID_WORLD = 1;            // S-1-1-0
inline constexpr std::uint32_t ZYR_SID_RESTRICTED = 18;      // S-1-5-12
inline constexpr std::uint32_t ZYR_SID_LOCAL_SYSTEM = 22;    // S-1-5-18
inline constexpr std::uint32_t ZYR_SID_ADMINISTRATORS = 26;  // S-1-5-32-544
inline constexpr std::uint32_t ZYR_SID_OTHER = 61;           // kept by value
inline constexpr std::uint32_t ZYR_SID_PROCESS_USER = 62;
inline constexpr std::uint32_t ZYR_SID_PROCESS_USER_ALT = 63;
inline constexpr std::uint32_t ZYR_SID_THREAD_USER = 64;

// Accounts of this platform as SIDs: user uid is S-1-22-1-<uid>, group gid
// is S-1-22-2-<gid>. The process user (ids 62, 63) is the process's
// effective uid; the thread user (64) is the effective uid of the calling
// thread, which is the process's unless the thread changed it by itself.
inline constexpr std::uint8_t kZyrBasUnixAuthority = 22;

// Selectors of the parts of a descriptor.
inline constexpr std::uint32_t ZYR_SECURITY_OWNER = 1;
inline constexpr std::uint32_t ZYR_SECURITY_GROUP = 2;
inline constexpr std::uint32_t ZYR_SECURITY_DACL = 4;
inline constexpr std::uint32_t ZYR_SECURITY_SACL = 8;
inline constexpr std::uint32_t ZYR_SECURITY_LABEL = 16;

// Label levels: 0 none, then S-1-16-0, -4096 (Low), -8192, -12288, -16384,
// -20480.
inline constexpr std::uint32_t ZYR_LABEL_LOW = 2;

// Size of the binary SID at `sid` (8 + 4 per sub-authority).
std::size_t ZyrBasSidLength(const ZyrBasSid& sid);
bool ZyrBasSidEqual(const ZyrBasSid& a, const ZyrBasSid& b);
// Fills `sid` by the table. Ids without a SID give ZYR_E_NOT_IMPLEMENTED;
// 61 (a SID kept by value) has no SID of its own: ZYR_E_INVALID_ARGUMENT.
ZyrResult ZyrBasWellKnownSid(ZyrBasSid& sid, std::uint32_t id);
// The reverse: the table's id, 62 for the process user, 61 for any other.
ZyrResult ZyrBasSidId(std::uint32_t* id, const ZyrBasSid& sid);
// "S-1-5-32-544". The size needed is 11 characters per sub-authority plus
// 15, terminator included; a smaller capacity gives ZYR_E_BUFFER_TOO_SMALL
// with that size in `size`. On success `size` is the length written.
ZyrResult ZyrBasSidText(const ZyrBasSid& sid, char16_t* text, std::size_t capacity, std::size_t* size);
ZyrResult ZyrBasSidText(const ZyrBasSid& sid, ZyrBasString& out);
// The SID of the process user as text.
ZyrResult ZyrBasProcessUserText(ZyrBasString& out);
// A platform account as a SID (S-1-22-1-uid or S-1-22-2-gid).
void ZyrBasUnixSid(ZyrBasSid& sid, bool group, std::uint32_t id);

// One entry of an access list. `kind` 0 allow, 1 deny.
struct ZyrBasAccessRule {
  std::uint32_t kind = 0;
  std::uint32_t aceFlags = 0;
  std::uint32_t accessMask = 0;
  std::uint32_t sidId = ZYR_SID_NONE;
  ZyrBasSid sid{};
};

// What a descriptor is read from or written to: kind 0 a file, 1 a
// directory, 2 a key of the store (negative: none), and its name.
struct ZyrBasSecurityTarget {
  std::int32_t kind = -1;
  const char16_t* name = nullptr;
};

class ZyrBasSecurity {
 public:
  ZyrBasSecurity() = default;
  virtual ~ZyrBasSecurity();
  ZyrBasSecurity(const ZyrBasSecurity&) = delete;
  ZyrBasSecurity& operator=(const ZyrBasSecurity&) = delete;

  virtual ZyrResult Clone(ZyrBasSecurity** copy) const;
  virtual void Destroy() { ZyrDelete(this); }
  // The flag word in 4 bytes (little-endian), then the built descriptor.
  // ZYR_E_NOT_INITIALIZED unless built; ZYR_E_BUFFER_TOO_SMALL with the
  // size needed in `size`.
  virtual ZyrResult Serialize(std::uint8_t* buffer, std::size_t capacity, std::size_t* size) const;
  virtual ZyrResult Deserialize(const std::uint8_t* buffer, std::size_t size);

  // Adds an allow rule for a well-known id (not 61).
  ZyrResult AddAllowRule(std::uint32_t id, std::uint32_t mask, std::uint32_t aceFlags);
  ZyrResult AddDaclRule(const ZyrBasAccessRule& rule);
  ZyrResult AddSaclRule(const ZyrBasAccessRule& rule);
  // A label SID S-1-16-x with exactly one sub-authority, of a known level;
  // ZYR_E_INVALID_ARGUMENT otherwise.
  ZyrResult SetLabel(const ZyrBasSid& sid, std::uint32_t flags);
  ZyrResult SetLabelLevel(std::uint32_t level, std::uint32_t flags);
  ZyrResult SetOwner(const ZyrBasSid& sid);
  ZyrResult SetGroup(const ZyrBasSid& sid);
  void Clear();

  // The parts present: owner, group, a non-empty DACL, SACL, a label.
  std::uint32_t Flags() const;
  // Makes the self-relative descriptor. Nothing to do when it is current.
  ZyrResult Build();
  bool Built() const { return built_ != nullptr; }
  const std::uint8_t* Descriptor() const { return built_; }
  std::size_t DescriptorSize() const { return builtSize_; }
  // Loads the parts that `flags` select from a self-relative descriptor;
  // an invalid one gives ZYR_E_INVALID_ARGUMENT and leaves the object as
  // it was.
  ZyrResult LoadDescriptor(const std::uint8_t* descriptor, std::size_t size, std::uint32_t flags);

  // A copy of this object's rules over `present`: for each list selected,
  // this object's rules, then the rules of `present` whose SID has no rule
  // here; owner, group and label from this object.
  ZyrResult MergeOver(const ZyrBasSecurity& present, ZyrBasSecurity& out) const;

  // On targets of the system. Files and directories: the parts that have a
  // meaning here are the mode bits (below); a file system that keeps no
  // modes gives ZYR_I_NOT_SUPPORTED and nothing is written. Keys of the
  // store, which is read-only: ZYR_E_NOT_SUPPORTED.
  ZyrResult ReadFrom(const ZyrBasSecurityTarget& target, std::uint32_t* flags);
  ZyrResult WriteTo(const ZyrBasSecurityTarget& target);
  ZyrResult Merge(const ZyrBasSecurityTarget& target);

  // The mode bits that give the accounts named by the DACL's allow rules
  // their reach: the world (and restricted code, which runs as any user)
  // sets the bits for owner, group and others; a user's or group's own SID
  // its class; the process user the owner's class; the system and the
  // administrators are root, who needs no bit. Execute counts only for a
  // directory (search): a log file never becomes a program. Deny rules
  // take their bits away from the classes they name. ZYR_I_NOT_FOUND, and
  // no mode, when the DACL names no account of this platform.
  ZyrResult FileMode(bool directory, std::uint32_t* mode) const;

  const ZyrBasArray<ZyrBasAccessRule>& Dacl() const { return dacl_; }
  const ZyrBasArray<ZyrBasAccessRule>& Sacl() const { return sacl_; }
  std::uint32_t OwnerId() const { return ownerId_; }
  const ZyrBasSid& Owner() const { return owner_; }
  std::uint32_t GroupId() const { return groupId_; }
  const ZyrBasSid& Group() const { return group_; }
  std::uint32_t LabelLevel() const { return labelLevel_; }
  std::uint32_t LabelFlags() const { return labelFlags_; }

 private:
  ZyrResult Insert(ZyrBasArray<ZyrBasAccessRule>& list, const ZyrBasAccessRule& rule);
  void DropBuilt();
  // Owner, group and label; the rule lists stay.
  void CopyPartsFrom(const ZyrBasSecurity& other);

  std::uint32_t ownerId_ = ZYR_SID_NONE;
  ZyrBasSid owner_{};
  std::uint32_t groupId_ = ZYR_SID_NONE;
  ZyrBasSid group_{};
  std::uint32_t labelId_ = ZYR_SID_NONE;
  ZyrBasSid label_{};
  std::uint32_t labelLevel_ = 0;
  std::uint32_t labelFlags_ = 0;
  ZyrBasArray<ZyrBasAccessRule> sacl_;
  ZyrBasArray<ZyrBasAccessRule> dacl_;
  std::uint8_t* built_ = nullptr;
  std::size_t builtSize_ = 0;
};

// The forms the library asks for.
enum ZyrBasSecurityForm : std::uint32_t {
  // Log files and their lock files: world and restricted code read and
  // write, the system and the administrators all; label Low.
  ZYR_SECURITY_LOG_FILE = 0,
  // Configuration files saved with protection: world and restricted code
  // read and write; label Low.
  ZYR_SECURITY_PROTECTED_CONFIG = 1,
  // Rules merged into a log folder: restricted code may work in it.
  ZYR_SECURITY_FOLDER_RESTRICTED = 2,
  // The Low label merged into a log folder.
  ZYR_SECURITY_FOLDER_LOW_LABEL = 3,
};
ZyrResult ZyrBasSecurityForForm(ZyrBasSecurity& security, std::uint32_t form);

#endif
