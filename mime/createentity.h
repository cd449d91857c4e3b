// createentity.h - makes the entity of the class that a text calls for.
//
// Errors   Lenient: what is malformed is kept as body.  The result is never empty.

#ifndef LISTHAVEN_MIME_CREATEENTITY_H
#define LISTHAVEN_MIME_CREATEENTITY_H

#include "mime/mimeentity.h"

CSharedPointer<CMimeEntity> CreateEntity(const CMimeSource& text);

#endif  // LISTHAVEN_MIME_CREATEENTITY_H
