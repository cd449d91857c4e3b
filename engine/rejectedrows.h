// rejectedrows.h - the file of the rows that an import could not take.
//
// Errors   false, with the reason in the last-error text.
// Threads  One thread at a time.
// Crash    The file has its name when it is whole; before, it has ".tmp" behind it.

#ifndef LISTHAVEN_ENGINE_REJECTEDROWS_H
#define LISTHAVEN_ENGINE_REJECTEDROWS_H

#include <cstdint>
#include <string>
#include <string_view>

#include "platform/file.h"

namespace ImportAddresses {

class CRejectedRows {
public:
    CRejectedRows() = default;
    CRejectedRows(const CRejectedRows&) = delete;
    CRejectedRows& operator=(const CRejectedRows&) = delete;
    ~CRejectedRows();  // removes what was not finished

    bool RemoveOld(const std::string& path);
    // header is that of the source as it was; "" when it has none.
    void SetFormat(std::string_view header, char separator, bool byteOrderMark);

    enum class Form { Row, OneCell };  // OneCell: the row cannot be taken apart
    bool Add(std::uint64_t line, std::string_view reason, std::string_view original, Form form);
    bool Finish();

    bool IsEmpty() const noexcept { return !m_file.IsOpen(); }

private:
    bool Write(std::string_view bytes);
    bool Flush();

    std::string m_path;
    std::string m_header;
    std::string m_waiting;
    Platform::CFile m_file;
    char m_separator = ',';
    bool m_byteOrderMark = false;
};

}  // namespace ImportAddresses

#endif  // LISTHAVEN_ENGINE_REJECTEDROWS_H
