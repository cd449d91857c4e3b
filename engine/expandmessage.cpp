#include "engine/expandmessage.h"

#include "engine/addressline.h"
#include "engine/datafields.h"
#include "mime/mimemessage.h"
#include "mime/mimetext.h"
#include "mime/mimewalk.h"
#include "utility/lhvexception.h"
#include "utility/text.h"

namespace {

void ExpandHeader(CMimeHeader& header) {
    for (std::size_t i = 0; i < header.GetFieldCount();) {
        std::string value = header.DecodeField(i);
        if (!ExpandHeaderValue(value)) {
            ++i;
        } else if (value.empty()) {
            header.RemoveFieldAt(i);
        } else {
            StoreHeaderValue(header, i, value);
            ++i;
        }
    }
}

void ExpandText(CMimeText& entity) {
    std::string text = entity.GetBody();
    if (!HoldsDataField(text)) return;
    ExpandDataFields(&text, EqualNoCase(entity.GetSubType(), "html"));
    entity.SetBody(text);
}

}  // namespace

void ExpandMessage(CMimeMessage* message) {
    if (message == nullptr || !message->GetRoot()) ThrowInternalError("Shared/Engine/expandmessage", __LINE__);
    CMimeEntity& root = *message->GetRoot();
    ExpandHeader(root.GetHeader());
    for (CMimeText* text : CollectTextEntities(root))
        ExpandText(*text);
}

bool ExpandHeaderValue(std::string& value) {
    if (!HoldsDataField(value)) return false;
    std::string expanded = value;
    ExpandDataFields(&expanded, false);
    expanded = OneLine(expanded);
    if (expanded == value) return false;
    value = std::move(expanded);
    return true;
}

void StoreHeaderValue(CMimeHeader& header, std::size_t index, const std::string& value) {
    const std::string& name = header.GetStoredField(index).name;
    if (IsAddressField(name)) {
        header.SetStoredField(index, StoredAddressLine(value));
    } else if (EqualNoCase(name, "Subject")) {
        header.SetStoredField(index, StoredSubject(value));
    } else {
        header.SetFieldAt(index, value);
    }
}
