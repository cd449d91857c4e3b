#include "mime/mimeheader.h"

#include <algorithm>
#include <array>
#include <set>
#include <utility>

#include "mime/encodedword.h"
#include "utility/lhvexception.h"
#include "utility/text.h"

namespace {

constexpr std::string_view SourceName = "Shared/Mime/MimeHeader";
constexpr std::string_view ContentPrefix = "Content-";

bool IsBlank(char c) noexcept {
    return c == ' ' || c == '\t';
}

bool IsEncodedField(std::string_view name) noexcept {
    static constexpr std::array<std::string_view, 6> Names = {"From", "To", "Reply-To", "CC", "BCC", "Subject"};
    return std::any_of(Names.begin(), Names.end(),
                       [name](std::string_view encoded) { return EqualNoCase(name, encoded); });
}

std::string StoredForm(std::string_view name, std::string_view value) {
    return IsEncodedField(name) ? EncodeHeaderWord(value) : std::string(value);
}

// What is left of a value must not open a line of its own.
std::string WithoutNewLines(std::string_view value) {
    std::string text(value);
    for (std::size_t i = 0; i < text.size(); ++i) {
        const bool isFold = text[i] == '\n' && i + 1 < text.size() && IsBlank(text[i + 1]);
        if ((text[i] == '\n' && !isFold) || text[i] == '\r' || text[i] == '\0') text[i] = ' ';
    }
    return text;
}

// The stored form of a value that a program sets; folds are no part of a word.
std::string StoredFromProgram(std::string_view name, std::string_view value) {
    if (value.find_first_of(std::string_view("\r\n\0", 3)) == std::string_view::npos) return StoredForm(name, value);
    std::string text(value);
    ReplaceAll(text, "\r\n", "\n");
    text = WithoutNewLines(text);
    if (!IsEncodedField(name)) return text;
    std::string stored;
    std::string_view rest = text;
    for (std::size_t end = rest.find('\n'); end != std::string_view::npos; end = rest.find('\n')) {
        stored += EncodeHeaderWord(rest.substr(0, end));
        const std::size_t behind = std::min(rest.find_first_not_of(" \t", end + 1), rest.size());
        stored.append(rest, end, behind - end);
        rest.remove_prefix(behind);
    }
    return stored + EncodeHeaderWord(rest);
}

}  // namespace

bool CMimeHeader::Parse(std::string_view text) {
    m_fields.clear();
    std::string converted;
    if (text.find('\r') != std::string_view::npos) {
        converted = CrLfToLf(text);
        text = converted;
    }
    text = text.substr(0, text.find("\n\n"));
    while (!text.empty()) {
        const std::size_t end = std::min(text.find('\n'), text.size());
        const std::string_view line = text.substr(0, end);
        text.remove_prefix(std::min(end + 1, text.size()));
        if (line.empty()) continue;
        const std::size_t colon = IsBlank(line.front()) ? std::string_view::npos : line.find(':');
        if (colon == std::string_view::npos) {
            ContinueLastField(line);
            continue;
        }
        const std::string_view name = Trim(line.substr(0, colon));
        m_fields.push_back({std::string(name), StoredForm(name, Trim(line.substr(colon + 1)))});
    }
    return true;
}

void CMimeHeader::ContinueLastField(std::string_view line) {
    if (m_fields.empty() || m_fields.back().name.empty()) return;
    CMimeField& field = m_fields.back();
    field.value += '\n';
    field.value += line.front();
    const std::size_t start = line.find_first_not_of(" \t");
    if (start != std::string_view::npos) field.value += StoredForm(field.name, line.substr(start));
}

const CMimeField* CMimeHeader::Find(std::string_view name) const noexcept {
    const auto found = std::find_if(m_fields.begin(), m_fields.end(), [name](const CMimeField& field) {
        return field.name.size() == name.size() && EqualNoCase(field.name, name);
    });
    return found == m_fields.end() ? nullptr : &*found;
}

CMimeField* CMimeHeader::Find(std::string_view name) noexcept {
    return const_cast<CMimeField*>(std::as_const(*this).Find(name));
}

std::string_view CMimeHeader::FindStored(std::string_view name) const noexcept {
    const CMimeField* field = Find(name);
    return field ? std::string_view(field->value) : std::string_view();
}

std::string CMimeHeader::Unfold(std::string_view stored) {
    std::string result;
    std::size_t copied = 0;
    for (std::size_t end = stored.find('\n'); end != std::string_view::npos;) {
        const std::size_t behind = stored.find_first_not_of('\n', end);
        if (behind == std::string_view::npos) break;
        if (IsBlank(stored[behind])) {
            result.append(stored, copied, end - copied);
            result += ' ';
            copied = behind + 1;
        }
        end = stored.find('\n', behind);
    }
    return result.append(stored.substr(copied));
}

std::string CMimeHeader::GetField(std::string_view name) const {
    const CMimeField* field = Find(name);
    return field ? DecodeHeaderText(Unfold(field->value)) : std::string();
}

bool CMimeHeader::HasField(std::string_view name) const noexcept {
    return Find(name) != nullptr;
}

void CMimeHeader::SetField(std::string_view name, std::string_view value) {
    if (value.empty()) {
        RemoveField(name);
    } else if (CMimeField* field = Find(name)) {
        field->value = StoredFromProgram(name, value);
    } else {
        AddField(name, value);
    }
}

void CMimeHeader::AddField(std::string_view name, std::string_view value) {
    m_fields.push_back({std::string(name), StoredFromProgram(name, value)});
}

void CMimeHeader::RemoveField(std::string_view name) {
    if (const CMimeField* field = Find(name)) m_fields.erase(m_fields.begin() + (field - m_fields.data()));
}

void CMimeHeader::CopyMissingFields(const CMimeHeader& from) {
    std::set<std::string, CLessNoCase> present;
    for (const CMimeField& field : m_fields)
        present.insert(field.name);
    for (const CMimeField& field : from.m_fields) {
        if (!StartsWithNoCase(field.name, ContentPrefix) && !present.contains(field.name)) m_fields.push_back(field);
    }
}

std::size_t CMimeHeader::GetTextSize() const noexcept {
    std::size_t size = 0;
    for (const CMimeField& field : m_fields)
        size += field.name.size() + field.value.size() + 3;
    return size;
}

void CMimeHeader::AppendTextTo(std::string& out) const {
    for (const CMimeField& field : m_fields)
        out.append(field.name).append(": ").append(field.value).append(1, '\n');
}

std::string CMimeHeader::GetText() const {
    std::string text;
    text.reserve(GetTextSize());
    AppendTextTo(text);
    return text;
}

const CMimeField& CMimeHeader::GetStoredField(std::size_t index) const {
    if (index >= m_fields.size()) ThrowInternalError(SourceName, __LINE__, InternalErrorKind::InvalidArguments);
    return m_fields[index];
}

std::string CMimeHeader::DecodeField(std::size_t index) const {
    return DecodeHeaderText(Unfold(GetStoredField(index).value));
}

void CMimeHeader::SetFieldAt(std::size_t index, std::string_view value) {
    SetStoredField(index, StoredFromProgram(GetStoredField(index).name, value));
}

void CMimeHeader::SetStoredField(std::size_t index, std::string value) {
    if (index >= m_fields.size()) ThrowInternalError(SourceName, __LINE__, InternalErrorKind::InvalidArguments);
    m_fields[index].value = std::move(value);
}

void CMimeHeader::RemoveFieldAt(std::size_t index) {
    if (index >= m_fields.size()) ThrowInternalError(SourceName, __LINE__, InternalErrorKind::InvalidArguments);
    m_fields.erase(m_fields.begin() + static_cast<std::ptrdiff_t>(index));
}

namespace {

std::string QuotedParameter(std::string_view text) {
    const char quote = text.front();
    for (std::size_t i = 1; i < text.size(); ++i) {
        if (text[i] == '\\') {
            ++i;
        } else if (text[i] == quote) {
            return std::string(text.substr(1, i - 1));
        }
    }
    return {};
}

std::string ParameterValue(std::string_view text) {
    text = TrimLeft(text);
    if (text.empty()) return {};
    std::string value = text.front() == '"' || text.front() == '\''
                            ? QuotedParameter(text)
                            : std::string(TrimRight(text.substr(0, text.find(';'))));
    ReplaceAll(value, "\n\t", " ");
    return value;
}

}  // namespace

std::string CMimeHeader::GetParameter(std::string_view fieldValue, std::string_view parameterName) {
    if (parameterName.empty()) return {};
    for (std::size_t at = FindNoCase(fieldValue, parameterName); at != std::string_view::npos;) {
        const std::size_t behind = fieldValue.find_first_not_of(" \t\n", at + parameterName.size());
        if (behind == std::string_view::npos) return {};
        if (fieldValue[behind] == '=') return ParameterValue(fieldValue.substr(behind + 1));
        at = FindNoCase(fieldValue, parameterName, behind);
    }
    return {};
}
