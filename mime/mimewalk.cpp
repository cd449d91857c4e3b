#include "mime/mimewalk.h"

#include "mime/mimemultipart.h"
#include "utility/lhvexception.h"

namespace {

constexpr std::string_view SourceName = "Shared/Mime/mimewalk";

using Visitor = std::function<bool(CMimeEntity&, int)>;

bool Visit(CMimeEntity& entity, int depth, const Visitor& visit) {
    if (depth > MaxWalkDepth) ThrowInternalError(SourceName, __LINE__);
    if (!visit(entity, depth)) return false;
    if (entity.GetKind() < MimeClass::Multipart) return true;
    const auto& multipart = static_cast<const CMimeMultipart&>(entity);
    for (std::size_t i = 0; i < multipart.GetPartCount(); ++i) {
        if (!Visit(*multipart.GetPart(i), depth + 1, visit)) return false;
    }
    return true;
}

void Collect(const CSharedPointer<CMimeEntity>& entity, int depth, std::vector<CSharedPointer<CMimeEntity>>& found) {
    if (depth > MaxWalkDepth) ThrowInternalError(SourceName, __LINE__);
    if (entity->GetKind() == MimeClass::Attachment) found.push_back(entity);
    if (entity->GetKind() < MimeClass::Multipart) return;
    const auto& multipart = static_cast<const CMimeMultipart&>(*entity);
    for (std::size_t i = 0; i < multipart.GetPartCount(); ++i)
        Collect(multipart.GetPart(i), depth + 1, found);
}

}  // namespace

bool VisitEntities(CMimeEntity& root, const Visitor& visit) {
    return Visit(root, 0, visit);
}

bool VisitEntities(const CMimeEntity& root, const std::function<bool(const CMimeEntity& entity, int depth)>& visit) {
    return Visit(const_cast<CMimeEntity&>(root), 0, visit);
}

std::vector<CMimeText*> CollectTextEntities(CMimeEntity& root) {
    std::vector<CMimeText*> texts;
    Visit(root, 0, [&texts](CMimeEntity& entity, int) {
        if (entity.GetKind() == MimeClass::Text) texts.push_back(static_cast<CMimeText*>(&entity));
        return true;
    });
    return texts;
}

std::vector<CSharedPointer<CMimeEntity>> CollectAttachments(const CSharedPointer<CMimeEntity>& root) {
    std::vector<CSharedPointer<CMimeEntity>> found;
    if (root) Collect(root, 0, found);
    return found;
}
