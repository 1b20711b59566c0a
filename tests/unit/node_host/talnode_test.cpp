// The program on bad input: one line that says what is wrong, and its exit code.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdio.h>
#include <sys/wait.h>

#include <algorithm>
#include <filesystem>
#include <string>

#include "tests/unit/node_host/temp_dir.h"

namespace {

using testing::HasSubstr;
using testing::StartsWith;

struct Ended {
    int code;
    std::string text;  // standard output and standard error
};

Ended run(const std::string& arguments) {
    FILE* const pipe = popen((std::string(TALNODE " ") + arguments + " 2>&1").c_str(), "r");
    Ended ended{-1, {}};
    if (!pipe) {
        return ended;
    }
    char buffer[4096];
    for (size_t got = 0; (got = fread(buffer, 1, sizeof buffer, pipe)) > 0;) {
        ended.text.append(buffer, got);
    }
    const int status = pclose(pipe);
    ended.code = WIFEXITED(status) ? WEXITSTATUS(status) : -2;
    return ended;
}

class TalnodeTest : public testing::Test {
protected:
    std::string config(const std::string& more) const {
        return dir.write("node.toml",
                         "[[interface]]\nid = 1\nname = \"1/1\"\nkernel-name = \"dsl1\"\n" + more);
    }
    static void expectOneLine(const Ended& ended, int code, const std::string& start) {
        EXPECT_EQ(ended.code, code) << ended.text;
        EXPECT_THAT(ended.text, StartsWith(start));
        EXPECT_EQ(std::count(ended.text.begin(), ended.text.end(), '\n'), 1) << ended.text;
    }

    node_test::TempDir dir;
};

TEST_F(TalnodeTest, WrongConfigurationEndsWithTwoAndOneLine) {
    const std::string path = config("capture = \"none.pcap\"\n");
    expectOneLine(run("--config " + path), 2,
                  "talnode: " + path + ":5: interface.capture: there is no file");
    expectOneLine(run("--config " + dir.path() + "/none.toml"), 2,
                  "talnode: " + dir.path() + "/none.toml: cannot be opened");
}

TEST_F(TalnodeTest, UnplayableCapturesEndWithTwoAndOneLine) {
    for (const char* name : {"empty", "not-a-capture", "truncated-header", "wrong-linktype"}) {
        const std::string capture = std::string(SAMPLES "/bad/") + name + ".pcap";
        ASSERT_TRUE(std::filesystem::exists(capture));
        expectOneLine(run("--config " + config("capture = \"" + capture + "\"\n")), 2,
                      "talnode: " + capture + ": ");
    }
}

TEST_F(TalnodeTest, UnusableProfilesFileEndsWithTwoAndOneLine) {
    const std::string path = config("[profiles]\nfile = \"node.toml\"\n");
    expectOneLine(run("--config " + path), 2, "talnode: " + path + ": is no database");
    expectOneLine(run("--config " + config("[profiles]\nfile = \"none/profiles\"\n")), 2,
                  "talnode: " + dir.path() + "/none/profiles: unable to open database file");
}

TEST_F(TalnodeTest, WrongCommandLineEndsWithTwo) {
    EXPECT_EQ(run("").code, 2);
    EXPECT_EQ(run("--config a --colour").code, 2);
    EXPECT_EQ(run("--config " + config("") + " --pace slow").code, 2);
}

TEST_F(TalnodeTest, HelpNamesTheOptions) {
    const Ended ended = run("--help");
    EXPECT_EQ(ended.code, 0);
    EXPECT_THAT(ended.text, HasSubstr("--config"));
    EXPECT_THAT(ended.text, HasSubstr("--library"));
    EXPECT_THAT(ended.text, HasSubstr("--report"));
}

TEST_F(TalnodeTest, LibraryThatIsNoneEndsWithOneAndOneLine) {
    const std::string path = config("");
    expectOneLine(run("--config " + path + " --library " + dir.path() + "/none.so"), 1,
                  "talnode: " + dir.path() + "/none.so: ");
    const std::string text = dir.write("text.so", "no library");
    expectOneLine(run("--config " + path + " --library " + text), 1, "talnode: " + text + ": ");
    const Ended other = run("--config " + path + " --library libm.so.6");
    expectOneLine(other, 1, "talnode: libm.so.6: has no rpcTal");
}

}  // namespace
