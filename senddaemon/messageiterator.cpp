#include "senddaemon/messageiterator.h"

#include "platform/filestatus.h"
#include "utility/lasterror.h"
#include "utility/paths.h"

using Step = Platform::CDirectorySearch::Step;

bool CMessageIterator::Start(std::string_view queue) {
    if (queue.empty()) {
        SetLastErrorText("No queue folder is given.");
        return false;
    }
    m_queuePath = queue;
    Reset();
    return true;
}

bool CMessageIterator::Reset() {
    Close();
    if (!FirstBatch()) return false;
    return FirstMessage() || NextBatchWithMessage();
}

bool CMessageIterator::Next() {
    return NextMessage() || NextBatchWithMessage();
}

bool CMessageIterator::GetCurrent(std::string& path) const {
    if (m_messagePath.empty() || Platform::FileIsThere(m_messagePath)) return PeekCurrent(path);
    SetLastErrorText("No current message.");
    return false;
}

bool CMessageIterator::PeekCurrent(std::string& path) const {
    if (!m_messages.IsOpen() || m_messagePath.empty()) {
        SetLastErrorText("No current message.");
        return false;
    }
    path = m_messagePath;
    return true;
}

void CMessageIterator::Close() noexcept {
    m_messages.Close();
    m_batches.Close();
    m_batchPath.clear();
    m_messagePath.clear();
}

bool CMessageIterator::FirstBatch() {
    if (!m_batches.Open(m_queuePath, "*.*") || !NextBatch()) {
        m_batches.Close();
        SetLastErrorText("No batch folders.");
        return false;
    }
    return true;
}

bool CMessageIterator::NextBatch() {
    Platform::DirectoryEntry entry;
    m_batchPath.clear();
    if (!m_batches.IsOpen()) {
        SetLastErrorText("No more batch folders.");
        return false;
    }
    Step step = Step::Entry;
    while ((step = m_batches.Next(entry)) == Step::Entry) {
        if (!entry.isFolder || entry.name.empty() || entry.name.front() == '.') continue;
        m_batchPath = JoinPath(m_queuePath, entry.name);
        return true;
    }
    if (step == Step::Failed) {
        SetLastErrorFromSystem();
    } else {
        SetLastErrorText("No more batch folders.");
    }
    return false;
}

bool CMessageIterator::FirstMessage() {
    if (!m_messages.Open(m_batchPath, "*.eml")) {
        SetLastErrorFromSystem();
        return false;
    }
    if (NextMessage()) return true;
    m_messages.Close();
    SetLastErrorText("No messages.");
    return false;
}

bool CMessageIterator::NextMessage() {
    Platform::DirectoryEntry entry;
    m_messagePath.clear();
    if (!m_messages.IsOpen()) {
        SetLastErrorText("No more messages.");
        return false;
    }
    Step step = Step::Entry;
    while ((step = m_messages.Next(entry)) == Step::Entry) {
        if (entry.isFolder) continue;
        m_messagePath = JoinPath(m_batchPath, entry.name);
        return true;
    }
    if (step == Step::Failed) {
        SetLastErrorFromSystem();
    } else {
        SetLastErrorText("No more messages.");
    }
    return false;
}

bool CMessageIterator::NextBatchWithMessage() {
    m_messages.Close();
    while (NextBatch()) {
        if (FirstMessage()) return true;
    }
    m_batches.Close();
    SetLastErrorText("No more messages.");
    return false;
}
