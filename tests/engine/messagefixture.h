// messagefixture.h - a data folder of its own for each test, with lists and members.

#ifndef LISTHAVEN_TESTS_ENGINE_MESSAGEFIXTURE_H
#define LISTHAVEN_TESTS_ENGINE_MESSAGEFIXTURE_H

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "app/settings.h"
#include "engine/memberstore.h"
#include "tests/engine/temporarydatafolder.h"
#include "utility/files.h"
#include "utility/lasterror.h"
#include "utility/paths.h"

class MessageTest : public testing::Test {
protected:
    MessageTest() { WriteSetting("Execution", "GenerationPause", 0); }

    static std::uint32_t MakeList(const std::string& name, const std::vector<CMember>& members) {
        NewList list;
        list.name = name;
        list.listAddresses = "List: news@harbour.example";
        const std::uint32_t number = GetCatalogue().GetListNumber(GetCatalogue().Create(list));
        CMemberStore store;
        store.Open(number);
        for (const CMember& member : members)
            store.Add(member);
        return number;
    }

    static CMember MakeMember(const std::string& address, const std::string& name = "",
                              DeliveryMode mode = DeliveryMode::Regular) {
        CMember member;
        member.address = address;
        member.name = name;
        member.mode = mode;
        return member;
    }

    std::string WriteMessage(const std::string& text) {
        const std::string path = JoinPath(m_folder.GetPath(), "message.eml");
        EXPECT_TRUE(WriteFileAtomically(path, text));
        return path;
    }

    // Every message that a walk of the queue would find.
    static std::vector<std::string> QueuedFiles(const std::string& queue) {
        std::vector<std::string> files;
        ListFolder(queue, "*", [&](const std::string& batch, bool isFolder) {
            if (!isFolder || batch.front() == '.') return true;
            return ListFolder(JoinPath(queue, batch), "*.eml", [&](const std::string& name, bool) {
                files.push_back(JoinPath(JoinPath(queue, batch), name));
                return true;
            });
        });
        std::sort(files.begin(), files.end());
        return files;
    }

    CTemporaryDataFolder m_folder;
};

#endif  // LISTHAVEN_TESTS_ENGINE_MESSAGEFIXTURE_H
