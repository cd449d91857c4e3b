#include "engine/eventlog.h"

#include <array>
#include <ctime>
#include <memory>
#include <mutex>
#include <span>
#include <utility>

#include "app/datafolder.h"
#include "app/logcontext.h"
#include "app/productname.h"
#include "app/settings.h"
#include "platform/clock.h"
#include "platform/file.h"
#include "platform/filestatus.h"
#include "platform/systemerror.h"
#include "utility/files.h"
#include "utility/lhvexception.h"
#include "utility/mutexguard.h"
#include "utility/terminaltext.h"
#include "utility/text.h"

namespace {

constexpr std::array<std::string_view, 6> LevelTags = {"[WARNING]", "[ERROR]", "[FATAL]",
                                                       "[INFO]",    "[DEBUG]", "[DEBUGLVL2]"};
constexpr std::size_t TimeWidth = 26;
constexpr std::size_t TagWidth = 14;
constexpr std::size_t CopyBuffer = 65536;

using LogView = std::function<void(const std::string& line)>;

std::mutex viewLock;
std::shared_ptr<const LogView> currentView;

std::shared_ptr<const LogView> GetLogView() {
    const std::lock_guard guard(viewLock);
    return currentView;
}

// As ctime() writes it, without the line end; never in another language.
std::string MakeTimeText(std::int64_t now) {
    static constexpr std::array Days = {"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};
    static constexpr std::array Months = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                          "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
    const std::tm time = Platform::LocalTime(now);
    return FormatText("%s %s%3d %.2d:%.2d:%.2d %d", Days.at(static_cast<std::size_t>(time.tm_wday)),
                      Months.at(static_cast<std::size_t>(time.tm_mon)), time.tm_mday, time.tm_hour, time.tm_min,
                      time.tm_sec, 1900 + time.tm_year);
}

// Once a second: the system looks each time whether its time zone has changed.
const std::string& TimeText(std::int64_t now) {
    thread_local std::int64_t time = -1;
    thread_local std::string text;
    if (time != now) text = MakeTimeText(now);
    time = now;
    return text;
}

void AppendPadded(std::string& line, std::string_view text, std::size_t width) {
    line += text;
    if (text.size() < width) line.append(width - text.size(), ' ');
}

std::string MakeLogLine(int level, std::string_view message) {
    std::string line;
    line.reserve(TimeWidth + TagWidth + message.size() + 32);
    AppendPadded(line, TimeText(Platform::SecondsSince1970()), TimeWidth);
    AppendPadded(line, LogLevelTag(level), TagWidth);
    if (const std::string context = GetLogContext(); !context.empty()) {
        line += '(';
        line += context;
        line += ") ";
    }
    for (; !message.empty(); message.remove_prefix(1)) {
        const char c = message.front();
        if (c == '\r' || c == '\n') continue;
        const std::size_t harmful = c == '\t' ? 0 : HarmfulLength(message);
        line += harmful == 0 ? c : '?';
        if (harmful > 1) message.remove_prefix(harmful - 1);
    }
    return line;
}

thread_local CLogGroup* t_group = nullptr;

void AppendToLog(const std::string& lines) {
    const std::string path = GetLogFileName();
    const CMutexGuard guard(GetLogMutex());
    Platform::CFile file;
    if (file.Open(path, Platform::FileMode::Append)) file.Write(lines);
}

void WriteLines(std::span<const std::string> lines) {
    std::string text;
    for (const std::string& line : lines)
        text.append(line).append("\n");
    AppendToLog(text);
    if (const auto view = GetLogView()) {
        for (const std::string& line : lines)
            (*view)(line);
    }
}

// The position behind the next line end at or behind "from".
bool FindLineStart(const Platform::CFile& file, std::uint64_t from, std::uint64_t length, std::uint64_t& start) {
    std::string buffer(CopyBuffer, '\0');
    while (from < length) {
        std::size_t got = 0;
        if (!file.ReadAt(from, buffer.data(), buffer.size(), &got) && got == 0) return false;
        const std::size_t end = std::string_view(buffer).substr(0, got).find('\n');
        if (end != std::string_view::npos) {
            start = from + end + 1;
            return true;
        }
        from += got;
    }
    start = length;
    return true;
}

bool CopyTail(const Platform::CFile& file, std::uint64_t from, std::uint64_t length, const std::string& path) {
    Platform::CFile copy;
    if (!copy.Open(path, Platform::FileMode::CreateOrEmpty)) return false;
    std::string buffer(CopyBuffer, '\0');
    while (from < length) {
        std::size_t got = 0;
        if (!file.ReadAt(from, buffer.data(), buffer.size(), &got) && got == 0) return false;
        if (!copy.Write(std::string_view(buffer).substr(0, got))) return false;
        from += got;
    }
    return copy.Flush() && copy.Close();
}

}  // namespace

void Log(int level, const char* format, ...) {
    const Platform::SystemError before = Platform::LastSystemError();  // often what the caller reports next
    std::va_list arguments;
    va_start(arguments, format);
    try {
        if (IsLogged(level)) {
            std::string line = MakeLogLine(level, FormatTextV(format, arguments));
            if (t_group)
                t_group->m_lines.push_back(std::move(line));
            else
                WriteLines({&line, 1});
        }
    } catch (...) {  // a line is lost, not the work that it was about
    }
    va_end(arguments);
    Platform::SetLastSystemError(before);
}

CLogGroup::CLogGroup() : m_outer(std::exchange(t_group, this)) {}

CLogGroup::~CLogGroup() {
    const Platform::SystemError before = Platform::LastSystemError();
    t_group = m_outer;
    try {
        if (!m_lines.empty()) WriteLines(m_lines);
    } catch (...) {  // likewise
    }
    Platform::SetLastSystemError(before);
}

bool IsLogged(int level) {
    try {
        if (level == LogDebug || level == LogDebug2) {
            if (ReadSetting("Execution", "DebugMode", 0) < (level == LogDebug ? 1 : 2)) return false;
        }
        if (ReadSetting("Service", "EnableLogging", 1) == 0) return false;
        if (level == LogError || level == LogFatal || level == LogDebug || level == LogDebug2) return true;
        return ReadSetting("Service", "LogErrorsOnly", 0) == 0;
    } catch (...) {
        return false;
    }
}

std::string_view LogLevelTag(int level) noexcept {
    const auto row = static_cast<std::size_t>(level);
    return level >= 0 && row < LevelTags.size() ? LevelTags[row] : std::string_view();
}

void SetLogView(LogView view) {
    auto next = view ? std::make_shared<const LogView>(std::move(view)) : nullptr;
    const std::lock_guard guard(viewLock);
    currentView = std::move(next);
}

std::string GetLogFileName() {
    return GetDataFolder() + "log.txt";
}

Platform::CNamedMutex& GetLogMutex() {
    static Platform::CNamedMutex mutex(LogMutexName);
    return mutex;
}

std::uint64_t GetLogSize() {
    const CMutexGuard guard(GetLogMutex());
    Platform::FileStatus status;
    return Platform::GetFileStatus(GetLogFileName(), status) && !status.isFolder ? status.size : 0;
}

void TrimLog(std::uint64_t maxBytes) {
    const std::string path = GetLogFileName();
    const std::string copyPath = path + ".copy";
    const CMutexGuard guard(GetLogMutex());
    Platform::CFile file;
    std::uint64_t length = 0;
    if (!file.Open(path, Platform::FileMode::ReadWrite)) return;
    if (maxBytes == 0) {
        file.SetSize(0);
        return;
    }
    if (!file.GetSize(length) || length <= maxBytes) return;
    std::uint64_t start = 0;
    if (!FindLineStart(file, length - maxBytes / 2, length, start)) return;
    const bool copied = CopyTail(file, start, length, copyPath);
    file.Close();
    if (!copied || !Platform::RenameReplacing(copyPath, path)) Platform::RemoveFile(copyPath);
}

void SaveLogAs(std::string_view path) {
    const std::string logPath = GetLogFileName();
    const CMutexGuard guard(GetLogMutex());
    Platform::FileStatus log;
    Platform::FileStatus target;
    const bool isLogItself = Platform::GetFileStatus(logPath, log) && Platform::GetFileStatus(path, target) &&
                             log.identity == target.identity && log.size == target.size;
    if (isLogItself) throw CLhvException("Error saving the log file");
    if (!CopyWholeFile(logPath, path)) throw CLhvException("Error saving the log file", Platform::LastSystemError());
}

bool ParseLogLine(std::string_view line, std::string& time, int* level, std::string* message) {
    const std::size_t open = line.find('[');
    if (open == std::string_view::npos) return false;
    const std::size_t close = line.find(']', open);
    const std::string_view tag = line.substr(open, close == std::string_view::npos ? close : close + 1 - open);
    if (level) {
        std::size_t row = 0;
        while (row < LevelTags.size() && LevelTags[row] != tag)
            ++row;
        if (row == LevelTags.size()) return false;
        *level = static_cast<int>(row);
    }
    time = TrimRight(line.substr(0, open));
    if (message) *message = Trim(line.substr(open + tag.size()));
    return true;
}
