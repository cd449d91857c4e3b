// preparedtext.h - a text part with data fields, taken apart for many copies.
//
// The lines without a reference are encoded once; a copy encodes those with
// one.  That gives the same bytes as encoding the whole, since neither the
// transfer encoding nor the choice of it looks beyond the end of a line.
//
// Threads  One at a time in the process: the table of data fields is shared.

#ifndef LISTHAVEN_ENGINE_PREPAREDTEXT_H
#define LISTHAVEN_ENGINE_PREPAREDTEXT_H

#include <string>
#include <string_view>
#include <vector>

#include "engine/datafields.h"
#include "mime/mimetext.h"

class CPreparedText {
public:
    explicit CPreparedText(const CMimeText& entity);

    bool IsHtml() const noexcept { return m_isHtml; }

    // Expands the lines that hold references: to be called before the two below.
    void Expand(CDataFieldExpansion& expansion);
    bool IsQuotedPrintable() const noexcept { return m_isQuoted; }

    // As they go on disk (CR LF).
    void AppendEntity(std::string& result) const;  // header, empty line, body
    void AppendBody(std::string& result) const;

private:
    // A run of whole lines.
    struct Run {
        std::string plain;  // without references: as it goes on disk
        std::string quoted;
        CDataFieldText text;  // else
        std::string expanded;
        bool hasReferences = false;
    };

    bool m_isHtml = false;
    bool m_isQuoted = false;
    bool m_hasLongLine = false;  // among the lines without references
    std::string m_plainHeader;
    std::string m_quotedHeader;
    std::vector<Run> m_runs;
};

#endif  // LISTHAVEN_ENGINE_PREPAREDTEXT_H
