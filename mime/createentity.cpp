#include "mime/createentity.h"

#include <utility>

#include "mime/mimeattachment.h"
#include "mime/mimemultipartalternative.h"
#include "mime/mimemultipartmixed.h"
#include "mime/mimemultipartrelated.h"
#include "mime/mimetext.h"

namespace {

CSharedPointer<CMimeEntity> MakeEntity(const CMimeEntity& head) {
    if (head.IsAttachment()) return MakeShared<CMimeAttachment>();
    const std::string mainType = head.GetMainType();
    if (mainType == "multipart") {
        const std::string subType = head.GetSubType();
        if (subType == "alternative") return MakeShared<CMimeMultipartAlternative>(CMimeMultipart::ForParsing::Yes);
        if (subType == "related") return MakeShared<CMimeMultipartRelated>(CMimeMultipart::ForParsing::Yes);
        return MakeShared<CMimeMultipartMixed>(CMimeMultipart::ForParsing::Yes);
    }
    if (mainType == "text") return MakeShared<CMimeText>(CMimeText::ForParsing::Yes);
    return MakeShared<CMimeEntity>();
}

}  // namespace

CSharedPointer<CMimeEntity> CreateEntity(const CMimeSource& text) {
    CMimeHead own;
    CMimeHead* head = text.GetHead();
    if (!head) {
        own = ReadMimeHead(text.View());
        head = &own;
    }
    CSharedPointer<CMimeEntity> entity;
    if (head->isTooLarge) {
        entity = MakeShared<CMimeEntity>();
    } else {
        CMimeEntity scratch;
        scratch.GetHeader() = std::move(head->header);
        entity = MakeEntity(scratch);
        head->header = std::move(scratch.GetHeader());
    }
    entity->Parse(text.WithHead(*head));
    return entity;
}
