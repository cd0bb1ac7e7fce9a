#include "PasswordFile.h"
#include "PException.h"
#include "PlatformError.h"
#include "TemporaryDirectory.h"

#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include <iostream>
#include <string>

namespace {

using partmode::PasswordFile;
using partmode::test::TemporaryDirectory;

constexpr uid_t kNobody = 65534;

// The reason PasswordFile gives on standard error, and its action code.
struct Refusal {
    std::string line;
    int action = -1;
};

Refusal refusalOf(const std::filesystem::path& path)
{
    Refusal refusal;
    testing::internal::CaptureStderr();
    try {
        static_cast<void>(PasswordFile::read(path));
    } catch (const PException& exception) {
        refusal.action = exception.getActionCode();
    }
    refusal.line = testing::internal::GetCapturedStderr();
    return refusal;
}

std::filesystem::path privateFile(const TemporaryDirectory& folder, const std::string& content)
{
    auto path = folder.write("bmc.pass", content);
    ::chmod(path.c_str(), 0600);
    return path;
}

TEST(PasswordFile, PrivateFileGivesItsFirstLine)
{
    const TemporaryDirectory folder;
    EXPECT_EQ(PasswordFile::read(privateFile(folder, "secret\nignored\n")), "secret");
}

TEST(PasswordFile, EmptyFileIsRefusedWithAReason)
{
    const TemporaryDirectory folder;
    const auto path = privateFile(folder, "");
    const auto refusal = refusalOf(path);
    EXPECT_EQ(refusal.line, std::string(program_invocation_short_name) + ": " + path.string() +
                                ": the password file holds no password on its first line\n");
    EXPECT_EQ(refusal.action, partmode::error::kActionMalformed);
    EXPECT_EQ(refusalOf(privateFile(folder, "\nsecret\n")).action, partmode::error::kActionMalformed);
}

TEST(PasswordFile, FileLargerThanOneKibibyteIsRefused)
{
    const TemporaryDirectory folder;
    const auto path = privateFile(folder, "secret\n" + std::string(1024, '#'));
    const auto refusal = refusalOf(path);
    EXPECT_EQ(refusal.line, std::string(program_invocation_short_name) + ": " + path.string() +
                                ": the password file is larger than 1024 bytes\n");
    EXPECT_EQ(refusal.action, partmode::error::kActionInsecure);
}

TEST(PasswordFile, FileOfAnotherUserIsRefusedEvenForRoot)
{
    if (::geteuid() != 0) {
        std::cout << "skipped: needs root to give the file to another user" << std::endl;
        GTEST_SKIP() << "needs root";
    }
    const TemporaryDirectory folder;
    const auto path = privateFile(folder, "secret\n");
    ASSERT_EQ(::chown(path.c_str(), kNobody, kNobody), 0);
    const auto refusal = refusalOf(path);
    EXPECT_EQ(refusal.line, std::string(program_invocation_short_name) + ": " + path.string() +
                                ": the password file belongs to uid 65534, neither root nor uid 0\n");
    EXPECT_EQ(refusal.action, partmode::error::kActionInsecure);
}

TEST(PasswordFile, FileInAWorldWritableFolderIsRefused)
{
    const TemporaryDirectory folder;
    const auto path = privateFile(folder, "secret\n");
    ASSERT_EQ(::chmod(folder.path().c_str(), 01777), 0);
    const auto refusal = refusalOf(path);
    EXPECT_EQ(refusal.line, std::string(program_invocation_short_name) + ": " + path.string() +
                                ": the password file lies in a folder that others may write to (" +
                                folder.path().string() + ", mode 1777)\n");
    EXPECT_EQ(refusal.action, partmode::error::kActionInsecure);
}

TEST(PasswordFile, LinkToAPrivateFileIsRefused)
{
    const TemporaryDirectory folder;
    const auto target = privateFile(folder, "secret\n");
    std::filesystem::create_symlink(target, folder.path() / "link.pass");
    const auto refusal = refusalOf(folder.path() / "link.pass");
    EXPECT_EQ(refusal.line, std::string(program_invocation_short_name) + ": " + (folder.path() / "link.pass").string() +
                                ": the password file is a symbolic link\n");
    EXPECT_EQ(refusal.action, partmode::error::kActionInsecure);
}

} // namespace
