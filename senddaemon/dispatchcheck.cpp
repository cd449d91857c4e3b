#include "senddaemon/dispatchcheck.h"

#include <algorithm>
#include <array>
#include <boost/archive/binary_iarchive.hpp>
#include <boost/archive/binary_oarchive.hpp>
#include <map>
#include <mutex>
#include <optional>
#include <sstream>
#include <utility>

#include "platform/file.h"
#include "platform/filestatus.h"
#include "platform/guid.h"
#include "platform/systemerror.h"
#include "senddaemon/accountfolders.h"
#include "senddaemon/daemonlog.h"
#include "utility/files.h"
#include "utility/lasterror.h"
#include "utility/paths.h"
#include "utility/text.h"

namespace SendDaemon {

namespace {

constexpr std::int64_t SecondsPerHour = 3600;
constexpr std::int64_t KeptSeconds = 30LL * 24 * SecondsPerHour;
constexpr std::uint32_t PruneChance = 100;  // one in
constexpr std::uint32_t MaxChecks = 100000;
constexpr std::uint32_t MaxHostLength = 1024;
constexpr std::size_t TimeSize = 8;

template <std::size_t Size>
std::array<char, Size> ToLittleEndian(std::uint64_t value) {
    std::array<char, Size> bytes{};
    for (char& byte : bytes) {
        byte = static_cast<char>(value & 0xff);
        value >>= 8U;
    }
    return bytes;
}

std::uint64_t FromLittleEndian(std::string_view bytes) {
    std::uint64_t value = 0;
    for (std::size_t i = bytes.size(); i-- > 0;)
        value = (value << 8U) | static_cast<unsigned char>(bytes[i]);
    return value;
}

void PutNumber(boost::archive::binary_oarchive& archive, std::uint32_t number) {
    const auto bytes = ToLittleEndian<4>(number);
    archive.save_binary(bytes.data(), bytes.size());
}

std::uint32_t TakeNumber(boost::archive::binary_iarchive& archive) {
    std::array<char, 4> bytes{};
    archive.load_binary(bytes.data(), bytes.size());
    return static_cast<std::uint32_t>(FromLittleEndian({bytes.data(), bytes.size()}));
}

std::string WriteChecks(const std::vector<CDispatchCheck>& checks) {
    std::ostringstream stream;
    {
        boost::archive::binary_oarchive archive(stream, boost::archive::no_header);
        PutNumber(archive, static_cast<std::uint32_t>(checks.size()));
        for (const CDispatchCheck& check : checks) {
            PutNumber(archive, static_cast<std::uint32_t>(check.host.size()));
            archive.save_binary(check.host.data(), check.host.size());
            PutNumber(archive, check.maxMessages);
            PutNumber(archive, check.periodHours);
        }
    }
    return stream.str();
}

// Throws for anything that WriteChecks() would not have written.
std::vector<CDispatchCheck> ReadChecks(const std::string& content) {
    std::istringstream stream(content);
    boost::archive::binary_iarchive archive(stream, boost::archive::no_header);
    const std::uint32_t count = TakeNumber(archive);
    if (count > MaxChecks) throw std::runtime_error("it names too many limits");
    std::vector<CDispatchCheck> checks;
    for (std::uint32_t i = 0; i < count; ++i) {
        CDispatchCheck check;
        const std::uint32_t length = TakeNumber(archive);
        if (length > MaxHostLength) throw std::runtime_error("a host name is too long");
        check.host.resize(length);
        archive.load_binary(check.host.data(), check.host.size());
        check.maxMessages = TakeNumber(archive);
        check.periodHours = TakeNumber(archive);
        checks.push_back(std::move(check));
    }
    if (WriteChecks(checks).size() != content.size()) throw std::runtime_error("there is more in it than limits");
    return checks;
}

// The times at which messages went to one host.  latest[i] is the latest of
// times[0..i]: it only grows, also when the clock was set back, so the first
// time that is not before a moment is found by halving.
struct CHostLog {
    std::vector<std::int64_t> times;
    std::vector<std::int64_t> latest;

    void Add(std::int64_t time) {
        latest.push_back(latest.empty() ? time : std::max(latest.back(), time));
        times.push_back(time);
    }
    std::size_t CountSince(std::int64_t threshold) const {
        return static_cast<std::size_t>(latest.end() - std::lower_bound(latest.begin(), latest.end(), threshold));
    }
};

}  // namespace

struct CDispatchChecker::CState {
    mutable std::mutex lock;
    std::string folder;
    std::vector<CDispatchCheck> checks;
    std::map<std::string, CHostLog, CLessNoCase> logs;  // read once: no other process writes them
    std::optional<std::pair<std::uint64_t, std::int64_t>> loadedStatus;

    std::string GetCheckerPath() const { return JoinPath(folder, CheckerFileName); }
    std::string GetLogPath(std::string_view host) const {
        return JoinPath(folder, SafeFileName(LowerAscii(host)) + ".log");
    }
    std::optional<std::pair<std::uint64_t, std::int64_t>> AskStatus() const;
    bool Load();
    CHostLog* GetLog(std::string_view host);  // nullptr when it cannot be read
    void Append(CHostLog& log, std::string_view host, std::int64_t now);
    bool Prune(std::string_view host, std::int64_t now);
};

std::optional<std::pair<std::uint64_t, std::int64_t>> CDispatchChecker::CState::AskStatus() const {
    Platform::FileStatus status;
    if (!Platform::GetFileStatus(GetCheckerPath(), status)) return std::nullopt;
    return std::pair(status.identity, status.times.modified);
}

bool CDispatchChecker::CState::Load() {
    loadedStatus = AskStatus();
    if (!loadedStatus) {
        checks.clear();
        return true;
    }
    const std::string path = GetCheckerPath();
    std::string content;
    if (!ReadWholeFile(path, content)) return false;
    try {
        checks = ReadChecks(content);
        return true;
    } catch (const std::exception& exception) {
        SetLastErrorFormat("The file \"%s\" is damaged: %s", path.c_str(), exception.what());
        return false;
    }
}

CHostLog* CDispatchChecker::CState::GetLog(std::string_view host) {
    const auto found = logs.find(host);
    if (found != logs.end()) return &found->second;
    const std::string path = GetLogPath(host);
    std::string content;
    if (Platform::FileIsThere(path) && !ReadWholeFile(path, content)) {
        LogFormat(LogLevelFailure, "Cannot read \"%s\": %s", path.c_str(), DescribeLastError().c_str());
        return nullptr;
    }
    CHostLog& log = logs[std::string(host)];
    for (std::size_t i = 0; i + TimeSize <= content.size(); i += TimeSize) {
        log.Add(static_cast<std::int64_t>(FromLittleEndian(std::string_view(content).substr(i, TimeSize))));
    }
    return &log;
}

// A time that cannot be stored still counts until the program ends.
void CDispatchChecker::CState::Append(CHostLog& log, std::string_view host, std::int64_t now) {
    const auto bytes = ToLittleEndian<TimeSize>(static_cast<std::uint64_t>(now));
    const std::uint64_t offset = static_cast<std::uint64_t>(log.times.size()) * TimeSize;  // over a torn last one
    log.Add(now);
    const std::string path = GetLogPath(host);
    Platform::CFile file;
    if (file.Open(path, Platform::FileMode::OpenOrCreate) && file.WriteAt(offset, bytes.data(), bytes.size())) return;
    LogFormat(LogLevelFailure, "Cannot write \"%s\": %s", path.c_str(),
              Platform::SystemErrorText(Platform::LastSystemError()).c_str());
}

bool CDispatchChecker::CState::Prune(std::string_view host, std::int64_t now) {
    std::int64_t kept = KeptSeconds;
    for (const CDispatchCheck& check : checks) {
        if (EqualNoCase(check.host, host)) kept = std::max(kept, check.periodHours * SecondsPerHour);
    }
    CHostLog* log = GetLog(host);
    if (log == nullptr) return false;
    CHostLog rest;
    for (const std::int64_t time : log->times) {
        if (time >= now - kept) rest.Add(time);
    }
    if (rest.times.size() == log->times.size()) return true;
    std::string content;
    for (const std::int64_t time : rest.times) {
        const auto bytes = ToLittleEndian<TimeSize>(static_cast<std::uint64_t>(time));
        content.append(bytes.data(), bytes.size());
    }
    if (!WriteFileAtomically(GetLogPath(host), content)) return false;
    *log = std::move(rest);
    return true;
}

CDispatchChecker::CDispatchChecker() : m_state(std::make_unique<CState>()) {}
CDispatchChecker::~CDispatchChecker() = default;

void CDispatchChecker::SetFolder(std::string_view folder) {
    const std::lock_guard guard(m_state->lock);
    m_state->folder = folder;
    m_state->logs.clear();
}

bool CDispatchChecker::Load() {
    const std::lock_guard guard(m_state->lock);
    return m_state->Load();
}

bool CDispatchChecker::LoadIfChanged() {
    const std::lock_guard guard(m_state->lock);
    return m_state->AskStatus() == m_state->loadedStatus || m_state->Load();
}

bool CDispatchChecker::Save() const {
    const std::lock_guard guard(m_state->lock);
    if (!EnsureFolder(m_state->folder)) return false;
    return WriteFileAtomically(m_state->GetCheckerPath(), WriteChecks(m_state->checks));
}

std::vector<CDispatchCheck> CDispatchChecker::GetChecks() const {
    const std::lock_guard guard(m_state->lock);
    return m_state->checks;
}

void CDispatchChecker::SetChecks(std::vector<CDispatchCheck> checks) {
    const std::lock_guard guard(m_state->lock);
    m_state->checks = std::move(checks);
}

bool CDispatchChecker::CanSend(std::string_view host, std::int64_t now) {
    const std::lock_guard guard(m_state->lock);
    CHostLog* log = nullptr;
    for (const CDispatchCheck& check : m_state->checks) {
        if (!EqualNoCase(check.host, host)) continue;
        if (log == nullptr) log = m_state->GetLog(host);
        if (log == nullptr) return false;  // better later than above the limit
        const std::int64_t threshold = now - check.periodHours * SecondsPerHour;
        const std::size_t count = log->CountSince(threshold);
        if (count > 0 && count >= check.maxMessages) return false;
    }
    if (log == nullptr) return true;  // no limit names the host
    m_state->Append(*log, host, now);
    if (Platform::RandomNumber() % PruneChance == 0 && !m_state->Prune(host, now)) {
        LogFormat(LogLevelFailure, "%s", DescribeLastError().c_str());
    }
    return true;
}

bool CDispatchChecker::Prune(std::string_view host, std::int64_t now) {
    const std::lock_guard guard(m_state->lock);
    return m_state->Prune(host, now);
}

}  // namespace SendDaemon
