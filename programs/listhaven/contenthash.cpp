#include "programs/listhaven/contenthash.h"

#include <openssl/evp.h>

#include <stdexcept>

#include "utility/text.h"

std::string Sha256Hex(std::string_view bytes) {
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int length = 0;
    if (EVP_Digest(bytes.data(), bytes.size(), digest, &length, EVP_sha256(), nullptr) != 1)
        throw std::runtime_error("the digest could not be computed");
    return EncodeHex({reinterpret_cast<const char*>(digest), length});
}
