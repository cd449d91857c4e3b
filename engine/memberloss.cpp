// Members that were there and are no longer, without anybody having removed them: the index
// still knows their addresses.

#include <algorithm>
#include <iterator>

#include "engine/eventlog.h"
#include "engine/memberfiles.h"
#include "engine/memberstore.h"
#include "platform/filestatus.h"
#include "platform/systemerror.h"
#include "utility/files.h"
#include "utility/formattext.h"
#include "utility/lasterror.h"
#include "utility/text.h"

// A few that lie evenly: of a file that is zeros or another's bytes hardly one can be right.
bool CMemberFiles::HasForeignRecords() {
    constexpr std::int32_t Looked = 16;
    std::vector<std::byte> record;
    for (std::int32_t i = 0; i < std::min(Looked, m_recordCount); ++i) {
        const std::int32_t step = std::max(m_recordCount / Looked, 1);
        ReadBlock(i * step, 1, record);
        if (!CMemberRecord(record).IsRecord()) return true;
    }
    return false;
}

void CMemberFiles::CheckRecord(std::int32_t index, const CMemberRecord& record) const {
    if (!m_refusesDamaged || record.IsRecord()) return;
    throw CMembersDamaged(
        FormatText("Record %d of the members in %s is damaged: \"repair\" says whose it was.", index, m_path.c_str()));
}

// areZeros: all that are damaged lie at the end and are zeros, behind some that are not.
std::vector<std::int32_t> CMemberFiles::FindDamagedRecords(bool& areZeros) {
    constexpr std::int32_t Block = 256;
    std::vector<std::int32_t> damaged;
    std::vector<std::byte> records;
    const std::size_t size = GetRecordSize();
    areZeros = true;
    for (std::int32_t first = 0; first < m_recordCount; first += Block) {
        const std::int32_t count = std::min(Block, m_recordCount - first);
        ReadBlock(first, count, records);
        for (std::int32_t i = 0; i < count; ++i) {
            const auto bytes = std::span(records).subspan(static_cast<std::size_t>(i) * size, size);
            if (CMemberRecord(bytes).IsRecord()) {
                areZeros = areZeros && damaged.empty();
                continue;
            }
            damaged.push_back(first + i);
            areZeros =
                areZeros && std::all_of(bytes.begin(), bytes.end(), [](std::byte b) { return b == std::byte{0}; });
        }
    }
    areZeros = areZeros && static_cast<std::int32_t>(damaged.size()) < m_recordCount;
    return damaged;
}

// False when the index tells nothing.  A table that was packed is another file, and has some left.
bool CMemberFiles::CompareWithIndex(const std::vector<std::int32_t>& damaged, std::vector<std::string>& lost) {
    const auto isLost = [&](std::int32_t record) {
        return record >= m_recordCount || std::binary_search(damaged.begin(), damaged.end(), record);
    };
    try {
        if (!Platform::FileIsThere(m_indexPath) || WasLeftUnsynced()) return false;
        IndexState state;
        CSSIndex index;
        index.Open(m_indexPath, CSSIndex::Access::ReadOnly);
        if (!index.ReadState(state) || !state.settled) return false;
        if (m_recordCount > 0 && state.tableIdentity != m_identity) return false;
        if (damaged.empty() && state.recordCount <= m_recordCount) return true;
        index.ForEach([&](std::string_view key, std::int32_t record) {
            if (isLost(record)) lost.emplace_back(key);
        });
        return true;
    } catch (const CLhvException&) {
        lost.clear();
        return false;
    }
}

std::vector<std::string> CMemberFiles::ReadLost() const {
    std::vector<std::string> lost;
    std::string text;
    if (!Platform::FileIsThere(m_lostPath)) return lost;
    if (!ReadWholeFile(m_lostPath, text)) throw CLhvException(m_lostPath + ": " + DescribeLastError());
    for (const std::string_view line : Split(text, '\n')) {
        if (!Trim(line).empty()) lost.emplace_back(Trim(line));
    }
    std::sort(lost.begin(), lost.end());
    return lost;
}

std::vector<std::string> CMemberFiles::FindLost() {
    std::vector<std::string> lost;
    CompareWithIndex({}, lost);
    const std::vector<std::string> noted = ReadLost();
    for (const std::string& address : noted) {
        if (Find(address) < 0) lost.push_back(address);
    }
    std::sort(lost.begin(), lost.end());
    lost.erase(std::unique(lost.begin(), lost.end()), lost.end());
    if (!noted.empty() && lost.empty() && Platform::RemoveFile(m_lostPath)) {
        Log(LogInfo, "All members that were lost from %s are there again.", m_path.c_str());
    }
    return lost;
}

// What was being appended when the machine failed can be zeros at the end: nobody was told that
// it was stored.
void CMemberFiles::NoteLost() {
    bool areZeros = false;
    const std::vector<std::int32_t> damaged = FindDamagedRecords(areZeros);
    std::vector<std::string> lost;
    if (!CompareWithIndex(damaged, lost) && !areZeros) {
        for (const std::int32_t record : damaged)
            lost.push_back(FormatText("record %d", record));
    }
    if (lost.empty()) return;
    const std::vector<std::string> noted = ReadLost();
    std::vector<std::string> all;
    std::sort(lost.begin(), lost.end());
    std::set_union(noted.begin(), noted.end(), lost.begin(), lost.end(), std::back_inserter(all));
    if (all == noted) return;
    Log(LogError, "%d members have been lost from %s; %s names them.", static_cast<int>(all.size()), m_path.c_str(),
        m_lostPath.c_str());
    if (!WriteFileAtomically(m_lostPath, Join(all, "\n") + "\n")) {
        throw CLhvException(m_lostPath + ": " + DescribeLastError());
    }
}

void CMemberFiles::ForgetLost() {
    RequireWritable();
    if (Platform::FileIsThere(m_lostPath) && !Platform::RemoveFile(m_lostPath)) {
        throw CLhvException(m_lostPath + " cannot be removed.", Platform::LastSystemError());
    }
    RemoveIndex();
    if (m_recordCount > 0) RebuildIndex();
}

std::string DescribeLostMembers(const std::vector<std::string>& lost) {
    constexpr std::size_t Named = 10;
    if (lost.empty()) return {};
    std::string names;
    for (std::size_t i = 0; i < std::min(lost.size(), Named); ++i)
        names += (i > 0 ? ", " : "") + OneLine(lost[i]);
    if (lost.size() > Named) names += ", ...";
    return FormatText(
        "%d members of the list have been lost (%s) and would be taken for strangers: its mail is left where it is "
        "until they are members again, or \"repair --accept-loss\" lets the list go on without them.",
        static_cast<int>(lost.size()), names.c_str());
}
