// ZyrLogLayout: how an event becomes the text of one line, with an optional
// header and footer for a log file. Layouts belong to the manager; an
// appender points to one, and one layout may serve many appenders.
#ifndef ZYR_LAYOUT_LAYOUT_H
#define ZYR_LAYOUT_LAYOUT_H

#include <cstdint>

#include "base/array.h"
#include "base/memory.h"
#include "base/string.h"
#include "zyrlog/result.h"

struct ZyrLogEvent;
class ZyrCfgSection;

class ZyrLogLayout {
 public:
  // Replaces `text` by the line for the event.
  virtual ZyrResult FormatEvent(ZyrBasString& text, const ZyrLogEvent& event) = 0;
  virtual ZyrResult Configure(ZyrCfgSection& section) = 0;
  // Fills an empty section with what would configure this layout again.
  virtual ZyrResult Save(ZyrCfgSection& section) = 0;
  virtual void Destroy(std::uint32_t flags) = 0;
  // The base offers no header and no footer: the text stays untouched.
  virtual ZyrResult GetHeader(ZyrBasString& text);
  virtual ZyrResult GetFooter(ZyrBasString& text);
  // Whether a new log file starts with a byte order mark. Readers of lines
  // that a machine takes apart (JSON) refuse one.
  virtual bool MarksNewFile() const { return true; }

  const ZyrBasString& Name() const { return name_; }
  ZyrResult SetName(const char16_t* name) { return name_.Assign(name); }

 protected:
  ZyrLogLayout() = default;
  virtual ~ZyrLogLayout() = default;

 private:
  ZyrBasString name_;  // the section that made it; lookup ignores ASCII case
};

// The Standard line, with no state of its own.
class ZyrLogStandardLayout final : public ZyrLogLayout {
 public:
  ZyrResult FormatEvent(ZyrBasString& text, const ZyrLogEvent& event) override;
  ZyrResult Configure(ZyrCfgSection& section) override;
  ZyrResult Save(ZyrCfgSection& section) override;
  void Destroy(std::uint32_t flags) override;
};

// Factories made on the stack at the moment of need.
class ZyrLogLayoutCreator {
 public:
  virtual ~ZyrLogLayoutCreator() = default;
  virtual ZyrResult Create(ZyrLogLayout** layout, const char16_t* name) = 0;
};

// Allocates a layout of class T with its name; ZYR_E_OUT_OF_MEMORY and a
// null layout when that fails.
template <class T>
ZyrResult ZyrLogMakeLayout(ZyrLogLayout** layout, const char16_t* name) {
  *layout = nullptr;
  T* made = ZyrNew<T>();
  if (!made) return ZYR_E_OUT_OF_MEMORY;
  ZyrResult r = made->SetName(name);
  if (ZyrFailed(r)) {
    made->Destroy(1);
    return r;
  }
  *layout = made;
  return ZYR_OK;
}

class ZyrLogStandardLayoutCreator final : public ZyrLogLayoutCreator {
 public:
  ZyrResult Create(ZyrLogLayout** layout, const char16_t* name) override;
};

// A layout's own text (a format, a header, a list of fields) into a saved
// section: raw, as written, unless a ";" or a quote in it would be read
// back as a comment or as quoting; then quoted, which reads back to the
// same text.
ZyrResult ZyrLogSaveLayoutText(ZyrCfgSection& section, const char16_t* key, const ZyrBasString& text);

// The manager's layouts, in order of creation; owns them.
class ZyrLogLayoutList {
 public:
  ~ZyrLogLayoutList() { DestroyAll(); }
  // By name, ignoring ASCII case. A null name: ZYR_E_LAYOUT_NAME_MISSING.
  ZyrResult Find(const char16_t* name, ZyrLogLayout** layout);
  ZyrResult Add(ZyrLogLayout* layout) { return layouts_.Append(layout); }
  void DestroyAll();
  std::size_t Count() const { return layouts_.Count(); }
  ZyrLogLayout* At(std::size_t i) { return layouts_[i]; }

 private:
  ZyrBasArray<ZyrLogLayout*> layouts_;
};

#endif
