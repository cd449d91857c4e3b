// memberfixture.h - a data folder of its own, and members to put into it.

#ifndef LISTHAVEN_TESTS_ENGINE_MEMBERFIXTURE_H
#define LISTHAVEN_TESTS_ENGINE_MEMBERFIXTURE_H

#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "engine/memberstore.h"
#include "platform/file.h"
#include "tests/engine/temporarydatafolder.h"

class CDataFolderTest : public testing::Test {
protected:
    ~CDataFolderTest() override { Platform::SetFlushEnabled(true); }

    std::string PathOf(const std::string& name) const { return m_folder / name; }

    void EmptyFolder() const {
        for (const auto& entry : std::filesystem::directory_iterator(m_folder.GetPath())) {
            if (entry.is_regular_file()) std::filesystem::remove(entry);
        }
    }

    static CMember MakeMember(const std::string& address) {
        CMember member;
        member.address = address;
        return member;
    }

private:
    CTemporaryDataFolder m_folder;
};

#endif  // LISTHAVEN_TESTS_ENGINE_MEMBERFIXTURE_H
