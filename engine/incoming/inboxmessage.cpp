#include "engine/incoming/inboxmessage.h"

#include "engine/incoming/cycletransaction.h"
#include "engine/incoming/fetchmarks.h"
#include "engine/incoming/mailretrieval.h"
#include "platform/filestatus.h"
#include "utility/paths.h"

bool CInboxMessage::IsShort() const {
    Platform::FileStatus status;
    return IsInMemory() || (Platform::GetFileStatus(path, status) && status.size <= CMailRetrieval::LargestMessage);
}

std::string CInboxMessage::GetName() const {
    return IsInMemory() ? "message " + key : LastPathComponent(path);
}

bool CInboxMessage::WasProcessed(const CCycleState& state) const {
    if (!IsInMemory()) return !Platform::FileIsThere(path);
    std::string known;  // a rule can have changed it
    return state.GetMark(MarkKind::ServerMessage, key, known) &&
           CServerMark::Parse(known).content == CServerMark::Parse(mark).content;
}

bool AddMarkOf(const CInboxMessage& message, std::uint32_t listNumber, CCycleTransaction& transaction) {
    if (!message.IsInMemory()) return true;
    transaction.SetMark(MarkKind::ServerMessage, message.key, message.mark);
    return !message.isSaved || transaction.AddMessage(GetReceivedFolder(listNumber), *message.text);
}

bool PutIntoInbox(const CInboxMessage& message, std::uint32_t listNumber, CCycleTransaction& transaction,
                  std::string& newPath) {
    newPath = message.path;
    return !message.IsInMemory() || (AddMarkOf(message, listNumber, transaction) &&
                                     transaction.AddMessage(GetInboxFolder(listNumber), *message.text, &newPath));
}
