#include "node/isa/radius/secret_file.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

namespace {

using namespace node::radius;

class SecretFile : public ::testing::Test {
protected:
    SecretFile() {
        std::string name = ::testing::TempDir() + "secrets.XXXXXX";
        EXPECT_NE(nullptr, mkdtemp(name.data()));
        directory_ = name;
    }
    ~SecretFile() override { std::filesystem::remove_all(directory_); }

    std::string write(const std::string& text, mode_t mode = 0600) {
        const std::string path = directory_ + "/secrets";
        std::ofstream(path, std::ios::binary) << text;
        EXPECT_EQ(0, chmod(path.c_str(), mode));
        return path;
    }

    static std::string errorOf(const std::string& path) {
        try {
            readSecretFile(path);
        } catch (const SecretFileError& error) {
            return error.what();
        }
        return "no error";
    }

    std::string directory_;
};

TEST_F(SecretFile, GoodFileIsRead) {
    const Secrets secrets =
        readSecretFile(write("# servers\n"
                             "\n"
                             "  first   a secret with blanks \r\n"
                             "second\t#12345678\n"
                             "third 0123456789"));
    ASSERT_EQ(3U, secrets.size());
    EXPECT_EQ("a secret with blanks", secrets.at("first").reveal());
    EXPECT_EQ("#12345678", secrets.at("second").reveal());
    EXPECT_EQ("0123456789", secrets.at("third").reveal());
}

TEST_F(SecretFile, BadLinesAreNamedByNumberAndNeverQuoted) {
    const std::pair<std::string, std::string> table[] = {
        {"first", ":1: needs a name and a secret"},
        {"\n\nfirst 1234567", ":3: the secret must have 8 to 128 characters"},
        {"first " + std::string(129, 'x'), ":1: the secret must have 8 to 128 characters"},
        {"first topsecret\nfirst topsecret", ":2: a name of an earlier line again"},
        {"first top\1secret", ":1: holds a character that is not printable ASCII"},
        {"first top\xc3\xa4secret", ":1: holds a character that is not printable ASCII"},
        {std::string("first top\0secret", 16), ":1: holds a character that is not printable ASCII"},
    };
    for (const auto& [text, expected] : table) {
        const std::string path = write(text);
        EXPECT_EQ(path + expected, errorOf(path));
        EXPECT_EQ(std::string::npos, errorOf(path).find("top"));
    }
}

TEST_F(SecretFile, SecretsOf8And128CharactersAreTaken) {
    EXPECT_EQ(1U, readSecretFile(write("a 12345678")).size());
    EXPECT_EQ(1U, readSecretFile(write("a " + std::string(128, 'x'))).size());
}

TEST_F(SecretFile, EveryRightOfGroupAndOthersIsRefused) {
    for (const unsigned bit : {0040U, 0020U, 0010U, 0004U, 0002U, 0001U}) {
        const std::string path = write("a 12345678", 0600 | bit);
        EXPECT_NE(std::string::npos, errorOf(path).find("only its owner")) << std::oct << bit;
    }
    EXPECT_EQ("no error", errorOf(write("a 12345678", 0400)));
}

TEST_F(SecretFile, SymbolicLinkIsRefused) {
    const std::string link = directory_ + "/link";
    ASSERT_EQ(0, symlink(write("a 12345678").c_str(), link.c_str()));
    EXPECT_EQ(link + ": is a symbolic link", errorOf(link));
}

TEST_F(SecretFile, WhatIsNoRegularFileIsRefusedWithoutWaiting) {
    EXPECT_EQ(directory_ + ": is not a regular file", errorOf(directory_));
    const std::string pipe = directory_ + "/pipe";
    ASSERT_EQ(0, mkfifo(pipe.c_str(), 0600));
    EXPECT_EQ(pipe + ": is not a regular file", errorOf(pipe));
    EXPECT_EQ(directory_ + "/none: No such file or directory", errorOf(directory_ + "/none"));
}

TEST_F(SecretFile, FileOfAnotherUserIsRefused) {
    if (geteuid() != 0) {
        GTEST_SKIP() << "only root can give a file away";
    }
    const std::string path = write("a 12345678");
    ASSERT_EQ(0, chown(path.c_str(), 12345, 12345));
    EXPECT_EQ(path + ": belongs to neither this user nor root", errorOf(path));
}

TEST_F(SecretFile, FileOver64KiBIsRefused) {
    const std::string line = "# " + std::string(1021, 'x') + "\n";
    std::string text;
    for (int i = 0; i < 64; ++i) {
        text += line;
    }
    EXPECT_EQ("no error", errorOf(write(text)));
    const std::string path = write(text + "#");
    EXPECT_EQ(path + ": is longer than 64 KiB", errorOf(path));
}

TEST(Secret, MovedFromIsEmpty) {
    Secret from("short");
    const Secret to(std::move(from));
    EXPECT_TRUE(from.empty());  // NOLINT(bugprone-use-after-move): that is the rule
    EXPECT_EQ("short", to.reveal());
}

}  // namespace
