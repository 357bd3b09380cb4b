#include "engines/common/digest.h"

#include <openssl/evp.h>

#include <array>
#include <stdexcept>

std::string content_hash(std::string_view bytes) {
  static constexpr std::string_view digits = "0123456789abcdef";
  std::array<unsigned char, EVP_MAX_MD_SIZE> hash{};
  unsigned size = 0;
  if (EVP_Digest(bytes.data(), bytes.size(), hash.data(), &size, EVP_sha256(), nullptr) != 1)
    throw std::runtime_error("SHA-256 is not to be had");
  std::string text;
  for (unsigned i = 0; i < size; ++i) {
    text += digits[hash[i] >> 4];
    text += digits[hash[i] & 0xF];
  }
  return text;
}
