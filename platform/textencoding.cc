// UTF-8 to legacy Windows encodings through iconv.
#include "platform/textencoding.h"

#include <iconv.h>

#include <cerrno>
#include <cstring>
#include <string>

#include "platform/fatal.h"

namespace gp::textenc {
namespace {

struct Encoding {
  int id;
  const char *name;  // also the iconv name
};

constexpr Encoding kEncodings[] = {
    {ENCODING_BIG5, "CP950"},
    {ENCODING_GBK, "GBK"},
    {ENCODING_SHIFT_JIS, "CP932"},
    {ENCODING_WINDOWS_1251, "windows-1251"},
    {ENCODING_WINDOWS_1252, "windows-1252"},
    {ENCODING_KOREAN, "CP949"},
};

const Encoding *find(int id) {
  for (const Encoding &e : kEncodings) {
    if (e.id == id) {
      return &e;
    }
  }
  return nullptr;
}

class Converter {
 public:
  explicit Converter(const char *to) : cd_(iconv_open(to, "UTF-8")) {}
  ~Converter() {
    if (valid()) {
      iconv_close(cd_);
    }
  }
  Converter(const Converter &) = delete;
  Converter &operator=(const Converter &) = delete;
  bool valid() const { return cd_ != reinterpret_cast<iconv_t>(-1); }

  // False on an invalid or unrepresentable character.
  bool convert(const char *in, size_t inLen, std::string &out) {
    char *src = const_cast<char *>(in);
    size_t left = inLen;
    char buf[256];
    while (left > 0) {
      char *dst = buf;
      size_t room = sizeof buf;
      size_t r = iconv(cd_, &src, &left, &dst, &room);
      out.append(buf, static_cast<size_t>(dst - buf));
      if (r == static_cast<size_t>(-1) && errno != E2BIG) {
        return false;
      }
    }
    char *dst = buf;
    size_t room = sizeof buf;
    if (iconv(cd_, nullptr, nullptr, &dst, &room) == static_cast<size_t>(-1)) {
      return false;
    }
    out.append(buf, static_cast<size_t>(dst - buf));
    return true;
  }

 private:
  iconv_t cd_;
};

}  // namespace

const char *encodingName(int id) {
  const Encoding *e = find(id);
  return e == nullptr ? "unknown" : e->name;
}

char *convertFromUtf8(const char *utf8, int id) {
  const Encoding *e = find(id);
  if (e == nullptr || utf8 == nullptr) {
    return nullptr;
  }
  Converter conv(e->name);
  std::string out;
  if (!conv.valid() || !conv.convert(utf8, strlen(utf8), out) ||
      out.find('\0') != std::string::npos) {
    return nullptr;
  }
  return heapCopy(out);
}

}  // namespace gp::textenc
