// cyclerecord.h - what a transaction of a mail cycle is to do, as it is written
// down before it is done.
//
// Paths in the data folder are stored without it, so that it may move.

#ifndef LISTHAVEN_ENGINE_INCOMING_CYCLERECORD_H
#define LISTHAVEN_ENGINE_INCOMING_CYCLERECORD_H

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "engine/broadcast.h"
#include "engine/member.h"

struct CycleRecord {
    struct CFile {
        std::string temporaryPath;
        std::string finalPath;
    };
    struct CTwin {  // another name for a file of the record
        std::string sourceTemporaryPath;
        std::string sourceFinalPath;
        std::string temporaryPath;  // an empty file that keeps the final name; gone: it was done
        std::string finalPath;
    };
    struct CMove {
        std::string source;
        std::string queueFolder;
    };
    struct CBroadcast {
        std::string identifier;
        std::string messagePath;
        BroadcastModes modes;
    };

    std::uint64_t id = 0;  // no two have the same
    std::vector<CFile> files;
    std::vector<CTwin> twins;
    std::vector<CMove> moves;
    std::vector<std::string> removals;
    std::vector<CMember> members;             // as they are to be
    std::vector<std::string> removedMembers;  // addresses
    std::vector<CBroadcast> broadcasts;

    bool IsEmpty() const noexcept;
    // Carrying it out once more later, when others have gone on working, changes nothing.
    bool IsHarmless() const noexcept;
};

std::string EncodeRecord(const CycleRecord& record);
bool DecodeRecord(std::string_view bytes, CycleRecord& record);  // false for one that is damaged

std::string ToStoredPath(std::string_view path);
std::string FromStoredPath(std::string_view stored);

#endif  // LISTHAVEN_ENGINE_INCOMING_CYCLERECORD_H
