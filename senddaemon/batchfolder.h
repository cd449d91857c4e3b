// batchfolder.h - a queue on disk: a folder of batch folders of .eml files.
//
// A batch keeps any one folder small.  Sub-folders whose names begin with "."
// are other queues (.Sent, .Errors, ...) and never batches.  One rename moves
// a message from one queue to another, so after a crash it is in exactly one,
// as long as both lie on the same volume.
//
// Errors   false, with the reason in the thread's last-error text.  Nothing
//          throws but std::bad_alloc.
// Threads  Any member from any thread; each call holds the object's lock to
//          its end.  Two objects that move into each other at one time wait
//          for ever.  Another process may add files; its unique names are kept
//          apart from ours by a named mutex.
// Crash    A message is visible only when it is whole and on disk.  A move is
//          not flushed: the caller flushes the folder of the new path if the
//          move must outlive a power failure.
// Order    That of the directory search.  Nothing is sorted.

#ifndef LISTHAVEN_SENDDAEMON_BATCHFOLDER_H
#define LISTHAVEN_SENDDAEMON_BATCHFOLDER_H

#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <string>
#include <string_view>

class CNewFile;

// A message that is on disk under a name that no queue walk sees.
struct CPreparedMessage {
    std::string temporaryPath;  // NUMBER.tmp
    std::string finalPath;      // NUMBER.eml, in the same folder
};

class CBatchFolder {
public:
    // A batch with this many messages still takes one more.
    static constexpr std::uint32_t BatchLimit = 5000;

    enum class Transfer { Copy, Move };
    enum class Times { Keep, Renew };  // of the file, once it is in its new place

    CBatchFolder();
    CBatchFolder(const CBatchFolder& other);
    CBatchFolder& operator=(const CBatchFolder& other);
    ~CBatchFolder();

    // Remembers the path and lists the batches found there.  A folder that is
    // missing has none; it is made by the first message.
    bool Open(std::string_view path);
    bool Load();  // lists again, and starts filling at the first batch

    bool GetPath(std::string& path) const;
    bool CountMessages(std::uint32_t& total) const;  // reads every batch: O(messages)

    // Puts "source" under a unique name into the first batch with room, making
    // one if there is none; a move keeps a name of a queue (queuename.h) that is free there.  extraHeaders (""
    // or whole lines, LF) go in front of the message's own.  After a failure the source is still there, unless newPath
    // was filled in: then only the times could not be kept.
    bool AddMessage(std::string_view source, Transfer transfer, Times times, std::string_view extraHeaders,
                    std::string& newPath);

    // The move of AddMessage() to a new name of a queue; of one that is taken the number becomes another.
    bool MoveMessageIn(std::string_view source, std::string_view name, Times times, std::string& newPath);

    // text as it goes on disk (CR LF).
    bool AddMessageText(std::string_view text, std::string& newPath);

    // Makes an empty message under its .tmp name, for the caller to write, keep
    // and publish.  It counts as one of the batch.  note: as for CNewFile::Create().
    bool CreateMessage(CNewFile& file, const std::function<bool(const std::string& temporaryPath)>& note = {});

    // Writes the message under its .tmp name.  It counts as one of the batch, so
    // that a group of them fits.  The file outlives this object: the caller
    // flushes it with its group and publishes it, or removes it.
    bool PrepareMessage(std::string_view text, CPreparedMessage& prepared);
    static bool FlushPrepared(std::span<const CPreparedMessage> prepared);

    // Renames each, in order, then flushes each folder once.  Stops at the
    // first failure; what was renamed by then is visible.
    static bool PublishPrepared(std::span<const CPreparedMessage> prepared);

    // Every message of one folder; stops at the first failure.
    bool AddMessages(std::string_view folder, Transfer transfer, Times times);

    // Stops at the first failure; what was moved by then stays moved.
    bool MoveAllTo(CBatchFolder& target);

    // Also removes the batch the message leaves empty.  name: as for MoveMessageIn(); "" keeps it.
    bool MoveMessageTo(std::string_view message, CBatchFolder& target, std::string_view name = {});

    bool RemoveBatch(std::string_view batchPath);  // with every message in it
    bool RemoveAll();

private:
    struct CState;
    std::unique_ptr<CState> m_state;
};

#endif  // LISTHAVEN_SENDDAEMON_BATCHFOLDER_H
