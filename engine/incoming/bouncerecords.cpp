#include "engine/incoming/bouncerecords.h"

#include <algorithm>
#include <array>
#include <tuple>

#include "app/settings.h"
#include "engine/incoming/bouncedmember.h"
#include "engine/incoming/cycletransaction.h"
#include "engine/memberstore.h"
#include "mime/headerscan.h"
#include "platform/file.h"
#include "platform/filestatus.h"
#include "senddaemon/messageiterator.h"
#include "utility/lasterror.h"
#include "utility/paths.h"
#include "utility/text.h"

namespace {

constexpr std::int64_t Day = 24 * 60 * 60;
constexpr std::int64_t CountingTime = 30 * Day;
constexpr std::size_t MaxReason = 200;

constexpr std::string_view AddressField = "X-Lhv-Bounce-Address";
constexpr std::string_view OriginalField = "X-Lhv-Bounce-Original";
constexpr std::string_view TimeField = "X-Lhv-Bounce-Time";
constexpr std::string_view KindField = "X-Lhv-Bounce-Kind";
constexpr std::string_view ClassField = "X-Lhv-Bounce-Class";
constexpr std::string_view StatusField = "X-Lhv-Bounce-Status";
constexpr std::string_view CodeField = "X-Lhv-Bounce-Code";
constexpr std::string_view EffectField = "X-Lhv-Bounce-Effect";
constexpr std::string_view UndoneField = "X-Lhv-Bounce-Undone";
constexpr std::string_view EvidenceField = "X-Lhv-Bounce-Evidence";
constexpr std::string_view MemberField = "X-Lhv-Bounce-Member";
constexpr std::array Fields = {AddressField, OriginalField, TimeField,   KindField,     ClassField, StatusField,
                               CodeField,    EffectField,   UndoneField, EvidenceField, MemberField};

std::string Reason(std::string_view what, const CBouncedRecipient& bounce) {
    std::string reason(what);
    if (!bounce.evidence.empty()) reason += ": " + OneLine(bounce.evidence);
    if (reason.size() <= MaxReason) return reason;
    std::size_t end = MaxReason;
    while (end > 0 && (static_cast<unsigned char>(reason[end]) & 0xC0) == 0x80)
        --end;
    return reason.substr(0, end);
}

// True when the member was active until now.
bool Deactivate(CMember& member, std::string_view reason) {
    const bool wasActive = !member.IsInactive();
    if (wasActive) member.SetProperty("Inactive", reason);
    return wasActive;
}

void Append(std::string& record, std::string_view name, std::string_view value) {
    record.append(name).append(": ").append(OneLine(value)).append("\n");
}

template <class Enum>
Enum ValueNamed(std::string_view name, std::string_view (*nameOf)(Enum), std::initializer_list<Enum> values) {
    for (const Enum value : values)
        if (nameOf(value) == name) return value;
    return *values.begin();
}

bool ReadRecord(const std::string& path, CBounceRecord& record) {
    CHeaderValues values;
    if (!ReadHeaderFields(path, Fields, values, HeaderForm::Stored)) return false;
    const auto value = [&values](std::string_view name) -> std::string_view {
        const auto found = values.find(name);
        return found == values.end() ? std::string_view() : std::string_view(found->second);
    };
    record = {};
    record.path = path;
    record.id = LastPathComponent(path);
    record.id.resize(std::min(record.id.find('.'), record.id.size()));
    record.time = ParseNumber(value(TimeField)).value_or(0);
    record.bounce.address = value(AddressField);
    record.bounce.original = value(OriginalField);
    record.bounce.status = value(StatusField);
    record.bounce.replyCode = LeadingNumber(value(CodeField));
    record.bounce.evidence = value(EvidenceField);
    using enum BounceClass;
    record.bounce.bounceClass = ValueNamed<BounceClass>(
        value(ClassField), [](BounceClass one) { return BounceClassName(one); }, {None, Soft, Hard, Blocked});
    record.kind = ValueNamed<NoticeKind>(value(KindField), [](NoticeKind one) { return NoticeKindName(one); },
                                         {NoticeKind::Bounce, NoticeKind::AbuseReport});
    using Effect = BounceEffect;
    record.effect = ValueNamed<Effect>(value(EffectField), [](Effect one) { return BounceEffectName(one); },
                                       {Effect::None, Effect::Counted, Effect::Deactivated, Effect::Removed});
    record.isUndone = value(UndoneField) == "1";
    record.hasMember = DecodeBouncedMember(value(MemberField), record.member);
    return true;
}

// Visits the files of the kept bounces until visit returns false.
template <class Visit>
void ForEachFile(std::uint32_t listNumber, const Visit& visit) {
    CMessageIterator messages;
    std::string path;
    if (!messages.Start(GetBouncesFolder(listNumber))) return;
    for (bool more = messages.PeekCurrent(path); more; more = messages.Next() && messages.PeekCurrent(path))
        if (!visit(path)) return;
}

// One byte changes, so that it is there or not, whatever happens.
bool MarkUndone(const std::string& path) {
    constexpr std::size_t LargestRecord = 64 * 1024;
    Platform::CFile file;
    std::string head(LargestRecord, '\0');
    std::size_t got = 0;
    if (!file.Open(path, Platform::FileMode::ReadWrite) ||
        (!file.ReadAt(0, head.data(), head.size(), &got) && got == 0)) {
        SetLastErrorFromSystem();
        return false;
    }
    const std::string line = "\n" + std::string(UndoneField) + ": 0";
    const std::size_t at = std::string_view(head.data(), got).find(line);
    if (at == std::string_view::npos) {
        SetLastErrorFormat("%s: the record of the bounce is damaged", path.c_str());
        return false;
    }
    if (file.WriteAt(at + line.size() - 1, "1", 1) && file.Flush()) return true;
    SetLastErrorFromSystem();
    return false;
}

void ForgetBounces(CMember& member, bool isDeactivated) {
    member.SetProperty("Bounces", "");
    member.SetProperty("LastBounce", "");
    if (isDeactivated) member.SetProperty("Inactive", "");
}

// Who is there again, because he has come back himself or because an undo was
// interrupted, stays as he is but for what the bounces did.
void Restore(std::uint32_t listNumber, const std::string& address, const CBounceRecord* removal, bool isDeactivated) {
    CMemberStore members;
    members.Open(listNumber);
    CMember member;
    const std::int32_t index = members.Find(address);
    if (index != CMemberStore::None && members.Read(index, member)) {
        ForgetBounces(member, isDeactivated);
        members.Update(index, member);
    } else if (removal != nullptr) {
        member = removal->member;
        ForgetBounces(member, true);
        members.Add(member);
    }
}

}  // namespace

std::string_view BounceEffectName(BounceEffect effect) noexcept {
    switch (effect) {
        case BounceEffect::Counted:
            return "counted";
        case BounceEffect::Deactivated:
            return "deactivated";
        case BounceEffect::Removed:
            return "removed";
        case BounceEffect::None:
            break;
    }
    return "none";
}

std::int64_t ReadSoftBounceLimit() {
    return ReadSetting("Service", "SoftBounceLimit", 5);
}

bool CountBounce(CMember& member, const CBouncedRecipient& bounce, NoticeKind kind, std::int64_t now,
                 std::int64_t softLimit) {
    if (kind == NoticeKind::AbuseReport) return Deactivate(member, Reason("abuse report", bounce));
    if (kind != NoticeKind::Bounce || bounce.bounceClass != BounceClass::Soft) return false;
    const std::int64_t last = ParseNumber(member.GetProperty("LastBounce")).value_or(0);
    const bool isRecent = last <= now && now - last <= CountingTime;
    const std::int64_t before = isRecent ? ParseNumber(member.GetProperty("Bounces")).value_or(0) : 0;
    const std::int64_t count = std::clamp<std::int64_t>(before, 0, 1'000'000) + 1;
    member.SetProperty("Bounces", std::to_string(count));
    member.SetProperty("LastBounce", std::to_string(now));
    if (softLimit <= 0 || count < softLimit) return false;
    return Deactivate(member, Reason(std::to_string(count) + " soft bounces, the last one", bounce));
}

std::string MakeBounceRecord(const CBouncedRecipient& bounce, NoticeKind kind, BounceEffect effect,
                             const CMember* removed, std::int64_t now) {
    // Every field stands there, with or without a value: the first of a name
    // counts, so what the bounce itself has of them does not.
    std::string record;
    Append(record, AddressField, bounce.address);
    Append(record, OriginalField, bounce.original);
    Append(record, TimeField, std::to_string(now));
    Append(record, KindField, NoticeKindName(kind));
    Append(record, ClassField, BounceClassName(bounce.bounceClass));
    Append(record, StatusField, bounce.status);
    Append(record, CodeField, std::to_string(bounce.replyCode));
    Append(record, EffectField, BounceEffectName(effect));
    Append(record, UndoneField, "0");
    Append(record, EvidenceField, bounce.evidence);
    record.append(MemberField).append(": ").append(removed ? EncodeBouncedMember(*removed) : "").append("\n");
    return record;
}

std::vector<CBounceRecord> ListBounces(std::uint32_t listNumber) {
    std::vector<CBounceRecord> records;
    ForEachFile(listNumber, [&records](const std::string& path) {
        CBounceRecord record;
        if (ReadRecord(path, record)) records.push_back(std::move(record));
        return true;
    });
    std::sort(records.begin(), records.end(), [](const CBounceRecord& a, const CBounceRecord& b) {
        return std::tie(a.time, a.bounce.address, a.id) < std::tie(b.time, b.bounce.address, b.id);
    });
    return records;
}

bool FindBounce(std::uint32_t listNumber, std::string_view id, CBounceRecord& record) {
    std::string found;
    ForEachFile(listNumber, [&](const std::string& path) {
        const std::string name = LastPathComponent(path);
        if (name.substr(0, name.find('.')) == id) found = path;
        return found.empty();
    });
    if (!found.empty()) return ReadRecord(found, record);
    SetLastErrorFormat("there is no bounce %s", OneLine(id).c_str());
    return false;
}

bool UndoBounce(std::uint32_t listNumber, std::string_view address) {
    std::vector<CBounceRecord> records = ListBounces(listNumber);
    std::erase_if(records, [address](const CBounceRecord& record) {
        return record.effect == BounceEffect::None || !EqualNoCase(record.bounce.address, address);
    });
    if (records.empty()) {
        SetLastErrorFormat("no bounce has changed anything for %s", OneLine(address).c_str());
        return false;
    }
    std::erase_if(records, [](const CBounceRecord& record) { return record.isUndone; });
    if (records.empty()) return true;
    const CBounceRecord* removal = nullptr;
    bool isDeactivated = false;
    for (const CBounceRecord& record : records) {
        if (record.effect == BounceEffect::Removed && record.hasMember) removal = &record;
        isDeactivated = isDeactivated || record.effect == BounceEffect::Deactivated;
    }
    Restore(listNumber, std::string(address), removal, isDeactivated);
    // Behind the member: what is interrupted here is done once more, and changes nothing then.
    return std::all_of(records.begin(), records.end(),
                       [](const CBounceRecord& record) { return MarkUndone(record.path); });
}

std::size_t PruneBounces(std::uint32_t listNumber, std::int64_t now) {
    const std::int64_t days = ReadSetting("Service", "KeepBounces", 365);
    if (days <= 0) return 0;
    std::vector<std::string> old;
    ForEachFile(listNumber, [&](const std::string& path) {
        constexpr std::int64_t Nanoseconds = 1'000'000'000;
        Platform::FileStatus status;
        if (Platform::GetFileStatus(path, status) && status.times.modified / Nanoseconds < now - days * Day)
            old.push_back(path);
        return true;
    });
    return static_cast<std::size_t>(
        std::count_if(old.begin(), old.end(), [](const std::string& path) { return Platform::RemoveFile(path); }));
}
