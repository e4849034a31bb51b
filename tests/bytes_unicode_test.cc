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

// Fields read in both orders up to the last byte; one crossing the end, or
// at an offset near the top of the address space, reads as zero.
TEST(ByteView, FieldsStayInsideTheView) {
  ByteView v(kEight, sizeof kEight);
  EXPECT_EQ(v.le16(6), 0x0807);
  EXPECT_EQ(v.be32(4), 0x05060708u);
  EXPECT_EQ(v.le64(0), 0x0807060504030201ull);
  EXPECT_EQ(v.le16(7), 0);
  EXPECT_EQ(v.le64(1), 0u);
  EXPECT_TRUE(v.has(8, 0) && !v.has(9, 0) && !v.has(2, SIZE_MAX));
  EXPECT_EQ(v.le32(SIZE_MAX - 1), 0u);
  EXPECT_TRUE(v.text(6, 3).empty());
  EXPECT_TRUE(v.clip(SIZE_MAX, 1).empty());
  EXPECT_EQ(v.clip(2, SIZE_MAX).size(), 6u);
  // A sub-view is all or nothing and bounds its own reads.
  ByteView whole = v.sub(2, 6);
  ASSERT_EQ(whole.size(), 6u);
  EXPECT_EQ(whole.le16(5), 0);
  EXPECT_TRUE(v.sub(2, 7).empty());
  ByteView part = v.clip(5, 10);
  ASSERT_EQ(part.size(), 3u);
  EXPECT_EQ(part.u8(0), 0x06);
}

TEST(Unicode, EncodesEachLengthAndRoundTrips) {
  std::string out;
  for (uint32_t cp :
       {0x7Fu, 0x80u, 0x7FFu, 0x800u, 0xFFFFu, 0x10000u, 0x10FFFFu}) {
    appendUtf8(out, cp);
  }
  EXPECT_EQ(out, u8"\u007F\u0080\u07FF\u0800\uFFFF\U00010000\U0010FFFF");
  std::u16string units = u"stale";
  ASSERT_TRUE(utf8ToUtf16(out, units));
  EXPECT_EQ(units, u"\u007F\u0080\u07FF\u0800\uFFFF\U00010000\U0010FFFF");
  ASSERT_TRUE(utf16ToUtf8(units, out, LoneSurrogate::Reject));
  EXPECT_EQ(out, u8"\u007F\u0080\u07FF\u0800\uFFFF\U00010000\U0010FFFF");
}

// High at the end, low alone, high before a non-surrogate, reversed pair.
TEST(Unicode, LoneSurrogatesAreReplacedOrRefused) {
  const char16_t broken[] = {0x0041, 0xDC00, 0xD83D, 0x0042,
                             0xDE00, 0xD83D, 0xD83D};
  std::string out;
  ASSERT_TRUE(
      utf16ToUtf8(std::u16string_view(broken, 7), out, LoneSurrogate::Replace));
  EXPECT_EQ(out, u8"A\uFFFD\uFFFDB\uFFFD\uFFFD\uFFFD");
  for (std::u16string bad : {std::u16string{0xD800}, std::u16string{0xDFFF},
                             std::u16string{0xDC00, 0xD800}}) {
    EXPECT_FALSE(utf16ToUtf8(bad, out, LoneSurrogate::Reject));
  }
  // Stray continuation, truncated, missing continuation, overlong, encoded
  // surrogate, beyond U+10FFFF, five-byte form.
  for (const char *text : {"\x80", "a\xC3", "\xE2\x28\xA1", "\xE0\x80\xAF",
                           "\xED\xA0\x80", "\xF4\x90\x80\x80", "\xF8\x88"}) {
    std::u16string units;
    EXPECT_FALSE(utf8ToUtf16(text, units)) << testing::PrintToString(text);
  }
}

}  // namespace
}  // namespace gp
