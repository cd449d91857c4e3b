#include <algorithm>
#include <cstdio>
#include <deque>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "engine/eventlog.h"
#include "platform/clock.h"
#include "platform/file.h"
#include "platform/filestatus.h"
#include "platform/process.h"
#include "programs/listhaven/command.h"
#include "programs/listhaven/commandline.h"
#include "programs/listhaven/jsonoutput.h"
#include "programs/listhaven/tableprinter.h"
#include "utility/text.h"

namespace {

struct CArguments {
    int count = 20;
    std::string level;
    bool follow = false;
    bool json = false;
    std::int64_t bytes = 0;
    std::string file;
};

constexpr const char* LevelNames[] = {"warning", "error", "fatal", "info", "debug", "debuglvl2"};

int LevelOfName(const std::string& name) {
    if (name.empty()) return -1;
    for (int level = 0; level < 6; ++level) {
        if (EqualNoCase(name, LevelNames[level])) return level;
    }
    throw CUsageFailure("--level: there is no level " + name + "; use warning, error, fatal, info, debug or debuglvl2");
}

// Reads whole lines from a file that others append to.
class CLineReader {
public:
    explicit CLineReader(std::string path) : m_path(std::move(path)) {}

    // A log that was trimmed is a new file, whose first lines were read already.
    void ReadNew(const std::function<void(const std::string&)>& onLine) {
        Platform::FileStatus status;
        if (!Platform::GetFileStatus(m_path, status)) return;
        const bool isNewFile = status.identity != m_identity || status.size < m_position;
        if (isNewFile) {
            m_identity = status.identity;
            m_position = 0;
            m_rest.clear();
        }
        if (!isNewFile || m_last.empty()) {
            ReadOn([&](const std::string& line) { onLine(m_last = line); });
            return;
        }
        std::vector<std::string> lines;
        ReadOn([&](const std::string& line) { lines.push_back(line); });
        const auto known = std::find(lines.rbegin(), lines.rend(), m_last);
        for (auto line = known.base(); line != lines.end(); ++line)
            onLine(m_last = *line);
    }

private:
    void ReadOn(const std::function<void(const std::string&)>& onLine) {
        Platform::CFile file;
        if (!file.Open(m_path, Platform::FileMode::Read)) return;
        std::string block(64 * 1024, '\0');
        for (std::size_t got = 0;; got = 0) {
            file.ReadAt(m_position, block.data(), block.size(), &got);
            if (got == 0) return;
            m_position += got;
            m_rest.append(block, 0, got);
            std::size_t start = 0;
            for (std::size_t end; (end = m_rest.find('\n', start)) != std::string::npos; start = end + 1)
                onLine(m_rest.substr(start, end - start));
            m_rest.erase(0, start);
        }
    }

    std::string m_path;
    std::string m_rest;
    std::string m_last;  // line that was read
    std::uint64_t m_identity = 0;
    std::uint64_t m_position = 0;
};

bool IsWanted(const std::string& line, int wantedLevel) {
    if (wantedLevel < 0) return true;
    std::string time;
    int level = 0;
    return ParseLogLine(line, time, &level, nullptr) && level == wantedLevel;
}

void PrintAsJson(const std::deque<std::string>& lines) {
    boost::json::array document;
    for (const std::string& line : lines) {
        std::string time;
        std::string message;
        int level = 0;
        if (!ParseLogLine(line, time, &level, &message)) continue;
        document.push_back({{"time", JsonText(time)}, {"level", LevelNames[level]}, {"message", JsonText(message)}});
    }
    PrintJson(document);
}

void Show(const CArguments& arguments) {
    if (arguments.follow && arguments.json) throw CUsageFailure("--follow and --json exclude each other");
    const int level = LevelOfName(arguments.level);
    OpenDataFolder();
    CLineReader reader(GetLogFileName());
    std::deque<std::string> last;
    reader.ReadNew([&](const std::string& line) {
        if (!IsWanted(line, level)) return;
        last.push_back(line);
        if (last.size() > static_cast<std::size_t>(arguments.count)) last.pop_front();
    });
    if (arguments.json) return PrintAsJson(last);
    for (const std::string& line : last)
        std::printf("%s\n", Printable(line).c_str());
    if (!arguments.follow) return;
    Platform::CatchStopSignals();
    while (!Platform::StopSignalled() && std::fflush(stdout) == 0) {
        Platform::SleepMilliseconds(200);
        reader.ReadNew([&](const std::string& line) {
            if (IsWanted(line, level)) std::printf("%s\n", Printable(line).c_str());
        });
    }
}

}  // namespace

void AddLogCommands(CCommand app) {
    auto arguments = std::make_shared<CArguments>();
    CCommand log = app.AddCommand("log", "Show the event log");
    log.AddOption("-n", arguments->count, "How many lines").NamesValue("N").ShowsDefault();
    log.AddOption("--level", arguments->level, "Only lines of this level").NamesValue("NAME");
    log.AddFlag("--follow", arguments->follow, "Go on with new lines until Ctrl-C");
    log.AddFlag("--json", arguments->json);
    log.AllowCommand();

    CCommand trim = log.AddCommand("trim", "Drop the older part when the log is longer than BYTES; 0 empties it");
    trim.AddOption("BYTES", arguments->bytes).Required().Within(std::int64_t{0}, std::int64_t{1} << 53);
    trim.OnRun([arguments] {
        OpenDataFolder();
        TrimLog(static_cast<std::uint64_t>(arguments->bytes));
    });

    CCommand save = log.AddCommand("save", "Copy the log");
    save.AddOption("FILE", arguments->file).Required();
    save.OnRun([arguments] {
        OpenDataFolder();
        SaveLogAs(arguments->file);
    });

    log.OnRun([arguments, log] {
        if (!log.IsCommandGiven()) Show(*arguments);
    });
}
