#include "senddaemon/deliveryposition.h"

#include <algorithm>
#include <charconv>
#include <vector>

#include "platform/file.h"
#include "platform/filestatus.h"
#include "platform/namedmutex.h"
#include "platform/systemerror.h"
#include "senddaemon/deliverylines.h"
#include "senddaemon/deliverylogfiles.h"
#include "utility/lasterror.h"
#include "utility/mutexguard.h"
#include "utility/paths.h"
#include "utility/text.h"

namespace SendDaemon {

namespace {

constexpr std::size_t BytesBefore = 64;

struct CLedgerFile {
    std::string path;
    Platform::CFile file;
    std::uint64_t size = 0;  // when it was opened
    std::uint64_t identity = 0;
};

bool OpenLedgerFile(const std::string& path, CLedgerFile& log) {
    Platform::FileStatus status;
    log.path = path;
    if (Platform::GetFileStatus(path, status) && log.file.Open(path, Platform::FileMode::Read) &&
        log.file.GetSize(log.size)) {
        log.identity = status.identity;
        return true;
    }
    const Platform::SystemError code = Platform::LastSystemError();
    SetLastErrorText(path + ": " + Platform::SystemErrorText(code));
    Platform::SetLastSystemError(code);
    return false;
}

std::string ReadBytesBefore(const CLedgerFile& log, std::uint64_t offset) {
    std::string bytes(static_cast<std::size_t>(std::min<std::uint64_t>(offset, BytesBefore)), '\0');
    if (!bytes.empty() && !log.file.ReadAt(offset - bytes.size(), bytes.data(), bytes.size())) bytes.clear();
    return bytes;
}

bool HasBytesOf(const CLedgerFile& log, const CDeliveryPosition& position) {
    return position.offset <= log.size && ReadBytesBefore(log, position.offset) == position.before;
}

// An identity can be given again: the bytes must be the same too.
bool Holds(const CLedgerFile& log, const CDeliveryPosition& position) {
    return log.identity == position.file && HasBytesOf(log, position);
}

// Those that have lines behind the position, the oldest first; isFound: the
// first one holds it.  All are open before one is read: a rotation meanwhile
// neither hides lines nor shows them twice.
bool OpenFrom(std::string_view accountRoot, const CDeliveryPosition& position, std::vector<CLedgerFile>& logs,
              bool& isFound) {
    const std::string root = WithoutSeparator(accountRoot);
    Platform::CNamedMutex mutex(GetDeliveryLogMutexName(root));
    const CMutexGuard guard(mutex);
    std::vector<std::uint32_t> numbers;
    if (!ListDeliveryLogs(root, numbers)) return false;
    isFound = false;
    for (const std::uint32_t number : numbers) {
        if (isFound) break;
        CLedgerFile log;
        if (!OpenLedgerFile(GetDeliveryLogPath(root, number), log)) return false;
        isFound = Holds(log, position);
        logs.push_back(std::move(log));
    }
    // In a copy of the data folder, and on another system, the identities are others.
    if (!isFound && position.offset > 0) {
        const auto same =
            std::find_if(logs.begin(), logs.end(), [&](const CLedgerFile& log) { return HasBytesOf(log, position); });
        isFound = same != logs.end();
        if (isFound) logs.erase(same + 1, logs.end());
    }
    std::reverse(logs.begin(), logs.end());
    return true;
}

template <class N>
bool TakeNumber(std::string_view text, N& number) {
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    return error == std::errc() && end == text.data() + text.size();
}

}  // namespace

std::string FormatDeliveryPosition(const CDeliveryPosition& position) {
    return std::to_string(position.file) + " " + std::to_string(position.offset) + " " + std::to_string(position.time) +
           " " + EncodeBase32(position.before);
}

bool ParseDeliveryPosition(std::string_view text, CDeliveryPosition& position) {
    const std::vector<std::string_view> parts = Split(text, ' ');
    const auto before = parts.size() == 4 ? DecodeBase32(parts[3]) : std::nullopt;
    if (!before) return false;
    position.before = *before;
    return TakeNumber(parts[0], position.file) && TakeNumber(parts[1], position.offset) &&
           TakeNumber(parts[2], position.time);
}

bool ReadDeliveriesFrom(std::string_view accountRoot, CDeliveryPosition& position,
                        const std::function<bool(const CDeliveryLine&)>& visit) {
    std::vector<CLedgerFile> logs;
    bool isFound = false;
    if (!OpenFrom(accountRoot, position, logs, isFound)) return false;
    CDeliveryPosition end = position;
    const CDeliveryLineReader::Visit visitNew = [&](const CDeliveryLine& line) {
        if (!isFound && line.time <= position.time) return true;
        end.time = std::max(end.time, line.time);
        return visit(line);
    };
    CDeliveryLineReader reader(visitNew, CDeliveryLineReader::LastLine::LeaveUnended);
    std::uint64_t from = isFound ? position.offset : 0;
    for (const CLedgerFile& log : logs) {
        if (!reader.Read(log.file, log.path, from, log.size)) return false;
        end.file = log.identity;
        end.offset = reader.GetEnd();
        end.before = ReadBytesBefore(log, end.offset);
        if (reader.IsStopped()) break;
        from = 0;
    }
    position = end;
    return true;
}

bool FindDeliveryEnd(std::string_view accountRoot, CDeliveryPosition& position) {
    position = {};
    return ReadDeliveriesFrom(accountRoot, position, [](const CDeliveryLine&) { return true; });
}

}  // namespace SendDaemon
