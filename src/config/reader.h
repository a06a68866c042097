// Configuration text: the line streams between a document and its text, and
// the scanner of the right-hand side of a value line.
//
// The format in brief: "[name]" opens a section, "key = value" adds a value,
// ";" starts a comment that is kept in the document. A value is a list of
// blank-separated tokens; a token may be quoted, and inside quotes \" stands
// for a quote. One token is a single value, two or more a list.
#ifndef ZYR_CONFIG_READER_H
#define ZYR_CONFIG_READER_H

#include <cstddef>
#include <cstdint>

#include "base/array.h"
#include "base/string.h"
#include "config/document.h"
#include "zyrlog/result.h"

// A line-oriented text stream. An operation a stream does not offer answers
// ZYR_E_NOT_SUPPORTED.
class ZyrTextStream {
 public:
  virtual ~ZyrTextStream() = default;
  // The next line without its line end: ZYR_OK or ZYR_I_SHORT_READ with a
  // line, a failure without one. ZYR_E_END_OF_DATA ends every text. One
  // failure is a line's own: ZYR_E_INVALID_DATA for a line that was read
  // but is no text (bytes that the encoding cannot convert, or a last line
  // cut short where whole lines are asked for); `line` then holds its bytes
  // widened one by one, so that the reader can tell where it belongs, and
  // the next call reads on behind it.
  virtual ZyrResult ReadLine(ZyrBasString* line) = 0;
  // WriteText, then one line end.
  virtual ZyrResult WriteLine(const char16_t* text, std::size_t length) = 0;
  // The text, with the stream's line end in place of each LF.
  virtual ZyrResult WriteText(const char16_t* text, std::size_t length) = 0;
};

// Reads lines out of a wide text that the caller keeps alive. Lines end at
// LF only; one CR in front of the LF, or at the very end, is dropped.
class ZyrStringReader : public ZyrTextStream {
 public:
  ZyrStringReader(const char16_t* text, std::size_t length = ZYR_TERMINATED) noexcept;
  // ZYR_I_SHORT_READ for the line that uses up the text.
  ZyrResult ReadLine(ZyrBasString* line) override;
  ZyrResult WriteLine(const char16_t*, std::size_t) override { return ZYR_E_NOT_SUPPORTED; }
  ZyrResult WriteText(const char16_t*, std::size_t) override { return ZYR_E_NOT_SUPPORTED; }

 private:
  const char16_t* text_;
  std::size_t length_;
  std::size_t position_ = 0;
};

// Appends to a caller's string: text as it is, lines with CR LF.
class ZyrStringWriter : public ZyrTextStream {
 public:
  explicit ZyrStringWriter(ZyrBasString* target) noexcept : target_(target) {}
  ZyrResult ReadLine(ZyrBasString*) override { return ZYR_E_NOT_SUPPORTED; }
  ZyrResult WriteLine(const char16_t* text, std::size_t length) override;
  ZyrResult WriteText(const char16_t* text, std::size_t length) override;

 private:
  ZyrBasString* target_;
};

// What shows that a file changed while it was read: its size and times.
struct ZyrCfgFileStamp {
  std::uint64_t size = 0;
  std::int64_t lastWrite = 0;
  std::int64_t change = 0;
  bool operator==(const ZyrCfgFileStamp&) const = default;
};

// The raw bytes under a file text stream.
class ZyrCfgByteFile {
 public:
  virtual ~ZyrCfgByteFile() = default;
  // Up to `count` bytes: ZYR_OK when all came, ZYR_I_SHORT_READ when fewer
  // did, ZYR_E_END_OF_DATA when none are left; `*got` tells how many.
  virtual ZyrResult Read(void* buffer, std::size_t count, std::size_t* got) = 0;
  // Writes all of the bytes or fails.
  virtual ZyrResult Write(const void* bytes, std::size_t count) = 0;
  // The size and times now. Bytes that cannot change answer with an
  // unchanging stamp, as here.
  virtual ZyrResult Stamp(ZyrCfgFileStamp* out) {
    *out = ZyrCfgFileStamp{};
    return ZYR_OK;
  }
  // Back to the first byte, to be read again.
  virtual ZyrResult Rewind() { return ZYR_E_NOT_SUPPORTED; }
};

class ZyrBasFile;

// The most bytes that a configuration file may have. Real configuration
// takes a few kilobytes; a file beyond this is taken for an accident or an
// attack (a device, a sparse file of gigabytes) and refused as a whole with
// ZYR_E_SIZE_TOO_LARGE, before it can take the memory of the process.
inline constexpr std::uint64_t kZyrCfgMaxFileBytes = std::uint64_t{4} << 20;

// A file of the base layer seen as a byte file: reads answer with the same
// codes (all, ZYR_I_SHORT_READ, ZYR_E_END_OF_DATA); a write that moves
// fewer bytes than asked fails with ZYR_E_WRITE_FAULT. Reading beyond
// `limit` bytes in all fails with ZYR_E_SIZE_TOO_LARGE, also for a file
// that grows while it is read.
class ZyrCfgFileBytes : public ZyrCfgByteFile {
 public:
  explicit ZyrCfgFileBytes(ZyrBasFile& file, std::uint64_t limit = ~std::uint64_t{0}) noexcept
      : file_(file), limit_(limit), left_(limit) {}
  ZyrResult Read(void* buffer, std::size_t count, std::size_t* got) override;
  ZyrResult Write(const void* bytes, std::size_t count) override;
  ZyrResult Stamp(ZyrCfgFileStamp* out) override;
  ZyrResult Rewind() override;

 private:
  ZyrBasFile& file_;
  std::uint64_t limit_;
  std::uint64_t left_;  // bytes that reads may still give
};

// A byte file in memory: reads from a caller's bytes, collects what is
// written. Serves tests and any text that is already in memory.
class ZyrCfgMemoryFile : public ZyrCfgByteFile {
 public:
  ZyrCfgMemoryFile() noexcept = default;
  ZyrCfgMemoryFile(const void* bytes, std::size_t size) noexcept
      : data_(static_cast<const std::uint8_t*>(bytes)), size_(size) {}
  ZyrResult Read(void* buffer, std::size_t count, std::size_t* got) override;
  ZyrResult Write(const void* bytes, std::size_t count) override;
  ZyrResult Rewind() override {
    position_ = 0;
    return ZYR_OK;
  }
  // Caps every read at this many bytes, to try the stream's refill logic.
  void LimitReads(std::size_t most) noexcept { readLimit_ = most; }
  const ZyrBasArray<std::uint8_t>& Written() const noexcept { return written_; }

 private:
  const std::uint8_t* data_ = nullptr;
  std::size_t size_ = 0;
  std::size_t position_ = 0;
  std::size_t readLimit_ = static_cast<std::size_t>(-1);
  ZyrBasArray<std::uint8_t> written_;
};

enum ZyrCfgEncoding : std::uint32_t {
  ZYR_CFG_ENC_UNKNOWN = 0,
  ZYR_CFG_ENC_ANSI = 1,
  ZYR_CFG_ENC_UTF16LE = 2,
  ZYR_CFG_ENC_UTF16BE = 3,
  ZYR_CFG_ENC_UTF8 = 4,
};

enum ZyrCfgLineEnd : std::uint32_t {
  ZYR_CFG_EOL_UNKNOWN = 0,
  ZYR_CFG_EOL_CRLF = 1,
  ZYR_CFG_EOL_LF = 2,
  ZYR_CFG_EOL_CR = 3,
};

// Encoded text in a byte file. Reading finds the encoding by the byte order
// mark on the first line and accepts CR LF, LF and CR mixed; writing encodes
// each piece straight to the file. The stream closes nothing: the file
// belongs to the caller.
class ZyrFileTextStream : public ZyrTextStream {
 public:
  static constexpr std::size_t kChunkSize = 4096;

  // A chunk size below 8 bytes is raised to 8, room for the look-ahead of
  // two UTF-16 units with some bytes kept.
  explicit ZyrFileTextStream(ZyrCfgByteFile* file, std::uint32_t encoding = ZYR_CFG_ENC_UNKNOWN,
                             std::uint32_t lineEnd = ZYR_CFG_EOL_UNKNOWN,
                             std::size_t chunkSize = kChunkSize) noexcept;
  ~ZyrFileTextStream() override;
  ZyrFileTextStream(const ZyrFileTextStream&) = delete;
  ZyrFileTextStream& operator=(const ZyrFileTextStream&) = delete;
  ZyrResult ReadLine(ZyrBasString* line) override;
  ZyrResult WriteLine(const char16_t* text, std::size_t length) override;
  ZyrResult WriteText(const char16_t* text, std::size_t length) override;
  // The byte order mark of the encoding; none for ANSI.
  ZyrResult WriteMark();
  // Whole lines only: a last line without a line end is a write still in
  // progress (a file read while it is being saved), and is answered with
  // ZYR_E_INVALID_DATA instead of being delivered.
  void WholeLinesOnly(bool on) noexcept { wholeLinesOnly = on; }

  std::uint32_t Encoding() const noexcept { return encoding; }
  std::uint32_t LineEnd() const noexcept { return lineEnd; }

 private:
  ZyrResult Refill();
  ZyrResult DetectMark();
  ZyrResult Decode(ZyrBasString* line);
  ZyrResult Widened(ZyrBasString* line);
  ZyrResult WriteEncoded(const char16_t* text, std::size_t length);

  ZyrCfgByteFile* file;
  std::uint32_t encoding;
  std::uint32_t lineEnd;
  std::uint8_t* buffer = nullptr;  // one chunk, reused for the whole file
  std::uint64_t chunkSize;
  std::uint64_t readPosition = 0;
  std::uint64_t dataEnd = 0;
  bool markChecked = false;
  bool endOfFile = false;           // the file has nothing more to give
  bool wholeLinesOnly = false;
  ZyrBasArray<std::uint8_t> lineBytes;  // the line being collected, still encoded
};

// What the scanner makes of the right-hand side of a value line.
struct ZyrCfgScannedValue {
  std::uint32_t kind = ZYR_CFG_SINGLE;
  ZyrBasString text;
  ZyrBasString lineComment;
  ZyrBasArray<ZyrBasString> items;
};

// Scans the text behind the "=" of a value line. ZYR_E_CFG_BAD_VALUE_LINE
// for an unterminated quote or for anything but a blank or a comment behind
// a closing quote.
ZyrResult ZyrCfgScanValue(const char16_t* text, std::size_t length,
                          ZyrCfgScannedValue* out) noexcept;

#endif
