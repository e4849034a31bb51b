// UTF-8 into the legacy Windows encodings: names and refusals.
#include "platform/textencoding.h"

#include <gtest/gtest.h>

#include <string>

#include "platform/abi.h"

namespace gp::textenc {
namespace {

std::string convert(const char *utf8, int id) {
  MallocPtr<char> out(convertFromUtf8(utf8, id));
  return out ? std::string(out.get()) : std::string("(null)");
}

TEST(TextEncoding, Names) {
  EXPECT_STREQ(encodingName(ENCODING_SHIFT_JIS), "CP932");
  EXPECT_STREQ(encodingName(ENCODING_WINDOWS_1251), "windows-1251");
  EXPECT_STREQ(encodingName(ENCODING_GBK), "GBK");
  EXPECT_STREQ(encodingName(ENCODING_BIG5), "CP950");
  EXPECT_STREQ(encodingName(ENCODING_KOREAN), "CP949");
  EXPECT_STREQ(encodingName(ENCODING_WINDOWS_1252), "windows-1252");
}

// The conversions themselves are checked against iconv(1) through the
// answer files (windowsanswer_test).
TEST(TextEncoding, TextWithoutAFormThereIsRefusedWhole) {
  struct {
    int id;
    const char *text;
  } const rows[] = {
      {ENCODING_WINDOWS_1252, "山田"},
      {ENCODING_WINDOWS_1251, "Ivan 山"},  // one character spoils it
      {ENCODING_SHIFT_JIS, "smile \xF0\x9F\x98\x80"},
      {ENCODING_WINDOWS_1252, "bad \xFF utf-8"},
      {ENCODING_WINDOWS_1252, "cut \xE2\x82"},  // sequence cut short
      {99, "plain"},
  };
  for (const auto &r : rows) {
    EXPECT_EQ(convert(r.text, r.id), "(null)") << r.text;
  }
  EXPECT_STREQ(encodingName(99), "unknown");
  EXPECT_EQ(convert("", ENCODING_SHIFT_JIS), "");
  EXPECT_EQ(convertFromUtf8(nullptr, ENCODING_SHIFT_JIS), nullptr);
}

}  // namespace
}  // namespace gp::textenc
