// signature.h - the token in a subject that shows a reply to be a reply.
//
// " [LHV-" + base32 of 4 bytes (seconds since 1970, big-endian) and 10 bytes (the
// first of HMAC-SHA256 over list GUID, NUL, recipient's address in lower case,
// NUL and those 4 bytes) + "]".  The key is the installation's secret: the 32
// bytes of "secret.key" in the data folder, made on first use.
//
// Errors   Load() returns false, with the reason in the last-error text.  A
//          secret of another length is reported and never replaced.
// Threads  Sign() and Verify() may be called from several threads at once.

#ifndef LISTHAVEN_ENGINE_SIGNATURE_H
#define LISTHAVEN_ENGINE_SIGNATURE_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

inline constexpr std::string_view SecretFileName = "secret.key";

class CSigner {
public:
    static constexpr std::size_t SecretSize = 32;

    bool Load(std::string_view dataFolder);  // makes the secret when there is none; two at one time agree on one

    // The subject with a token at its end.  A token that it already holds is taken out.
    std::string Sign(std::string_view subject, std::string_view listGuid, std::string_view recipient,
                     std::int64_t now) const;

    // Some token of the subject was made for this list and this sender, and at
    // most "lifetime" seconds before now.  A token from the future fails.
    bool Verify(std::string_view subject, std::string_view listGuid, std::string_view sender, std::int64_t now,
                std::int64_t lifetime) const;

private:
    std::string MakeCode(std::string_view listGuid, std::string_view recipient, std::uint32_t time) const;

    std::array<unsigned char, SecretSize> m_secret{};
    bool m_isLoaded = false;
};

std::string WithoutSignature(std::string_view subject);  // for showing it, and for comparing subjects

#endif  // LISTHAVEN_ENGINE_SIGNATURE_H
