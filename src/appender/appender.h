// ZyrLogAppender: a named output. The base owns the lock, the open state,
// the severity filter and the link to a layout, and drives the order of
// open, header, line, footer and close; a subclass only opens, writes and
// closes its target. The registry owns all appenders of the manager.
#ifndef ZYR_APPENDER_APPENDER_H
#define ZYR_APPENDER_APPENDER_H

#include <cstdint>

#include "base/array.h"
#include "base/lock.h"
#include "base/string.h"
#include "zyrlog/zyrlog.h"

struct ZyrLogEvent;
class ZyrLogLayout;
class ZyrCfgSection;

// What an appender may tell the engine that owns it, and nothing more: the
// appenders know no other part of the engine.
class ZyrLogAppenderOwner {
 public:
  // A rolling appender has moved its live file aside to `path`; the owner
  // may ask the file system to compress it. Never waits; the answer does
  // not change the rollover.
  virtual ZyrResult ReportRolledFile(const char16_t* path) = 0;

 protected:
  ~ZyrLogAppenderOwner() = default;
};

class ZyrLogAppender {
 public:
  virtual ~ZyrLogAppender();
  // Writes one piece of text (a line, a header, a footer) to the target.
  virtual ZyrResult WriteText(const char16_t* text, std::size_t length);
  // The write of a formatted line; rolling appenders roll around it.
  virtual ZyrResult Append(ZyrLogEvent& event, const char16_t* text, std::size_t length);
  virtual ZyrResult OpenTarget();
  virtual ZyrResult CloseTarget();
  // Back to closed; the next event that passes opens again.
  virtual ZyrResult Release();
  virtual ZyrResult Truncate();
  // Reads BreakSeverity; subclasses read their own keys first.
  virtual ZyrResult Configure(ZyrCfgSection& section);
  // Subclasses add their keys first and call the base last.
  virtual ZyrResult WriteConfig(ZyrCfgSection& section);
  // The end of the draining thread's batch (appender/batch.h), under the
  // lock: writes the lines held back. Returns the lines that reached no
  // target then, with the failure in *failure. An appender that holds
  // nothing back has nothing to do.
  virtual std::uint64_t EndBatch(ZyrResult* failure);

  ZyrResult Init(const char16_t* name, ZyrLogAppenderOwner* owner);
  // The entry from a logger: filter, format, open if needed, write.
  ZyrResult DoAppend(ZyrLogEvent& event);
  ZyrResult AppendFormatted(ZyrLogEvent& event, const char16_t* text, std::size_t length);
  ZyrResult Open();
  ZyrResult Close();
  ZyrResult WriteFramingText(const ZyrBasString& text);
  // Under the lock: close, then configure, also when the close fails.
  ZyrResult Reconfigure(ZyrCfgSection& section);

  ZyrBasCriticalSection& Lock() { return lock_; }
  const ZyrBasString& Name() const { return name_; }
  ZyrLogLayout* Layout() const { return layout_; }
  void SetLayout(ZyrLogLayout* layout) { layout_ = layout; }
  // Whether a new file of this appender starts with a byte order mark: not
  // when the layout's lines are read by a machine that refuses one.
  bool LayoutMarksNewFile() const;
  bool IsOpened() const { return opened_ != 0; }
  ZyrLogSeverity BreakSeverity() const { return breakSeverity_; }
  ZyrLogAppenderOwner* Owner() const { return owner_; }

 protected:
  ZyrLogAppender() = default;

 private:
  ZyrResult AppendFormattedLocked(ZyrLogEvent& event, const char16_t* text, std::size_t length);

  std::uint8_t opened_ = 0;
  ZyrBasCriticalSection lock_;
  ZyrLogLayout* layout_ = nullptr;
  ZyrBasString name_;
  ZyrLogSeverity breakSeverity_ = ZYR_SEVERITY_ALL;
  ZyrLogAppenderOwner* owner_ = nullptr;
  // The formatted line, kept from event to event so that an ordinary line
  // needs no allocation; used only under the lock.
  ZyrBasString line_;
  std::uint8_t closing_ = 0;  // a footer's write must not start a second close
};

// Makes the appender class that an AppenderType names.
class ZyrLogAppenderCreator {
 public:
  virtual ~ZyrLogAppenderCreator() = default;
  virtual ZyrResult Create(ZyrLogAppender** appender, ZyrLogAppenderOwner* owner,
                           const char16_t* name) = 0;
};

// The creator for an AppenderType value (exact comparison), carrying the
// log folder for the file-based classes. ZYR_E_APPENDER_NOT_FOUND for a
// value outside the table.
ZyrResult ZyrLogMakeAppender(const ZyrBasString& appenderType, const ZyrBasString& logFolder,
                             ZyrLogAppenderOwner* owner, const char16_t* name,
                             ZyrLogAppender** appender);

// The manager's appenders by exact name; owns them.
class ZyrLogAppenderRegistry {
 public:
  ~ZyrLogAppenderRegistry() { CloseAndDestroyAll(); }
  ZyrResult Find(const char16_t* name, std::size_t length, ZyrLogAppender** appender);
  ZyrResult Insert(ZyrLogAppender* appender);
  // Closes every appender (with its footer), then destroys them all.
  void CloseAndDestroyAll();
  ZyrBasNameMap<ZyrLogAppender*>& Map() { return map_; }

 private:
  ZyrBasNameMap<ZyrLogAppender*> map_;
};

#endif
