// messageiterator.h - walks the messages of a queue folder, one at a time.
//
// No step reads more of a folder than the directory search does.  Messages
// added to the batch that is being walked may or may not be seen; one that
// disappears is caught by GetCurrent().
//
// Errors   false, with the reason in the last-error text: "No batch folders.",
//          "No more messages.", "No current message.", or the system's words.
// Threads  One thread at a time.
// Order    That of the directory search, batch by batch.

#ifndef LISTHAVEN_SENDDAEMON_MESSAGEITERATOR_H
#define LISTHAVEN_SENDDAEMON_MESSAGEITERATOR_H

#include <string>
#include <string_view>

#include "platform/directorysearch.h"

class CMessageIterator {
public:
    bool Start(std::string_view queue);  // true also when the queue is empty
    bool Reset();                        // to the first message of the queue
    bool Next();
    bool GetCurrent(std::string& path) const;
    bool PeekCurrent(std::string& path) const;  // without looking whether the file is still there
    void Close() noexcept;

    const std::string& GetBatchPath() const noexcept { return m_batchPath; }  // "" when no batch is being walked

private:
    bool FirstBatch();
    bool NextBatch();
    bool FirstMessage();
    bool NextMessage();
    bool NextBatchWithMessage();

    Platform::CDirectorySearch m_messages;
    Platform::CDirectorySearch m_batches;
    std::string m_queuePath;
    std::string m_batchPath;
    std::string m_messagePath;
};

#endif  // LISTHAVEN_SENDDAEMON_MESSAGEITERATOR_H
