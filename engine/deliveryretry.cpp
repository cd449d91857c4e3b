#include <unordered_map>
#include <unordered_set>
#include <utility>

#include "engine/deliveries.h"
#include "platform/namedmutex.h"
#include "senddaemon/accountfolders.h"
#include "senddaemon/deliverylogfiles.h"
#include "senddaemon/messageinfo.h"
#include "senddaemon/messageiterator.h"
#include "senddaemon/queuename.h"
#include "utility/lasterror.h"
#include "utility/paths.h"

namespace {

using SendDaemon::AccountFolder;
using SendDaemon::CDeliveryLine;
using SendDaemon::CMessageInfo;
using SendDaemon::DeliveryStatus;

constexpr std::size_t GroupSize = 64;  // messages whose lines share a flush

std::uint64_t HashOf(std::string_view message, std::string_view recipient) {
    std::string key;
    SendDaemon::AppendDeliveryValue(key, message, SendDaemon::DeliveryValueLimit);
    key += '\t';
    SendDaemon::AppendDeliveryValue(key, recipient, SendDaemon::DeliveryValueLimit);
    return std::hash<std::string>()(key);
}

struct CMessage {
    std::string path;
    std::string id;
    std::vector<std::string> recipients;
};

// The lines come first, on disk, and then the move: a daemon may take the
// message at once, and its lines must be the later ones.
class CRetry {
public:
    CRetry(std::string_view root, std::string_view broadcast, std::int64_t now, CRetryResult& result)
        : m_root(WithoutSeparator(root)), m_broadcast(broadcast), m_now(now), m_result(result) {}

    bool Open();
    bool TakeFrom(AccountFolder folder);
    bool TakeUnmoved();
    bool PutBack();

private:
    enum class Verdict { Retry, Settled, Double, Unmoved };

    bool LoadStates();
    bool ForEachMessage(AccountFolder folder, const std::function<bool(CMessage&&)>& visit) const;
    Verdict Judge(const CMessage& message) const;
    bool Take(CMessage&& message);
    CDeliveryLine MakeLine(const CMessage& message, const std::string& recipient, DeliveryStatus status) const;
    bool Move(const CMessage& message);

    std::string m_root;
    std::string m_broadcast;
    std::int64_t m_now;
    CRetryResult& m_result;
    std::unordered_map<std::uint64_t, DeliveryStatus> m_states;
    std::unordered_set<std::uint64_t> m_taken;
    std::vector<CMessage> m_group;
    std::vector<CMessage> m_unmoved;  // their lines say that they were put back
    SendDaemon::CDeliveryLog m_log;
    CBatchFolder m_waiting;
    CBatchFolder m_source;
};

bool CRetry::Open() {
    m_log.SetUp(m_root, 0, 0);  // the daemon divides the file
    return m_waiting.Open(m_root) && LoadStates();
}

bool CRetry::LoadStates() {
    m_states.clear();
    return SendDaemon::ForEachDeliveryLine(m_root, [&](const CDeliveryLine& line) {
        if (line.broadcast == m_broadcast) m_states[HashOf(line.message, line.recipient)] = line.status;
        return true;
    });
}

bool CRetry::ForEachMessage(AccountFolder folder, const std::function<bool(CMessage&&)>& visit) const {
    CMessageIterator walk;
    std::string path;
    if (!walk.Start(GetAccountFolderPath(m_root, folder))) return false;
    for (bool isThere = walk.PeekCurrent(path); isThere; isThere = walk.Next() && walk.PeekCurrent(path)) {
        CMessageInfo info;
        if (!ReadMessageInfo(path, info) || info.broadcast != m_broadcast) continue;
        if (!visit({path, info.messageId, SendDaemon::SplitRecipients(info.recipients)})) return false;
    }
    return true;
}

CRetry::Verdict CRetry::Judge(const CMessage& message) const {
    Verdict verdict = Verdict::Retry;
    for (const std::string& recipient : message.recipients) {
        const std::uint64_t hash = HashOf(message.id, recipient);
        if (m_taken.contains(hash)) return Verdict::Double;
        const auto state = m_states.find(hash);
        if (state == m_states.end()) continue;
        if (state->second == DeliveryStatus::Requeued) {
            verdict = Verdict::Unmoved;
        } else if (state->second != DeliveryStatus::Failed && state->second != DeliveryStatus::Expired) {
            return Verdict::Settled;
        }
    }
    return verdict;
}

bool CRetry::Take(CMessage&& message) {
    for (const std::string& recipient : message.recipients)
        m_taken.insert(HashOf(message.id, recipient));
    m_group.push_back(std::move(message));
    return m_group.size() < GroupSize || PutBack();
}

bool CRetry::TakeFrom(AccountFolder folder) {
    return ForEachMessage(folder, [&](CMessage&& message) {
        switch (Judge(message)) {
            case Verdict::Retry:
                return Take(std::move(message));
            case Verdict::Settled:
                ++m_result.settled;
                break;
            case Verdict::Double:
                ++m_result.doubles;
                break;
            case Verdict::Unmoved:
                m_unmoved.push_back(std::move(message));
                break;
        }
        return true;
    });
}

// A line says that it was put back: either it was, and this file is another of
// the same message, or the program died before it could move this one.  The
// one that waits moves from the queue to .Queue and is on record when it leaves it.
bool CRetry::TakeUnmoved() {
    if (m_unmoved.empty()) return true;
    std::unordered_set<std::uint64_t> there;
    for (const AccountFolder folder : {AccountFolder::Waiting, AccountFolder::Claimed}) {
        const bool isRead = ForEachMessage(folder, [&](CMessage&& message) {
            for (const std::string& recipient : message.recipients)
                there.insert(HashOf(message.id, recipient));
            return true;
        });
        if (!isRead) return false;
    }
    if (!LoadStates()) return false;
    for (CMessage& message : std::exchange(m_unmoved, {})) {
        bool mayGo = true;
        for (const std::string& recipient : message.recipients)
            mayGo = mayGo && !there.contains(HashOf(message.id, recipient));
        const Verdict verdict = Judge(message);
        if (mayGo && (verdict == Verdict::Retry || verdict == Verdict::Unmoved)) {
            if (!Take(std::move(message))) return false;
        } else {
            ++(verdict == Verdict::Double ? m_result.doubles : m_result.settled);
        }
    }
    return true;
}

CDeliveryLine CRetry::MakeLine(const CMessage& message, const std::string& recipient, DeliveryStatus status) const {
    CDeliveryLine line;
    line.time = m_now;
    line.status = status;
    line.broadcast = m_broadcast;
    line.message = message.id;
    line.recipient = recipient;
    return line;
}

bool CRetry::PutBack() {
    const std::vector<CMessage> group = std::exchange(m_group, {});
    std::vector<CDeliveryLine> lines;
    for (const CMessage& message : group) {
        for (const std::string& recipient : message.recipients)
            lines.push_back(MakeLine(message, recipient, DeliveryStatus::Requeued));
    }
    if (!m_log.Append(lines, SendDaemon::CDeliveryLog::Flush::Yes)) return false;
    for (const CMessage& message : group) {
        if (!Move(message)) return false;
    }
    return true;
}

bool CRetry::Move(const CMessage& message) {
    SendDaemon::CQueueName name;
    std::string newName;
    if (SendDaemon::ParseQueueName(message.path, name)) {
        newName = SendDaemon::FormatQueueName({.number = name.number, .queued = m_now, .attempts = 0, .due = {}});
    }
    const std::string folder = ParentFolder(ParentFolder(message.path));
    std::string opened;
    const bool isOpen = (m_source.GetPath(opened) && opened == folder) || m_source.Open(folder);
    if (isOpen && m_source.MoveMessageTo(message.path, m_waiting, newName)) {
        ++m_result.messages;
        m_result.recipients += message.recipients.size();
        return true;
    }
    if (m_result.failures++ == 0) m_result.failure = DescribeLastError();
    std::vector<CDeliveryLine> lines;
    for (const std::string& recipient : message.recipients) {
        lines.push_back(MakeLine(message, recipient, DeliveryStatus::Failed));
        lines.back().text = "Could not be put back into the queue: " + m_result.failure;
    }
    return m_log.Append(lines, SendDaemon::CDeliveryLog::Flush::Yes);
}

}  // namespace

bool RetryFailed(std::string_view accountRoot, std::string_view broadcast, RetryScope scope, std::int64_t now,
                 CRetryResult& result) {
    result = {};
    Platform::CPresence presence;
    const auto held = presence.Acquire(SendDaemon::GetDeliveryLogMutexName(accountRoot) + "/retry");
    if (held != Platform::CPresence::Result::Acquired) {
        SetLastErrorText(held == Platform::CPresence::Result::AlreadyHeld
                             ? "Another program is just putting messages of this account back into the queue."
                             : "It cannot be told whether another program is putting messages back into the queue.");
        return false;
    }
    CRetry retry(accountRoot, broadcast, now, result);
    return retry.Open() && retry.TakeFrom(AccountFolder::Errors) &&
           (scope == RetryScope::Failed || retry.TakeFrom(AccountFolder::Expired)) && retry.TakeUnmoved() &&
           retry.PutBack();
}
