// processingfixture.h - a list with its standard rules, and mail in its inbox.

#ifndef LISTHAVEN_TESTS_ENGINE_INCOMING_PROCESSINGFIXTURE_H
#define LISTHAVEN_TESTS_ENGINE_INCOMING_PROCESSINGFIXTURE_H

#include <string>
#include <vector>

#include "engine/broadcastjob.h"
#include "engine/incoming/cycletransaction.h"
#include "engine/incoming/mailcycle.h"
#include "engine/listaccount.h"
#include "engine/rules/listcreation.h"
#include "mime/mimemessage.h"
#include "platform/file.h"
#include "senddaemon/batchfolder.h"
#include "tests/engine/messagefixture.h"
#include "utility/text.h"

class ProcessingTest : public MessageTest {
protected:
    ProcessingTest() { Platform::SetFlushEnabled(false); }
    ~ProcessingTest() override { Platform::SetFlushEnabled(true); }

    static constexpr const char* ListAddress = "club@harbour.example";
    static constexpr const char* CommandAddress = "club-request@harbour.example";

    void MakeClub(ListKind kind, const std::vector<std::string>& members = {}) {
        NewList list;
        list.name = "Club " + std::to_string(m_list);
        list.kind = kind;
        list.listAddresses =
            std::string("List: ") + ListAddress + "\nCommand: " + CommandAddress + "\nAuthorized: boss@harbour.example";
        const std::int32_t index = CreateList(list);
        m_list = GetCatalogue().GetListNumber(index);
        CMemberStore store;
        store.Open(m_list);
        for (const std::string& member : members)
            store.Add(MakeMember(member));
    }

    // text: the header lines behind the stamp, an empty line, the body; LF.
    void PutIntoInbox(const std::string& text) const {
        CBatchFolder inbox;
        std::string path;
        ASSERT_TRUE(inbox.Open(GetInboxFolder(m_list)));
        const std::string stamp = "X-Lhv-Received: " + std::to_string(m_now) + "\n";
        ASSERT_TRUE(inbox.AddMessageText(LfToCrLf(stamp + text), path)) << GetLastErrorText();
    }
    void Receive(const std::string& from, const std::string& to, const std::string& subject,
                 const std::string& headers = "", const std::string& body = "Hello") const {
        PutIntoInbox("Return-Path: <" + from + ">\nFrom: Rita Roe <" + from + ">\nTo: " + to + "\nSubject: " + subject +
                     "\nMessage-ID: <1." + from + ">\n" + headers + "\n" + body + "\n");
    }

    std::string Process() const {
        CCycleTotals totals;
        const CycleResult result = ProcessInbox(m_list, {}, totals, m_now);
        return result == CycleResult::Done ? DescribeTotals(totals) : "failed: " + GetLastErrorText();
    }

    // What waits to be sent; it is then gone.
    std::vector<std::string> TakeQueue() const {
        std::vector<std::string> texts;
        for (const std::string& path : QueuedFiles(GetAccountRoot(m_list))) {
            texts.emplace_back();
            EXPECT_TRUE(ReadWholeFile(path, texts.back()));
            Platform::RemoveFile(path);
        }
        return texts;
    }
    static std::string FieldOf(const std::string& text, const std::string& name) {
        CMimeMessage message;
        return message.LoadText(CMimeSource(text)) ? message.GetRoot()->GetField(name) : "";
    }

    bool FindMember(const std::string& address, CMember& member) const {
        CMemberStore store;
        store.Open(m_list, CMemberStore::Access::ReadOnly);
        const std::int32_t index = store.Find(address);
        return index != CMemberStore::None && store.Read(index, member);
    }
    bool IsMember(const std::string& address) const {
        CMember member;
        return FindMember(address, member);
    }
    static std::vector<BroadcastInfo> Jobs() {
        std::vector<BroadcastInfo> jobs;
        EXPECT_TRUE(CBroadcastJobs().List(jobs));
        return jobs;
    }

    std::uint32_t m_list = 0;
    std::int64_t m_now = 1800000000;
};

#endif  // LISTHAVEN_TESTS_ENGINE_INCOMING_PROCESSINGFIXTURE_H
