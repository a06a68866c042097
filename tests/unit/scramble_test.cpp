#include <gtest/gtest.h>

#include <set>
#include <string>
#include <vector>

#include "records/event.h"
#include "records/scramble.h"

namespace {

std::vector<std::uint8_t> Base64Decode(const std::u16string& text) {
  static const std::string alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::vector<std::uint8_t> out;
  std::uint32_t bits = 0;
  int count = 0;
  for (char16_t c : text) {
    if (c == u'=') break;
    bits = (bits << 6) | static_cast<std::uint32_t>(alphabet.find(static_cast<char>(c)));
    count += 6;
    if (count >= 8) {
      count -= 8;
      out.push_back(static_cast<std::uint8_t>(bits >> count));
    }
  }
  return out;
}

// Reverses a token with the key table: the index byte, the marker, the UTF-8 text.
std::string Unscramble(const std::u16string& token) {
  EXPECT_EQ(token[0], u'a');
  std::vector<std::uint8_t> block = Base64Decode(token.substr(1));
  ZyrLogXorWithKey(block.data() + 1, block.size() - 1, kZyrScrambleKeys[block[0]], 64);
  EXPECT_EQ(block[1], 'a');
  return std::string(block.begin() + 2, block.end());
}

std::u16string Token(const std::u16string& text, unsigned key) {
  ZyrBasString out;
  EXPECT_EQ(ZyrLogScrambleTextWithKey(out, text.c_str(), text.size(), key), ZYR_OK);
  return std::u16string(out.Text(), out.Length());
}

}  // namespace

TEST(Scramble, TokenShapeUtf8WidthsAndKeyWrap) {
  std::u16string x = Token(u"x", 3);
  EXPECT_EQ(x.size(), 5u);  // "a" + 4 characters for 3 bytes, no padding
  EXPECT_EQ(Unscramble(x), "x");
  std::u16string four = Token(u"xy", 0), five = Token(u"xyz", 0);  // 4 and 5 bytes
  EXPECT_EQ(four.substr(7), u"==");
  EXPECT_EQ(five.substr(8), u"=");
  EXPECT_NE(five[7], u'=');
  EXPECT_EQ(Unscramble(Token(u"\u00e9\u20ac\U0001F600", 5)), "\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80");
  std::u16string token = Token(std::u16string(100, u'q'), 9);
  std::vector<std::uint8_t> block = Base64Decode(token.substr(1));
  ASSERT_EQ(block.size(), 102u);
  // Offset 65 uses key byte 0 again, as offset 1 did.
  EXPECT_EQ(block[65] ^ kZyrScrambleKeys[9][0], 'q');
  EXPECT_EQ(block[1] ^ kZyrScrambleKeys[9][0], 'a');
  EXPECT_EQ(Unscramble(token), std::string(100, 'q'));
  // A lone surrogate, which has no UTF-8 form, is scrambled spelt out.
  EXPECT_EQ(Unscramble(Token(std::u16string{u'a', char16_t(0xdc00)}, 2)), "a\\uDC00");
  ZyrBasString out;
  // The base64 itself, over known bytes.
  const std::uint8_t bytes[] = {'M', 'a', 'n', 'M', 'a'};
  ASSERT_EQ(ZyrLogBase64Append(out, bytes, 3), ZYR_OK);
  ASSERT_EQ(ZyrLogBase64Append(out, bytes, 5), ZYR_OK);
  EXPECT_EQ(std::u16string(out.Text()), u"TWFuTWFuTWE=");
}

TEST(Scramble, EventModesAndRandomKeys) {
  auto scrambled = [](std::uint32_t mode, const char16_t* text, ZyrLogEvent& e) {
    e.ScrambleMode = mode;
    ASSERT_EQ(e.Message.Assign(text), ZYR_OK);
    ASSERT_EQ(ZyrLogScrambleEvent(e), ZYR_OK);
  };
  ZyrLogEvent e, two, empty;
  scrambled(7, u"secret text", e);
  EXPECT_EQ(e.ScrambleMode, 1u);
  EXPECT_EQ(Unscramble(std::u16string(e.Message.Text())), "secret text");
  scrambled(2, u"m", two);
  EXPECT_EQ(two.ScrambleMode, 2u);
  scrambled(1, u"", empty);
  EXPECT_TRUE(empty.Message.Empty());

  std::set<std::u16string> tokens;
  for (int i = 0; i < 16; ++i) {
    ZyrBasString out;
    ASSERT_EQ(ZyrLogScrambleText(out, u"same", 4), ZYR_OK);
    tokens.insert(std::u16string(out.Text(), out.Length()));
  }
  EXPECT_GT(tokens.size(), 1u);
}
