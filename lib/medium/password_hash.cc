#include "lib/medium/password_hash.h"

#include <crypt.h>
#include <string.h>

#include <memory>

namespace gp::medium {
namespace {

constexpr char kSha512Prefix[] = "$6$";

// libcrypt's working area is tens of kilobytes and holds state derived from
// the passphrase: keep it off the stack and wipe it after use.
struct CryptArea {
  crypt_data data{};
  ~CryptArea() { explicit_bzero(&data, sizeof data); }
};

}  // namespace

std::optional<std::string> sha512CryptHash(std::string_view password) {
  if (password.find('\0') != std::string_view::npos) {
    return std::nullopt;
  }
  // Null random bytes: libcrypt reads them from the operating system.
  char setting[CRYPT_GENSALT_OUTPUT_SIZE];
  if (crypt_gensalt_rn(kSha512Prefix, 0, nullptr, 0, setting, sizeof setting) ==
      nullptr) {
    return std::nullopt;
  }
  std::string phrase(password);
  auto area = std::make_unique<CryptArea>();
  const char *hash =
      crypt_rn(phrase.c_str(), setting, &area->data, sizeof area->data);
  explicit_bzero(phrase.data(), phrase.size());
  // A failure is null or a token starting with "*"; never hand that on.
  if (hash == nullptr ||
      std::string_view(hash).substr(0, 3) != std::string_view(kSha512Prefix)) {
    return std::nullopt;
  }
  return std::string(hash);
}

}  // namespace gp::medium
