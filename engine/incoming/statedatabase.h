// statedatabase.h - keys and values of a mail cycle, in one file.
//
// A damaged file is told of in one line of the log and moved aside
// (FILE.damaged-N); what was in it is gone, and an empty one takes its place.
//
// Errors   false, with the reason in the last-error text.
// Sharing  No lock is taken: the caller keeps every other process and thread out.
// Crash    A change is there whole or not at all.  After a power failure the last
//          one written Later may be missing.

#ifndef LISTHAVEN_ENGINE_INCOMING_STATEDATABASE_H
#define LISTHAVEN_ENGINE_INCOMING_STATEDATABASE_H

#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <string>
#include <string_view>

struct CStateChange {
    std::string key;    // 1 to 500 bytes
    std::string value;  // "" removes
};

class CStateDatabase {
public:
    static constexpr std::size_t LongestKey = 500;

    enum class Written { Now, Later };
    enum class Outcome { Done, Nothing, Unknown };  // Unknown: it may be on the disk or not; Reopen() and look

    using Visit = std::function<bool(std::string_view key, std::string_view value)>;

    CStateDatabase();
    CStateDatabase(const CStateDatabase&) = delete;
    CStateDatabase& operator=(const CStateDatabase&) = delete;
    ~CStateDatabase();

    bool Open(const std::string& path);  // made when missing
    bool Reopen();
    void Close() noexcept;

    // Throws when it cannot be read: what is taken for new is done once more.
    bool Get(std::string_view key, std::string& value);
    bool Find(std::string_view key, std::string& value, bool& isThere);  // false when that cannot be told
    // Those whose key begins so, in the order of bytes, until visit returns
    // false; visit may read, but not change anything.
    bool ForEach(std::string_view prefix, const Visit& visit);

    Outcome Apply(std::span<const CStateChange> changes, Written written);
    bool Drop(std::string_view prefix, const Visit& drop);  // those for which drop is true, in one transaction

private:
    struct CFileState;

    bool OpenFile();
    bool SetAside(int code);  // false unless an empty one was made
    bool EnsureRoom(std::uint64_t bytes);
    int Write(const std::function<int(void* transaction)>& work, Written written, bool& isUnknown);

    std::string m_path;
    std::unique_ptr<CFileState> m_file;
    int m_visits = 0;
};

#endif  // LISTHAVEN_ENGINE_INCOMING_STATEDATABASE_H
