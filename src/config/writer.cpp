// The configuration writer: a document printed as configuration text, to
// any text stream or to a file of its own.
//
// Writer and reader do not meet for three kinds of value; this is what the
// library does with each, so that what it writes reads back to the same
// configuration:
// - A text that ends in a backslash: quoted, the reader would take the last
//   backslash and the closing quote as an escaped quote. Such a text is
//   written unquoted when nothing else in it needs quotes (a blank, TAB,
//   ";" or quote), which reads back whole ("C:\dir\" stays C:\dir\). When
//   something else does, no spelling reads back, and the value is refused
//   with ZYR_E_CFG_BAD_VALUE_LINE (ZyrCfgQuote).
// - A text with a line break inside: it would end the line. The Custom
//   layout writes a line feed of its format as the two characters "\n",
//   which it reads back as a line feed; any other value or line comment
//   with a CR or LF is refused here with ZYR_E_CFG_BAD_VALUE_LINE, and the
//   walk ends.
// - A raw text with a ";" or a quote (a Format, Header or Footer): read
//   back, the ";" would start a comment and a quote would be taken as
//   quoting. The Custom layout quotes such a text when it saves it, so that
//   it reads back as one value with the same text.
#include "base/file.h"
#include "config/document.h"
#include "config/reader.h"

namespace {

bool HasLineBreak(const ZyrBasString& text) noexcept {
  for (std::size_t i = 0; i < text.Length(); ++i)
    if (text[i] == u'\r' || text[i] == u'\n') return true;
  return false;
}

// ";" and the piece, or an empty line for an empty piece.
ZyrResult WriteCommentLine(ZyrTextStream& stream, const char16_t* piece, std::size_t length) {
  if (length == 0) return stream.WriteLine(u"", 0);
  ZyrBasString line;
  ZyrResult r = line.Reserve(length + 1);
  if (ZyrSucceeded(r)) r = line.Append(u';');
  if (ZyrSucceeded(r)) r = line.Append(piece, length);
  if (ZyrSucceeded(r)) r = stream.WriteLine(line.Text(), line.Length());
  return r;
}

// The reverse of the reader's comment: one line for each piece in front of
// a CR LF, and the piece behind the last one unless it is empty.
ZyrResult WriteComment(ZyrTextStream& stream, const ZyrBasString& comment) {
  const char16_t* text = comment.Text();
  const std::size_t n = comment.Length();
  std::size_t start = 0;
  for (std::size_t i = 0; i + 1 < n; ++i) {
    if (text[i] != u'\r' || text[i + 1] != u'\n') continue;
    ZyrResult r = WriteCommentLine(stream, text + start, i - start);
    if (ZyrFailed(r)) return r;
    start = i + 2;
    ++i;
  }
  if (start < n) return WriteCommentLine(stream, text + start, n - start);
  return ZYR_OK;
}

ZyrResult WriteValue(ZyrTextStream& stream, const ZyrCfgValue& value) {
  if (HasLineBreak(value.text) || HasLineBreak(value.lineComment)) return ZYR_E_CFG_BAD_VALUE_LINE;
  if (!value.leadingComment.Empty()) {
    ZyrResult r = WriteComment(stream, value.leadingComment);
    if (ZyrFailed(r)) return r;
  }
  ZyrBasString line;
  ZyrResult r = line.Reserve(value.name.Length() + value.text.Length() + value.lineComment.Length() + 5);
  if (ZyrSucceeded(r)) r = line.Append(value.name);
  if (ZyrSucceeded(r)) r = line.Append(u" = ", 3);
  if (ZyrSucceeded(r)) r = line.Append(value.text);
  if (ZyrSucceeded(r) && !value.lineComment.Empty()) {
    r = line.Append(u" ;", 2);
    if (ZyrSucceeded(r)) r = line.Append(value.lineComment);
  }
  if (ZyrSucceeded(r)) r = stream.WriteLine(line.Text(), line.Length());
  return r;
}

ZyrResult WriteSection(ZyrTextStream& stream, const ZyrCfgSection& section) {
  if (!section.comment.Empty()) {
    ZyrResult r = WriteComment(stream, section.comment);
    if (ZyrFailed(r)) return r;
  }
  ZyrBasString header;
  ZyrResult r = header.Reserve(section.name.Length() + 2);
  if (ZyrSucceeded(r)) r = header.Append(u'[');
  if (ZyrSucceeded(r)) r = header.Append(section.name);
  if (ZyrSucceeded(r)) r = header.Append(u']');
  if (ZyrSucceeded(r)) r = stream.WriteLine(header.Text(), header.Length());
  for (std::size_t i = 0; i < section.values.Count() && ZyrSucceeded(r); ++i)
    r = WriteValue(stream, *section.values.At(i).value);
  return r;
}

}  // namespace

ZyrResult ZyrCfgDocument::WriteTo(ZyrTextStream& stream) const noexcept {
  for (std::size_t i = 0; i < sections.Count(); ++i) {
    if (i) {
      ZyrResult r = stream.WriteLine(u"", 0);
      if (ZyrFailed(r)) return r;
    }
    ZyrResult r = WriteSection(stream, *sections.At(i).value);
    if (ZyrFailed(r)) return r;
  }
  return ZYR_OK;
}

ZyrResult ZyrCfgDocument::SaveFile(const char16_t* path, bool protect) const noexcept {
  if (!path || !*path) return ZYR_E_INVALID_ARGUMENT;
  // A protected file is one that processes of every account may read: on
  // this system its mode 0644, set when it is made. Not writable by them:
  // configuration that other accounts may write is never read (base/trust.h).
  // An existing file is replaced and keeps the mode it had.
  ZyrBasFile file;
  ZyrResult r = file.Open(path, ZYR_FILE_CREATE_ALWAYS, ZYR_FILE_WRITE, 0,
                          protect ? ZYR_FILE_READABLE_BY_ALL : 0);
  if (ZyrFailed(r)) return r;
  ZyrCfgFileBytes bytes(file);
  ZyrFileTextStream stream(&bytes, ZYR_CFG_ENC_UTF16LE, ZYR_CFG_EOL_CRLF);
  r = stream.WriteMark();
  if (ZyrSucceeded(r)) r = WriteTo(stream);
  if (ZyrSucceeded(r)) r = file.Flush();
  (void)file.Close();  // a failed close changes nothing of what was written
  return r;
}
