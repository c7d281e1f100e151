#include "Encoding.h"

namespace login {

std::string Base64(const std::string& bytes) {
  std::string text((bytes.size() + 2) / 3 * 4, '\0');
  EVP_EncodeBlock(reinterpret_cast<unsigned char*>(text.data()),
                  reinterpret_cast<const unsigned char*>(bytes.data()),
                  static_cast<int>(bytes.size()));
  return text;
}

std::string Hex(const std::string& bytes) {
  std::string text;
  for (const char byte : bytes) {
    text += "0123456789abcdef"[static_cast<unsigned char>(byte) >> 4];
    text += "0123456789abcdef"[static_cast<unsigned char>(byte) & 15];
  }
  return text;
}

std::string Hash(const EVP_MD* algorithm, const std::string& bytes) {
  std::string result(EVP_MAX_MD_SIZE, '\0');
  unsigned int length = 0;
  EVP_Digest(bytes.data(), bytes.size(), reinterpret_cast<unsigned char*>(result.data()), &length,
             algorithm, nullptr);
  result.resize(length);
  return result;
}

}  // namespace login
