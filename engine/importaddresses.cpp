#include "engine/importaddresses.h"

#include <algorithm>

#include "engine/csvreader.h"
#include "engine/importcolumns.h"
#include "engine/rejectedrows.h"
#include "utility/lasterror.h"
#include "utility/lhvexception.h"

namespace ImportAddresses {

namespace {

constexpr std::size_t GroupSize = 4000;
constexpr std::uint64_t ProgressStep = 1000;              // rows
constexpr std::size_t GroupBytes = std::size_t{4} << 20;  // of rows; one of long rows is taken earlier

bool IsShortened(const CMember& member) {
    return member.name.size() > CMember::NameLimit || member.firstName.size() > CMember::NamePartLimit ||
           member.middleName.size() > CMember::NamePartLimit || member.lastName.size() > CMember::NamePartLimit;
}

class CImport {
public:
    CImport(IImportTarget& target, CSummary& summary) : m_target(target), m_summary(summary), m_group(GroupSize) {
        m_given.resize(GroupSize);
        m_rows.resize(GroupSize);
    }

    bool Run(const std::string& path, const Progress& progress);

private:
    struct CTakenRow {
        std::uint64_t line = 0;
        std::string original;
        bool isShortened = false;
    };

    bool ReadFirstRow(const CCsvRow& row);
    bool TakeRow(const CCsvRow& row);
    bool TakeGroup();
    bool Reject(std::uint64_t line, const std::string& reason, std::string_view original, CRejectedRows::Form form);

    IImportTarget& m_target;
    CSummary& m_summary;
    CCsvReader m_reader;
    CColumns m_columns;
    CRejectedRows m_rejected;
    std::vector<CMember> m_group;  // its strings are used again
    std::vector<MemberParts> m_given;
    std::vector<CTakenRow> m_rows;
    std::size_t m_count = 0;
    std::size_t m_bytes = 0;
    bool m_isFirstRow = true;
    std::string m_reason;
};

bool CImport::Reject(std::uint64_t line, const std::string& reason, std::string_view original,
                     CRejectedRows::Form form) {
    ++m_summary.rejected;
    return m_rejected.Add(line, reason, original, form);
}

bool CImport::ReadFirstRow(const CCsvRow& row) {
    m_isFirstRow = false;
    const HeaderKind kind = m_columns.ReadHeader(row.cells, m_target);
    if (kind == HeaderKind::NoAddressColumn) {
        SetLastErrorFormat("line %llu: The header has no column \"E-mail\".",
                           static_cast<unsigned long long>(row.line));
        return false;
    }
    m_summary.ignoredColumns = m_columns.GetIgnored();
    m_rejected.SetFormat(kind == HeaderKind::Header ? row.original : std::string_view(), m_reader.GetSeparator(),
                         m_reader.HasByteOrderMark());
    m_target.Begin(m_columns.GetParts());
    return kind == HeaderKind::Header || TakeRow(row);
}

bool CImport::TakeRow(const CCsvRow& row) {
    if (row.fault != nullptr) return Reject(row.line, row.fault, row.original, CRejectedRows::Form::OneCell);
    if (m_isFirstRow) return ReadFirstRow(row);
    if (std::all_of(row.cells.begin(), row.cells.end(), [](std::string_view cell) { return cell.empty(); }))
        return true;
    CMember& member = m_group[m_count];
    if (!m_columns.ReadMember(row.cells, member, m_given[m_count], m_reason)) {
        return Reject(row.line, m_reason, row.original, CRejectedRows::Form::Row);
    }
    CTakenRow& taken = m_rows[m_count++];
    taken.line = row.line;
    taken.original = row.original;
    taken.isShortened = IsShortened(member);
    m_bytes += row.original.size();
    return (m_count < GroupSize && m_bytes < GroupBytes) || TakeGroup();
}

bool CImport::TakeGroup() {
    if (m_count == 0) return true;
    const std::vector<MemberOutcome> outcomes =
        m_target.Take(std::span(m_group).subspan(0, m_count), std::span(m_given).subspan(0, m_count));
    m_count = m_bytes = 0;
    for (std::size_t i = 0; i < outcomes.size(); ++i) {
        const bool isStored =
            outcomes[i].kind == MemberOutcome::Kind::Added || outcomes[i].kind == MemberOutcome::Kind::Updated;
        if (isStored && m_rows[i].isShortened) ++m_summary.shortened;
        switch (outcomes[i].kind) {
            case MemberOutcome::Kind::Added:
                ++m_summary.added;
                break;
            case MemberOutcome::Kind::Updated:
                ++m_summary.updated;
                break;
            case MemberOutcome::Kind::Skipped:
                ++m_summary.skipped;
                break;
            case MemberOutcome::Kind::Rejected:
                if (!Reject(m_rows[i].line, outcomes[i].reason, m_rows[i].original, CRejectedRows::Form::Row)) {
                    return false;
                }
        }
    }
    return true;
}

bool CImport::Run(const std::string& path, const Progress& progress) {
    if (!m_reader.Open(path) || !m_rejected.RemoveOld(RejectedFileName(path))) return false;
    CCsvRow row;
    for (std::uint64_t count = 1;; ++count) {
        const CCsvReader::Step step = m_reader.Next(row);
        if (step == CCsvReader::Step::Failed) return false;
        if (step == CCsvReader::Step::EndOfFile) break;
        if (!TakeRow(row)) return false;
        if (count % ProgressStep == 0 && progress && !progress(m_reader.GetPosition(), m_reader.GetSize())) {
            m_summary.isCancelled = true;
            break;
        }
    }
    if (!TakeGroup()) return false;
    const bool hasRejected = !m_rejected.IsEmpty();
    if (!m_rejected.Finish()) return false;
    if (hasRejected) m_summary.rejectedFile = RejectedFileName(path);
    return true;
}

}  // namespace

std::string RejectedFileName(const std::string& path) {
    return path + ".rejected.csv";
}

bool ImportFile(const std::string& path, IImportTarget& target, CSummary& summary, const Progress& progress) {
    summary = CSummary();
    try {
        return CImport(target, summary).Run(path, progress);
    } catch (const CLhvException& exception) {
        SetLastErrorFromException(exception);
        return false;
    }
}

}  // namespace ImportAddresses
