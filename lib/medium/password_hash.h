// SHA-512 crypt ("$6$") hashes of passwords for the answer files of today's
// Linux installers, which all take a hash in place of the password.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace gp::medium {

// The "$6$salt$hash" of `password`, with a fresh random salt that libcrypt
// draws from the operating system; nullopt when the password holds a NUL
// byte (which no C string carries) or libcrypt cannot make the hash.
std::optional<std::string> sha512CryptHash(std::string_view password);

}  // namespace gp::medium
