// mimewalk.h - visits the entities of a tree, each before its parts.
//
// Errors   A tree deeper than MaxWalkDepth throws CLhvException: it holds itself.

#ifndef LISTHAVEN_MIME_MIMEWALK_H
#define LISTHAVEN_MIME_MIMEWALK_H

#include <functional>
#include <vector>

#include "mime/mimeattachment.h"
#include "mime/mimeentity.h"
#include "mime/mimetext.h"

inline constexpr int MaxWalkDepth = 1000;

// depth is 0 for the root.  Stops when visit returns false, and returns false then.
bool VisitEntities(CMimeEntity& root, const std::function<bool(CMimeEntity& entity, int depth)>& visit);
bool VisitEntities(const CMimeEntity& root, const std::function<bool(const CMimeEntity& entity, int depth)>& visit);

std::vector<CMimeText*> CollectTextEntities(CMimeEntity& root);  // they belong to the tree
std::vector<CSharedPointer<CMimeEntity>> CollectAttachments(const CSharedPointer<CMimeEntity>& root);

#endif  // LISTHAVEN_MIME_MIMEWALK_H
