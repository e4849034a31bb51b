// MD5-crypt password hashes for the Linux answer files. The installers of
// the supported guests all accept "$1$" hashes, so the answer files never
// carry the user's or the administrator's password in plain text (except
// Mandriva's, whose format wants it).
#include <crypt.h>
#include <string.h>

#include <cstring>
#include <memory>

#include "lib/guestInstall/autoinstallGuestLinux_answer.h"
#include "platform/hostio.h"

namespace gp::autoinstall {
namespace {

constexpr char kSaltAlphabet[] =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789./";
constexpr size_t kSaltLength = 8;
constexpr char kMd5Prefix[] = "$1$";
// "$1$" + salt + "$" + 22 characters of hash.
constexpr size_t kMd5HashLength = 3 + kSaltLength + 1 + 22;

// libcrypt's working area is tens of kilobytes and holds state derived from
// the passphrase; keep it off the stack and wipe it after use.
struct CryptArea {
  crypt_data data{};
  ~CryptArea() { explicit_bzero(&data, sizeof data); }
};

}  // namespace

const char *autoInstallCryptPassword(const char *password) {
  static char result[120];
  if (password == nullptr) {
    return nullptr;
  }

  // Reseeded at every call: two hashes made within the same second share
  // their salt.
  HostOps &ops = hostOps();
  ops.srand(static_cast<unsigned>(ops.time(nullptr)));
  char setting[sizeof kMd5Prefix + kSaltLength + 1];
  std::memcpy(setting, kMd5Prefix, sizeof kMd5Prefix - 1);
  char *salt = setting + sizeof kMd5Prefix - 1;
  for (size_t i = 0; i < kSaltLength; ++i) {
    salt[i] = kSaltAlphabet[static_cast<unsigned>(ops.rand()) % 64];
  }
  salt[kSaltLength] = '$';
  salt[kSaltLength + 1] = '\0';

  auto area = std::make_unique<CryptArea>();
  const char *hash =
      crypt_rn(password, setting, &area->data, sizeof area->data);
  // A libcrypt built without MD5-crypt answers with null or a "*" failure
  // token; never hand that on as a hash.
  if (hash == nullptr || std::strlen(hash) != kMd5HashLength ||
      std::strncmp(hash, setting, sizeof setting - 1) != 0) {
    result[0] = '\0';
    return nullptr;
  }
  std::memcpy(result, hash, kMd5HashLength + 1);
  return result;
}

}  // namespace gp::autoinstall
