#include "engine/incoming/waitingmessages.h"

#include <algorithm>
#include <tuple>

#include "engine/messagetemplate.h"
#include "platform/filestatus.h"
#include "senddaemon/messageiterator.h"
#include "utility/files.h"
#include "utility/paths.h"
#include "utility/text.h"

namespace {

// Ours stand in front of the message's own lines.
constexpr std::size_t HeaderStart = 512;

std::int64_t ReadReceived(std::string_view start) {
    const std::string field = std::string(ControlHeader::Received) + ":";
    for (const std::string_view line : Split(start, '\n')) {
        if (StartsWithNoCase(line, field)) return ParseNumber(Trim(line.substr(field.size()))).value_or(0);
        if (Trim(line).empty()) break;
    }
    return 0;
}

}  // namespace

bool CWaitingMessages::Load(std::string_view queueFolder) {
    m_batches.clear();
    m_messages.clear();
    if (!Platform::FolderIsThere(queueFolder)) return true;
    CMessageIterator iterator;
    if (!iterator.Start(queueFolder)) return false;
    std::string path;
    while (iterator.PeekCurrent(path)) {
        if (!Add(path)) return false;
        if (!iterator.Next()) break;
    }
    std::sort(m_messages.begin(), m_messages.end(), [](const CMessage& a, const CMessage& b) {
        return std::tie(a.received, a.written, a.name) < std::tie(b.received, b.written, b.name);
    });
    return true;
}

bool CWaitingMessages::Add(const std::string& path) {
    CMessage message;
    Platform::FileStatus status;
    std::string start;
    if (!Platform::GetFileStatus(path, status) || !ReadFileStart(path, HeaderStart, start))
        return !Platform::FileIsThere(path);  // the moderator's messages come and go
    const std::string batch = ParentFolder(path);
    if (m_batches.empty() || m_batches.back() != batch) m_batches.push_back(batch);
    message.received = ReadReceived(start);
    message.written = status.times.modified;
    message.batch = static_cast<std::uint32_t>(m_batches.size() - 1);
    message.name = LastPathComponent(path);
    m_messages.push_back(std::move(message));
    return true;
}

std::string CWaitingMessages::GetPath(std::size_t index) const {
    const CMessage& message = m_messages.at(index);
    return JoinPath(m_batches.at(message.batch), message.name);
}
