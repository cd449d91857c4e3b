#include "engine/signature.h"

#include <openssl/evp.h>
#include <openssl/hmac.h>

#include "platform/file.h"
#include "platform/guid.h"
#include "platform/namedmutex.h"
#include "platform/systemerror.h"
#include "utility/files.h"
#include "utility/lasterror.h"
#include "utility/lhvexception.h"
#include "utility/mutexguard.h"
#include "utility/paths.h"
#include "utility/text.h"

namespace {

constexpr std::string_view TokenStart = "[LHV-";
constexpr std::size_t TimeSize = 4;
constexpr std::size_t CodeSize = 10;
constexpr std::size_t EncodedSize = 23;  // base32 of both

struct Token {
    std::size_t start = std::string_view::npos;  // of a blank before it, if there is one
    std::size_t end = 0;
    std::string code;  // time and authentication code
};

bool FindToken(std::string_view subject, std::size_t from, Token& token) {
    for (;;) {
        const std::size_t start = FindNoCase(subject, TokenStart, from);
        if (start == std::string_view::npos) return false;
        const std::size_t code = start + TokenStart.size();
        from = start + 1;
        if (code + EncodedSize >= subject.size() || subject[code + EncodedSize] != ']') continue;
        const auto decoded = DecodeBase32(subject.substr(code, EncodedSize));
        if (!decoded || decoded->size() != TimeSize + CodeSize) continue;
        token.start = start > 0 && subject[start - 1] == ' ' ? start - 1 : start;
        token.end = code + EncodedSize + 1;
        token.code = *decoded;
        return true;
    }
}

std::string BigEndian(std::uint32_t number) {
    std::string bytes(TimeSize, '\0');
    for (std::size_t i = 0; i < TimeSize; ++i)
        bytes[i] = static_cast<char>(number >> (24 - 8 * i));
    return bytes;
}

std::uint32_t FromBigEndian(std::string_view bytes) {
    std::uint32_t number = 0;
    for (std::size_t i = 0; i < TimeSize; ++i)
        number = (number << 8) | static_cast<unsigned char>(bytes[i]);
    return number;
}

// Without stopping at the first difference.
bool EqualBytes(std::string_view a, std::string_view b) noexcept {
    if (a.size() != b.size()) return false;
    unsigned difference = 0;
    for (std::size_t i = 0; i < a.size(); ++i) {
        difference |= static_cast<unsigned>(static_cast<unsigned char>(a[i]) ^ static_cast<unsigned char>(b[i]));
    }
    return difference == 0;
}

bool WriteNewSecret(const std::string& path) {
    std::string secret(CSigner::SecretSize, '\0');
    try {
        Platform::FillRandom(secret.data(), secret.size());
    } catch (const std::exception& exception) {
        SetLastErrorFromException(exception);
        return false;
    }
    return WriteFileAtomically(path, secret, Platform::FileAccess::Private);
}

}  // namespace

bool CSigner::Load(std::string_view dataFolder) {
    const std::string path = JoinPath(dataFolder, SecretFileName);
    Platform::CNamedMutex mutex("Vantorel.Listhaven.3.Secret");
    const CMutexGuard guard(mutex);
    std::string secret;
    if (!ReadWholeFile(path, secret)) {
        if (!Platform::IsNotFound(Platform::LastSystemError())) return false;
        if (!WriteNewSecret(path) || !ReadWholeFile(path, secret)) return false;
    }
    if (secret.size() != SecretSize) {
        SetLastErrorFormat("\"%s\" has %zu bytes and is no secret key.", path.c_str(), secret.size());
        return false;
    }
    for (std::size_t i = 0; i < SecretSize; ++i)
        m_secret[i] = static_cast<unsigned char>(secret[i]);
    m_isLoaded = true;
    return true;
}

std::string CSigner::MakeCode(std::string_view listGuid, std::string_view recipient, std::uint32_t time) const {
    const std::string timeBytes = BigEndian(time);
    std::string message = LowerAscii(listGuid);
    message.push_back('\0');
    message.append(LowerAscii(recipient)).push_back('\0');
    message.append(timeBytes);
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned length = 0;
    if (!m_isLoaded ||
        HMAC(EVP_sha256(), m_secret.data(), static_cast<int>(m_secret.size()),
             reinterpret_cast<const unsigned char*>(message.data()), message.size(), digest, &length) == nullptr) {
        ThrowInternalError("Shared/Engine/signature", __LINE__);
    }
    return timeBytes + std::string(reinterpret_cast<const char*>(digest), CodeSize);
}

std::string CSigner::Sign(std::string_view subject, std::string_view listGuid, std::string_view recipient,
                          std::int64_t now) const {
    const std::string code = MakeCode(listGuid, recipient, static_cast<std::uint32_t>(now));
    return WithoutSignature(subject) + " " + std::string(TokenStart) + EncodeBase32(code) + "]";
}

bool CSigner::Verify(std::string_view subject, std::string_view listGuid, std::string_view sender, std::int64_t now,
                     std::int64_t lifetime) const {
    Token token;
    for (std::size_t from = 0; FindToken(subject, from, token); from = token.end) {
        const std::uint32_t time = FromBigEndian(token.code);
        const std::int64_t age = now - static_cast<std::int64_t>(time);
        if (age >= 0 && age <= lifetime && EqualBytes(token.code, MakeCode(listGuid, sender, time))) return true;
    }
    return false;
}

std::string WithoutSignature(std::string_view subject) {
    std::string result;
    std::size_t from = 0;
    for (Token token; FindToken(subject, from, token); from = token.end) {
        result.append(subject.substr(from, token.start - from));
    }
    return result.append(subject.substr(from));
}
