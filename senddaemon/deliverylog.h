// deliverylog.h - the ledger of an account: who got which message, and if not, why.
//
// One line per recipient and outcome in "delivery.log" in the account's root
// folder; larger than the limit it becomes "delivery.log.1", that one
// "delivery.log.2", and so on.  docs/formats.md has the columns.
//
// Errors   false, with the reason in the last-error text.
// Threads  Append() from any; lines of one call stay together, and those that
//          wait for the disk at the same time share one flush.  Other processes
//          may append too.
// Crash    What Append(..., Flush::Yes) wrote survives.  A torn line counts only
//          when nothing but the end of its text is missing.

#ifndef LISTHAVEN_SENDDAEMON_DELIVERYLOG_H
#define LISTHAVEN_SENDDAEMON_DELIVERYLOG_H

#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <string>
#include <string_view>

namespace SendDaemon {

inline constexpr std::string_view DeliveryLogFileName = "delivery.log";

enum class DeliveryStatus : std::uint8_t {
    Accepted,  // the server took the message for this recipient; the file is not yet filed
    Sent,      // and the file has been filed
    Deferred,  // to be tried again
    Failed,
    Expired,
    Parked,    // held back by a limit
    Requeued,  // put back into the queue by the operator
};
std::string_view GetDeliveryStatusName(DeliveryStatus status) noexcept;  // "accepted"
bool ParseDeliveryStatus(std::string_view name, DeliveryStatus& status);

struct CDeliveryLine {
    std::int64_t time = 0;  // seconds since 1970
    DeliveryStatus status = DeliveryStatus::Accepted;
    std::string broadcast{};  // X-Lhv-Broadcast; "" without
    std::string message{};    // the Message-ID without <>, or the number of the queue file
    std::string recipient{};
    std::string host{};
    int code = 0;  // 0: none
    std::string enhanced{};
    std::string text{};
};

// One line with LF; tabs, CR, LF, NUL and other control characters of the values
// become blanks, and values are cut to 4096 bytes, the text to 1024.
std::string FormatDeliveryLine(const CDeliveryLine& line);
// Without LF.  False for what no FormatDeliveryLine() wrote; line is then undefined.
bool ParseDeliveryLine(std::string_view text, CDeliveryLine& line);

class CDeliveryLog {
public:
    enum class Flush : std::uint8_t { No, Yes };

    CDeliveryLog();
    CDeliveryLog(const CDeliveryLog&) = delete;
    CDeliveryLog& operator=(const CDeliveryLog&) = delete;
    ~CDeliveryLog();

    // Made by the first line.  maxBytes: of one file (0: no limit); keep: how many old ones (0: all).
    // Programs that only add a line now and then give 0 and leave it to the daemon.
    void SetUp(std::string_view accountRoot, std::uint64_t maxBytes, std::uint32_t keep);

    bool Open();  // for those who want to know beforehand whether it can be written

    // Lines that could not be flushed are written all the same.
    bool Append(std::span<const CDeliveryLine> lines, Flush flush);

    std::uint64_t GetFlushCount() const;  // for measuring

private:
    struct CState;
    std::unique_ptr<CState> m_state;
};

// Every line, oldest first, of all files; visit returning false stops.  No
// file is no line.  skipped (if given): how many lines could not be read.
// Memory does not grow with the ledger; a rotation meanwhile does not matter.
bool ForEachDeliveryLine(std::string_view accountRoot, const std::function<bool(const CDeliveryLine&)>& visit,
                         std::uint64_t* skipped = nullptr);

// The same, of the lines that there are at Open(), as often as needed.
class CDeliverySnapshot {
public:
    CDeliverySnapshot();
    CDeliverySnapshot(const CDeliverySnapshot&) = delete;
    CDeliverySnapshot& operator=(const CDeliverySnapshot&) = delete;
    ~CDeliverySnapshot();
    bool Open(std::string_view accountRoot);
    bool ForEach(const std::function<bool(const CDeliveryLine&)>& visit, std::uint64_t* skipped = nullptr) const;

private:
    struct CState;
    std::unique_ptr<CState> m_state;
};

// The accepted ones that no other line for the same message and recipient
// follows: what a program that died had handed over and not filed.  Looks at
// the last two files, and at more of them while they are small.
class CUnfiledDeliveries {
public:
    CUnfiledDeliveries();
    CUnfiledDeliveries(const CUnfiledDeliveries&) = delete;
    CUnfiledDeliveries& operator=(const CUnfiledDeliveries&) = delete;
    ~CUnfiledDeliveries();
    bool Load(std::string_view accountRoot);
    bool Contains(std::string_view message, std::string_view recipient) const;
    void ForEach(const std::function<void(const CDeliveryLine&)>& visit) const;

private:
    struct CState;
    std::unique_ptr<CState> m_state;
};

}  // namespace SendDaemon

#endif  // LISTHAVEN_SENDDAEMON_DELIVERYLOG_H
