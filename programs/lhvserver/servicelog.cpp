#include "programs/lhvserver/servicelog.h"

#include "engine/eventlog.h"

std::string CServiceLog::Filter(const std::string& line, std::int64_t now) {
    constexpr std::int64_t Hour = 3600;
    int level = LogInfo;
    std::string time;
    std::string message;
    if (!ParseLogLine(line, time, &level, &message) || (level != LogError && level != LogFatal)) return {};
    const std::lock_guard guard(m_lock);
    if (now >= m_hour + Hour || now < m_hour) {
        m_hour = now;
        m_count = 0;
    }
    ++m_count;
    if (m_count > MostPerHour) return {};
    if (m_count == MostPerHour) message += " (Further errors of this hour are in log.txt only.)";
    return message;
}
