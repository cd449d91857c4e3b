#include "engine/incoming/membermessage.h"

#include <string>

#include "engine/addressline.h"
#include "engine/incoming/listheaders.h"
#include "engine/incoming/originalfields.h"
#include "engine/incoming/postreferences.h"
#include "engine/messagetemplate.h"
#include "engine/textcharset.h"
#include "mime/mimewalk.h"
#include "utility/text.h"

CMimeMessage MakeMessageForMembers(const CMimeMessage& message, const BroadcastList& list) {
    CMimeMessage prepared = message.Clone();
    ExpandPlaceholders(prepared);
    UseUtf8ForDataFields(prepared);
    for (CMimeText* entity : CollectTextEntities(*prepared.GetRoot())) {
        const std::string text = entity->GetBody();
        std::string filled = WithOriginalFields(text, EqualNoCase(entity->GetSubType(), "html"));
        if (filled != text) entity->SetBody(filled);
    }
    CMimeHeader& header = prepared.GetRoot()->GetHeader();
    const std::string subject = header.GetField("Subject");
    SetStoredLine(header, "Subject", StoredSubject(OneLine(WithOriginalFields(subject, false))));
    header.SetField("Auto-Submitted", "auto-generated");
    SetEnvelopeSender(header, header.GetField(ControlHeader::ReturnPathOverride), list);
    AddLoopMarks(header, list);
    return prepared;
}
