#include "engine/incoming/fetchmarks.h"

#include <array>
#include <vector>

#include "engine/incoming/mailfetch.h"
#include "utility/text.h"

namespace {

constexpr std::int64_t SecondsPerDay = 86400;
constexpr std::size_t MarksPerCommit = 5000;
constexpr std::array<std::string_view, 4> Words = {"", "keep", "delete", "gone"};

// change is false where the mark may stay as it is.
bool ChangeMarks(CCycleState& state, const CServerKeys& keys, const std::function<bool(CServerMark& mark)>& change) {
    CCycleTransaction transaction(state);
    std::size_t count = 0;
    std::string value;
    for (std::size_t i = 0; i < keys.count; ++i) {
        const std::string_view key = keys.get(i);
        if (!state.GetMark(MarkKind::ServerMessage, key, value)) continue;
        CServerMark mark = CServerMark::Parse(value);
        if (!change(mark)) continue;
        transaction.SetMark(MarkKind::ServerMessage, key, mark.Encode());
        if (++count % MarksPerCommit == 0 && !transaction.Commit()) return false;
    }
    return transaction.Commit();
}

}  // namespace

CServerMark CServerMark::Parse(std::string_view value) {
    CServerMark mark;
    if (value.empty()) return mark;
    const std::vector<std::string_view> parts = Split(value, ' ');
    mark.state = State::Keep;
    if (parts[0] == Words[2]) mark.state = State::Delete;
    if (parts[0] == Words[3]) mark.state = State::Gone;
    if (parts.size() > 1) mark.lastSeen = ParseNumber(parts[1]).value_or(0);
    if (parts.size() > 2) mark.content = parts[2];
    if (parts.size() > 3) mark.size = static_cast<std::uint64_t>(ParseNumber(parts[3]).value_or(0));
    return mark;
}

std::string CServerMark::Encode() const {
    return std::string(Words[static_cast<std::size_t>(state)]) + " " + std::to_string(lastSeen) + " " + content + " " +
           std::to_string(size);
}

bool MarkForRemoval(CCycleTransaction& transaction, std::string_view serverId) {
    std::string value;
    if (serverId.empty() || !transaction.GetMark(MarkKind::ServerMessage, serverId, value)) return false;
    CServerMark mark = CServerMark::Parse(value);
    if (mark.state != CServerMark::State::Keep) return mark.state == CServerMark::State::Delete;
    mark.state = CServerMark::State::Delete;
    transaction.SetMark(MarkKind::ServerMessage, serverId, mark.Encode());
    return true;
}

bool RenewServerMarks(CCycleState& state, const CServerKeys& listed, std::int64_t now) {
    return ChangeMarks(state, listed, [&](CServerMark& mark) {
        if (mark.lastSeen > now - SecondsPerDay && mark.lastSeen <= now) return false;
        mark.lastSeen = now;
        return true;
    });
}

bool SetServerMarksGone(CCycleState& state, const CServerKeys& deleted, std::int64_t now) {
    return ChangeMarks(state, deleted, [&](CServerMark& mark) {
        mark.state = CServerMark::State::Gone;
        mark.lastSeen = now;
        return true;
    });
}

bool DropServerMarks(CCycleState& state, const std::function<bool(std::string_view key)>& isListed,
                     std::int64_t lastSeenBefore) {
    bool isAnyDue = false;
    const auto isDue = [&](std::string_view key, std::string_view value) {
        return CServerMark::Parse(value).lastSeen < lastSeenBefore && !isListed(key);
    };
    const bool isRead = state.ForEachMark(MarkKind::ServerMessage, [&](std::string_view key, std::string_view value) {
        isAnyDue = isDue(key, value);
        return !isAnyDue;
    });
    return isRead && (!isAnyDue || state.DropMarks(MarkKind::ServerMessage, isDue));
}
