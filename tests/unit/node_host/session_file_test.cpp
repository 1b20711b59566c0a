// Sessions as text: written and read alike, anything else refused.
#include "node/isa/session_file.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <iterator>

#include "tests/unit/node_host/temp_dir.h"

namespace {

using node::SessionFileError;
using node::StoredSession;
using testing::HasSubstr;

StoredSession full() {
    StoredSession session;
    session.id = "6b01c38b-07-cb408792";
    session.ifId = 7;
    session.began = 1'800'000'000;
    session.announced = true;
    session.ended = 1'800'000'100;
    session.cause = node::radius::TerminateCause::lostCarrier;
    session.traffic = {uint64_t{1} << 40, 2, 3, UINT64_MAX};
    session.line.interfaceName = "1/7";
    session.line.interfaceNumber = 7;
    session.line.circuitId = "node eth 1/7\n";
    session.line.remoteId = std::string("\0\xff", 2);
    session.line.mac = node::radius::MacAddress{1, 2, 3, 4, 5, 0xfe};
    session.line.address = 0xc0000201;
    session.line.vlan = 4095;
    session.line.vendorClass = "udhcp 1.35.0";
    session.line.clientId = "client";
    session.seconds = 90;
    session.userName = "node eth 1/7@{nas} ";
    session.nasPortId = "1/7";
    session.classes = {{1, 2}, {}, {0xff}};
    return session;
}

StoredSession bare() {
    StoredSession session;
    session.id = "a";
    session.ifId = 99;
    session.line.interfaceNumber = 99;
    return session;
}

std::string errorOf(const std::string& text) {
    try {
        node::sessionsFromText(text, "FILE");
    } catch (const SessionFileError& error) {
        return error.what();
    }
    return "no error";
}

TEST(SessionFile, ReadsWhatItWrote) {
    const std::string text = node::sessionText({full(), bare()});
    const std::vector<StoredSession> read = node::sessionsFromText(text, "FILE");
    ASSERT_EQ(2U, read.size());
    EXPECT_EQ(text, node::sessionText(read));
    const StoredSession wanted = full();
    EXPECT_EQ(wanted.id, read[0].id);
    EXPECT_EQ(7U, read[0].line.interfaceNumber);
    EXPECT_EQ(wanted.began, read[0].began);
    EXPECT_TRUE(read[0].announced);
    EXPECT_EQ(wanted.ended, read[0].ended);
    EXPECT_EQ(wanted.cause, read[0].cause);
    EXPECT_EQ(wanted.traffic, read[0].traffic);
    EXPECT_EQ(wanted.line.circuitId, read[0].line.circuitId);
    EXPECT_EQ(wanted.line.remoteId, read[0].line.remoteId);
    EXPECT_EQ(wanted.line.mac, read[0].line.mac);
    EXPECT_EQ(wanted.line.address, read[0].line.address);
    EXPECT_EQ(wanted.classes, read[0].classes);
    EXPECT_EQ(90U, read[0].seconds);
    EXPECT_EQ(wanted.userName, read[0].userName);
    EXPECT_EQ("1/7", read[0].nasPortId);
    EXPECT_EQ("", read[1].userName);
    EXPECT_FALSE(read[1].line.mac);
    EXPECT_FALSE(read[1].announced || read[1].sent);
    StoredSession onItsWay = bare();
    onItsWay.sent = true;
    const StoredSession again = node::sessionsFromText(node::sessionText({onItsWay}), "FILE").at(0);
    EXPECT_TRUE(again.sent && !again.announced);
    EXPECT_FALSE(read[1].line.address);
    EXPECT_TRUE(read[1].classes.empty());
    EXPECT_TRUE(node::sessionsFromText(node::sessionText({}), "FILE").empty());
}

TEST(SessionFile, FirstFormatIsStillRead) {
    const std::string both =
        "a 7 1800000000 1 1800000100 2 1 2 3 4 312f37 6f . . 0 0 . . 0102,.\n"
        "b 8 1800000000 0 0 10 0 0 0 0 312f38 6f . . 0 0 . . -\nend 2\n";
    const std::vector<StoredSession> read =
        node::sessionsFromText("tal sessions 1\n" + both, "FILE");
    ASSERT_EQ(2U, read.size());
    EXPECT_EQ(100U, read[0].seconds) << "it has ended";
    EXPECT_EQ(0U, read[1].seconds);
    EXPECT_TRUE(read[0].announced);
    EXPECT_TRUE(read[1].sent) << "it may have been";
    EXPECT_EQ("", read[0].userName);
    EXPECT_EQ("1/7", read[0].line.interfaceName);
    EXPECT_EQ(2U, read[0].classes.size());
    EXPECT_THAT(errorOf("tal sessions 2\n" + both), HasSubstr("is damaged in line 2"));
    const std::string later = node::sessionText({full()});
    EXPECT_THAT(errorOf("tal sessions 1" + later.substr(later.find('\n'))),
                HasSubstr("is damaged in line 2"));
}

TEST(SessionFile, WhatIsNotWholeIsRefusedWithItsLine) {
    const std::string good = node::sessionText({full()});
    EXPECT_EQ("FILE: is no file of sessions", errorOf(""));
    EXPECT_EQ("FILE: is no file of sessions", errorOf("interface: 1\n"));
    for (size_t size = good.find('\n') + 1; size < good.size(); ++size) {
        EXPECT_NE("no error", errorOf(good.substr(0, size))) << size;
    }
    EXPECT_THAT(errorOf(good + "more\n"), HasSubstr("is damaged in line 3"));
    const auto changed = [&good](const std::string& what, const std::string& by) {
        std::string text = good;
        text.replace(text.find(what), what.size(), by);
        return errorOf(text);
    };
    EXPECT_THAT(changed(" 7 ", " 0 "), HasSubstr("is damaged in line 2"));
    EXPECT_THAT(changed(" 7 ", " 100 "), HasSubstr("is damaged in line 2"));
    EXPECT_THAT(changed("1800000000", "-1"), HasSubstr("is damaged in line 2"));
    EXPECT_THAT(changed("0102030405fe", "010203"), HasSubstr("is damaged in line 2"));
    EXPECT_THAT(changed("0102030405fe", "01020304050g"), HasSubstr("is damaged in line 2"));
    EXPECT_THAT(changed("4095", "4096"), HasSubstr("is damaged in line 2"));
    EXPECT_THAT(changed("0102,", "010,"), HasSubstr("is damaged in line 2"));
    EXPECT_THAT(changed("end 1", "end 2"), HasSubstr("is damaged in line 3"));
}

TEST(SessionFile, FilesOfTheFuzzerAreGoodOrBadAsTheirNamesSay) {
    size_t good = 0;
    size_t bad = 0;
    for (const auto& entry : std::filesystem::directory_iterator(CORPUS)) {
        std::ifstream file(entry.path(), std::ios::binary);
        const std::string error = errorOf({std::istreambuf_iterator<char>(file), {}});
        const bool isGood = entry.path().filename().string().starts_with("good_");
        EXPECT_EQ(isGood, error == "no error") << entry.path() << ": " << error;
        ++(isGood ? good : bad);
    }
    EXPECT_GE(good, 6U);
    EXPECT_GE(bad, 15U);
}

TEST(SessionFile, IsReplacedAsAWholeAndOnlyItsOwnerMayReadIt) {
    const node_test::TempDir directory;
    const std::string path = directory.path() + "/sessions";
    EXPECT_TRUE(node::readSessionFile(path).empty());
    node::writeSessionFile(path, {full()});
    node::writeSessionFile(path, {full(), bare()});
    EXPECT_EQ(2U, node::readSessionFile(path).size());
    struct stat status {};
    ASSERT_EQ(0, stat(path.c_str(), &status));
    EXPECT_EQ(0600U, status.st_mode & 0777U);
    EXPECT_NE(0, stat((path + ".new").c_str(), &status));
}

TEST(SessionFile, FileThatCannotBeSeenIsNotTakenForNone) {
    const node_test::TempDir directory;
    const std::string path = directory.path() + "/sessions";
    std::filesystem::create_symlink("sessions", path);  // leads nowhere, and not to nothing
    try {
        node::readSessionFile(path);
        ADD_FAILURE() << "taken for no file";
    } catch (const SessionFileError& error) {
        EXPECT_THAT(error.what(), HasSubstr(path + ": Too many levels of symbolic links"));
    }
}

TEST(SessionFile, FileThatCannotBeReplacedStaysAndIsNamed) {
    const node_test::TempDir directory;
    EXPECT_THROW(node::writeSessionFile(directory.path() + "/none/sessions", {}), SessionFileError);
    EXPECT_THROW(node::readSessionFile(directory.path() + "/."), SessionFileError);
}

}  // namespace
