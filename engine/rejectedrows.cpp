#include "engine/rejectedrows.h"

#include "engine/csvtext.h"
#include "platform/systemerror.h"
#include "utility/lasterror.h"
#include "utility/paths.h"

namespace ImportAddresses {

namespace {

constexpr std::size_t WriteStep = std::size_t{64} << 10;
constexpr std::string_view LineEnd = "\r\n";

bool FailOn(const std::string& path) {
    SetLastErrorText(path + ": " + Platform::SystemErrorText(Platform::LastSystemError()));
    return false;
}

}  // namespace

CRejectedRows::~CRejectedRows() {
    if (!m_file.IsOpen()) return;
    m_file.Close();
    Platform::RemoveFile(m_path + ".tmp");
}

bool CRejectedRows::RemoveOld(const std::string& path) {
    m_path = path;
    return Platform::RemoveFile(path) || Platform::IsNotFound(Platform::LastSystemError()) || FailOn(path);
}

void CRejectedRows::SetFormat(std::string_view header, char separator, bool byteOrderMark) {
    if (m_file.IsOpen()) return;  // the first row was rejected: there is a header already
    m_header = header;
    m_separator = separator;
    m_byteOrderMark = byteOrderMark;
}

bool CRejectedRows::Add(std::uint64_t line, std::string_view reason, std::string_view original, Form form) {
    if (!m_file.IsOpen()) {
        if (!m_file.Open(m_path + ".tmp", Platform::FileMode::CreateOrEmpty)) return FailOn(m_path);
        if (m_byteOrderMark) m_waiting += "\xEF\xBB\xBF";
        m_waiting.append("Line").append(1, m_separator).append("Reason").append(1, m_separator);
        m_waiting.append(m_header.empty() ? "E-mail" : m_header).append(LineEnd);
    }
    m_waiting.append(std::to_string(line)).append(1, m_separator);
    AppendCsvCell(m_waiting, reason, m_separator);
    m_waiting += m_separator;
    if (form == Form::Row && !m_header.empty()) {
        m_waiting += original;
    } else {
        AppendCsvCell(m_waiting, original, m_separator);
    }
    m_waiting += LineEnd;
    return m_waiting.size() < WriteStep || Flush();
}

bool CRejectedRows::Flush() {
    if (!m_file.Write(m_waiting)) return FailOn(m_path);
    m_waiting.clear();
    return true;
}

bool CRejectedRows::Finish() {
    if (!m_file.IsOpen()) return true;
    if (!Flush()) return false;
    const std::string temporary = m_path + ".tmp";
    const bool isDone = m_file.Flush() && m_file.Close() && Platform::RenameReplacing(temporary, m_path) &&
                        Platform::FlushFolder(ParentFolder(m_path));
    return isDone || FailOn(m_path);
}

}  // namespace ImportAddresses
