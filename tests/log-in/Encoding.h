#pragma once

#include <openssl/evp.h>

#include <string>

namespace login {

std::string Base64(const std::string& bytes);
std::string Hex(const std::string& bytes);
std::string Hash(const EVP_MD* algorithm, const std::string& bytes);

}  // namespace login
