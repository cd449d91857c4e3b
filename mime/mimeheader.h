// mimeheader.h - the header of an entity: an ordered list of fields.
//
// Names compare without regard to case; duplicates are kept in their order.  A
// stored value is what stands behind "Name: " in a file: folds are a LF and the
// blank or TAB that opens the next line.  From, To, Reply-To, CC, BCC and
// Subject are stored as encoded words (encodedword.h) when they need it.
//
// Values set by a program cannot start a new line: a LF without a blank or TAB
// behind it, a CR and a NUL become blanks.  Text that is parsed is kept as it is.
//
// Errors   An index out of range throws CLhvException.

#ifndef LISTHAVEN_MIME_MIMEHEADER_H
#define LISTHAVEN_MIME_MIMEHEADER_H

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

struct CMimeField {
    std::string name;
    std::string value;  // as stored
};

class CMimeHeader {
public:
    // Replaces all fields by those of the text up to its first empty line.  A
    // line that begins with no blank and has no colon is joined to the field
    // before it, its first character doubled.  Never fails.
    bool Parse(std::string_view text);

    std::string GetField(std::string_view name) const;  // the first of that name, decoded; "" when absent
    bool HasField(std::string_view name) const noexcept;
    std::string_view FindStored(std::string_view name) const noexcept;  // the first of that name; "" when absent

    void SetField(std::string_view name, std::string_view value);  // the first of that name, else appended; "" removes
    void AddField(std::string_view name, std::string_view value);
    void RemoveField(std::string_view name);  // the first of that name

    // Appends what this header lacks, duplicates included, but no Content- fields.
    void CopyMissingFields(const CMimeHeader& from);

    std::string GetText() const;  // "Name: value\n" for each field
    void AppendTextTo(std::string& out) const;
    std::size_t GetTextSize() const noexcept;

    // By position, from 0.
    std::size_t GetFieldCount() const noexcept { return m_fields.size(); }
    const CMimeField& GetStoredField(std::size_t index) const;
    std::string DecodeField(std::size_t index) const;
    void SetFieldAt(std::size_t index, std::string_view value);  // as SetField() does, but may be ""
    void SetStoredField(std::size_t index, std::string value);   // as it is
    void RemoveFieldAt(std::size_t index);

    // A parameter of a value, such as "charset".  The name is found within
    // longer names too: "name" finds "filename".  "" when there is none, or
    // when a quoted value has no end.
    static std::string GetParameter(std::string_view fieldValue, std::string_view parameterName);

    static std::string Unfold(std::string_view stored);  // each fold becomes a blank

private:
    CMimeField* Find(std::string_view name) noexcept;
    const CMimeField* Find(std::string_view name) const noexcept;
    void ContinueLastField(std::string_view line);

    std::vector<CMimeField> m_fields;
};

#endif  // LISTHAVEN_MIME_MIMEHEADER_H
