#include <utility>
#include <vector>

#include "engine/addressline.h"
#include "engine/broadcast.h"
#include "engine/copypattern.h"
#include "engine/customfields.h"
#include "engine/datafields.h"
#include "engine/eventlog.h"
#include "engine/finalize.h"
#include "engine/literaltext.h"
#include "engine/messagefields.h"
#include "engine/messagetemplate.h"
#include "engine/textcharset.h"
#include "mime/encodedword.h"
#include "mime/mailbox.h"
#include "mime/mimemessage.h"
#include "mime/mimetext.h"
#include "mime/mimewalk.h"
#include "utility/lasterror.h"
#include "utility/lhvexception.h"
#include "utility/text.h"

namespace {

constexpr const char* Placeholder = "-";  // of the To line, until a copy has its own

void RemoveAll(CMimeHeader& header, const char* name) {
    while (header.HasField(name))
        header.RemoveField(name);
}

// All but the first of that name.
void RemoveLaterFields(CMimeHeader& header, std::string_view name) {
    bool isFirst = true;
    for (std::size_t i = 0; i < header.GetFieldCount();) {
        const bool isOne = EqualNoCase(header.GetStoredField(i).name, name);
        if (isOne && !isFirst) {
            header.RemoveFieldAt(i);
            continue;
        }
        isFirst = isFirst && !isOne;
        ++i;
    }
}

bool HoldsMarks(std::string_view text) noexcept {
    return text.find("$(") != std::string_view::npos || text.find("=?") != std::string_view::npos;
}

bool HoldsMarks(const CMember& member) noexcept {
    for (const std::string* text : {&member.firstName, &member.middleName, &member.lastName, &member.name}) {
        if (HoldsMarks(*text)) return true;
    }
    for (const std::string& field : member.fields) {
        if (HoldsMarks(field)) return true;
    }
    return false;
}

// The fields that are the same for all copies of a list.
constexpr DataField SharedFields[] = {
    DataField::From,         DataField::ReplyTo,      DataField::Subject,         DataField::Cc,
    DataField::Date,         DataField::FromName,     DataField::FromFirstName,   DataField::FromMiddleName,
    DataField::FromLastName, DataField::FromEmail,    DataField::ListName,        DataField::ListUsage,
    DataField::ListEmail,    DataField::CommandEmail, DataField::ListDisplayName, DataField::AuthorizedEmail,
    DataField::PostEmail,
};

}  // namespace

struct CBroadcastMaker::CState {
    CMimeMessage base;  // without overrides applied; the To line is a placeholder
    std::unique_ptr<CFinalizer> finalizer;
    CCustomFields customFields;
    NameCase nameCase = NameCase::Capitalized;
    SlotMask wanted = NoSlots;  // by the message and the list
    SlotMask given = NoSlots;   // of the member at hand
    std::vector<std::pair<DataField, std::string>> shared;
    std::vector<std::pair<int, CDataFieldName>> slotFields;
    CMember wholeMember;  // scratch
    bool hasWarned = false;

    bool hasPattern = false;
    CCopyPattern pattern;
    CCopyPattern::Replaced replaced;
    const char* recipientField = "To";  // the one that holds the member's line in the end
    std::string from;
    bool isSigned = false;
    std::int64_t dateOf = -1;
    std::string date;

    void TakeBase(const CMimeMessage& message, const BroadcastList& list, std::string_view identifier);
    void NoteShared(const BroadcastList& list);
    void WantSlots();
    void TakePattern();
    void WantSlotsOf(std::string_view text);
    bool MakeToLine(const CMember& member, std::string& stored) const;
    void SetCopyFields(const CMember& member, const std::string& toLine);
    CopyResult MakePlain(const std::string& storedTo, const CMember& member, std::int64_t now, std::string& text);
    CopyResult MakeByPattern(const std::string& storedTo, const CMember& member, std::int64_t now, std::string& text);
};

bool CanSendFrom(const CMimeMessage& message, const BroadcastList& list) {
    if (!message.GetRoot()) {
        SetLastErrorText("The message of the broadcast is empty.");
        return false;
    }
    const CMimeHeader& header = message.GetRoot()->GetHeader();
    const std::string own = header.GetField("From");
    const std::string from = header.HasField(ControlHeader::FromOverride) ? header.GetField(ControlHeader::FromOverride)
                             : own.empty()                                ? list.address
                                                                          : own;
    if (HoldsDataField(from) || !ParseMailboxes(from).empty()) return true;
    SetLastErrorFormat("The message has no address in its From line%s.",
                       own.empty() ? ", and the list none that could stand there" : "");
    return false;
}

CBroadcastMaker::CBroadcastMaker(CopyWay way) : m_way(way) {}
CBroadcastMaker::~CBroadcastMaker() = default;

bool CBroadcastMaker::Open(const CMimeMessage& message, const BroadcastList& list, std::string_view identifier) {
    const bool hasWarned = m_state && m_state->hasWarned;
    m_state = std::make_unique<CState>();
    m_state->hasWarned = hasWarned;
    if (!CanSendFrom(message, list)) return false;
    m_state->customFields.Load(list.number);
    for (int slot = 0; slot < CCustomFields::SlotCount; ++slot) {
        const CustomField& field = m_state->customFields.GetSlot(slot);
        if (!field.IsFree()) m_state->slotFields.emplace_back(slot, CDataFieldName(field.name));
    }
    m_state->nameCase = ReadNameCase();
    m_state->finalizer = std::make_unique<CFinalizer>(list.guid);
    m_state->TakeBase(message, list, identifier);
    m_state->NoteShared(list);
    m_state->WantSlots();
    if (m_way == CopyWay::Pattern) m_state->TakePattern();
    if (m_state->hasPattern) m_state->base = {};  // which has all that is needed
    return true;
}

SlotMask CBroadcastMaker::GetWantedSlots() const noexcept {
    return m_state ? m_state->wanted : NoSlots;
}

CopyResult CBroadcastMaker::Make(const CMember& member, std::int64_t now, std::string& text, CMemberStore* store,
                                 std::int32_t index) {
    if (!m_state) ThrowInternalError("Shared/Engine/broadcastmaker", __LINE__);
    std::string storedTo;
    if (!m_state->MakeToLine(member, storedTo)) return CopyResult::Skipped;
    const CMember* whole = &member;
    m_state->given = m_state->wanted;
    if (store != nullptr && index != CMemberStore::None && m_state->wanted != AllSlots && HoldsMarks(member)) {
        if (!store->Read(index, m_state->wholeMember)) return CopyResult::Skipped;  // removed this instant
        whole = &m_state->wholeMember;
        m_state->given = AllSlots;
    }
    return m_state->hasPattern ? m_state->MakeByPattern(storedTo, *whole, now, text)
                               : m_state->MakePlain(storedTo, *whole, now, text);
}

// What nobody's copy may say: who else gets it, and that all go to one address.
void CBroadcastMaker::CState::TakeBase(const CMimeMessage& message, const BroadcastList& list,
                                       std::string_view identifier) {
    base = message.Clone();
    UseUtf8ForDataFields(base);
    CMimeHeader& header = base.GetRoot()->GetHeader();
    const std::string subject = header.GetField("Subject");
    for (const char* name : {"CC", "BCC", ControlHeader::RecipientOverride}) {
        if (!header.HasField(name)) continue;
        RemoveAll(header, name);
        if (!hasWarned) {
            Log(LogWarning,
                "The copies of the broadcast \"%s\" do not carry its %s line: each goes to its member only.",
                subject.c_str(), name);
        }
    }
    hasWarned = true;
    RemoveLaterFields(header, "To");
    header.SetField("To", Placeholder);
    if (header.GetField("From").empty()) SetStoredLine(header, "From", StoredMailbox({list.name, list.address}));
    if (list.emptySender && !header.HasField(ControlHeader::ReturnPathOverride)) {
        header.SetField(ControlHeader::ReturnPathOverride, "<>");
    }
    if (!identifier.empty()) header.SetField(ControlHeader::Broadcast, identifier);
}

void CBroadcastMaker::CState::NoteShared(const BroadcastList& list) {
    const CDataFieldScope scope;
    const CMimeHeader& header = base.GetRoot()->GetHeader();
    SetHeaderFields(base);
    for (const DataField field : {DataField::From, DataField::ReplyTo, DataField::Subject}) {
        const std::string_view name = DataFieldName(field);
        SetDataField(field, HeaderTextInUtf8(header.FindStored(name), GetDataField(name)));
    }
    SetSenderFields(GetDataField("From"), nameCase);
    SetListFields(list);
    for (const DataField field : SharedFields)
        shared.emplace_back(field, GetDataField(DataFieldName(field)));
}

void CBroadcastMaker::CState::WantSlots() {
    const CMimeHeader& header = base.GetRoot()->GetHeader();
    for (std::size_t i = 0; i < header.GetFieldCount(); ++i)
        WantSlotsOf(header.DecodeField(i));
    for (const CMimeText* text : CollectTextEntities(*base.GetRoot()))
        WantSlotsOf(text->GetBody());
    for (const auto& [field, value] : shared)
        WantSlotsOf(value);
}

void CBroadcastMaker::CState::WantSlotsOf(std::string_view text) {
    const CDataFieldText pieces(text);
    for (const CDataFieldText::Piece& piece : pieces.GetPieces()) {
        if (!piece.field) continue;
        const int slot = customFields.FindSlot(piece.text);
        if (slot >= 0) wanted |= SlotMask{1} << slot;
    }
}

// Everything that does not depend on the member is done to a message of its
// own, which is then taken apart.
void CBroadcastMaker::CState::TakePattern() {
    const CMimeEntity& root = *base.GetRoot();
    for (const char* name : {ControlHeader::ShouldSign, ControlHeader::UpdateAttachments}) {
        if (HoldsDataField(root.GetField(name))) return;
    }
    CMimeMessage copy = base.Clone();
    CMimeHeader& header = copy.GetRoot()->GetHeader();
    if (header.HasField(ControlHeader::ToOverride)) recipientField = ControlHeader::RecipientOverride;
    isSigned = header.GetField(ControlHeader::ShouldSign) == "YES";
    CFinalizer::ApplyOverrides(copy);
    finalizer->SetStandardHeaders(copy, 0);
    if (!header.GetField(ControlHeader::UpdateAttachments).empty()) RemoveAll(header, ControlHeader::UpdateAttachments);
    from = header.GetField("From");
    replaced = {{recipientField, ""}, {"Date", ""}, {"Message-ID", ""}};
    hasPattern = pattern.Take(copy, replaced);
}

// False when the address must not get into a header; logged.
bool CBroadcastMaker::CState::MakeToLine(const CMember& member, std::string& stored) const {
    std::string reason;
    if (!IsPlausibleAddress(member.address, &reason) || HoldsMarks(member.address)) {
        Log(LogError, "The member \"%s\" gets no copy: this is not an address that mail can be sent to. %s",
            OneLine(member.address).c_str(), reason.c_str());
        return false;
    }
    std::string name = OneLine(MemberFullName(member));
    if (HoldsMarks(name)) name.clear();  // it would be expanded or decoded
    stored = StoredMailbox({name, member.address});
    return true;
}

void CBroadcastMaker::CState::SetCopyFields(const CMember& member, const std::string& toLine) {
    for (const auto& [field, value] : shared)
        SetDataField(field, value);
    SetDataField(DataField::To, toLine);
    SetLiteralTextField();
    SetMemberFields(member, nameCase);
    SetRandomFields();
    for (const auto& [slot, field] : slotFields) {
        if ((given >> slot & 1) != 0) SetDataField(field, member.GetField(slot));
    }
}

CopyResult CBroadcastMaker::CState::MakePlain(const std::string& storedTo, const CMember& member, std::int64_t now,
                                              std::string& text) {
    CMimeMessage copy = base.Clone();
    CMimeEntity& root = *copy.GetRoot();
    SetStoredLine(root.GetHeader(), "To", storedTo);
    const CDataFieldScope scope;
    SetCopyFields(member, root.GetField("To"));
    const FinalizeResult result = finalizer->Prepare(copy, now);
    if (result == FinalizeResult::Blocked) return CopyResult::Blocked;
    if (result == FinalizeResult::Failed) return CopyResult::Failed;
    text = copy.GetDiskText();
    return CopyResult::Made;
}

// The steps of CFinalizer::Prepare() in their order.
CopyResult CBroadcastMaker::CState::MakeByPattern(const std::string& storedTo, const CMember& member, std::int64_t now,
                                                  std::string& text) {
    const CDataFieldScope scope;
    const std::string toLine = DecodeHeaderText(storedTo);
    SetCopyFields(member, toLine);
    CFinalizer::SetAddresseeFields(toLine);
    CFinalizer::SetTimeFields(now);
    if (now != dateOf) {
        date = FormatMessageDate(now);
        dateOf = now;
    }
    replaced[recipientField] = storedTo;
    replaced["Date"] = date;
    std::string sender = from;
    ExpandDataFields(&sender, false);
    replaced["Message-ID"] = NewMessageId(sender);
    pattern.Expand(replaced);
    std::string subject = pattern.GetSubject();
    if (isSigned) {
        if (!finalizer->Sign(pattern.GetSubject(), toLine, now, subject)) return CopyResult::Failed;
        pattern.SetSubject(subject);
    }
    if (finalizer->IsBlocked(toLine, subject)) return CopyResult::Blocked;
    text.clear();
    pattern.AppendTo(text);
    return CopyResult::Made;
}
