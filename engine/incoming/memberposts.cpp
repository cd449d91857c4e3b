#include "engine/incoming/memberposts.h"

#include <utility>
#include <vector>

#include "engine/broadcastjob.h"
#include "engine/datafields.h"
#include "engine/eventlog.h"
#include "engine/incoming/cycletransaction.h"
#include "engine/incoming/listview.h"
#include "engine/literaltext.h"
#include "mime/mimemessage.h"
#include "utility/lasterror.h"
#include "utility/lhvexception.h"

namespace {

// False when there are more of them than get their copies at once.
bool FindRecipients(CListView& view, const BroadcastModes& modes, std::vector<CListView::CMemberPlace>& recipients) {
    return view.ForEachMember([&](const CListView::CMemberPlace& place) {
        if (!modes.Include(place.member.mode) || place.member.IsInactive()) return true;
        recipients.push_back(place);
        return recipients.size() <= MostDirectCopies;
    });
}

class CCopies {
public:
    CCopies(CCycleTransaction& transaction, CListView& view, const std::string& queueFolder)
        : m_transaction(transaction), m_view(view), m_queueFolder(queueFolder) {}

    bool Open(std::string text, const BroadcastModes& modes, const std::string& identifier);
    bool Add(CListView::CMemberPlace& place);
    std::size_t GetCount() const noexcept { return m_count; }

private:
    CCycleTransaction& m_transaction;
    CListView& m_view;
    const std::string& m_queueFolder;
    BroadcastModes m_modes;
    CBroadcastMaker m_maker;
    std::string m_text;
    std::size_t m_count = 0;
};

// What is wrong with the message is no fault of the tables.
bool CCopies::Open(std::string text, const BroadcastModes& modes, const std::string& identifier) {
    m_modes = modes;
    try {
        const CMimeSource source(std::move(text));
        CMimeMessage message;
        message.LoadText(source);
        if (!CBroadcastJobs::Check(message, {m_view.GetList().number}, modes)) return false;
        message.LoadText(source.With(CMimeSource::Sealed::Kept));
        const std::string subject = ReadableText(message.GetRoot()->GetField("Subject"));
        Log(LogInfo, "Generating messages for broadcast \"%s\".\n", subject.c_str());
        return m_maker.Open(message, m_view.GetList(), identifier);
    } catch (const CLhvException& exception) {
        SetLastErrorFromException(exception);
        return false;
    }
}

// Nothing for one who was removed or has changed this instant.
bool CCopies::Add(CListView::CMemberPlace& place) {
    const CMember& member = place.member;
    if (!m_view.ReadMember(place, m_maker.GetWantedSlots()) || member.IsInactive() || !m_modes.Include(member.mode))
        return true;
    CopyResult result = CopyResult::Failed;
    try {
        result = m_maker.Make(member, m_view.GetTime(), m_text, &m_view.GetStore(), place.index);
    } catch (const CLhvException& exception) {
        SetLastErrorFromException(exception);
    }
    if (result != CopyResult::Made) return result != CopyResult::Failed;
    ++m_count;
    return m_transaction.AddMessage(m_queueFolder, m_text);
}

}  // namespace

PostWay AddPost(CCycleTransaction& transaction, CListView& view, const std::string& queueFolder, std::string text,
                const BroadcastModes& modes, std::string& done) {
    done.clear();
    std::vector<CListView::CMemberPlace> recipients;
    std::string identifier;
    if (!FindRecipients(view, modes, recipients))
        return transaction.AddBroadcast(text, modes, identifier) ? PostWay::Broadcast : PostWay::Failed;
    const CDataFieldScope scope;
    identifier = CBroadcastJobs().NewIdentifier();
    CCopies copies(transaction, view, queueFolder);
    if (!copies.Open(std::move(text), modes, identifier)) return PostWay::Failed;
    for (CListView::CMemberPlace& place : recipients) {
        if (!copies.Add(place)) return PostWay::Failed;
    }
    done = "Broadcast " + identifier + " is done: " + std::to_string(copies.GetCount()) + " copies.";
    return PostWay::Copies;
}
