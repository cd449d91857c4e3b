#include "engine/incoming/digests.h"

#include <algorithm>
#include <functional>
#include <span>
#include <string_view>
#include <tuple>

#include "app/datafolder.h"
#include "engine/broadcastjob.h"
#include "engine/catalogue.h"
#include "engine/eventlog.h"
#include "platform/file.h"
#include "platform/filestatus.h"
#include "platform/profilefile.h"
#include "platform/profileparser.h"
#include "platform/systemerror.h"
#include "senddaemon/messageiterator.h"
#include "utility/files.h"
#include "utility/lasterror.h"
#include "utility/lhvexception.h"
#include "utility/paths.h"
#include "utility/text.h"
#include "utility/uniquename.h"

namespace {

constexpr std::string_view OpenFolder = "Open";
constexpr std::string_view SendingStart = "Sending-";  // NUMBER-BROADCAST
constexpr std::string_view SentStart = "Sent-";        // likewise; to be removed
constexpr std::string_view UnreadableFolder = "Unreadable";
constexpr std::string_view StateFile = "digest.cfg";
constexpr std::string_view Section = "Digest";
constexpr std::string_view DigestFile = "digest.tmp";  // in the folder of a digest that is being sent
constexpr std::int64_t Hour = 3600;

std::string DigestFolder(std::uint32_t list) {
    return JoinPath(JoinPath(GetDataFolder(), "Digests"), std::to_string(list));
}

std::string StatePath(std::uint32_t list) {
    return JoinPath(DigestFolder(list), StateFile);
}

bool ForEachEntry(std::uint32_t list,
                  const std::function<void(const std::string& path, const Platform::FileStatus& status)>& visit) {
    const std::string folder = GetDigestEntryFolder(list);
    if (!Platform::FolderIsThere(folder)) return true;
    return ListFolder(folder, "*", [&](const std::string& batch, bool isFolder) {
        if (!isFolder || batch.front() == '.') return true;
        const std::string batchFolder = JoinPath(folder, batch);
        return ListFolder(batchFolder, "*.eml", [&](const std::string& name, bool isSubFolder) {
            const std::string path = JoinPath(batchFolder, name);
            Platform::FileStatus status;
            if (!isSubFolder && Platform::GetFileStatus(path, status)) visit(path, status);
            return true;
        });
    });
}

// All that wait, which can be very many.
struct CCollected {
    std::uint64_t count = 0;
    std::int64_t first = 0;  // nanoseconds since 1970

    bool Find(std::uint32_t list) {
        return ForEachEntry(list, [this](const std::string&, const Platform::FileStatus& status) {
            first = count == 0 ? status.times.modified : std::min(first, status.times.modified);
            ++count;
        });
    }
};

struct CEntry {
    std::string path;
    std::int64_t collected = 0;  // nanoseconds since 1970
    std::uint64_t size = 0;
};

// In the order in which they were collected.
bool FindEntries(std::uint32_t list, std::vector<CEntry>& entries) {
    const bool isListed = ForEachEntry(list, [&](const std::string& path, const Platform::FileStatus& status) {
        entries.push_back({path, status.times.modified, status.size});
    });
    std::sort(entries.begin(), entries.end(), [](const CEntry& a, const CEntry& b) {
        return std::tie(a.collected, a.path) < std::tie(b.collected, b.path);
    });
    return isListed;
}

std::uint32_t AsNumber(std::string_view text) {
    const std::int64_t number = ParseNumber(text).value_or(0);
    return number > 0 && number <= 0xFFFFFFFF ? static_cast<std::uint32_t>(number) : 0;
}

// Read whole: a state that cannot be read must not pass for that of a list's first digest.
bool ReadState(std::uint32_t list, CDigestState& state) {
    std::string text;
    if (!ReadWholeFile(StatePath(list), text) && !Platform::IsNotFound(Platform::LastSystemError())) return false;
    const Platform::CProfileText profile(std::move(text));
    const auto value = [&](std::string_view key) {
        const Platform::ProfileLine* line = profile.Find(Section, key);
        return line != nullptr ? line->value : std::string_view();
    };
    state.number = AsNumber(value("Number"));
    state.lastSent = std::max<std::int64_t>(0, ParseNumber(value("LastSent")).value_or(0));
    state.format = EqualNoCase(value("Format"), "plain") ? DigestFormat::Plain : DigestFormat::Multipart;
    return true;
}

bool WriteState(std::uint32_t list, std::string_view key, std::string_view value) {
    if (!EnsureFolder(DigestFolder(list))) return false;
    if (Platform::WriteProfileText(StatePath(list), Section, key, value)) return true;
    SetLastErrorFromSystem();
    return false;
}

// Digest number, identifier of its broadcast, and the folder that bears them.
struct CSending {
    std::uint32_t number = 0;
    std::string broadcast;
    std::string folder;
};

bool ParseSending(const std::string& parent, const std::string& name, CSending& sending) {
    if (!name.starts_with(SendingStart)) return false;
    const auto parts = Split(std::string_view(name).substr(SendingStart.size()), '-');
    if (parts.size() != 2) return false;
    sending = {AsNumber(parts[0]), std::string(parts[1]), JoinPath(parent, name)};
    return sending.number > 0 && !sending.broadcast.empty();
}

// The files of a digest have names that begin with their place in it.
bool ListSendingEntries(const std::string& folder, std::vector<std::string>& paths) {
    const bool isListed = ListFolder(folder, "*.eml", [&](const std::string& name, bool isFolder) {
        if (!isFolder) paths.push_back(JoinPath(folder, name));
        return true;
    });
    std::sort(paths.begin(), paths.end());
    return isListed;
}

std::string PlaceName(std::size_t place) {
    std::string digits = std::to_string(place);
    return std::string(digits.size() < 6 ? 6 - digits.size() : 0, '0') + digits + ".eml";
}

bool MakeBroadcast(std::uint32_t list, const CSending& sending, std::span<const std::string> entries,
                   DigestFormat format, std::int64_t now) {
    BroadcastList settings;
    if (!ReadBroadcastList(list, settings)) return false;
    CMimeMessage digest;
    if (!MakeDigest(entries, format, sending.number, settings, now, digest)) return false;
    const std::string path = JoinPath(sending.folder, DigestFile);
    if (!digest.Save(path)) return false;
    return CBroadcastJobs().CreateAs(sending.broadcast, path, {list}, {.regular = false, .both = true, .digest = true});
}

// A fault that passes must not cost a message its place, one that stays must
// not keep the others waiting.
bool SetUnreadableAside(std::uint32_t list, std::vector<std::string>& entries) {
    const std::string folder = JoinPath(DigestFolder(list), UnreadableFolder);
    std::vector<std::string> readable;
    for (std::string& path : entries) {
        std::string text;
        if (ReadWholeFile(path, text)) {
            readable.push_back(std::move(path));
            continue;
        }
        const std::string reason = DescribeLastError();
        std::string newPath;
        if (!EnsureFolder(folder) || !MoveToUniqueName(path, folder, "eml", newPath)) return false;
        Log(LogError, "A message of the digest of list %u cannot be read, and is kept as %s: %s", list, newPath.c_str(),
            reason.c_str());
    }
    entries = std::move(readable);
    return true;
}

bool Flush(const std::vector<std::string>& folders) {
    return std::all_of(folders.begin(), folders.end(), [](const std::string& folder) {
        if (Platform::FlushFolder(folder)) return true;
        SetLastErrorFromSystem();
        return false;
    });
}

bool RemoveSent(const std::string& folder) {
    if (RemoveFolderTree(folder)) return true;
    Log(LogWarning, "What is left of a digest cannot be removed: %s", DescribeLastError().c_str());
    return true;  // it harms nothing, and the next call tries again
}

enum class Attempt { First, Again };

// From the moved entries to the removed folder, wherever it had come to.  The
// moves are on the disk before the broadcast is, or a power failure could bring
// an entry back.
bool FinishSending(std::uint32_t list, const CSending& sending, Attempt attempt, std::int64_t now, bool& sent) {
    std::vector<std::string> entries;
    if (!ListSendingEntries(sending.folder, entries)) return false;
    const bool isMade = CBroadcastJobs().Exists(sending.broadcast);
    if (!isMade && attempt == Attempt::Again && !SetUnreadableAside(list, entries)) return false;
    if (entries.empty()) return RemoveFolderTree(sending.folder);  // the crash came before the first was moved
    if (!Flush({ParentFolder(sending.folder), sending.folder})) return false;
    CDigestState state;
    if (!ReadState(list, state)) return false;
    if (!isMade && !MakeBroadcast(list, sending, entries, state.format, now)) return false;
    const bool isNoted = WriteState(list, "Number", std::to_string(std::max(state.number, sending.number))) &&
                         WriteState(list, "LastSent", std::to_string(now));
    if (!isNoted) return false;
    const std::string parent = DigestFolder(list);
    const std::string done =
        JoinPath(parent, std::string(SentStart) + LastPathComponent(sending.folder).substr(SendingStart.size()));
    if (!Platform::RenameReplacing(sending.folder, done)) {
        SetLastErrorFromSystem();
        return false;
    }
    Platform::FlushFolder(parent);
    sent = true;
    Log(LogInfo, "Digest #%u of list %u holds %zu messages and is broadcast %s.", sending.number, list, entries.size(),
        sending.broadcast.c_str());
    return RemoveSent(done);
}

// What a crash has left; the folders are looked at one after the other.
bool FinishInterrupted(std::uint32_t list, std::int64_t now, bool& sent) {
    const std::string folder = DigestFolder(list);
    if (!Platform::FolderIsThere(folder)) return true;
    std::vector<CSending> interrupted;
    std::vector<std::string> done;
    const bool isListed = ListFolder(folder, "*", [&](const std::string& name, bool isFolder) {
        CSending sending;
        if (isFolder && ParseSending(folder, name, sending)) interrupted.push_back(sending);
        if (isFolder && name.starts_with(SentStart)) done.push_back(JoinPath(folder, name));
        return true;
    });
    if (!isListed) return false;
    for (const std::string& sentFolder : done)
        RemoveSent(sentFolder);
    return std::all_of(interrupted.begin(), interrupted.end(), [&](const CSending& sending) {
        return FinishSending(list, sending, Attempt::Again, now, sent);
    });
}

// As many entries as one digest takes, from the front; they are taken off.
std::vector<CEntry> TakeEntries(std::vector<CEntry>& entries) {
    std::size_t count = 0;
    std::uint64_t bytes = 0;
    while (count < entries.size() && count < DigestLimit::MaxEntries) {
        bytes += entries[count].size;
        if (count > 0 && bytes > DigestLimit::MaxBytes) break;
        ++count;
    }
    const auto end = entries.begin() + static_cast<std::ptrdiff_t>(count);
    std::vector<CEntry> taken(entries.begin(), end);
    entries.erase(entries.begin(), end);
    return taken;
}

// Each is in one place at every moment.
bool MoveEntries(const std::vector<CEntry>& entries, const CSending& sending) {
    if (!Platform::MakeFolder(sending.folder)) {
        SetLastErrorFromSystem();
        return false;
    }
    std::vector<std::string> batches;
    for (std::size_t i = 0; i < entries.size(); ++i) {
        if (!Platform::RenameNew(entries[i].path, JoinPath(sending.folder, PlaceName(i)))) {
            SetLastErrorFromSystem();
            return false;
        }
        const std::string batch = ParentFolder(entries[i].path);
        if (std::find(batches.begin(), batches.end(), batch) == batches.end()) batches.push_back(batch);
    }
    return Flush(batches);
}

bool SendCollected(std::uint32_t list, std::vector<CEntry> entries, std::int64_t now, bool& sent) {
    while (!entries.empty()) {
        CDigestState state;
        if (!ReadState(list, state)) return false;
        CSending sending{state.number + 1, CBroadcastJobs().NewIdentifier(), {}};
        const std::string name = std::string(SendingStart) + std::to_string(sending.number) + "-" + sending.broadcast;
        sending.folder = JoinPath(DigestFolder(list), name);
        if (!MoveEntries(TakeEntries(entries), sending) || !FinishSending(list, sending, Attempt::First, now, sent))
            return false;
    }
    return true;
}

struct CDigestRule {
    bool byTime = false;
    std::int64_t hours = 0;
    bool byCount = false;
    std::int64_t count = 0;
};

bool ReadRule(std::uint32_t list, CDigestRule& rule) {
    CCatalogue& catalogue = GetCatalogue();
    const std::int32_t index = catalogue.FindByNumber(list);
    if (index == CCatalogue::None) {
        SetLastErrorFormat("There is no list %u.", list);
        return false;
    }
    rule.byTime = catalogue.GetFlag(index, ListColumn::DigestByTime);
    rule.hours = std::max<std::int64_t>(0, catalogue.GetNumber(index, ListColumn::DigestHours));
    rule.byCount = catalogue.GetFlag(index, ListColumn::DigestByCount);
    rule.count = std::max<std::int64_t>(1, catalogue.GetNumber(index, ListColumn::DigestCount));
    return true;
}

std::int64_t NextDue(const CDigestRule& rule, std::int64_t lastSent, const CCollected& collected, std::int64_t now) {
    if (!rule.byTime || collected.count == 0) return 0;
    const std::int64_t first = collected.first / 1'000'000'000;
    const std::int64_t since = lastSent > 0 && lastSent <= now ? lastSent : first;
    return since > now ? now : since + rule.hours * Hour;  // what the clock says of later is not believed
}

// Stores throw; here they fail like everything else.
template <class Function>
bool Try(Function function) {
    try {
        return function();
    } catch (const CLhvException& exception) {
        SetLastErrorFromException(exception);
        return false;
    }
}

}  // namespace

std::string GetDigestEntryFolder(std::uint32_t listNumber) {
    return JoinPath(DigestFolder(listNumber), OpenFolder);
}

bool ReadDigestState(std::uint32_t listNumber, CDigestState& state) {
    return Try([&] {
        CDigestRule rule;
        std::vector<CEntry> entries;
        if (!ReadRule(listNumber, rule) || !FindEntries(listNumber, entries)) return false;
        if (!ReadState(listNumber, state)) return false;
        const CCollected collected{entries.size(), entries.empty() ? 0 : entries.front().collected};
        state.nextDue = NextDue(rule, state.lastSent, collected, Platform::SecondsSince1970());
        state.isAutomatic = rule.byTime || rule.byCount;
        state.entries.clear();
        for (CEntry& entry : entries)
            state.entries.push_back(std::move(entry.path));
        return true;
    });
}

bool SetDigestFormat(std::uint32_t listNumber, DigestFormat format) {
    return WriteState(listNumber, "Format", format == DigestFormat::Plain ? "plain" : "multipart");
}

bool HasDigestWork(std::uint32_t listNumber) {
    const std::string folder = DigestFolder(listNumber);
    if (!Platform::FolderIsThere(folder)) return false;
    bool isInterrupted = false;
    ListFolder(folder, "*", [&](const std::string& name, bool isFolder) {
        isInterrupted = isFolder && (name.starts_with(SendingStart) || name.starts_with(SentStart));
        return !isInterrupted;
    });
    CMessageIterator iterator;
    std::string path;
    return isInterrupted || (iterator.Start(GetDigestEntryFolder(listNumber)) && iterator.PeekCurrent(path));
}

bool SendDigestIfDue(std::uint32_t listNumber, std::int64_t now, bool& sent) {
    sent = false;
    return Try([&] {
        CDigestRule rule;
        CCollected collected;
        if (!FinishInterrupted(listNumber, now, sent)) return false;
        if (!ReadRule(listNumber, rule) || !collected.Find(listNumber)) return false;
        if (collected.count == 0) return true;
        CDigestState state;
        if (!ReadState(listNumber, state)) return false;
        const bool isFull = rule.byCount && collected.count >= static_cast<std::uint64_t>(rule.count);
        const std::int64_t due = NextDue(rule, state.lastSent, collected, now);
        if (!isFull && (!rule.byTime || now < due)) return true;
        std::vector<CEntry> entries;
        return FindEntries(listNumber, entries) && SendCollected(listNumber, std::move(entries), now, sent);
    });
}

bool SendDigest(std::uint32_t listNumber, std::int64_t now, bool& sent) {
    sent = false;
    return Try([&] {
        std::vector<CEntry> entries;
        return FinishInterrupted(listNumber, now, sent) && FindEntries(listNumber, entries) &&
               SendCollected(listNumber, std::move(entries), now, sent);
    });
}
