// Linked into every test that knows the data folder: tests that name none have
// an empty one, and never touch the machine's own.

#include <gtest/gtest.h>

#include <memory>

#include "app/datafolder.h"
#include "tests/platform/temporaryfolder.h"

namespace {

class CDataFolderOfTests : public testing::EmptyTestEventListener {
public:
    void OnTestProgramStart(const testing::UnitTest&) override {
        m_folder = std::make_unique<CTemporaryFolder>();
        UseDataFolder(m_folder->GetPath());
    }
    // What its fixture used is gone.
    void OnTestEnd(const testing::TestInfo&) override { UseDataFolder(m_folder->GetPath()); }
    void OnTestProgramEnd(const testing::UnitTest&) override { m_folder.reset(); }

private:
    std::unique_ptr<CTemporaryFolder> m_folder;
};

// The list of listeners deletes it.
[[maybe_unused]] const bool isThere =
    (testing::UnitTest::GetInstance()->listeners().Append(new CDataFolderOfTests), true);

}  // namespace
