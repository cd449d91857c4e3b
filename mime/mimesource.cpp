#include "mime/mimesource.h"

#include <cstring>
#include <utility>

namespace {

// Every run of CRs in front of a LF goes away; other CRs stay.
template <class Append>
void ForEachPieceWithLineFeeds(std::string_view text, const Append& append) {
    std::size_t from = 0;
    while (from < text.size()) {
        const std::size_t cr = text.find('\r', from);
        if (cr == std::string_view::npos) break;
        std::size_t next = text.find_first_not_of('\r', cr);
        if (next == std::string_view::npos) next = text.size();
        const bool isLineEnd = next < text.size() && text[next] == '\n';
        append(text.substr(from, (isLineEnd ? cr : next) - from));
        from = next;
    }
    append(text.substr(from));
}

std::string WithLineFeeds(std::string_view text) {
    std::string result;
    result.reserve(text.size());
    ForEachPieceWithLineFeeds(text, [&](std::string_view piece) { result.append(piece); });
    return result;
}

// In its place: a large message is not to be there twice.
void MakeLineFeeds(std::string& text) {
    char* to = text.data();
    ForEachPieceWithLineFeeds(text, [&](std::string_view piece) {
        std::memmove(to, piece.data(), piece.size());
        to += piece.size();
    });
    text.resize(static_cast<std::size_t>(to - text.data()));
}

}  // namespace

CMimeSource::CMimeSource(std::string&& text) {
    if (text.find('\r') != std::string::npos) MakeLineFeeds(text);
    m_owner = std::make_shared<const std::string>(std::move(text));
    m_text = *m_owner;
}

CMimeSource::CMimeSource(std::string_view text)
    : m_owner(std::make_shared<const std::string>(WithLineFeeds(text))), m_text(*m_owner) {}

CMimeSource::CMimeSource(const std::string& text) : CMimeSource(std::string_view(text)) {}

CMimeSource::CMimeSource(const char* text) : CMimeSource(std::string_view(text)) {}

CMimeSource CMimeSource::Part(std::string_view piece) const {
    CMimeSource part;
    part.m_owner = m_owner;
    part.m_text = piece;
    part.m_depth = m_depth + 1;
    part.m_sealed = m_sealed;
    return part;
}

CMimeSource CMimeSource::With(Sealed sealed) const {
    CMimeSource same = *this;
    same.m_sealed = sealed;
    return same;
}

CMimeSource CMimeSource::WithHead(CMimeHead& head) const {
    CMimeSource same = *this;
    same.m_head = &head;
    return same;
}

void CMimeBody::Set(std::string text) {
    m_owner.reset();
    m_view = {};
    m_own = std::move(text);
}

void CMimeBody::SetShared(std::string text) {
    m_owner = std::make_shared<const std::string>(std::move(text));
    m_view = *m_owner;
    m_own.clear();
}

void CMimeBody::Share(const CMimeSource& source, std::string_view piece) {
    m_owner = source.m_owner;
    m_view = piece;
    m_own.clear();
}

std::string& CMimeBody::Own() {
    if (m_owner) Set(std::string(m_view));
    return m_own;
}
