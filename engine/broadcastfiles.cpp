#include "engine/broadcastfiles.h"

#include <algorithm>
#include <array>
#include <map>

#include "engine/crc32.h"
#include "platform/systemerror.h"
#include "utility/files.h"
#include "utility/formattext.h"
#include "utility/lasterror.h"
#include "utility/paths.h"
#include "utility/text.h"

namespace {

constexpr std::string_view Section = "Broadcast";
constexpr std::string_view SlotStart = "LHVBPOS1";
constexpr std::size_t GroupAt = 64;  // behind the numbers of the slot
constexpr std::size_t CheckAt = CBroadcastPosition::SlotSize - 4;
constexpr std::size_t BufferSize = 64 * 1024;

constexpr std::array<std::string_view, 3> StateNames = {"running", "done", "cancelled"};

constexpr std::array<std::string_view, 11> Keys = {"Subject", "Lists",    "Modes",  "State",   "Begun",  "Started",
                                                   "Total",   "Position", "Copies", "Skipped", "Blocked"};

template <class T>
void AppendNumber(std::string& bytes, T number) {
    for (std::size_t i = 0; i < sizeof(T); ++i)
        bytes.push_back(static_cast<char>(number >> (8 * i) & 0xFF));
}

template <class T>
T NumberAt(std::string_view bytes, std::size_t offset) {
    std::uint64_t number = 0;
    for (std::size_t i = 0; i < sizeof(T); ++i) {
        number |= static_cast<std::uint64_t>(static_cast<unsigned char>(bytes[offset + i])) << (8 * i);
    }
    return static_cast<T>(number);
}

std::string EncodeMark(const BroadcastMark& mark) {
    std::string slot(SlotStart);
    for (const std::uint64_t number :
         {mark.sequence, mark.offset, mark.position, mark.counts.copies, mark.counts.skipped, mark.counts.blocked}) {
        AppendNumber(slot, number);
    }
    AppendNumber(slot, static_cast<std::uint32_t>(mark.group.size()));
    slot.resize(GroupAt);
    for (const BroadcastMark::Name& name : mark.group) {
        AppendNumber(slot, name.list);
        AppendNumber(slot, static_cast<std::uint16_t>(name.name.size()));
        slot.append(name.name);
    }
    if (slot.size() > CheckAt) return {};
    slot.resize(CheckAt);
    AppendNumber(slot, Crc32(slot));
    return slot;
}

bool DecodeMark(std::string_view slot, BroadcastMark& mark) {
    if (slot.substr(0, SlotStart.size()) != SlotStart) return false;
    if (NumberAt<std::uint32_t>(slot, CheckAt) != Crc32(slot.substr(0, CheckAt))) return false;
    std::size_t at = SlotStart.size();
    for (std::uint64_t* number : {&mark.sequence, &mark.offset, &mark.position, &mark.counts.copies,
                                  &mark.counts.skipped, &mark.counts.blocked}) {
        *number = NumberAt<std::uint64_t>(slot, at);
        at += 8;
    }
    const auto count = NumberAt<std::uint32_t>(slot, at);
    mark.group.clear();
    at = GroupAt;
    for (std::uint32_t i = 0; i < count; ++i) {
        if (at + 6 > CheckAt) return false;
        const auto list = NumberAt<std::uint32_t>(slot, at);
        const auto size = NumberAt<std::uint16_t>(slot, at + 4);
        at += 6;
        if (at + size > CheckAt) return false;
        mark.group.push_back({list, std::string(slot.substr(at, size))});
        at += size;
    }
    return true;
}

std::string ModesText(const BroadcastModes& modes) {
    std::vector<std::string> names;
    if (modes.regular) names.emplace_back(DeliveryModeName(DeliveryMode::Regular));
    if (modes.both) names.emplace_back(DeliveryModeName(DeliveryMode::Both));
    if (modes.digest) names.emplace_back(DeliveryModeName(DeliveryMode::Digest));
    return Join(names, ",");
}

std::uint64_t NumberOf(const std::string& text) {
    return static_cast<std::uint64_t>(std::max<std::int64_t>(0, ParseNumber(text).value_or(0)));
}

}  // namespace

std::string BroadcastFile(std::string_view jobFolder, std::string_view name) {
    return JoinPath(jobFolder, name);
}

// Read whole: a key that cannot be read must not pass for one with its default.
bool ReadBroadcastSettings(std::string_view jobFolder, BroadcastSettings& settings) {
    const std::string path = BroadcastFile(jobFolder, BroadcastSettingsFile);
    std::string text;
    if (!ReadWholeFile(path, text)) return false;
    std::map<std::string, std::string, CLessNoCase> values;
    for (const std::string_view line : Split(text, '\n')) {
        const std::size_t equals = line.find('=');
        if (equals != std::string_view::npos)
            values.emplace(line.substr(0, equals), TrimRight(line.substr(equals + 1)));
    }
    for (const std::string_view key : Keys) {
        if (values.count(std::string(key)) != 0) continue;
        SetLastErrorFormat("\"%s\" is damaged: it has no \"%s\".", path.c_str(), std::string(key).c_str());
        return false;
    }
    const auto state = std::find(StateNames.begin(), StateNames.end(), values["State"]);
    if (state == StateNames.end()) {
        SetLastErrorFormat("\"%s\" is damaged: its state is unknown.", path.c_str());
        return false;
    }
    settings.state = static_cast<BroadcastSettings::State>(state - StateNames.begin());
    const std::string& subject = values["Subject"];
    settings.subject = subject.size() >= 2 ? subject.substr(1, subject.size() - 2) : std::string();
    settings.hasBegun = values["Begun"] == "1";
    settings.started = static_cast<std::int64_t>(NumberOf(values["Started"]));
    settings.total = NumberOf(values["Total"]);
    settings.position = NumberOf(values["Position"]);
    settings.counts = {NumberOf(values["Copies"]), NumberOf(values["Skipped"]), NumberOf(values["Blocked"])};
    settings.lists.clear();
    for (const std::string_view list : Split(values["Lists"], ',')) {
        if (const auto number = ParseNumber(list)) settings.lists.push_back(static_cast<std::uint32_t>(*number));
    }
    settings.modes = {false, false, false};
    for (const std::string_view name : Split(values["Modes"], ',')) {
        const auto mode = ParseDeliveryMode(name);
        settings.modes.regular |= mode == DeliveryMode::Regular;
        settings.modes.both |= mode == DeliveryMode::Both;
        settings.modes.digest |= mode == DeliveryMode::Digest;
    }
    return true;
}

bool WriteBroadcastSettings(std::string_view jobFolder, const BroadcastSettings& settings) {
    std::vector<std::string> lists;
    for (const std::uint32_t list : settings.lists)
        lists.push_back(std::to_string(list));
    std::string text = "[" + std::string(Section) + "]\n";
    const auto add = [&text](std::string_view key, std::string_view value) {
        text.append(key).append("=").append(value).append("\n");
    };
    add("Subject", "\"" + OneLine(settings.subject) + "\"");
    add("Lists", Join(lists, ","));
    add("Modes", ModesText(settings.modes));
    add("State", StateNames[static_cast<std::size_t>(settings.state)]);
    add("Begun", settings.hasBegun ? "1" : "0");
    add("Started", std::to_string(settings.started));
    add("Total", std::to_string(settings.total));
    add("Position", std::to_string(settings.position));
    add("Copies", std::to_string(settings.counts.copies));
    add("Skipped", std::to_string(settings.counts.skipped));
    add("Blocked", std::to_string(settings.counts.blocked));
    return WriteFileAtomically(BroadcastFile(jobFolder, BroadcastSettingsFile), text);
}

// Both slots get their room on the disk now: a full disk is to stop the copies,
// not the note of how far they came.
bool CBroadcastPosition::Create(const std::string& path) {
    std::string slots = EncodeMark({});
    slots.resize(2 * SlotSize);
    const bool done = m_file.Open(path, Platform::FileMode::CreateNew) &&
                      m_file.WriteAt(0, slots.data(), slots.size()) && m_file.Flush();
    if (!done) SetLastErrorFromSystem();
    return done;
}

bool CBroadcastPosition::Open(const std::string& path) {
    if (m_file.Open(path, Platform::FileMode::ReadWrite)) return true;
    SetLastErrorFromSystem();
    return false;
}

bool CBroadcastPosition::Read(BroadcastMark& mark) const {
    bool found = false;
    std::string slot(SlotSize, '\0');
    for (const std::uint64_t offset : {std::uint64_t{0}, std::uint64_t{SlotSize}}) {
        BroadcastMark candidate;
        Platform::SetLastSystemError(0);
        if (!m_file.ReadAt(offset, slot.data(), SlotSize)) {
            if (Platform::LastSystemError() == 0) continue;  // the file ends early
            SetLastErrorFromSystem();
            return false;
        }
        if (!DecodeMark(slot, candidate) || (found && candidate.sequence < mark.sequence)) continue;
        mark = std::move(candidate);
        found = true;
    }
    if (!found) SetLastErrorText("The position file of the broadcast is damaged.");
    return found;
}

bool CBroadcastPosition::Write(const BroadcastMark& mark) {
    const std::string slot = EncodeMark(mark);
    if (slot.size() != SlotSize) {
        SetLastErrorText("The names of the broadcast's copies are too long.");
        return false;
    }
    if (m_file.WriteAt(mark.sequence % 2 * SlotSize, slot.data(), slot.size()) && m_file.Flush()) return true;
    SetLastErrorFromSystem();
    return false;
}

bool CSnapshotWriter::Create(const std::string& path) {
    if (m_file.Open(path, Platform::FileMode::CreateNew)) return true;
    SetLastErrorFromSystem();
    return false;
}

bool CSnapshotWriter::Add(std::uint32_t list, std::int32_t index, std::string_view address) {
    m_buffer.append(std::to_string(list)).append("\t").append(std::to_string(index)).append("\t");
    m_buffer.append(OneLine(address)).append("\n");
    return m_buffer.size() < BufferSize || WriteBuffer();
}

bool CSnapshotWriter::Finish() {
    if (!WriteBuffer()) return false;
    if (m_file.Flush() && m_file.Close()) return true;
    SetLastErrorFromSystem();
    return false;
}

bool CSnapshotWriter::WriteBuffer() {
    const bool done = m_file.Write(m_buffer);
    if (!done) SetLastErrorFromSystem();
    m_buffer.clear();
    return done;
}

bool CSnapshotReader::Open(const std::string& path, std::uint64_t offset) {
    m_buffer.clear();
    m_taken = 0;
    m_offset = offset;
    if (m_file.Open(path, Platform::FileMode::Read) && m_file.GetSize(m_size)) return true;
    SetLastErrorFromSystem();
    return false;
}

// Reads on behind what is in the buffer.
bool CSnapshotReader::Fill() {
    m_buffer.erase(0, m_taken);
    m_taken = 0;
    const std::uint64_t from = m_offset + m_buffer.size();
    const std::size_t kept = m_buffer.size();
    const auto size = static_cast<std::size_t>(std::min<std::uint64_t>(BufferSize, m_size - from));
    m_buffer.resize(kept + size);
    if (size > 0 && m_file.ReadAt(from, m_buffer.data() + kept, size)) return true;
    if (size > 0) SetLastErrorFromSystem();
    m_buffer.resize(kept);
    return false;
}

CSnapshotReader::Step CSnapshotReader::Next(BroadcastMember& member) {
    std::size_t end = m_buffer.find('\n', m_taken);
    if (end == std::string::npos) {
        if (m_offset >= m_size) return Step::End;
        if (!Fill()) return Step::Failed;
        end = m_buffer.find('\n', m_taken);
    }
    const std::string_view line = std::string_view(m_buffer).substr(m_taken, end - m_taken);
    const auto columns = Split(line, '\t');
    const auto list = columns.size() == 3 ? ParseNumber(columns[0]) : std::nullopt;
    const auto index = columns.size() == 3 ? ParseNumber(columns[1]) : std::nullopt;
    if (end == std::string::npos || !list || !index) {
        SetLastErrorText("The snapshot of the broadcast is damaged.");
        return Step::Failed;
    }
    member.list = static_cast<std::uint32_t>(*list);
    member.index = static_cast<std::int32_t>(*index);
    member.address = columns[2];
    m_taken = end + 1;
    m_offset += line.size() + 1;
    return Step::Member;
}
