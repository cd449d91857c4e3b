// mimemessage.h - a message: a tree of entities, loaded from and saved to a file.
//
// Files have CR LF line ends, texts in memory LF.
//
// Errors   Load() and Save() return false, with the reason in the last-error
//          text; after a failed Load() the former root is still there.  The
//          other operations throw CLhvException.
// Crash    Save() leaves the old file or the new one.

#ifndef LISTHAVEN_MIME_MIMEMESSAGE_H
#define LISTHAVEN_MIME_MIMEMESSAGE_H

#include <string>
#include <string_view>
#include <vector>

#include "mime/mimeattachment.h"
#include "mime/mimeentity.h"

class CMimeMessage {
public:
    bool Load(std::string_view path, CMimeSource::Sealed sealed = CMimeSource::Sealed::Split);
    void LoadOrThrow(std::string_view path);
    bool LoadText(const CMimeSource& text);  // either line end; false when it is empty
    bool Save(std::string_view path);        // false without a root, and nothing is touched
    void SaveOrThrow(std::string_view path);

    const std::string& GetPath() const noexcept { return m_path; }  // of the last load or save
    const CSharedPointer<CMimeEntity>& GetRoot() const noexcept { return m_root; }
    void SetRoot(const CSharedPointer<CMimeEntity>& root) { m_root = root; }

    std::string GetText() const;      // LF; "" without a root
    std::string GetDiskText() const;  // CR LF, as Save() writes it

    // The attachments of the whole tree, depth first, as of the last load or
    // RefreshAttachments().
    int GetAttachmentCount() const noexcept { return static_cast<int>(m_attachments.size()); }
    CSharedPointer<CMimeEntity> GetAttachment(int index) const;
    void RefreshAttachments();

    // The attachment with that content identifier, without angle brackets;
    // empty when there is none.
    CSharedPointer<CMimeAttachment> FindImage(std::string_view id) const;
    std::string SaveImage(std::string_view id, std::string_view folder) const;  // gives the path

    CMimeMessage Clone() const;  // a copy that shares nothing that can change

private:
    std::string m_path;
    CSharedPointer<CMimeEntity> m_root;
    std::vector<CSharedPointer<CMimeEntity>> m_attachments;
};

#endif  // LISTHAVEN_MIME_MIMEMESSAGE_H
