#include <algorithm>
#include <unordered_map>
#include <vector>

#include "app/productname.h"
#include "platform/file.h"
#include "platform/filestatus.h"
#include "platform/systemerror.h"
#include "senddaemon/deliverylines.h"
#include "senddaemon/deliverylog.h"
#include "senddaemon/deliverylogfiles.h"
#include "utility/files.h"
#include "utility/lasterror.h"
#include "utility/mutexguard.h"
#include "utility/paths.h"
#include "utility/text.h"

namespace SendDaemon {

namespace {

// Of the newest files, what is looked at for unfiled deliveries: all that a
// program can have in hand at one time is far less.
constexpr std::size_t UnfiledFiles = 2;
constexpr std::uint64_t UnfiledBytes = 4 << 20;

using LineVisit = std::function<bool(const CDeliveryLine&)>;

struct COpenLog {
    std::string path;
    Platform::CFile file;
    std::uint64_t size = 0;  // when it was opened
};

bool Fail(const std::string& path) {
    const Platform::SystemError code = Platform::LastSystemError();
    SetLastErrorText(path + ": " + Platform::SystemErrorText(code));
    Platform::SetLastSystemError(code);
    return false;
}

enum class Files { All, Last };

// The oldest first.  All are open before one is read, so that a rotation
// meanwhile neither hides lines nor shows them twice.
bool OpenLogs(const std::string& root, Files files, std::vector<COpenLog>& logs) {
    Platform::CNamedMutex mutex(GetDeliveryLogMutexName(root));
    const CMutexGuard guard(mutex);
    std::vector<std::uint32_t> numbers;
    if (!ListDeliveryLogs(root, numbers)) return false;
    std::uint64_t bytes = 0;
    for (const std::uint32_t number : numbers) {
        if (files == Files::Last && logs.size() >= UnfiledFiles && bytes >= UnfiledBytes) break;
        COpenLog log;
        log.path = GetDeliveryLogPath(root, number);
        if (!log.file.Open(log.path, Platform::FileMode::Read) || !log.file.GetSize(log.size)) return Fail(log.path);
        bytes += log.size;
        logs.push_back(std::move(log));
    }
    std::reverse(logs.begin(), logs.end());
    return true;
}

bool ReadLogs(const std::vector<COpenLog>& logs, const LineVisit& visit, std::uint64_t& skipped) {
    CDeliveryLineReader reader(visit);
    for (const COpenLog& log : logs) {
        if (!reader.Read(log.file, log.path, 0, log.size)) return false;
        if (reader.IsStopped()) break;
    }
    skipped = reader.GetSkipped();
    return true;
}

void MakeKey(std::string_view message, std::string_view recipient, std::string& key) {
    key.clear();
    AppendDeliveryValue(key, message, DeliveryValueLimit);
    key += '\t';
    AppendDeliveryValue(key, recipient, DeliveryValueLimit);
}

}  // namespace

std::string GetDeliveryLogPath(std::string_view accountRoot, std::uint32_t number) {
    std::string path = JoinPath(accountRoot, DeliveryLogFileName);
    if (number != 0) path += '.' + std::to_string(number);
    return path;
}

std::string GetDeliveryLogMutexName(std::string_view accountRoot) {
    return std::string(DeliveryLogMutexPrefix) += WithoutSeparator(accountRoot);
}

bool ListDeliveryLogs(std::string_view accountRoot, std::vector<std::uint32_t>& numbers) {
    numbers.clear();
    if (!Platform::FolderIsThere(accountRoot)) return true;
    const bool isListed = ListFolder(accountRoot, "*", [&](const std::string& name, bool isFolder) {
        if (isFolder || !name.starts_with(DeliveryLogFileName)) return true;
        const std::string_view rest = std::string_view(name).substr(DeliveryLogFileName.size());
        if (rest.empty()) numbers.push_back(0);
        if (rest.size() < 2 || rest.size() > 9 || rest[0] != '.' || rest[1] < '1' || rest[1] > '9') return true;
        if (const auto number = ParseNumber(rest.substr(1))) numbers.push_back(static_cast<std::uint32_t>(*number));
        return true;
    });
    std::sort(numbers.begin(), numbers.end());
    return isListed;
}

bool ForEachDeliveryLine(std::string_view accountRoot, const LineVisit& visit, std::uint64_t* skipped) {
    CDeliverySnapshot snapshot;
    return snapshot.Open(accountRoot) && snapshot.ForEach(visit, skipped);
}

struct CDeliverySnapshot::CState {
    std::vector<COpenLog> logs;
};

CDeliverySnapshot::CDeliverySnapshot() : m_state(std::make_unique<CState>()) {}
CDeliverySnapshot::~CDeliverySnapshot() = default;

bool CDeliverySnapshot::Open(std::string_view accountRoot) {
    m_state->logs.clear();
    return OpenLogs(WithoutSeparator(accountRoot), Files::All, m_state->logs);
}

bool CDeliverySnapshot::ForEach(const LineVisit& visit, std::uint64_t* skipped) const {
    std::uint64_t count = 0;
    const bool isRead = ReadLogs(m_state->logs, visit, count);
    if (skipped) *skipped = count;
    return isRead;
}

struct CUnfiledDeliveries::CState {
    std::unordered_map<std::string, CDeliveryLine> lines;
};

CUnfiledDeliveries::CUnfiledDeliveries() : m_state(std::make_unique<CState>()) {}
CUnfiledDeliveries::~CUnfiledDeliveries() = default;

bool CUnfiledDeliveries::Load(std::string_view accountRoot) {
    auto& lines = m_state->lines;
    lines.clear();
    std::uint64_t skipped = 0;
    std::string key;
    const auto visit = [&](const CDeliveryLine& line) {
        MakeKey(line.message, line.recipient, key);
        if (line.status == DeliveryStatus::Accepted) {
            lines.insert_or_assign(key, line);
        } else {
            lines.erase(key);
        }
        return true;
    };
    std::vector<COpenLog> logs;
    return OpenLogs(WithoutSeparator(accountRoot), Files::Last, logs) && ReadLogs(logs, visit, skipped);
}

bool CUnfiledDeliveries::Contains(std::string_view message, std::string_view recipient) const {
    std::string key;
    MakeKey(message, recipient, key);
    return m_state->lines.contains(key);
}

void CUnfiledDeliveries::ForEach(const std::function<void(const CDeliveryLine&)>& visit) const {
    for (const auto& [key, line] : m_state->lines)
        visit(line);
}

}  // namespace SendDaemon
