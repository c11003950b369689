#include "foundation/sha256.h"

#include <openssl/evp.h>

std::string sha256_hex(std::span<std::uint8_t const> bytes)
{
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int length = 0;
    if (EVP_Digest(bytes.data(), bytes.size(), digest, &length, EVP_sha256(), nullptr) != 1) return {};
    static constexpr char digits[] = "0123456789abcdef";
    std::string hex;
    for (unsigned int i = 0; i < length; ++i) hex.append({digits[digest[i] >> 4], digits[digest[i] & 0xf]});
    return hex;
}
