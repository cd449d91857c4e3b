#include "engine/incoming/cyclerecord.h"

#include "app/datafolder.h"
#include "engine/crc32.h"

namespace {

constexpr std::string_view RecordStart = "LHVCYC01";

class CWriter {
public:
    void Number(std::uint64_t value, int bytes = 4) {
        for (int i = 0; i < bytes; ++i)
            m_bytes.push_back(static_cast<char>(value >> (8 * i) & 0xFF));
    }
    void Text(std::string_view text) {
        Number(text.size());
        m_bytes.append(text);
    }
    void Path(std::string_view path) { Text(ToStoredPath(path)); }
    template <class Items, class Put>
    void Each(const Items& items, Put put) {
        Number(items.size());
        for (const auto& item : items)
            put(item);
    }
    std::string Finish() {
        Number(Crc32(m_bytes));
        return std::move(m_bytes);
    }

private:
    std::string m_bytes{RecordStart};
};

// What lies behind the end reads as nothing, and spoils the whole.
class CReader {
public:
    explicit CReader(std::string_view bytes) : m_bytes(bytes) {}

    std::uint64_t Number(int bytes = 4) {
        const std::string_view taken = Take(static_cast<std::size_t>(bytes));
        std::uint64_t value = 0;
        for (std::size_t i = 0; i < taken.size(); ++i)
            value |= static_cast<std::uint64_t>(static_cast<unsigned char>(taken[i])) << (8 * i);
        return value;
    }
    std::string Text() { return std::string(Take(static_cast<std::size_t>(Number()))); }
    std::string Path() { return FromStoredPath(Text()); }
    template <class Items, class Get>
    void Each(Items& items, Get get) {
        for (std::uint64_t count = Number(); count > 0 && m_isGood; --count)
            items.push_back(get());
    }
    bool IsGood() const noexcept { return m_isGood && m_bytes.empty(); }

private:
    std::string_view Take(std::size_t size) {
        if (size > m_bytes.size()) {
            m_isGood = false;
            return {};
        }
        const std::string_view taken = m_bytes.substr(0, size);
        m_bytes.remove_prefix(size);
        return taken;
    }

    std::string_view m_bytes;
    bool m_isGood = true;
};

void PutMember(CWriter& writer, const CMember& member) {
    for (const std::string* text :
         {&member.address, &member.firstName, &member.middleName, &member.lastName, &member.name, &member.properties}) {
        writer.Text(*text);
    }
    writer.Number(static_cast<std::uint32_t>(member.mode));
    writer.Each(member.fields, [&](const std::string& field) { writer.Text(field); });
}

CMember GetMember(CReader& reader) {
    CMember member;
    for (std::string* text :
         {&member.address, &member.firstName, &member.middleName, &member.lastName, &member.name, &member.properties}) {
        *text = reader.Text();
    }
    member.mode = DeliveryModeOfNumber(static_cast<std::int32_t>(reader.Number()));
    reader.Each(member.fields, [&] { return reader.Text(); });
    return member;
}

std::uint64_t ModeBits(const BroadcastModes& modes) {
    return (modes.regular ? 1u : 0u) | (modes.both ? 2u : 0u) | (modes.digest ? 4u : 0u);
}

}  // namespace

bool CycleRecord::IsEmpty() const noexcept {
    return IsHarmless() && files.empty() && twins.empty();
}

bool CycleRecord::IsHarmless() const noexcept {
    return moves.empty() && removals.empty() && members.empty() && removedMembers.empty() && broadcasts.empty();
}

std::string ToStoredPath(std::string_view path) {
    const std::string folder = GetDataFolder();
    return std::string(path.starts_with(folder) ? path.substr(folder.size()) : path);
}

std::string FromStoredPath(std::string_view stored) {
    const bool isWhole =
        stored.empty() || stored.front() == '/' || stored.front() == '\\' || (stored.size() > 1 && stored[1] == ':');
    return isWhole ? std::string(stored) : GetDataFolder() + std::string(stored);
}

std::string EncodeRecord(const CycleRecord& record) {
    CWriter writer;
    writer.Number(record.id, 8);
    writer.Each(record.files, [&](const CycleRecord::CFile& file) {
        writer.Path(file.temporaryPath);
        writer.Path(file.finalPath);
    });
    writer.Each(record.twins, [&](const CycleRecord::CTwin& twin) {
        for (const std::string* path :
             {&twin.sourceTemporaryPath, &twin.sourceFinalPath, &twin.temporaryPath, &twin.finalPath}) {
            writer.Path(*path);
        }
    });
    writer.Each(record.moves, [&](const CycleRecord::CMove& move) {
        writer.Path(move.source);
        writer.Path(move.queueFolder);
    });
    writer.Each(record.removals, [&](const std::string& path) { writer.Path(path); });
    writer.Each(record.members, [&](const CMember& member) { PutMember(writer, member); });
    writer.Each(record.removedMembers, [&](const std::string& address) { writer.Text(address); });
    writer.Each(record.broadcasts, [&](const CycleRecord::CBroadcast& broadcast) {
        writer.Text(broadcast.identifier);
        writer.Path(broadcast.messagePath);
        writer.Number(ModeBits(broadcast.modes));
    });
    return writer.Finish();
}

bool DecodeRecord(std::string_view bytes, CycleRecord& record) {
    record = {};
    if (bytes.size() < RecordStart.size() + 4 || !bytes.starts_with(RecordStart)) return false;
    const std::string_view content = bytes.substr(0, bytes.size() - 4);
    if (CReader(bytes.substr(content.size())).Number() != Crc32(content)) return false;
    CReader reader(content.substr(RecordStart.size()));
    record.id = reader.Number(8);
    reader.Each(record.files, [&] {
        CycleRecord::CFile file;
        file.temporaryPath = reader.Path();
        file.finalPath = reader.Path();
        return file;
    });
    reader.Each(record.twins, [&] {
        CycleRecord::CTwin twin;
        for (std::string* path :
             {&twin.sourceTemporaryPath, &twin.sourceFinalPath, &twin.temporaryPath, &twin.finalPath}) {
            *path = reader.Path();
        }
        return twin;
    });
    reader.Each(record.moves, [&] {
        CycleRecord::CMove move;
        move.source = reader.Path();
        move.queueFolder = reader.Path();
        return move;
    });
    reader.Each(record.removals, [&] { return reader.Path(); });
    reader.Each(record.members, [&] { return GetMember(reader); });
    reader.Each(record.removedMembers, [&] { return reader.Text(); });
    reader.Each(record.broadcasts, [&] {
        CycleRecord::CBroadcast broadcast;
        broadcast.identifier = reader.Text();
        broadcast.messagePath = reader.Path();
        const std::uint64_t bits = reader.Number();
        broadcast.modes = {(bits & 1) != 0, (bits & 2) != 0, (bits & 4) != 0};
        return broadcast;
    });
    return reader.IsGood();
}
