// The configuration document: named sections of named values, as read from
// configuration text, kept by the log manager as the record of what is
// applied, and filled by objects when the configuration is saved.
//
// The document knows nothing of loggers or appenders; names and values are
// opaque strings to it. Names are compared byte for byte, so "Type" and
// "type" are different keys, and iteration runs in that byte order, never in
// the order of the text.
//
// Sections and values are held through shared handles, so that a section
// taken from one document can be added to another and outlive the first.
#ifndef ZYR_CONFIG_DOCUMENT_H
#define ZYR_CONFIG_DOCUMENT_H

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <new>
#include <utility>

#include "base/array.h"
#include "base/memory.h"
#include "base/string.h"
#include "zyrlog/result.h"

class ZyrBasFile;
class ZyrCfgByteFile;
class ZyrTextStream;
template <class T>
class ZyrCfgWeakRef;

// ---------------------------------------------------------------------------
// Shared handle: one allocation holds the strong count, the weak count and
// the object. The last strong handle destroys the object; the block itself
// goes with the last weak reference, of which all strong handles together
// hold one.
template <class T>
class ZyrCfgRef {
 public:
  ZyrCfgRef() noexcept = default;
  ZyrCfgRef(const ZyrCfgRef& other) noexcept : block_(other.block_) {
    if (block_) block_->strong.fetch_add(1, std::memory_order_relaxed);
  }
  ZyrCfgRef(ZyrCfgRef&& other) noexcept : block_(other.block_) { other.block_ = nullptr; }
  ZyrCfgRef& operator=(const ZyrCfgRef& other) noexcept {
    ZyrCfgRef copy(other);
    Swap(copy);
    return *this;
  }
  ZyrCfgRef& operator=(ZyrCfgRef&& other) noexcept {
    ZyrCfgRef taken(static_cast<ZyrCfgRef&&>(other));
    Swap(taken);
    return *this;
  }
  ~ZyrCfgRef() { Reset(); }

  // Makes a new object in a new block; the only operation that allocates.
  template <class... A>
  static ZyrResult Make(ZyrCfgRef* out, A&&... args) noexcept {
    void* memory = ZyrBasAlloc(sizeof(Block));
    if (!memory) return ZYR_E_OUT_OF_MEMORY;
    Block* block = new (memory) Block;
    new (block->storage) T(std::forward<A>(args)...);
    ZyrCfgRef made;
    made.block_ = block;
    out->Swap(made);
    return ZYR_OK;
  }

  T* Get() const noexcept { return block_ ? block_->Object() : nullptr; }
  T* operator->() const noexcept { return block_->Object(); }
  T& operator*() const noexcept { return *block_->Object(); }
  explicit operator bool() const noexcept { return block_ != nullptr; }
  std::uint32_t UseCount() const noexcept {
    return block_ ? block_->strong.load(std::memory_order_relaxed) : 0;
  }

  void Reset() noexcept {
    Block* block = block_;
    block_ = nullptr;
    if (block && block->strong.fetch_sub(1, std::memory_order_acq_rel) == 1) {
      block->Object()->~T();
      ReleaseWeak(block);
    }
  }

  void Swap(ZyrCfgRef& other) noexcept { std::swap(block_, other.block_); }

 private:
  friend class ZyrCfgWeakRef<T>;

  struct Block {
    std::atomic<std::uint32_t> strong{1};
    std::atomic<std::uint32_t> weak{1};
    alignas(T) unsigned char storage[sizeof(T)];
    T* Object() noexcept { return std::launder(reinterpret_cast<T*>(storage)); }
  };

  static void ReleaseWeak(Block* block) noexcept {
    if (block->weak.fetch_sub(1, std::memory_order_acq_rel) == 1) {
      block->~Block();
      ZyrBasFree(block);
    }
  }

  Block* block_ = nullptr;
};

// A reference that keeps the block but not the object alive.
template <class T>
class ZyrCfgWeakRef {
 public:
  ZyrCfgWeakRef() noexcept = default;
  explicit ZyrCfgWeakRef(const ZyrCfgRef<T>& strong) noexcept : block_(strong.block_) {
    if (block_) block_->weak.fetch_add(1, std::memory_order_relaxed);
  }
  ZyrCfgWeakRef(const ZyrCfgWeakRef&) = delete;
  ZyrCfgWeakRef& operator=(const ZyrCfgWeakRef&) = delete;
  ~ZyrCfgWeakRef() {
    if (block_) ZyrCfgRef<T>::ReleaseWeak(block_);
  }

  // A strong handle while the object lives, else an empty one.
  ZyrCfgRef<T> Lock() const noexcept {
    ZyrCfgRef<T> result;
    if (!block_) return result;
    std::uint32_t n = block_->strong.load(std::memory_order_relaxed);
    while (n != 0) {
      if (block_->strong.compare_exchange_weak(n, n + 1, std::memory_order_acq_rel,
                                               std::memory_order_relaxed)) {
        result.block_ = block_;
        break;
      }
    }
    return result;
  }

 private:
  typename ZyrCfgRef<T>::Block* block_ = nullptr;
};

class ZyrCfgSection;
class ZyrCfgValue;
using ZyrCfgSectionRef = ZyrCfgRef<ZyrCfgSection>;
using ZyrCfgValueRef = ZyrCfgRef<ZyrCfgValue>;

// ---------------------------------------------------------------------------
// Walks one name map in byte order. The map must not change while walked.
// Usual loop: Reset, then Current until ZYR_E_NO_MORE_ITEMS, Next behind
// each entry.
template <class R>
class ZyrCfgMapIterator {
 public:
  explicit ZyrCfgMapIterator(const ZyrBasNameMap<R>* map) noexcept : map_(map) {}
  virtual ~ZyrCfgMapIterator() = default;
  // The entry at the position; ZYR_E_NO_MORE_ITEMS at the end.
  virtual ZyrResult Current(R* out) {
    if (position_ >= map_->Count()) return ZYR_E_NO_MORE_ITEMS;
    *out = map_->At(position_).value;
    return ZYR_OK;
  }
  // ZYR_I_NO_MORE_ITEMS when the move reached the end or started there.
  virtual ZyrResult Next() {
    if (position_ >= map_->Count()) return ZYR_I_NO_MORE_ITEMS;
    ++position_;
    return position_ >= map_->Count() ? ZYR_I_NO_MORE_ITEMS : ZYR_OK;
  }
  virtual ZyrResult Reset() {
    position_ = 0;
    return ZYR_OK;
  }

 private:
  const ZyrBasNameMap<R>* map_;
  std::size_t position_ = 0;
};

using ZyrCfgSectionIterator = ZyrCfgMapIterator<ZyrCfgSectionRef>;
using ZyrCfgValueIterator = ZyrCfgMapIterator<ZyrCfgValueRef>;

// ---------------------------------------------------------------------------
// The quoting rule of values written by SetValue: a text holding a blank,
// TAB, ",", ";" or "\" is put in quotes, and a text holding a quote is put in
// quotes with each quote escaped as \". Backslashes are not doubled, so that
// paths stay readable; an empty text stays empty. A text that ends in a
// backslash is left unquoted (a quoted one would not read back), and is
// refused with ZYR_E_CFG_BAD_VALUE_LINE if it also holds a blank, TAB, ";"
// or quote.
ZyrResult ZyrCfgQuote(const char16_t* text, std::size_t length, ZyrBasString* out) noexcept;

// ---------------------------------------------------------------------------
enum ZyrCfgValueKind : std::uint32_t {
  ZYR_CFG_SINGLE = 0,
  ZYR_CFG_LIST = 1,
};

class ZyrCfgValue {
 public:
  ZyrCfgValue() noexcept = default;
  virtual ~ZyrCfgValue() = default;

  // Sets the four strings as given, unquoted, and makes the value single.
  // A null text or comment empties the field; the key must not be empty.
  ZyrResult Set(const char16_t* key, const char16_t* text, const char16_t* leading,
                const char16_t* line) noexcept;
  // Sets the text, unquoted, and makes the value single; null empties it.
  ZyrResult SetText(const char16_t* text, std::size_t length = ZYR_TERMINATED) noexcept;
  // Same name and kind; then the text of a single value, or the items of a
  // list. Comments never count.
  bool Equals(const ZyrCfgValue& other) const noexcept;

  std::uint32_t kind = ZYR_CFG_SINGLE;
  ZyrBasString name;
  // Single: the value without its quotes. List: the right-hand side as
  // written, trimmed. Made by SetValue: the quoted form.
  ZyrBasString text;
  ZyrBasString lineComment;     // text behind ";" on the value's line, as is
  ZyrBasString leadingComment;  // comment lines before the key, joined by CR LF
  ZyrBasArray<ZyrBasString> items;  // tokens of a list, unquoted
};

class ZyrCfgSection {
 public:
  ZyrCfgSection() noexcept = default;

  // The name must not be empty.
  ZyrResult SetName(const char16_t* name, std::size_t length = ZYR_TERMINATED) noexcept;
  // ZYR_E_CFG_NOT_FOUND for an absent key: the one code by which callers
  // tell a missing key from a real failure.
  ZyrResult FindValue(const char16_t* key, ZyrCfgValueRef* out,
                      std::size_t length = ZYR_TERMINATED) const noexcept;
  bool HasValue(const char16_t* key, std::size_t length = ZYR_TERMINATED) const noexcept;
  // Inserts under the value's own name; ZYR_E_VALUE_EXISTS if taken.
  ZyrResult AddValue(const ZyrCfgValueRef& value) noexcept;
  // A new single value with the text as given (no quoting, no comments);
  // ZYR_E_VALUE_EXISTS if the key is taken. The save path of the objects
  // whose texts are written raw.
  ZyrResult AddRawValue(const char16_t* key, const char16_t* text) noexcept;
  // The setter of the save path: quotes the text; an existing key gets the
  // new text and becomes single, keeping its comments (and its stale items,
  // which a single value ignores); a new key is made with no comments.
  ZyrResult SetValue(const char16_t* key, const char16_t* text) noexcept;
  // The text of "Type" if it is a single value; null if absent or a list.
  const ZyrBasString* GetType() const noexcept;
  // Same name, same comment, and pairwise equal keys and values.
  bool Equals(const ZyrCfgSection& other) const noexcept;
  ZyrCfgValueIterator Values() const noexcept { return ZyrCfgValueIterator(&values); }
  void ClearValues() noexcept { values.Clear(); }

  ZyrBasString name;     // exactly the text between the brackets
  ZyrBasString comment;  // lines before the header and behind it, joined by CR LF
  ZyrBasNameMap<ZyrCfgValueRef> values;
};

// How a file is read. A file read again because it changed may be caught
// in the middle of its saving: its last line, when no line end follows it,
// is then a line error (ZYR_E_INVALID_DATA) and not applied, and the end of
// the saving changes the file once more.
enum ZyrCfgReadKind : std::uint32_t {
  ZYR_CFG_READ_NAMED = 0,
  ZYR_CFG_READ_CHANGED = 1,
};

// One problem found by a read: the line and what was wrong with it.
struct ZyrCfgLineError {
  std::uint64_t line;
  ZyrResult result;
};

class ZyrCfgDocument {
 public:
  ZyrCfgDocument() noexcept = default;
  virtual ~ZyrCfgDocument() = default;
  ZyrCfgDocument(const ZyrCfgDocument&) = delete;
  ZyrCfgDocument& operator=(const ZyrCfgDocument&) = delete;

  // Byte-equal lookup; an empty handle when there is none.
  ZyrCfgSectionRef FindSection(const char16_t* name,
                               std::size_t length = ZYR_TERMINATED) const noexcept;
  // Inserts the shared section; ZYR_E_SECTION_EXISTS if the name is taken.
  ZyrResult AddSection(const ZyrCfgSectionRef& section) noexcept;
  // Inserts a new section with copies of the name, the comment and the map;
  // the value objects are shared with the source.
  ZyrResult AddSectionCopy(const ZyrCfgSection& source) noexcept;
  // ZYR_I_NOT_FOUND when there is no such section.
  ZyrResult RemoveSection(const char16_t* name, std::size_t length = ZYR_TERMINATED) noexcept;
  ZyrCfgSectionIterator Sections() const noexcept { return ZyrCfgSectionIterator(&sections); }

  // Reads configuration text line by line into this document, replacing
  // what it held. Bad lines land in lineErrors, with their number, and the
  // reading goes on. A failure of the text itself (a read error, running
  // out of memory anywhere) fails the load and leaves no section: a text
  // with lines missing is never taken for the whole.
  ZyrResult Load(ZyrTextStream& stream) noexcept;
  // Load from a file, whose encoding is told by its byte order mark; `how`
  // as for LoadOpened.
  ZyrResult LoadFile(const char16_t* path, std::uint32_t how = ZYR_CFG_READ_NAMED) noexcept;
  // Opens a configuration file for reading as LoadFile does: only a
  // regular file, opened without waiting (a folder gives
  // ZYR_E_ACCESS_DENIED, a FIFO or device ZYR_E_UNSUPPORTED_TYPE), and only
  // one that passes the trust rule of base/trust.h (ZYR_E_UNTRUSTED_FILE).
  // On failure the file is closed.
  static ZyrResult OpenFile(ZyrBasFile& file, const char16_t* path) noexcept;
  // Load from a file that the caller opened (OpenFile) and closes, from its
  // start, as LoadBytes does, reading at most kZyrCfgMaxFileBytes bytes.
  ZyrResult LoadOpened(ZyrBasFile& file, std::uint32_t how = ZYR_CFG_READ_NAMED) noexcept;
  // Load from bytes whose encoding is told by their byte order mark. A file
  // above kZyrCfgMaxFileBytes gives ZYR_E_SIZE_TOO_LARGE. A file whose size
  // or times differ after the read from before it changed meanwhile, and
  // is read again from its start; after three such reads,
  // ZYR_E_SHARING_VIOLATION. Every failure leaves no section.
  ZyrResult LoadBytes(ZyrCfgByteFile& file, std::uint32_t how = ZYR_CFG_READ_NAMED) noexcept;

  // Prints the document as configuration text: sections and values in
  // their byte order, an empty line between sections, comments as comment
  // lines. Texts go out as the values store them.
  ZyrResult WriteTo(ZyrTextStream& stream) const noexcept;
  // Creates or replaces the file and prints into it in UTF-16 little-endian
  // with its mark and CR LF line ends. `protect`: readable and writable by
  // every account. A failed write leaves the partial file behind.
  ZyrResult SaveFile(const char16_t* path, bool protect) const noexcept;

  ZyrBasNameMap<ZyrCfgSectionRef> sections;
  ZyrBasArray<ZyrCfgLineError> lineErrors;  // problems of the last read, by line
  // Working state of a read; meaningless outside one.
  std::uint64_t lineNumber = 0;
  ZyrBasString pendingComment;
  ZyrCfgSectionRef currentSection;
};

#endif
