// noticekind.h - who speaks in a message, and of what.
//
// A member may write of a bounce, quote one or forward one: what he writes is
// none.  Only a mail system can say that it could not deliver, and it is known
// by its headers, not by its words.

#ifndef LISTHAVEN_ENGINE_BOUNCES_NOTICEKIND_H
#define LISTHAVEN_ENGINE_BOUNCES_NOTICEKIND_H

#include <cstdint>

#include "engine/bounces/bounceclassifier.h"
#include "engine/bounces/noticeparts.h"

// Of a message without a report for machines.  Bounce: a mail system says that
// it could not deliver.
NoticeKind KindOfNotice(const CNoticeParts& parts);

// Passed on by a list, which makes it a post, whatever is in it.
bool CameThroughList(const CNoticeParts& parts);

// Whether a report for machines is to be believed: members attach them to what they write.
bool MayReport(const CNoticeParts& parts);

bool IsFromPerson(const CNoticeParts& parts);

// Whether the words announce further attempts.
bool AnnouncesRetry(const CNoticeParts& parts);

// Abuse, fraud, virus ...; a report of a failed authentication or of wanted mail is a receipt.
bool IsComplaint(const CNoticeParts& parts);

#endif  // LISTHAVEN_ENGINE_BOUNCES_NOTICEKIND_H
