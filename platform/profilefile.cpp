#include "platform/profilefile.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <charconv>
#include <cstdint>
#include <limits>
#include <map>
#include <memory>
#include <mutex>

#include "platform/errorcodes.h"
#include "platform/file.h"
#include "platform/filemode.h"
#include "platform/filestatus.h"
#include "platform/namedmutex.h"
#include "platform/process.h"
#include "platform/profileparser.h"

namespace Platform {

namespace {

std::string FolderOf(const std::string& fullPath) {
    return fullPath.substr(0, fullPath.find_last_of("/\\") + 1);
}

bool ReadAll(const std::string& path, std::string& text, FileMode mode = FileMode::Read) {
    CFile file;
    if (!file.Open(path, mode)) return false;
    // To the end rather than by the size: the file may be one that is written in place.
    std::array<char, 16384> part;
    for (;;) {
        std::size_t got = 0;
        const bool whole = file.ReadAt(text.size(), part.data(), part.size(), &got);
        if (!whole && LastSystemError() != 0) return false;
        text.append(part.data(), got);
        if (!whole) return true;
    }
}

// 0: none.  Numbers are given once, so that a stay that has ended is not taken for a later one.
thread_local std::uint64_t t_stay = 0;
thread_local int t_stays = 0;

std::uint64_t NextStay() {
    static std::atomic<std::uint64_t> last{0};
    return ++last;
}

class CProfileCache {
public:
    // nullptr, with the reason in LastSystemError(), when the file is missing
    // or cannot be read.
    std::shared_ptr<const CProfileText> Get(const std::string& path) {
        const std::lock_guard lock(m_guard);
        const auto found = m_entries.find(path);
        if (t_stay != 0 && found != m_entries.end() && found->second.stay == t_stay) return found->second.text;
        FileStatus status;
        if (!GetFileStatus(path, status)) {
            m_entries.erase(path);
            return nullptr;
        }
        if (found == m_entries.end() || !found->second.IsFor(status)) return Load(path, status);
        found->second.lastUse = ++m_uses;
        found->second.stay = t_stay;
        return found->second.text;
    }

    void Forget(const std::string& path) {
        const std::lock_guard lock(m_guard);
        m_entries.erase(path);
    }

private:
    static constexpr std::size_t MaxFiles = 64;

    // A file that changed this short a time before it was read can change
    // again without its time stamp showing it.
    static constexpr std::int64_t StampDoubt = 50'000'000;

    struct Entry {
        std::shared_ptr<const CProfileText> text;
        std::uint64_t identity = 0;
        std::uint64_t size = 0;
        std::int64_t modified = 0;
        bool settled = false;
        std::uint64_t lastUse = 0;
        std::uint64_t stay = 0;  // of the thread that looked last

        bool IsFor(const FileStatus& status) const {
            return settled && identity == status.identity && size == status.size && modified == status.times.modified;
        }
    };

    std::shared_ptr<const CProfileText> Load(const std::string& path, const FileStatus& status) {
        const std::int64_t now = NanosecondsSince1970();
        std::string content;
        if (!ReadAll(path, content)) return nullptr;
        Entry entry;
        entry.settled = now - status.times.modified > StampDoubt && content.size() == status.size;
        entry.text = std::make_shared<const CProfileText>(std::move(content));
        entry.identity = status.identity;
        entry.size = status.size;
        entry.modified = status.times.modified;
        entry.lastUse = ++m_uses;
        entry.stay = t_stay;
        if (m_entries.size() >= MaxFiles && m_entries.find(path) == m_entries.end())
            m_entries.erase(std::min_element(m_entries.begin(), m_entries.end(), [](const auto& a, const auto& b) {
                return a.second.lastUse < b.second.lastUse;
            }));
        return (m_entries[path] = std::move(entry)).text;
    }

    std::mutex m_guard;
    std::map<std::string, Entry, std::less<>> m_entries;
    std::uint64_t m_uses = 0;
};

CProfileCache& Cache() {
    static CProfileCache* const cache = new CProfileCache;  // outlives every other static object
    return *cache;
}

bool WriteFlushed(const std::string& path, std::string_view content, FileAccess access, const std::string& modeOf) {
    CFile file;
    if (!file.Open(path, FileMode::CreateNew, access)) return false;
    return (modeOf.empty() || CopyFileMode(modeOf, path)) && file.Write(content) && file.Flush() && file.Close();
}

// The name is new each time, so that not even writers who do not see each
// other's mutex can mix their bytes.
bool Replace(const std::string& path, std::string_view content, bool isThere) {
    static std::atomic<unsigned> counter{0};
    const std::string temporary = path + '.' + std::to_string(CurrentProcessId()) + '-' +
                                  std::to_string(NanosecondsSince1970()) + '-' + std::to_string(++counter) + ".tmp";
    const bool renamed = WriteFlushed(temporary, content, isThere ? FileAccess::Private : FileAccess::Group,
                                      isThere ? path : std::string()) &&
                         RenameReplacing(temporary, path);
    if (!renamed) {
        const SystemError code = LastSystemError();
        RemoveFile(temporary);
        SetLastSystemError(code);
        return false;
    }
    Cache().Forget(path);
    return FlushFolder(FolderOf(path));
}

// change(old text) gives the new text.
template <class F>
bool Change(std::string_view givenPath, F change) {
    const std::string path = NameForLibraries(givenPath);
    if (path.empty()) {
        SetLastSystemError(InvalidArgumentError());
        return false;
    }
    CNamedMutex mutex("Vantorel.Listhaven.3.Profile" + path);
    mutex.Lock();
    struct Unlocker {
        CNamedMutex& held;
        ~Unlocker() { held.Unlock(); }
    } const unlocker{mutex};

    std::string content;
    const bool isThere = ReadAll(path, content, FileMode::ReadWrite);  // fails for a file that is read-only
    if (!isThere && !IsNotFound(LastSystemError())) return false;
    const CProfileText text(content);
    if (text.HoldsBinaryData()) {
        SetLastSystemError(InvalidArgumentError());
        return false;
    }
    const std::string changed = change(text);
    if (changed == content) return !isThere || FlushFolder(FolderOf(path));  // a former flush may have failed
    return Replace(path, changed, isThere);
}

bool IsWritable(std::string_view path, std::string_view section, std::string_view key, std::string_view value) {
    const bool good = !path.empty() && path.find('\0') == path.npos && IsProfileSection(section) && IsProfileKey(key) &&
                      IsProfileValue(value);
    if (!good) SetLastSystemError(InvalidArgumentError());
    return good;
}

}  // namespace

std::string ReadProfileText(std::string_view path, std::string_view section, std::string_view key,
                            std::string_view defaultValue, std::size_t maxLength) {
    const auto text = Cache().Get(NameForLibraries(path));
    const ProfileLine* line = text ? text->Find(section, key) : nullptr;
    const std::string_view value = line ? line->value : defaultValue;
    return std::string(maxLength > 0 ? value.substr(0, maxLength) : value);
}

int ReadProfileNumber(std::string_view path, std::string_view section, std::string_view key, int defaultValue) {
    const auto text = Cache().Get(NameForLibraries(path));
    const ProfileLine* line = text ? text->Find(section, key) : nullptr;
    if (!line) return defaultValue;
    std::string_view value = TrimProfileText(line->value);
    if (value.size() > 1 && value[0] == '+' && value[1] != '-') value.remove_prefix(1);
    int number = 0;
    if (std::from_chars(value.data(), value.data() + value.size(), number).ec == std::errc::result_out_of_range)
        return value.front() == '-' ? std::numeric_limits<int>::min() : std::numeric_limits<int>::max();
    return number;
}

bool WriteProfileText(std::string_view path, std::string_view section, std::string_view key, std::string_view value) {
    if (!IsWritable(path, section, key, value)) return false;
    return Change(path, [&](const CProfileText& text) { return text.WithKey(section, key, value); });
}

bool RemoveProfileKey(std::string_view path, std::string_view section, std::string_view key) {
    if (!IsWritable(path, section, key, {})) return false;
    return Change(path, [&](const CProfileText& text) { return text.WithoutKey(section, key); });
}

std::vector<std::string> ReadProfileKeys(std::string_view path, std::string_view section) {
    const auto text = Cache().Get(NameForLibraries(path));
    return text ? text->Keys(section) : std::vector<std::string>();
}

std::optional<ProfileFault> CheckProfileFile(std::string_view path) {
    std::string content;
    if (!ReadAll(NameForLibraries(path), content)) {
        const SystemError code = LastSystemError();
        if (IsNotFound(code)) return std::nullopt;
        return ProfileFault{1, SystemErrorText(code)};
    }
    const CProfileText text(content);
    for (std::size_t at = 0; at < text.GetLines().size(); ++at) {
        const ProfileLine& line = text.GetLines()[at];
        const std::string_view raw = std::string_view(content).substr(line.begin, line.end - line.begin);
        if (raw.find('\0') != raw.npos) return ProfileFault{at + 1, "binary data"};
        if (line.kind == ProfileLine::Kind::Other)
            return ProfileFault{at + 1, TrimProfileText(raw).starts_with('[') ? "no \"]\"" : "no key before a \"=\""};
    }
    return std::nullopt;
}

CProfileStay::CProfileStay() noexcept {
    if (t_stays++ == 0) t_stay = NextStay();
}
CProfileStay::~CProfileStay() {
    if (--t_stays == 0) t_stay = 0;
}

}  // namespace Platform
