#include "platform/access/PasswordHash.h"

#if TESSEL_HAS_CRYPT
#include <crypt.h>
#endif

#include <algorithm>
#include <array>
#include <memory>

namespace TesselServer {
namespace {

// What hashes begin with: those of crypt(3), and some of other systems, whose lines may be copied from there.
constexpr std::array<std::string_view, 20> kIdentifiers = {
    "$1$", "$2$",  "$2a$",  "$2b$",   "$2x$",  "$2y$",  "$3$",    "$5$",       "$6$",       "$7$",
    "$y$", "$gy$", "$sha1", "$sha1$", "$md5$", "$md5,", "$apr1$", "$argon2i$", "$argon2d$", "$argon2id$"};

}  // namespace

bool IsPasswordHash(std::string_view text) {
  return std::any_of(kIdentifiers.begin(), kIdentifiers.end(), [text](std::string_view identifier) {
    return text.size() > identifier.size() && text.starts_with(identifier);
  });
}

#if TESSEL_HAS_CRYPT

namespace {

constexpr std::size_t kBcryptBytes = 72;  // it does not look at what follows

// The working memory of crypt(3), overwritten at the end. It takes more than a small thread's stack has to spare.
class CryptMemory {
 public:
  CryptMemory() : data_(std::make_unique<crypt_data>()) {}
  CryptMemory(const CryptMemory&) = delete;
  CryptMemory& operator=(const CryptMemory&) = delete;
  ~CryptMemory() {
    volatile char* bytes = reinterpret_cast<volatile char*>(data_.get());
    for (std::size_t i = 0; i < sizeof(crypt_data); ++i) bytes[i] = 0;
  }

  // The hash, or "" where there is none: it is told by a null, or by a text that no hash begins with.
  std::string_view Hash(const std::string& password, const std::string& setting) {
    const char* hash = crypt_r(password.c_str(), setting.c_str(), data_.get());
    return hash == nullptr || *hash == '*' ? std::string_view() : std::string_view(hash);
  }

 private:
  std::unique_ptr<crypt_data> data_;
};

bool IsSame(std::string_view a, std::string_view b) {
  if (a.size() != b.size()) return false;  // the lengths are those of the kind of hash
  unsigned different = 0;
  for (std::size_t i = 0; i < a.size(); ++i) different |= static_cast<unsigned char>(a[i] ^ b[i]);
  return different == 0;
}

bool IsHashedWhole(std::string_view password, std::string_view hash) {
  if (password.find('\0') != std::string_view::npos) return false;
  return !hash.starts_with("$2") || password.size() <= kBcryptBytes;
}

}  // namespace

bool CanCheckPasswordHashes() { return true; }

HashCheck CheckPasswordHash(const std::string& password, const std::string& hash) {
  if (!IsPasswordHash(hash) || hash.size() > kMaxPasswordHashBytes) return HashCheck::kImpossible;
  if (password.size() > kMaxHashedPasswordBytes) return HashCheck::kWrong;
  CryptMemory memory;
  const std::string_view made = memory.Hash(password, hash);
  if (made.empty()) return HashCheck::kImpossible;
  const bool isSame = IsSame(made, hash);
  return isSame && IsHashedWhole(password, hash) ? HashCheck::kRight : HashCheck::kWrong;
}

#else

bool CanCheckPasswordHashes() { return false; }

HashCheck CheckPasswordHash(const std::string&, const std::string&) { return HashCheck::kImpossible; }

#endif

}  // namespace TesselServer
