// Appenders without a file: the console, and Null, which accepts everything
// and writes nothing (a logger can hold it to stop additive output).
#ifndef ZYR_APPENDER_CONSOLE_APPENDER_H
#define ZYR_APPENDER_CONSOLE_APPENDER_H

#include "appender/appender.h"
#include "base/array.h"
#include "base/console.h"

class ZyrLogConsoleAppender final : public ZyrLogAppender {
 public:
  // A line is the text and a lone LF, in the console code page.
  ZyrResult WriteText(const char16_t* text, std::size_t length) override;
  ZyrResult Configure(ZyrCfgSection& section) override;
  ZyrResult WriteConfig(ZyrCfgSection& section) override;

  ZyrBasConsoleTarget Target() const { return target_; }

 private:
  ZyrBasConsoleTarget target_ = ZYR_CONSOLE_STDOUT;
  std::uint8_t ready_ = 0;  // set by Configure; writing needs it
  ZyrBasArray<char> encoded_;
};

class ZyrLogNullAppender final : public ZyrLogAppender {
 public:
  ZyrResult Configure(ZyrCfgSection& section) override;
  ZyrResult WriteConfig(ZyrCfgSection& section) override;
};

#endif
