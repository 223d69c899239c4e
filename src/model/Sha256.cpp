#include "model/Sha256.hpp"

#include <openssl/evp.h>

#include <stdexcept>

namespace marquetry::model {

std::string sha256Hex(std::span<const std::uint8_t> bytes) {
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int length = 0;
    if (EVP_Digest(bytes.data(), bytes.size(), digest, &length, EVP_sha256(), nullptr) != 1)
        throw std::runtime_error("The SHA-256 digest could not be computed.");
    static constexpr char hex[] = "0123456789abcdef";
    std::string text;
    text.reserve(2 * length);
    for (unsigned int i = 0; i < length; ++i) {
        text += hex[digest[i] >> 4];
        text += hex[digest[i] & 0xF];
    }
    return text;
}

} // namespace marquetry::model
