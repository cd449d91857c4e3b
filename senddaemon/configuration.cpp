#include "senddaemon/configuration.h"

#include <atomic>
#include <map>
#include <mutex>
#include <set>
#include <vector>

#include "app/datafolder.h"
#include "platform/clock.h"
#include "platform/filestatus.h"
#include "platform/knownfolders.h"
#include "platform/profilefile.h"
#include "utility/files.h"
#include "utility/lasterror.h"
#include "utility/lhvexception.h"
#include "utility/paths.h"
#include "utility/text.h"

namespace SendDaemon {

namespace {

constexpr std::string_view SectionName = "Configuration";
constexpr std::size_t MaxStoredValue = 1023;
constexpr std::uint32_t RefreshInterval = 100;  // milliseconds
constexpr std::string_view SourceName = "Shared/SendDaemon/configuration";

bool IsLetter(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}
bool IsDigit(char c) {
    return c >= '0' && c <= '9';
}

std::string Escape(std::string_view value) {
    std::string escaped(value);
    ReplaceAll(escaped, "\\", "\\\\");
    ReplaceAll(escaped, "\n", "\\n");
    ReplaceAll(escaped, "\r", "\\r");
    return escaped;
}

std::string Unescape(std::string_view stored) {
    std::string value;
    value.reserve(stored.size());
    for (std::size_t i = 0; i < stored.size(); ++i) {
        if (stored[i] != '\\' || i + 1 == stored.size()) {
            value += stored[i];
            continue;
        }
        ++i;
        value += stored[i] == 'n' ? '\n' : stored[i] == 'r' ? '\r' : stored[i];
    }
    return value;
}

// Grows with every value written by this process.
std::atomic<std::uint64_t>& GetGeneration() {
    static std::atomic<std::uint64_t> generation{1};
    return generation;
}

}  // namespace

// The values are kept, since the dispatcher asks several for each message.
struct CConfiguration::CState {
    mutable std::mutex lock;
    std::string path;
    std::uint64_t generation = 0;  // in which the values were read; 0: never
    std::uint32_t readClock = 0;   // when
    std::map<std::string, std::string, CLessNoCase> values;

    void Refresh();
};

// What has not changed stays where it is: made anew ten times a second, the
// values would end up all over the memory of a busy hour.
void CConfiguration::CState::Refresh() {
    const std::uint64_t current = GetGeneration();
    const std::uint32_t now = Platform::ClockMilliseconds();
    if (generation == current && now - readClock < RefreshInterval) return;
    generation = current;
    readClock = now;
    const std::vector<std::string> keys = Platform::ReadProfileKeys(path, SectionName);
    if (keys.empty() && Platform::FileIsThere(path)) return;  // it cannot be read just now
    for (const std::string& key : keys) {
        const std::string value = Unescape(Platform::ReadProfileText(path, SectionName, key, {}, MaxStoredValue));
        const auto [kept, isNew] = values.try_emplace(key, value);
        if (!isNew && kept->second != value) kept->second = value;
    }
    if (values.size() == keys.size()) return;
    const std::set<std::string_view, CLessNoCase> there(keys.begin(), keys.end());
    std::erase_if(values, [&](const auto& value) { return !there.contains(value.first); });
}

CConfiguration::CConfiguration(std::string_view path) : m_state(std::make_unique<CState>()) {
    m_state->path = path;
}

CConfiguration::CConfiguration(const CConfiguration& other) : CSubject(other), m_state(std::make_unique<CState>()) {
    m_state->path = other.GetPath();
}

CConfiguration& CConfiguration::operator=(const CConfiguration& other) {
    if (this == &other) return *this;
    std::string path = other.GetPath();
    const std::lock_guard guard(m_state->lock);
    m_state->path = std::move(path);
    m_state->generation = 0;
    m_state->values.clear();
    return *this;
}

CConfiguration::~CConfiguration() = default;

bool CConfiguration::IsValidKey(std::string_view key) noexcept {
    if (key.empty() || !IsLetter(key.front())) return false;
    for (const char c : key) {
        if (!IsLetter(c) && !IsDigit(c)) return false;
    }
    return true;
}

bool CConfiguration::GetValue(std::string_view key, std::string& value) const {
    value.clear();
    if (!IsValidKey(key)) {
        SetLastErrorText(InternalErrorText(SourceName, __LINE__, InternalErrorKind::InvalidArguments));
        return false;
    }
    const std::lock_guard guard(m_state->lock);
    m_state->Refresh();
    const auto found = m_state->values.find(key);
    if (found != m_state->values.end()) value = found->second;
    return true;
}

std::string CConfiguration::GetText(std::string_view key) const {
    std::string value;
    GetValue(key, value);
    return value;
}

bool CConfiguration::GetFileName(std::string_view key, std::string& path) const {
    if (!GetValue(key, path)) return false;
    const bool hasDrive = path.size() > 1 && path[1] == ':';
    if (hasDrive && Platform::PathSeparator() == '/') {
        SetLastErrorFormat("%s is \"%s\", which another system has.", std::string(key).c_str(), path.c_str());
        return false;
    }
    if (!path.empty() && !hasDrive && path.find_first_of("/\\") != 0) path = JoinPath(GetDataFolder(), path);
    return true;
}

std::int32_t CConfiguration::GetNumber(std::string_view key) const {
    return LeadingNumber(GetText(key));
}

bool CConfiguration::GetNumberWithin(std::string_view key, std::int32_t lowest, std::int32_t highest,
                                     std::int32_t& number) const {
    std::string text;
    if (!GetValue(key, text)) return false;
    if (Trim(text).empty()) return true;
    const auto value = ParseNumber(Trim(text));
    if (!value || *value < lowest || *value > highest) {
        SetLastErrorFormat("%s is \"%s\"; it must be a number from %d to %d.", std::string(key).c_str(), text.c_str(),
                           lowest, highest);
        return false;
    }
    number = static_cast<std::int32_t>(*value);
    return true;
}

bool CConfiguration::SetValue(std::string_view key, std::string_view value) {
    if (!IsValidKey(key)) {
        SetLastErrorText(InternalErrorText(SourceName, __LINE__, InternalErrorKind::InvalidArguments));
        return false;
    }
    {
        const std::lock_guard guard(m_state->lock);
        const std::string folder = ParentFolder(m_state->path);
        if (!folder.empty() && !EnsureFolder(folder)) return false;
        if (!Platform::WriteProfileText(m_state->path, SectionName, key, Escape(value))) {
            SetLastErrorFromSystem();
            return false;
        }
        ++GetGeneration();
    }
    Notify({.kind = 0, .key = std::string(key), .value = std::string(value)});
    return true;
}

std::string CConfiguration::GetPath() const {
    const std::lock_guard guard(m_state->lock);
    return m_state->path;
}

}  // namespace SendDaemon
