// Messages that failed for now: when they are tried again, and the hosts that
// are left alone in between.

#include <algorithm>

#include "platform/filestatus.h"
#include "senddaemon/daemonlog.h"
#include "senddaemon/dispatcherstate.h"
#include "senddaemon/retryschedule.h"
#include "utility/lasterror.h"
#include "utility/paths.h"
#include "utility/text.h"

namespace SendDaemon {

namespace {

std::string GetDomain(std::string_view address) {
    const std::size_t at = address.rfind('@');
    return LowerAscii(at == std::string_view::npos ? address : address.substr(at + 1));
}

CRetrySchedule GetSchedule(const CConfiguration* config) {
    CRetrySchedule schedule;
    const std::string text = config != nullptr ? config->GetText("RetrySchedule") : std::string();
    if (!text.empty() && !schedule.Parse(text)) {
        LogFormat(LogLevelFailure, "The retry schedule \"%s\" is not understood; the usual one holds.", text.c_str());
    }
    return schedule;
}

bool Contains(const std::vector<std::string>& destinations, std::string_view destination) {
    return std::find(destinations.begin(), destinations.end(), destination) != destinations.end();
}

}  // namespace

bool CDispatcher::CState::Defer(const std::string& path, const CMessageInfo& info,
                                std::span<const CRecipientReport> deferred) {
    const std::int64_t now = clock();
    CQueueName name = NameWithTime(path);
    std::int64_t limit = DefaultDeferralLimit;
    {
        const std::lock_guard guard(lock);
        limit = expiry.value_or(limit);
    }
    if (IsExpired(FormatQueueName(name), limit)) {
        if (MoveTo(AccountFolder::Expired, path, CBatchFolder::Times::Keep) == Moved::No) return false;
        AppendOutcomes(info, deferred, DeliveryStatus::Expired, CDeliveryLog::Flush::Yes);
        const std::lock_guard guard(lock);
        ++totals.expired;
        return true;
    }
    ++name.attempts;
    name.due = GetSchedule(config).GetNextTime(name.attempts, now);
    if (MoveTo(AccountFolder::Deferred, path, CBatchFolder::Times::Keep, FormatQueueName(name)) == Moved::No) {
        return false;
    }
    const std::lock_guard guard(lock);
    ++totals.deferred;
    return true;
}

// The names tell which: no file is opened or asked for.  One that is to wait
// longer than any does was put there before the clock was set back.
bool CDispatcher::CState::FreeDeferred() {
    CBatchFolder* folder = account.GetFolder(AccountFolder::Deferred);
    CBatchFolder* waiting = account.GetFolder(AccountFolder::Waiting);
    const std::int64_t now = clock();
    if (folder == nullptr || waiting == nullptr ||
        !deferredWalk.Begin(GetAccountFolderPath(account.GetRootFolder(), AccountFolder::Deferred), now)) {
        return false;
    }
    if (!deferredWalk.isWalking) return true;
    const std::int64_t latest = now + std::max(GetSchedule(config).GetLongest(), LongestBackOff);
    const auto isDue = [&](const std::string& path) {
        CQueueName name;
        return !ParseQueueName(path, name) || !name.due || *name.due <= now || *name.due > latest;
    };
    bool isFreed = true;
    for (const std::string& path : deferredWalk.Collect(isDue)) {
        CQueueName name;
        const bool isOurs = ParseQueueName(path, name);
        name.due.reset();
        if (IsExpired(path, expiry.value_or(DefaultDeferralLimit))) {
            Expire(path);
        } else if (!folder->MoveMessageTo(path, *waiting, isOurs ? FormatQueueName(name) : std::string()) &&
                   Platform::FileIsThere(path)) {
            isFreed = false;  // which holds no other back
        }
    }
    return isFreed;
}

std::vector<std::string> CDispatcher::CState::GetDestinations(std::span<const std::string> recipients) const {
    if (!settings.isDirect) return {settings.hostName};
    std::vector<std::string> domains;
    for (const std::string& recipient : recipients) {
        std::string domain = GetDomain(recipient);
        if (!Contains(domains, domain)) domains.push_back(std::move(domain));
    }
    return domains;
}

bool CDispatcher::CState::Rests(std::string& reason) {
    {
        const std::lock_guard guard(lock);
        if (!backOff.IsAnyResting()) return false;
        if (!settings.retriesTemporary) {
            backOff.Clear();
            return false;
        }
        if (settings.isDirect) return false;
        const CBackOff::State state = backOff.GetState(settings.hostName, clock());
        if (state != CBackOff::State::Resting && state != CBackOff::State::Probing) return false;
        reason = FormatText("The host \"%s\" takes no messages now: %s", settings.hostName.c_str(),
                            backOff.GetReason(settings.hostName).c_str());
    }
    return true;
}

// One that has nowhere to go waits for the first of its destinations.
bool CDispatcher::CState::BeginProbes(CDelivery& delivery, std::int64_t& until) {
    const std::lock_guard guard(lock);
    if (!settings.retriesTemporary || !backOff.IsAnyResting()) return true;
    const std::int64_t now = clock();
    std::int64_t first = 0;
    bool mayGo = !settings.isDirect;
    for (const std::string& destination : delivery.destinations) {
        const CBackOff::State state = backOff.GetState(destination, now);
        mayGo = mayGo || state == CBackOff::State::Free || state == CBackOff::State::ProbeDue;
        const std::int64_t end = state == CBackOff::State::Resting ? backOff.GetEnd(destination) : now + CheckSeconds;
        first = first == 0 ? end : std::min(first, end);
    }
    if (!mayGo) {
        until = first;
        return false;
    }
    for (const std::string& destination : delivery.destinations) {
        if (backOff.BeginProbe(destination, now)) delivery.probed.push_back(destination);
    }
    return true;
}

DispatchStep CDispatcher::CState::Postpone(const std::string& path, const CDelivery& delivery, std::int64_t until) {
    CQueueName name = NameWithTime(path);
    name.due = until;
    std::vector<CRecipientReport> outcomes;
    {
        const std::lock_guard guard(lock);
        for (const std::string& recipient : delivery.recipients) {
            outcomes.push_back({.recipient = recipient,
                                .outcome = RecipientOutcome::Deferred,
                                .host = {},
                                .code = 0,
                                .enhanced = {},
                                .text = "Not tried: " + backOff.GetReason(GetDomain(recipient))});
        }
    }
    AppendOutcomes(delivery.info, outcomes, DeliveryStatus::Deferred, CDeliveryLog::Flush::Yes);
    if (MoveTo(AccountFolder::Deferred, path, CBatchFolder::Times::Keep, FormatQueueName(name)) == Moved::No) {
        MoveTo(AccountFolder::Waiting, path, CBatchFolder::Times::Keep);
        return DispatchStep::Failed;
    }
    const std::lock_guard guard(lock);
    ++totals.deferred;
    return DispatchStep::HandedOn;
}

// A failure that no server spoke of (of the message's file, say) tells nothing
// about the host.
void CDispatcher::CState::UpdateBackOff(const CDelivery& delivery, const CDeliveryReport& report) {
    struct CNews {
        bool isAnswered = false;
        const std::string* failure = nullptr;
    };
    if (!report.isHostUnavailable) {
        const std::lock_guard guard(lock);
        if (!backOff.IsAnyResting()) return;
    }
    std::map<std::string, CNews> all;
    for (const CRecipientReport& recipient : report.recipients) {
        const bool isAccepted = recipient.outcome == RecipientOutcome::Accepted;
        CNews& news = all[delivery.isRelayed ? delivery.destinations.front() : GetDomain(recipient.recipient)];
        if (isAccepted || (recipient.code != 0 && !report.isHostUnavailable)) news.isAnswered = true;
        if (!isAccepted && report.isHostUnavailable) news.failure = &recipient.text;
    }
    const std::int64_t now = clock();
    for (const auto& [destination, news] : all) {
        const bool isProbe = Contains(delivery.probed, destination);
        std::int64_t seconds = 0;
        bool isFreed = false;
        {
            const std::lock_guard guard(lock);
            isFreed = news.isAnswered && backOff.OnAnswered(destination) && news.failure == nullptr;
            if (news.failure != nullptr && backOff.OnUnavailable(destination, isProbe, now, *news.failure)) {
                seconds = backOff.GetEnd(destination) - now;
            }
        }
        if (isFreed) LogFormat(LogLevelNotice, "The host \"%s\" takes messages again.", destination.c_str());
        if (seconds > 0) {
            LogFormat(LogLevelNotice, "The host \"%s\" takes no messages now and is left alone for %lld seconds: %s",
                      destination.c_str(), static_cast<long long>(seconds), news.failure->c_str());
        }
    }
}

}  // namespace SendDaemon
