// The file of stored logins read from outside, held against the module's own reading.
#include "node/control/storage_reader.h"

#include <gtest/gtest.h>

#include <random>

#include "tal/storage_lines.h"
#include "tests/control/test_node.h"

namespace node::control {
namespace {

// What the module would say.
bool moduleTakes(const std::string& contents) {
    std::vector<std::string> lines;
    tal_text::appendStorageLines(contents, lines);
    return tal_text::storageLinesValid(lines);
}

std::string replaced(std::string text, const std::string& from, const std::string& to) {
    const size_t at = text.find(from);
    if (at == std::string::npos) {
        throw std::logic_error(from);
    }
    return text.replace(at, from.size(), to);
}

TEST(StorageReader, LoginsAreReadWithTheirLines) {
    const StorageContents read = readStorage(storedLogin(7) + "\n\n" + storedLogin(42));
    EXPECT_EQ("", read.problem);
    ASSERT_EQ(2u, read.logins.size());
    const StoredLogin& login = read.logins[0];
    EXPECT_EQ(7u, login.ifId);
    EXPECT_EQ(1u, login.line);
    EXPECT_EQ(17u, read.logins[1].line);
    EXPECT_EQ(1u, login.aaaType);
    EXPECT_EQ("node2 atm 5/1", login.circuitId);
    EXPECT_EQ("", login.remoteId);
    EXPECT_EQ("acme 1", login.vendorId);
    EXPECT_EQ("\x01\x02", login.clientId);
    EXPECT_EQ("02:11:22:33:44:55", login.sourceMac);
    EXPECT_EQ(0xC0000207u, login.sourceIp);
    EXPECT_EQ(256u, login.userPatternSequence.size());
    EXPECT_EQ(0xFDu, login.loginIdType);
}

TEST(StorageReader, VlanIsShownAsTheFrameHadItThoughTheModuleReadsItAsDecimal) {
    EXPECT_EQ(100u, readStorage(storedLogin(7)).logins.at(0).vlan);
}

TEST(StorageReader, GoodFilesAreTakenAsTheModuleTakesThem) {
    const std::string one = storedLogin(7);
    const std::string good[] = {
        "",
        "\n\n",
        one,
        one.substr(0, one.size() - 1),
        storedLogin(1) + storedLogin(99),
        replaced(one, "interface: 7", "interface: xy"),
        replaced(one, "vlanId: 64", "vlanId: "),
        replaced(one, "sourceIP: c0000207", "sourceIP: "),
        replaced(one, "userPatternMask: " + std::string(256, '0'), "userPatternMask: "),
        replaced(one, "circuitId: node2 atm 5/1", "vlanId: 1"),
        replaced(one, "remoteId: ", "remoteId: " + std::string(63, 'r')),
        replaced(one, "remoteId: ", std::string("remoteId: \0 and more", 20)),
    };
    for (const std::string& contents : good) {
        EXPECT_TRUE(moduleTakes(contents)) << contents;
        EXPECT_EQ("", readStorage(contents).problem) << contents;
    }
}

TEST(StorageReader, BadFilesAreRefusedWithTheLineAndTheReason) {
    const std::string one = storedLogin(7);
    const std::pair<std::string, const char*> bad[] = {
        {"x\n", "line 1: a login begins"},
        {"interface: 1\n", "line 1: the last login has 1 of its 14 lines"},
        {one + "interface: 8\n", "line 15: the last login has 1 of its 14 lines"},
        {storedLogin(100), "line 1: the value of \"interface: \" has 3 characters"},
        {replaced(one, "interface: 7", "interface: "), "line 1: the value of"},
        {one + one.substr(13), "line 15: a login begins"},
        {replaced(one, "LoginAAAtype: 01", "LoginAAAtype: 1"), "line 2: the value of"},
        {replaced(one, "remoteId: ", "remoteId: " + std::string(64, 'r')), "line 4: "},
        {replaced(one, "remoteId: ", "remote: "), "line 4: no label"},
        {replaced(one, "sourceMac: 0", "sourceMac: "), "line 7: "},
        {replaced(one, "sourceIP: c", "sourceIP: cc"), "line 8: "},
        {replaced(one, "userPatternSequence: 0", "userPatternSequence: "), "line 9: "},
        {replaced(one, "extraInt: 0", "extraInt: "), "line 11: "},
        {replaced(one, "loginIdType: f", "loginIdType: "), "line 13: "},
        {replaced(one, "vlanId: 64", "vlanId: 10000"), "line 14: "},
        {replaced(one, "remoteId: ", std::string(400, 'r')), "line 4: "},
        {replaced(one, "\nremoteId", "\n\n\ninterface: 8\nremoteId"), "line 6: no label"},
    };
    for (const auto& [contents, start] : bad) {
        EXPECT_FALSE(moduleTakes(contents)) << contents;
        EXPECT_EQ(0u, readStorage(contents).problem.find(start)) << readStorage(contents).problem;
    }
}

TEST(StorageReader, LoginsBeforeTheProblemAreStillShown) {
    const StorageContents read = readStorage(storedLogin(1) + storedLogin(2) + "nonsense\n");
    EXPECT_EQ(2u, read.logins.size());
    EXPECT_EQ(0u, read.problem.find("line 29: "));
}

TEST(StorageReader, AgreesWithTheModuleOnDamagedFiles) {
    std::mt19937 random(7);
    const std::string whole = storedLogin(1) + storedLogin(22);
    size_t taken = 0;
    for (int i = 0; i < 20000; ++i) {
        std::string contents = whole;
        const size_t at = random() % contents.size();
        switch (random() % 4) {
            case 0:
                contents[at] = static_cast<char>(random());
                break;
            case 1:
                contents.erase(at, 1 + random() % 40);
                break;
            case 2:
                contents.insert(at, 1 + random() % 300, static_cast<char>(random()));
                break;
            default:
                contents.insert(at, contents.substr(random() % (at + 1), random() % 900));
                break;
        }
        const bool ours = readStorage(contents).problem.empty();
        ASSERT_EQ(moduleTakes(contents), ours) << contents;
        taken += ours ? 1 : 0;
    }
    EXPECT_GT(taken, 100u);
    EXPECT_LT(taken, 19900u);
}

}  // namespace
}  // namespace node::control
