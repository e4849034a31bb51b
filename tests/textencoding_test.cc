// UTF-8 into the legacy Windows encodings, checked against iconv(1).
#include "platform/textencoding.h"

#include <gtest/gtest.h>

#include <string>

#include "platform/abi.h"
#include "support/fixtures.h"

namespace gp::textenc {
namespace {

std::string viaIconvTool(const std::string &utf8, const char *encoding) {
  test::TempDir dir;
  test::writeFile(dir / "in", utf8);
  std::string out;
  EXPECT_EQ(0, test::runCommand("iconv -f UTF-8 -t " + std::string(encoding) +
                                    " " + test::shellQuote(dir / "in"),
                                &out));
  return out;
}

std::string convert(const char *utf8, int id) {
  MallocPtr<char> out(convertFromUtf8(utf8, id));
  return out ? std::string(out.get()) : std::string("(null)");
}

TEST(TextEncoding, EachLanguageEncodingMatchesIconv) {
  struct {
    int id;
    const char *name;
    const char *text;
  } const rows[] = {
      {ENCODING_SHIFT_JIS, "CP932", "山田 太郎 ｶﾀｶﾅ ①"},
      {ENCODING_WINDOWS_1251, "windows-1251", "Иван Петров №5"},
      {ENCODING_GBK, "GBK", "张伟"},
      {ENCODING_BIG5, "CP950", "陳大文"},
      {ENCODING_KOREAN, "CP949", "김민준"},
      {ENCODING_WINDOWS_1252, "windows-1252", "Zoë Müller – €5"},
  };
  for (const auto &r : rows) {
    SCOPED_TRACE(r.name);
    EXPECT_STREQ(encodingName(r.id), r.name);
    std::string expected = viaIconvTool(r.text, r.name);
    ASSERT_FALSE(expected.empty());
    EXPECT_EQ(convert(r.text, r.id), expected);
    EXPECT_NE(expected, r.text);  // really converted
  }
}

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
