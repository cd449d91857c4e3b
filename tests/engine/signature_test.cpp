#include "engine/signature.h"

#include <gtest/gtest.h>

#include <thread>

#include "tests/platform/temporaryfolder.h"
#include "utility/files.h"
#include "utility/paths.h"
#include "utility/text.h"

namespace {

constexpr std::string_view Guid = "{0B5B6B6A-7C1C-4f0e-9E0A-0123456789AB}";
constexpr std::int64_t Now = 1'800'000'000;
constexpr std::int64_t Lifetime = 14 * 86400;

TEST(Signature, TokensVerifyOnlyForWhatTheyWereMade) {
    CTemporaryFolder folder;
    CSigner signer;
    ASSERT_TRUE(signer.Load(folder.GetPath()));
    const std::string subject = signer.Sign("Welcome", Guid, "Anna@Example.net", Now);
    ASSERT_EQ(subject.size(), std::string("Welcome [LHV-]").size() + 23);
    EXPECT_EQ(WithoutSignature(subject), "Welcome");
    std::string changed = subject;
    changed[changed.size() - 3] = changed[changed.size() - 3] == 'A' ? 'B' : 'A';

    const struct {
        const char* what;
        std::string subject;
        std::string_view guid;
        std::string sender;
        std::int64_t now;
        bool valid;
    } rows[] = {
        {"as made", subject, Guid, "Anna@Example.net", Now, true},
        {"other case", subject, Guid, "aNNA@example.NET", Now, true},
        {"reply", "Re: Fwd: " + subject + " (was: hello)", Guid, "anna@example.net", Now + 60, true},
        {"lower-case token", "re: welcome " + LowerAscii(subject), Guid, "anna@example.net", Now, true},
        {"behind a forged one", "[LHV-" + std::string(23, 'A') + "] " + subject, Guid, "anna@example.net", Now, true},
        {"last second", subject, Guid, "anna@example.net", Now + Lifetime, true},
        {"expired", subject, Guid, "anna@example.net", Now + Lifetime + 1, false},
        {"from the future", subject, Guid, "anna@example.net", Now - 1, false},
        {"other sender", subject, Guid, "bert@example.net", Now, false},
        {"other list", subject, "{1B5B6B6A-7C1C-4f0e-9E0A-0123456789AB}", "anna@example.net", Now, false},
        {"changed", changed, Guid, "anna@example.net", Now, false},
        {"cut", subject.substr(0, subject.size() - 1), Guid, "anna@example.net", Now, false},
        {"none", "Welcome [LHV-]", Guid, "anna@example.net", Now, false},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(signer.Verify(row.subject, row.guid, row.sender, row.now, Lifetime), row.valid) << row.what;
    }
    EXPECT_EQ(signer.Sign(subject, Guid, "Anna@Example.net", Now), subject) << "signed anew, not twice";
}

TEST(Signature, OneSecretForAllWhoStartAtOnce) {
    CTemporaryFolder folder;
    std::string subjects[8];
    std::thread threads[8];
    for (int i = 0; i < 8; ++i) {
        threads[i] = std::thread([&folder, &subjects, i] {
            CSigner signer;
            if (signer.Load(folder.GetPath())) subjects[i] = signer.Sign("x", Guid, "a@b.example", Now);
        });
    }
    for (auto& thread : threads)
        thread.join();
    for (const auto& subject : subjects)
        EXPECT_EQ(subject, subjects[0]);
    std::string secret;
    ASSERT_TRUE(ReadWholeFile(JoinPath(folder.GetPath(), SecretFileName), secret));
    EXPECT_EQ(secret.size(), CSigner::SecretSize);

    ASSERT_TRUE(WriteFileAtomically(JoinPath(folder.GetPath(), SecretFileName), secret.substr(1)));
    CSigner signer;
    EXPECT_FALSE(signer.Load(folder.GetPath())) << "a damaged secret is not replaced";
}

}  // namespace
