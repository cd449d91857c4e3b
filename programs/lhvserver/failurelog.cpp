#include "programs/lhvserver/failurelog.h"

#include "engine/eventlog.h"
#include "platform/clock.h"
#include "utility/formattext.h"

namespace {

std::string LocalTimeText(std::int64_t time) {
    const std::tm local = Platform::LocalTime(time);
    return FormatText("%04d-%02d-%02d %02d:%02d", local.tm_year + 1900, local.tm_mon + 1, local.tm_mday, local.tm_hour,
                      local.tm_min);
}

}  // namespace

void CFailureLog::NoteFailure(const std::string& key, const std::string& what, const std::string& reason,
                              std::int64_t now) {
    CFailure& failure = m_failures[key];
    if (failure.count++ != 0) return;
    failure.since = now;
    Log(LogError, "%s failed, and will be tried again: %s", what.c_str(), reason.c_str());
}

void CFailureLog::NoteSuccess(const std::string& key, const std::string& what) {
    const auto failure = m_failures.find(key);
    if (failure == m_failures.end()) return;
    Log(LogInfo, "%s works again; it failed %llu times since %s.", what.c_str(),
        static_cast<unsigned long long>(failure->second.count), LocalTimeText(failure->second.since).c_str());
    m_failures.erase(failure);
}
