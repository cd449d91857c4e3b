// datafields.h - the process-wide table of data fields, and the expansion of
// "$(Name)" in texts.
//
// Names compare without regard to case.  "Sender-Email" is the field "Email"
// and "Sender-Name" the field "Name".  There is no escape for a literal "$(".
//
// A literal value is inserted as it stands: a reference in it is never looked
// up, neither where it is inserted into a text nor where another value refers to
// it.  What strangers wrote is set so.
//
// Errors   A missing text and a pop without a push throw the internal error.
// Threads  None of this is guarded: one thread at a time fills the table and
//          expands (the preparation of one message at a time).
// Cost     A text without a reference costs one search.  Setting, pushing and
//          popping cost what was set since the push, not the size of the table.

#ifndef LISTHAVEN_ENGINE_DATAFIELDS_H
#define LISTHAVEN_ENGINE_DATAFIELDS_H

#include <cstddef>
#include <cstdint>
#include <list>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

// The names of the fields that the program itself sets.
enum class DataField : std::uint8_t {
    ToFirstName,
    ToLastName,
    ToName,
    ToEmail,  // these eight are the common ones, in the order offered
    FromFirstName,
    FromLastName,
    FromName,
    FromEmail,
    ToMiddleName,
    FromMiddleName,
    From,
    To,
    ReplyTo,
    Subject,
    Cc,
    Date,
    Time,
    Rand,
    Rand1,
    Rand2,
    Rand3,
    ListName,
    ListUsage,
    ListDisplayName,
    ListEmail,
    CommandEmail,
    AuthorizedEmail,
    PostEmail,
    OriginalHeader,
    OriginalTo,
    OriginalFrom,
    OriginalFromName,
    OriginalFromFirstName,
    OriginalFromMiddleName,
    OriginalFromLastName,
    OriginalFromEmail,
    OriginalSenderEmail,
    OriginalSenderName,
    OriginalSenderFirstName,
    OriginalSenderMiddleName,
    OriginalSenderLastName,
    OriginalSubject,
    OriginalDate,
    MessageNumber,
    DigestCreationDate,
    Email,
    Name,
    FirstName,
    LastName,
    Count
};

std::string_view DataFieldName(DataField field) noexcept;

// No value grows beyond this by the references in it; one that would keeps the
// references that are left, with a line in the log.
constexpr std::size_t MaxExpandedValue = std::size_t{1} << 20;

// A field that is looked up once, for setting it and for finding its value many
// times.  It stays good for as long as the process runs.
class CDataFieldName {
public:
    explicit CDataFieldName(std::string_view name);

private:
    friend class CDataFieldExpansion;
    friend void SetDataField(const CDataFieldName& field, std::string_view value, bool isHtml);
    friend void SetLiteralDataField(const CDataFieldName& field, std::string_view value, bool isHtml);

    void* m_entry;
};
void SetDataField(const CDataFieldName& field, std::string_view value, bool isHtml = false);
void SetLiteralDataField(const CDataFieldName& field, std::string_view value, bool isHtml = false);

// isHtml: the value is HTML already, and is decoded where plain text is wanted.
void SetDataField(std::string_view name, std::string_view value, bool isHtml = false);
void SetDataField(DataField field, std::string_view value, bool isHtml = false);
void SetLiteralDataField(std::string_view name, std::string_view value, bool isHtml = false);
void SetLiteralDataField(DataField field, std::string_view value, bool isHtml = false);
std::string GetDataField(std::string_view name);  // "" when there is none; as it was set
bool HasDataField(std::string_view name);         // it was set, if only to ""

bool HoldsDataField(std::string_view text) noexcept;  // there is a "$(" with a ")" behind it

// As rules ask: the first ")" of the whole text must lie behind the first "$(".
bool ContainsDataField(std::string_view text) noexcept;

// Values are inserted HTML-encoded or plain, as htmlMode says; a field that is
// unknown or empty vanishes.  What was inserted is not looked at again.
void ExpandDataFields(std::string* text, bool htmlMode);

void PushDataFields();
void PopDataFields();

// Pushes, and pops at the end of the scope.
class CDataFieldScope {
public:
    CDataFieldScope() { PushDataFields(); }
    CDataFieldScope(const CDataFieldScope&) = delete;
    CDataFieldScope& operator=(const CDataFieldScope&) = delete;
    ~CDataFieldScope() { PopDataFields(); }
};

// A text taken apart once, for expanding it many times.
class CDataFieldText {
public:
    CDataFieldText() = default;
    explicit CDataFieldText(std::string_view text);

    struct Piece {
        std::string text;                     // literally, or the name
        std::optional<CDataFieldName> field;  // of a reference
    };
    const std::vector<Piece>& GetPieces() const noexcept { return m_pieces; }
    bool HasReferences() const noexcept { return m_hasReferences; }

private:
    std::vector<Piece> m_pieces;
    bool m_hasReferences = false;
};

// One expansion: values are converted and taken further once for all texts that
// it is asked for.  Setting, pushing or popping a field ends its use.
class CDataFieldExpansion {
public:
    explicit CDataFieldExpansion(bool htmlMode) noexcept;
    CDataFieldExpansion(const CDataFieldExpansion&) = delete;
    CDataFieldExpansion& operator=(const CDataFieldExpansion&) = delete;

    std::string_view GetValue(const CDataFieldName& field);  // good as long as this object
    void Append(std::string& result, std::string_view text);
    void Append(std::string& result, const CDataFieldText& text);

private:
    struct CEntry;
    struct CResolving;
    friend struct CDataFieldTable;
    friend class CDataFieldName;
    friend void SetDataField(const CDataFieldName& field, std::string_view value, bool isHtml);
    friend void SetLiteralDataField(const CDataFieldName& field, std::string_view value, bool isHtml);

    // Stretches of a value that came from literals, in their order.
    struct CStretch {
        std::size_t start;
        std::size_t end;
    };
    using Stretches = std::vector<CStretch>;

    std::string_view GetValue(CEntry* entry);
    const std::string& Convert(CEntry& entry);
    const std::string& Resolve(CEntry& entry);
    bool TakePass(CEntry& entry, const CResolving& value, CResolving& result);

    bool m_htmlMode;
    std::uint64_t m_epoch;
    std::list<std::string> m_values;  // what had to be made anew
    std::list<Stretches> m_literals;  // of those values that have any
};

namespace Engine {

// Walk with: while (enumerator.Next(name, description)).
class CDataFieldsEnumerator {
public:
    CDataFieldsEnumerator() noexcept : m_count(static_cast<std::size_t>(DataField::Count)) {}

    bool Next(std::string& name, std::string& description);
    void Reset() noexcept { m_position = 0; }

protected:
    explicit CDataFieldsEnumerator(std::size_t count) noexcept : m_count(count) {}

private:
    std::size_t m_position = 0;
    std::size_t m_count;
};

// The eight fields that every message can use.
class CCommonDataFieldsEnumerator : public CDataFieldsEnumerator {
public:
    CCommonDataFieldsEnumerator() noexcept : CDataFieldsEnumerator(8) {}
};

}  // namespace Engine

#endif  // LISTHAVEN_ENGINE_DATAFIELDS_H
