// fetchedheader.h - the header of a fetched message, cleaned while it streams.
//
// Fields named X-Lhv-... and X-Zq-... are left out with their folds, however
// they are written: in any case, behind any line end, with blanks in front of
// the colon.  X-ZQ-Loop, the mark of mail that went round, stays.  Folds that
// continue nothing are left out too, for they would continue what is put in
// front.  Line ends of the header become CR LF, a run of lone CRs one CR.  What
// follows the header is not touched.
//
// Memory does not depend on the length of the header or of a line.

#ifndef LISTHAVEN_ENGINE_INCOMING_FETCHEDHEADER_H
#define LISTHAVEN_ENGINE_INCOMING_FETCHEDHEADER_H

#include <cstdint>
#include <string>
#include <string_view>

class CFetchedHeader {
public:
    // Appends what of the block is to be stored; blocks may be cut anywhere.
    void Add(std::string_view block, std::string& text);
    void Finish(std::string& text);  // at the end of the message
    bool IsComplete() const noexcept { return m_isComplete; }

private:
    enum class Place : std::uint8_t { LineStart, Blanks, Name, Rest };

    void Take(char c, std::string& text);
    void BeginField(std::string& text);
    void EndLine(bool hasLineFeed, std::string& text);
    void Keep(std::string_view bytes, std::string& text);

    Place m_place = Place::LineStart;
    std::string m_name;          // as far as needed to know the field
    std::string_view m_lineEnd;  // of the last line that was kept; written with the next one
    bool m_isComplete = false;
    bool m_isDropped = true;         // the field at hand; none at first
    bool m_isBehindLineFeed = true;  // the line at hand, else behind a lone CR
    bool m_isBehindCr = false;
};

// "" as key leaves room of the length of a content key, at ServerIdOffset().
std::string MakeFetchedFields(std::int64_t now, std::string_view serverId, std::uint64_t tooLargeSize = 0);
std::size_t ServerIdOffset(std::int64_t now);

#endif  // LISTHAVEN_ENGINE_INCOMING_FETCHEDHEADER_H
