// mimesource.h - the text that entities are read from, and the bodies they keep.
//
// A parsed entity keeps its body as a piece of the text it was read from; all
// entities of a message, and their clones, share that one text.
//
// Threads  The shared text is never changed, so entities that share it may
//          belong to different threads.

#ifndef LISTHAVEN_MIME_MIMESOURCE_H
#define LISTHAVEN_MIME_MIMESOURCE_H

#include <memory>
#include <string>
#include <string_view>

struct CMimeHead;

// Line ends are LF in it, whatever they were: CR LF and CR CR LF are read as one.
// A string that is moved in is not copied.
class CMimeSource {
public:
    // Multiparts whose bytes or whose structure mean something by themselves:
    // signed, encrypted, digest, report.  Split, they are like any other one, and
    // are written as the library would; Kept, they have no parts, and are written
    // as they came.
    enum class Sealed { Split, Kept };

    CMimeSource(std::string&& text);       // NOLINT: texts of every kind are sources
    CMimeSource(const std::string& text);  // NOLINT
    CMimeSource(std::string_view text);    // NOLINT
    CMimeSource(const char* text);         // NOLINT

    std::string_view View() const noexcept { return m_text; }
    int GetDepth() const noexcept { return m_depth; }  // 0: the whole message

    CMimeSource With(Sealed sealed) const;
    Sealed GetSealed() const noexcept { return m_sealed; }

    CMimeSource Part(std::string_view piece) const;  // of View(); one level deeper

    // The same text, whose head has been read already; head must outlive it.
    CMimeSource WithHead(CMimeHead& head) const;
    CMimeHead* GetHead() const noexcept { return m_head; }

private:
    friend class CMimeBody;
    CMimeSource() = default;

    std::shared_ptr<const std::string> m_owner;
    std::string_view m_text;
    CMimeHead* m_head = nullptr;
    int m_depth = 0;
    Sealed m_sealed = Sealed::Split;
};

// Either a string of its own, or a piece of a text that others use too.
class CMimeBody {
public:
    std::string_view View() const noexcept { return m_owner ? m_view : std::string_view(m_own); }
    void Set(std::string text);
    void SetShared(std::string text);                               // copies of this body share it
    void Share(const CMimeSource& source, std::string_view piece);  // of source.View()

    std::string& Own();  // to change it; copies it first if it is shared

private:
    std::shared_ptr<const std::string> m_owner;
    std::string_view m_view;
    std::string m_own;
};

#endif  // LISTHAVEN_MIME_MIMESOURCE_H
