// digests.h - the messages collected for a list's digest, and its sending.
//
// Entries are queue files in Digests/<n>/Open.  To send, they are moved into a
// folder that bears the number of the digest and the identifier of its
// broadcast; the digest is made of what lies there, the broadcast created, the
// folder renamed (now it only waits to be removed) and removed.  A crash between
// any two of these is finished by the next call, from what the folders say.
//
// A digest takes at most MaxEntries messages and, unless one alone is larger,
// MaxBytes; what is left makes the next one at once.
//
// Errors   false, with the reason in the last-error text.
// Threads  One at a time in the process; the caller holds the CCycleLock.
// Crash    An entry is in exactly one digest.

#ifndef LISTHAVEN_ENGINE_INCOMING_DIGESTS_H
#define LISTHAVEN_ENGINE_INCOMING_DIGESTS_H

#include <cstdint>
#include <string>
#include <vector>

#include "engine/incoming/digestmessage.h"

namespace DigestLimit {
inline constexpr std::size_t MaxEntries = 500;
inline constexpr std::uint64_t MaxBytes = 8ull * 1024 * 1024;
}  // namespace DigestLimit

std::string GetDigestEntryFolder(std::uint32_t listNumber);  // a queue folder

struct CDigestState {
    std::uint32_t number = 0;   // of the last digest
    std::int64_t lastSent = 0;  // 0: never
    DigestFormat format = DigestFormat::Multipart;
    std::vector<std::string> entries;  // paths, in the order in which they were collected
    std::int64_t nextDue = 0;          // by time; 0: not by time, or nothing collected
    bool isAutomatic = false;          // by time or by count; else only when it is asked for
};
bool ReadDigestState(std::uint32_t listNumber, CDigestState& state);
bool SetDigestFormat(std::uint32_t listNumber, DigestFormat format);

// Whether anything has been collected, or a crash has left something: needs no lock.
bool HasDigestWork(std::uint32_t listNumber);

// By time (the list's digestHours since the last one, or since the first entry)
// or by count.  sent: a broadcast was made, also one that a crash had left to be
// made; the caller runs it.
bool SendDigestIfDue(std::uint32_t listNumber, std::int64_t now, bool& sent);
bool SendDigest(std::uint32_t listNumber, std::int64_t now, bool& sent);  // nothing collected, nothing sent

#endif  // LISTHAVEN_ENGINE_INCOMING_DIGESTS_H
