// messagecorpus.h - real and broken messages of other projects: the folder
// "mime" of the folder named by LISTHAVEN_CORPUS.

#ifndef LISTHAVEN_TESTS_MIME_MESSAGECORPUS_H
#define LISTHAVEN_TESTS_MIME_MESSAGECORPUS_H

#include <cstdlib>
#include <string>
#include <vector>

#include "mime/mimemessage.h"
#include "mime/mimewalk.h"
#include "sourcefolder.h"
#include "utility/files.h"
#include "utility/paths.h"
#include "utility/text.h"

inline std::string CorpusFolder() {
    const char* folder = std::getenv("LISTHAVEN_CORPUS");
    return JoinPath(folder ? folder : LISTHAVEN_SOURCE_DIR "/../shared/corpus", "mime");
}

inline void CollectMessages(const std::string& folder, std::vector<std::string>& paths) {
    ListFolder(folder, "*", [&](const std::string& name, bool isFolder) {
        const std::string path = JoinPath(folder, name);
        if (isFolder)
            CollectMessages(path, paths);
        else if (name.ends_with(".eml") || name.ends_with(".msg") || name.ends_with(".raw") || name.ends_with(".txt"))
            paths.push_back(path);
        return true;
    });
}

struct CContents {
    std::vector<std::string> attachments;  // decoded
    std::vector<std::string> texts;        // decoded
};

inline CContents ContentsOf(const CMimeMessage& message) {
    CContents contents;
    VisitEntities(*message.GetRoot(), [&contents](const CMimeEntity& entity, int) {
        if (const auto* attachment = dynamic_cast<const CMimeAttachment*>(&entity))
            contents.attachments.push_back(attachment->GetContent());
        else if (entity.GetKind() == MimeClass::Text)
            contents.texts.emplace_back(TrimRight(entity.GetBody()));
        return true;
    });
    return contents;
}

#endif  // LISTHAVEN_TESTS_MIME_MESSAGECORPUS_H
