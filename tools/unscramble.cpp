// zyrlog-unscramble: for support staff. Reads log files (or standard input)
// and writes them to standard output with every scrambled message token
// replaced by its text. Lines pass through unchanged otherwise, line ends
// included; UTF-16 files are written out as UTF-8.
//
//   zyrlog-unscramble common.log common.log.1 > readable.log
//   grep ERROR common.log | zyrlog-unscramble
//
// A token is "a" and base64 standing alone (after a blank, ":" or "|", up
// to a blank or the line end) whose block decodes with one of this build's
// keys to the marker "a" and valid UTF-8. Tokens of another build's keys do
// not decode and stay as they are. Exit status 0, 2 if a file cannot be read.
#include <cstdint>
#include <cstdio>
#include <fstream>
#include <iostream>
#include <sstream>
#include <string>
#include <vector>

#include "base/textconv.h"
#include "records/scramble.h"

namespace {

int Base64Value(char c) {
  if (c >= 'A' && c <= 'Z') return c - 'A';
  if (c >= 'a' && c <= 'z') return c - 'a' + 26;
  if (c >= '0' && c <= '9') return c - '0' + 52;
  if (c == '+') return 62;
  if (c == '/') return 63;
  return -1;
}

bool Base64Decode(const std::string& text, std::vector<std::uint8_t>* out) {
  if (text.empty() || text.size() % 4 != 0) return false;
  for (std::size_t i = 0; i < text.size(); i += 4) {
    int v[4];
    int pad = 0;
    for (int k = 0; k < 4; ++k) {
      char c = text[i + k];
      if (c == '=' && i + 4 == text.size() && k >= 2) {
        v[k] = 0;
        ++pad;
      } else if (pad || (v[k] = Base64Value(c)) < 0) {
        return false;
      }
    }
    std::uint32_t n = (v[0] << 18) | (v[1] << 12) | (v[2] << 6) | v[3];
    if ((pad == 1 && (n & 0xff)) || (pad == 2 && (n & 0xffff))) return false;  // not canonical
    out->push_back(static_cast<std::uint8_t>(n >> 16));
    if (pad < 2) out->push_back(static_cast<std::uint8_t>(n >> 8));
    if (pad < 1) out->push_back(static_cast<std::uint8_t>(n));
  }
  return true;
}

bool ValidUtf8(const std::uint8_t* p, std::size_t n) {
  for (std::size_t i = 0; i < n;) {
    std::uint8_t c = p[i];
    std::size_t extra = c < 0x80 ? 0 : (c & 0xe0) == 0xc0 ? 1 : (c & 0xf0) == 0xe0 ? 2 : (c & 0xf8) == 0xf0 ? 3 : 9;
    if (extra == 9 || i + extra >= n + (extra == 0)) return false;
    for (std::size_t k = 1; k <= extra; ++k)
      if ((p[i + k] & 0xc0) != 0x80) return false;
    i += extra + 1;
  }
  return true;
}

// The text of a token ("a" + base64), or false if it is none.
bool Unscramble(const std::string& token, std::string* text) {
  std::vector<std::uint8_t> block;
  if (token.size() < 5 || token[0] != 'a' || !Base64Decode(token.substr(1), &block)) return false;
  if (block.size() < 2 || block[0] >= 16) return false;
  ZyrLogXorWithKey(block.data() + 1, block.size() - 1, kZyrScrambleKeys[block[0]], 64);
  if (block[1] != 'a' || !ValidUtf8(block.data() + 2, block.size() - 2)) return false;
  text->assign(reinterpret_cast<const char*>(block.data() + 2), block.size() - 2);
  return true;
}

bool IsBase64Char(char c) { return Base64Value(c) >= 0 || c == '='; }

std::string Line(const std::string& line) {
  std::string out;
  std::size_t i = 0;
  while (i < line.size()) {
    bool boundary = i == 0 || line[i - 1] == ' ' || line[i - 1] == ':' || line[i - 1] == '|' || line[i - 1] == '\t';
    if (line[i] == 'a' && boundary) {
      std::size_t end = i + 1;
      while (end < line.size() && IsBase64Char(line[end])) ++end;
      bool closed = end == line.size() || line[end] == ' ' || line[end] == '\r' || line[end] == '\t';
      std::string text;
      if (closed && Unscramble(line.substr(i, end - i), &text)) {
        out += text;
        i = end;
        continue;
      }
    }
    out += line[i++];
  }
  return out;
}

std::string FromUtf16(const std::string& bytes) {
  std::u16string text;
  for (std::size_t i = 2; i + 1 < bytes.size(); i += 2)
    text += static_cast<char16_t>(static_cast<std::uint8_t>(bytes[i]) |
                                  (static_cast<std::uint8_t>(bytes[i + 1]) << 8));
  ZyrBasArray<char> utf8;
  if (ZyrFailed(ZyrBasEncodeUtf8(utf8, text.data(), text.size()))) return bytes;
  return std::string(utf8.begin(), utf8.end());
}

void Convert(std::istream& in) {
  std::stringstream all;
  all << in.rdbuf();
  std::string bytes = all.str();
  if (bytes.compare(0, 2, "\xFF\xFE") == 0) bytes = FromUtf16(bytes);
  std::size_t start = 0;
  while (start < bytes.size()) {
    std::size_t end = bytes.find('\n', start);
    end = end == std::string::npos ? bytes.size() : end + 1;
    std::string line = bytes.substr(start, end - start);
    std::string ending;
    while (!line.empty() && (line.back() == '\n' || line.back() == '\r')) {
      ending.insert(0, 1, line.back());
      line.pop_back();
    }
    std::cout << Line(line) << ending;
    start = end;
  }
}

}  // namespace

int main(int argc, char** argv) {
  if (argc == 2 && (std::string(argv[1]) == "-h" || std::string(argv[1]) == "--help")) {
    std::printf("usage: zyrlog-unscramble [FILE...]\n"
                "Writes the files (or standard input) with scrambled messages as text.\n");
    return 0;
  }
  if (argc == 1) {
    Convert(std::cin);
    return 0;
  }
  int status = 0;
  for (int i = 1; i < argc; ++i) {
    std::ifstream in(argv[i], std::ios::binary);
    if (!in) {
      std::fprintf(stderr, "zyrlog-unscramble: cannot read %s\n", argv[i]);
      status = 2;
      continue;
    }
    Convert(in);
  }
  return status;
}
