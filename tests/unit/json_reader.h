// A strict JSON reader for tests: one value, the grammar of RFC 8259 and
// nothing more (no raw control characters, no lone surrogate escapes, no
// invalid UTF-8, no key twice in one object), so that a line it accepts is
// one that every JSON reader accepts.
#ifndef ZYR_TESTS_JSON_READER_H
#define ZYR_TESTS_JSON_READER_H

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace zyrtest {

inline void AppendUtf8(std::string* out, std::uint32_t c) {
  if (c < 0x80) {
    out->push_back(static_cast<char>(c));
  } else if (c < 0x800) {
    out->push_back(static_cast<char>(0xc0 | c >> 6));
    out->push_back(static_cast<char>(0x80 | (c & 0x3f)));
  } else if (c < 0x10000) {
    out->push_back(static_cast<char>(0xe0 | c >> 12));
    out->push_back(static_cast<char>(0x80 | (c >> 6 & 0x3f)));
    out->push_back(static_cast<char>(0x80 | (c & 0x3f)));
  } else {
    out->push_back(static_cast<char>(0xf0 | c >> 18));
    out->push_back(static_cast<char>(0x80 | (c >> 12 & 0x3f)));
    out->push_back(static_cast<char>(0x80 | (c >> 6 & 0x3f)));
    out->push_back(static_cast<char>(0x80 | (c & 0x3f)));
  }
}

// UTF-16 to UTF-8, a lone surrogate as the text "\uDxxx": what a reader of
// a Json line finds in a string that held it.
inline std::string Utf8(const std::u16string& s) {
  std::string out;
  for (std::size_t i = 0; i < s.size(); ++i) {
    std::uint32_t c = s[i];
    bool high = c >= 0xd800 && c <= 0xdbff, low = c >= 0xdc00 && c <= 0xdfff;
    if (high && i + 1 < s.size() && s[i + 1] >= 0xdc00 && s[i + 1] <= 0xdfff) {
      c = 0x10000 + ((c - 0xd800) << 10) + (s[++i] - 0xdc00);
    } else if (high || low) {
      static const char kHex[] = "0123456789ABCDEF";
      out += "\\u";
      for (int shift = 12; shift >= 0; shift -= 4) out += kHex[c >> shift & 15];
      continue;
    }
    AppendUtf8(&out, c);
  }
  return out;
}

struct Json {
  enum Kind { kNull, kBool, kNumber, kString, kArray, kObject } kind = kNull;
  bool boolean = false;
  std::string text;  // a number as written, a string decoded to UTF-8
  std::vector<Json> items;
  std::vector<std::pair<std::string, Json>> members;

  const Json* Get(const std::string& key) const {
    for (const auto& [name, value] : members)
      if (name == key) return &value;
    return nullptr;
  }
};

class JsonReader {
 public:
  // Exactly one value, with blanks (space, TAB, CR, LF) around it allowed.
  static bool Parse(const std::string& text, Json* out, std::string* error) {
    JsonReader r(text);
    bool ok = r.Blanks() && r.Value(out, 0) && r.Blanks() && (r.at_ == text.size() || r.Fail("text behind the value"));
    if (!ok && error) *error = r.error_ + " at byte " + std::to_string(r.at_);
    return ok;
  }

 private:
  explicit JsonReader(const std::string& text) : t_(text) {}

  bool Fail(const std::string& why) {
    if (error_.empty()) error_ = why;
    return false;
  }
  bool Blanks() {
    while (at_ < t_.size() && (t_[at_] == ' ' || t_[at_] == '\t' || t_[at_] == '\r' || t_[at_] == '\n')) ++at_;
    return true;
  }
  bool Literal(const char* word) {
    std::string w(word);
    if (t_.compare(at_, w.size(), w) != 0) return Fail("unknown literal");
    at_ += w.size();
    return true;
  }
  bool Value(Json* v, int depth) {
    if (depth > 64) return Fail("nested too deep");
    if (at_ >= t_.size()) return Fail("value missing");
    char c = t_[at_];
    if (c == '{') return Object(v, depth);
    if (c == '[') return Array(v, depth);
    if (c == '"') return v->kind = Json::kString, String(&v->text);
    if (c == 't') return v->kind = Json::kBool, v->boolean = true, Literal("true");
    if (c == 'f') return v->kind = Json::kBool, v->boolean = false, Literal("false");
    if (c == 'n') return v->kind = Json::kNull, Literal("null");
    return v->kind = Json::kNumber, Number(&v->text);
  }
  bool Object(Json* v, int depth) {
    v->kind = Json::kObject;
    ++at_;
    Blanks();
    if (at_ < t_.size() && t_[at_] == '}') return ++at_, true;
    for (;;) {
      std::string key;
      Blanks();
      if (at_ >= t_.size() || t_[at_] != '"') return Fail("key expected");
      if (!String(&key)) return false;
      if (v->Get(key)) return Fail("key twice: " + key);
      Blanks();
      if (at_ >= t_.size() || t_[at_++] != ':') return Fail("':' expected");
      Blanks();
      Json member;
      if (!Value(&member, depth + 1)) return false;
      v->members.emplace_back(key, std::move(member));
      Blanks();
      if (at_ < t_.size() && t_[at_] == ',') {
        ++at_;
        continue;
      }
      if (at_ < t_.size() && t_[at_] == '}') return ++at_, true;
      return Fail("',' or '}' expected");
    }
  }
  bool Array(Json* v, int depth) {
    v->kind = Json::kArray;
    ++at_;
    Blanks();
    if (at_ < t_.size() && t_[at_] == ']') return ++at_, true;
    for (;;) {
      Blanks();
      Json item;
      if (!Value(&item, depth + 1)) return false;
      v->items.push_back(std::move(item));
      Blanks();
      if (at_ < t_.size() && t_[at_] == ',') {
        ++at_;
        continue;
      }
      if (at_ < t_.size() && t_[at_] == ']') return ++at_, true;
      return Fail("',' or ']' expected");
    }
  }
  bool Digits() {
    std::size_t start = at_;
    while (at_ < t_.size() && t_[at_] >= '0' && t_[at_] <= '9') ++at_;
    return at_ > start || Fail("digit expected");
  }
  bool Number(std::string* out) {
    std::size_t start = at_;
    if (t_[at_] == '-') ++at_;
    if (at_ < t_.size() && t_[at_] == '0') {
      ++at_;
    } else if (!Digits()) {
      return false;
    }
    if (at_ < t_.size() && t_[at_] == '.') {
      ++at_;
      if (!Digits()) return false;
    }
    if (at_ < t_.size() && (t_[at_] == 'e' || t_[at_] == 'E')) {
      ++at_;
      if (at_ < t_.size() && (t_[at_] == '+' || t_[at_] == '-')) ++at_;
      if (!Digits()) return false;
    }
    *out = t_.substr(start, at_ - start);
    return true;
  }
  bool Hex4(std::uint32_t* value) {
    if (t_.size() - at_ < 4) return Fail("short \\u escape");
    *value = 0;
    for (int i = 0; i < 4; ++i) {
      char c = t_[at_++];
      int d = c >= '0' && c <= '9' ? c - '0' : c >= 'a' && c <= 'f' ? c - 'a' + 10 : c >= 'A' && c <= 'F' ? c - 'A' + 10 : -1;
      if (d < 0) return Fail("bad \\u escape");
      *value = *value << 4 | static_cast<std::uint32_t>(d);
    }
    return true;
  }
  // One UTF-8 sequence, checked: shortest form, no surrogates, at most U+10FFFF.
  bool Utf8(std::string* out) {
    unsigned char c = static_cast<unsigned char>(t_[at_]);
    int more = c >= 0xf0 && c < 0xf5 ? 3 : c >= 0xe0 ? 2 : c >= 0xc2 && c < 0xe0 ? 1 : -1;
    if (c >= 0xf5 || more < 0 || t_.size() - at_ <= static_cast<std::size_t>(more)) return Fail("invalid UTF-8");
    std::uint32_t code = c & (0x3f >> more);
    for (int i = 1; i <= more; ++i) {
      unsigned char k = static_cast<unsigned char>(t_[at_ + i]);
      if ((k & 0xc0) != 0x80) return Fail("invalid UTF-8");
      code = code << 6 | (k & 0x3f);
    }
    static const std::uint32_t kLeast[] = {0, 0x80, 0x800, 0x10000};
    if (code < kLeast[more] || (code >= 0xd800 && code <= 0xdfff) || code > 0x10ffff) return Fail("invalid UTF-8");
    out->append(t_, at_, static_cast<std::size_t>(more) + 1);
    at_ += static_cast<std::size_t>(more) + 1;
    return true;
  }
  bool String(std::string* out) {
    ++at_;
    for (;;) {
      if (at_ >= t_.size()) return Fail("unterminated string");
      unsigned char c = static_cast<unsigned char>(t_[at_]);
      if (c == '"') return ++at_, true;
      if (c < 0x20) return Fail("raw control character in a string");
      if (c >= 0x80) {
        if (!Utf8(out)) return false;
        continue;
      }
      ++at_;
      if (c != '\\') {
        out->push_back(static_cast<char>(c));
        continue;
      }
      if (at_ >= t_.size()) return Fail("unterminated escape");
      char e = t_[at_++];
      switch (e) {
        case '"': case '\\': case '/': out->push_back(e); break;
        case 'b': out->push_back('\b'); break;
        case 'f': out->push_back('\f'); break;
        case 'n': out->push_back('\n'); break;
        case 'r': out->push_back('\r'); break;
        case 't': out->push_back('\t'); break;
        case 'u': {
          std::uint32_t code;
          if (!Hex4(&code)) return false;
          if (code >= 0xdc00 && code <= 0xdfff) return Fail("lone low surrogate escape");
          if (code >= 0xd800 && code <= 0xdbff) {
            std::uint32_t low;
            if (t_.compare(at_, 2, "\\u") != 0) return Fail("lone high surrogate escape");
            at_ += 2;
            if (!Hex4(&low)) return false;
            if (low < 0xdc00 || low > 0xdfff) return Fail("lone high surrogate escape");
            code = 0x10000 + ((code - 0xd800) << 10) + (low - 0xdc00);
          }
          AppendUtf8(out, code);
          break;
        }
        default: return Fail("unknown escape");
      }
    }
  }

  const std::string& t_;
  std::size_t at_ = 0;
  std::string error_;
};

}  // namespace zyrtest

#endif
