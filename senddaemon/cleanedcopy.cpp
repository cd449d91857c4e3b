#include "senddaemon/cleanedcopy.h"

#include <algorithm>
#include <array>
#include <iterator>
#include <vector>

#include "platform/file.h"
#include "senddaemon/wirebody.h"
#include "senddaemon/wireheader.h"
#include "senddaemon/wirelines.h"
#include "utility/lasterror.h"
#include "utility/text.h"

namespace SendDaemon {

namespace {

constexpr std::array<std::string_view, 18> KeptHeaders = {"From",         "To",
                                                          "Reply-To",     "Subject",
                                                          "BCC",          "CC",
                                                          "Date",         "X-Mailer",
                                                          "Content-Type", "Content-Transfer-Encoding",
                                                          "MIME-Version", "X-Loop",
                                                          "X-ZQ-Loop",    "X-ZQ-Loop",
                                                          "X-Priority",   "X-Gateway-From",
                                                          "X-Gateway",    "Sender"};

// Which fields of a message go along, and where.
class CKeptFields {
public:
    explicit CKeptFields(std::string_view further);

    // The place in the list, its size for a further one, npos for a field that stays behind.
    std::size_t Place(std::string_view name) const;

private:
    std::vector<std::string_view> m_further;
};

bool IsFieldName(std::string_view name) noexcept {
    return !name.empty() &&
           std::all_of(name.begin(), name.end(), [](char c) { return c > ' ' && c < 127 && c != ':'; });
}

// Nothing brings these back.
bool IsSecret(std::string_view name) noexcept {
    return EqualNoCase(name, "BCC") || EqualNoCase(name, "Resent-BCC") || StartsWithNoCase(name, "X-Lhv-") ||
           StartsWithNoCase(name, "X-Zq-");
}

CKeptFields::CKeptFields(std::string_view further) {
    if (further.empty()) return;
    for (const std::string_view piece : Split(further, ',')) {
        const std::string_view name = Trim(piece);
        if (IsFieldName(name) && !IsSecret(name)) m_further.push_back(name);
    }
}

std::size_t CKeptFields::Place(std::string_view name) const {
    const auto isName = [name](std::string_view kept) { return kept.size() == name.size() && EqualNoCase(kept, name); };
    if (EqualNoCase(name, "BCC")) return std::string_view::npos;
    const auto found = std::find_if(KeptHeaders.begin(), KeptHeaders.end(), isName);
    if (found != KeptHeaders.end()) return static_cast<std::size_t>(found - KeptHeaders.begin());
    return std::any_of(m_further.begin(), m_further.end(), isName) ? KeptHeaders.size() : std::string_view::npos;
}

// Of fields that may stand once only, lists are joined and the first of others is taken.
enum class Repeated { All, First, Joined };

Repeated HowRepeated(std::string_view name) noexcept {
    for (const std::string_view list : {"To", "CC", "Reply-To"}) {
        if (EqualNoCase(name, list)) return Repeated::Joined;
    }
    return StartsWithNoCase(name, "X-") ? Repeated::All : Repeated::First;
}

class CHeaderWriter {
public:
    CHeaderWriter(std::string_view header, const CCleanOptions& options, CWireHeaderRules& rules);

    // plan: of the message; a MIME-Version is added when the body needs it.
    void AppendTo(const CEntityPlan& plan, bool hasHighBody, std::string& out);

private:
    void AppendPlace(std::size_t place, std::string& out);
    void AppendJoined(std::size_t place, std::string& out);
    bool Has(std::string_view name) const;

    struct CField {
        CWireField field;
        std::size_t place;
    };
    std::vector<CField> m_fields;
    CWireHeaderRules& m_rules;
};

CHeaderWriter::CHeaderWriter(std::string_view header, const CCleanOptions& options, CWireHeaderRules& rules)
    : m_rules(rules) {
    const CKeptFields kept(options.keepHeaders);
    for (const CWireField& field : SplitWireFields(header)) {
        const std::size_t place = kept.Place(field.name);
        if (place != std::string_view::npos) m_fields.push_back({field, place});
    }
}

bool CHeaderWriter::Has(std::string_view name) const {
    return std::any_of(m_fields.begin(), m_fields.end(),
                       [name](const CField& one) { return EqualNoCase(one.field.name, name); });
}

void CHeaderWriter::AppendJoined(std::size_t place, std::string& out) {
    std::string value;
    std::string_view name;
    for (const CField& one : m_fields) {
        if (one.place != place) continue;
        name = one.field.name;
        const std::string more = UnfoldWireValue(one.field.raw);
        if (!value.empty() && !more.empty()) value += ", ";
        value += more;
    }
    AppendWireField(name, value, m_rules, out);
}

void CHeaderWriter::AppendPlace(std::size_t place, std::string& out) {
    const auto isHere = [place](const CField& one) { return one.place == place; };
    const auto count = std::count_if(m_fields.begin(), m_fields.end(), isHere);
    const bool isFurther = place == KeptHeaders.size();
    const Repeated repeated = isFurther || count < 2 ? Repeated::All : HowRepeated(KeptHeaders[place]);
    if (repeated == Repeated::Joined) {
        AppendJoined(place, out);
        return;
    }
    for (const CField& one : m_fields) {
        if (!isHere(one)) continue;
        AppendWireField(one.field.name, one.field.raw, m_rules, out);
        if (repeated == Repeated::First) return;
    }
}

void CHeaderWriter::AppendTo(const CEntityPlan& plan, bool hasHighBody, std::string& out) {
    for (std::size_t place = 0; place <= KeptHeaders.size(); ++place) {
        const std::string_view name = place < KeptHeaders.size() ? KeptHeaders[place] : std::string_view();
        if (plan.becomesText && name == "Content-Type")
            out.append("Content-Type: text/plain\r\n");
        else if (!plan.encoding.empty() && name == "Content-Transfer-Encoding")
            out.append(name).append(": ").append(plan.encoding).append("\r\n");
        else if (name == "MIME-Version" &&
                 (hasHighBody || !plan.encoding.empty() || Has("Content-Transfer-Encoding")) && !Has(name))
            out.append("MIME-Version: 1.0\r\n");
        else
            AppendPlace(place, out);
    }
}

class CCleanedCopy {
public:
    CCleanedCopy(const CCleanOptions& options, CCleanResult& result)
        : m_options(options), m_result(result), m_plan(options.has8BitMime) {}

    bool Write(std::string_view source, std::string_view target);

private:
    bool ScanBody();
    bool WriteBody(CWireTarget& target);
    bool CopyLines(CWireTarget& target);
    bool CopyBlocks(CWireTarget& target);

    bool IsFaulty() const noexcept { return m_scan.HasHighBytes() || m_scan.HasNul() || m_scan.HasLongLine(); }

    const CCleanOptions& m_options;
    CCleanResult& m_result;
    CMessageReader m_reader;
    CBodyScan m_scan;
    CBodyPlan m_plan;
    CWireHeaderRules m_rules;
};

bool CCleanedCopy::ScanBody() {
    std::string_view block;
    do {
        if (!m_reader.ReadBlock(block)) return false;
        m_scan.Add(block);
    } while (!block.empty());
    m_scan.Finish();
    return !IsFaulty() || m_plan.Read(m_reader.GetHeader(), m_reader);
}

bool CCleanedCopy::CopyBlocks(CWireTarget& target) {
    m_reader.Rewind();
    std::string_view block;
    do {
        if (!m_reader.ReadBlock(block)) return false;
        target.Put(block);
    } while (!block.empty() && !target.HasFailed());
    if (!m_scan.EndsWithLine()) target.Put("\r\n");
    return true;
}

bool CCleanedCopy::CopyLines(CWireTarget& target) {
    CWireLines lines(m_reader);
    CWireLine line;
    bool isAtEnd = false;
    bool isOpen = false;
    while (!target.HasFailed()) {
        if (!lines.Next(line, isAtEnd)) return false;
        if (isAtEnd) break;
        target.Put(line.text);
        isOpen = !line.isEnd;
        if (line.isEnd) target.Put("\r\n");
    }
    if (isOpen) target.Put("\r\n");
    return true;
}

bool CCleanedCopy::WriteBody(CWireTarget& target) {
    if (!IsFaulty()) return m_scan.HasOddLineEnds() ? CopyLines(target) : CopyBlocks(target);
    CBodyWriter writer(m_plan, m_rules, target);
    if (!writer.Write(m_reader.GetHeader(), m_reader)) return false;
    m_result.is8Bit = writer.HasHighBytes();
    return true;
}

bool CCleanedCopy::Write(std::string_view source, std::string_view target) {
    m_result = {};
    m_rules.hasSmtpUtf8 = m_options.hasSmtpUtf8;
    CWireTarget file;
    if (!m_reader.Open(source) || !ScanBody() || !file.Create(target)) return false;
    std::string header;
    CEntityPlan plan;
    if (IsFaulty()) plan = m_plan.For(CEntityWalk(m_reader.GetHeader()).GetEntity());
    CHeaderWriter(m_reader.GetHeader(), m_options, m_rules).AppendTo(plan, m_scan.HasHighBytes(), header);
    header.append("\r\n");
    file.Put(header);
    const bool isWritten = WriteBody(file) && file.Finish();
    m_result.size = file.GetSize();
    m_result.needsSmtpUtf8 = m_rules.needsSmtpUtf8;
    if (isWritten) return true;
    file = CWireTarget();
    Platform::RemoveFile(target);
    return false;
}

}  // namespace

std::span<const std::string_view> GetKeptHeaders() noexcept {
    return KeptHeaders;
}

bool WriteCleanedCopy(std::string_view source, std::string_view target, const CCleanOptions& options,
                      CCleanResult& result) {
    return CCleanedCopy(options, result).Write(source, target);
}

}  // namespace SendDaemon
