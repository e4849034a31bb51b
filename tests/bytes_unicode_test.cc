// The bounds-checked byte view and the UTF-8/UTF-16 conversions that the
// image readers decode hostile names and fields with.
#include <gtest/gtest.h>

#include <cstdint>
#include <string>

#include "platform/bytes.h"
#include "platform/unicode.h"

namespace gp {
namespace {

const uint8_t kEight[] = {0x01, 0x02, 0x03, 0x04, 0x05, 0x06, 0x07, 0x08};

TEST(ByteView, FieldsReadInBothOrdersUpToTheLastByte) {
  ByteView v(kEight, sizeof kEight);
  EXPECT_EQ(v.le16(6), 0x0807);
  EXPECT_EQ(v.be16(6), 0x0708);
  EXPECT_EQ(v.le32(4), 0x08070605u);
  EXPECT_EQ(v.be32(4), 0x05060708u);
  EXPECT_EQ(v.le64(0), 0x0807060504030201ull);
  EXPECT_EQ(v.u8(7), 0x08);
}

TEST(ByteView, AFieldCrossingTheEndReadsAsZeroNotHalfOfIt) {
  ByteView v(kEight, sizeof kEight);
  EXPECT_EQ(v.u8(8), 0);
  EXPECT_EQ(v.le16(7), 0);
  EXPECT_EQ(v.be16(7), 0);
  EXPECT_EQ(v.le32(5), 0u);
  EXPECT_EQ(v.be32(5), 0u);
  EXPECT_EQ(v.le64(1), 0u);
  EXPECT_TRUE(v.text(6, 3).empty());
  EXPECT_EQ(ByteView().le32(0), 0u);
}

TEST(ByteView, OffsetsNearTheTopOfTheAddressSpaceDoNotWrap) {
  ByteView v(kEight, sizeof kEight);
  EXPECT_FALSE(v.has(SIZE_MAX, 2));
  EXPECT_FALSE(v.has(2, SIZE_MAX));
  EXPECT_FALSE(v.has(SIZE_MAX - 1, 4));
  EXPECT_EQ(v.le32(SIZE_MAX - 1), 0u);
  EXPECT_EQ(v.u8(SIZE_MAX), 0);
  EXPECT_TRUE(v.text(SIZE_MAX, 2).empty());
  EXPECT_TRUE(v.sub(2, SIZE_MAX).empty());
  EXPECT_TRUE(v.sub(SIZE_MAX, 1).empty());
  EXPECT_TRUE(v.clip(SIZE_MAX, 1).empty());
  EXPECT_EQ(v.clip(2, SIZE_MAX).size(), 6u);
}

TEST(ByteView, SubIsAllOrNothingWhileClipKeepsThePartInside) {
  ByteView v(kEight, sizeof kEight);
  EXPECT_TRUE(v.has(8, 0));
  EXPECT_FALSE(v.has(9, 0));

  ByteView whole = v.sub(2, 6);
  ASSERT_EQ(whole.size(), 6u);
  EXPECT_EQ(whole.u8(0), 0x03);
  EXPECT_EQ(whole.le16(5), 0);  // bounded by the sub-view, not the parent
  EXPECT_TRUE(v.sub(2, 7).empty());

  ByteView part = v.clip(5, 10);
  ASSERT_EQ(part.size(), 3u);
  EXPECT_EQ(part.u8(0), 0x06);
  EXPECT_TRUE(v.clip(8, 1).empty());
  EXPECT_EQ(v.clip(1, 2).size(), 2u);
  EXPECT_EQ(v.text(1, 2), std::string("\x02\x03"));
}

TEST(ByteView, WrittenFieldsReadBack) {
  uint8_t buf[6] = {};
  put16(buf, 0xBEEF);
  put32(buf + 2, 0xDEADC0DE);
  ByteView v(buf, sizeof buf);
  EXPECT_EQ(v.le16(0), 0xBEEF);
  EXPECT_EQ(v.le32(2), 0xDEADC0DEu);
  EXPECT_EQ(buf[0], 0xEF);  // little-endian on the medium
}

TEST(Utf8, EncodesEachLengthAtItsBoundaries) {
  std::string out;
  for (uint32_t cp :
       {0x7Fu, 0x80u, 0x7FFu, 0x800u, 0xFFFFu, 0x10000u, 0x10FFFFu}) {
    appendUtf8(out, cp);
  }
  EXPECT_EQ(out, u8"\u007F\u0080\u07FF\u0800\uFFFF\U00010000\U0010FFFF");
}

TEST(Utf16ToUtf8, CombinesPairsAndReplacesLoneSurrogates) {
  std::string out = "stale";
  ASSERT_TRUE(utf16ToUtf8(u"a\U0001F600b", out, LoneSurrogate::Replace));
  EXPECT_EQ(out, u8"a\U0001F600b");

  // High at the end, low alone, high before a non-surrogate, reversed pair.
  const char16_t broken[] = {0x0041, 0xDC00, 0xD83D, 0x0042,
                             0xDE00, 0xD83D, 0xD83D};
  ASSERT_TRUE(
      utf16ToUtf8(std::u16string_view(broken, 7), out, LoneSurrogate::Replace));
  EXPECT_EQ(out, u8"A\uFFFD\uFFFDB\uFFFD\uFFFD\uFFFD");
}

TEST(Utf16ToUtf8, RejectRefusesEveryLoneSurrogateButKeepsPairs) {
  std::string out;
  EXPECT_TRUE(utf16ToUtf8(u"\U0010FFFF", out, LoneSurrogate::Reject));
  EXPECT_EQ(out, u8"\U0010FFFF");
  for (std::u16string bad :
       {std::u16string{0xD800}, std::u16string{0xDFFF},
        std::u16string{0xD800, u'x'}, std::u16string{0xDC00, 0xD800}}) {
    EXPECT_FALSE(utf16ToUtf8(bad, out, LoneSurrogate::Reject))
        << std::hex << int{bad[0]};
  }
}

TEST(Utf8ToUtf16, RoundTripsEveryLength) {
  std::string text = u8"x\u00E9\u20AC\U0001D11E\U0010FFFF";
  std::u16string units = u"stale";
  ASSERT_TRUE(utf8ToUtf16(text, units));
  EXPECT_EQ(units, u"x\u00E9\u20AC\U0001D11E\U0010FFFF");
  std::string back;
  ASSERT_TRUE(utf16ToUtf8(units, back, LoneSurrogate::Reject));
  EXPECT_EQ(back, text);
  ASSERT_TRUE(utf8ToUtf16("", units));
  EXPECT_TRUE(units.empty());
}

TEST(Utf8ToUtf16, RefusesMalformedInput) {
  const char *const bad[] = {
      "\x80",                  // stray continuation byte
      "a\xC3",                 // truncated at the end
      "\xE2\x28\xA1",          // continuation byte missing in the middle
      "\xC0\xAF",              // overlong '/'
      "\xE0\x80\xAF",          // overlong '/' in three bytes
      "\xF0\x80\x80\xAF",      // overlong '/' in four bytes
      "\xED\xA0\x80",          // an encoded surrogate
      "\xF4\x90\x80\x80",      // beyond U+10FFFF
      "\xF8\x88\x80\x80\x80",  // five-byte form
      "\xFF",
  };
  std::u16string units;
  for (const char *text : bad) {
    EXPECT_FALSE(utf8ToUtf16(text, units)) << testing::PrintToString(text);
  }
}

}  // namespace
}  // namespace gp
