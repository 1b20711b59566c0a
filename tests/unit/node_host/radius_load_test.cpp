// Many logins through ISA over RADIUS: their pace, their accounting, and what they leave behind.
#include <gtest/gtest.h>
#include <malloc.h>

#include <filesystem>
#include <iterator>
#include <map>

#include "tests/unit/node_host/radius_bench.h"

namespace {

using namespace std::chrono_literals;
using namespace node::radius;
using node::PortState;
using node_test::RadiusBench;
using Sent = radius_test::ScriptedServer::Sent;

constexpr unsigned lines = 99;

uint32_t number(const Sent& sent, AttributeName name) {
    const auto value = sent.view().first(name);
    return value ? numberOf(*value).value() : 0;
}

size_t openDescriptors() {
    const std::filesystem::directory_iterator open("/proc/self/fd");
    return static_cast<size_t>(std::distance(begin(open), end(open)));
}

size_t allocated() {
    return mallinfo2().uordblks;
}

class RadiusLoadTest : public RadiusBench {
protected:
    RadiusLoadTest() { config.userName = "lines of the first-{interface-number}"; }
    void addLines(unsigned count) {
        for (unsigned ifId = 1; ifId <= count; ++ifId) {
            addLine(ifId);
        }
    }
    size_t askedFor() const {
        std::set<std::string> names;
        for (const Sent& sent : server.requests) {
            names.insert(nameIn(sent.view()));
        }
        return names.size();
    }
};

TEST_F(RadiusLoadTest, StoredLoginsArePacedAndFreshOnesAreNot) {
    config.pacedRate = 10;
    config.pacedBurst = 2;
    addLines(40);
    begin();
    serveAll();
    for (unsigned ifId = 1; ifId <= 30; ++ifId) {
        engine.sendStoredRequest(ifId);
        link(ifId, true);
    }
    runFor(1s);
    EXPECT_GE(askedFor(), 10U);
    EXPECT_LE(askedFor(), 13U) << "ten a second after the first two";
    const size_t before = askedFor();
    for (unsigned ifId = 31; ifId <= 40; ++ifId) {
        link(ifId, true);
        frame(ifId, static_cast<uint8_t>(ifId));
    }
    runFor(10ms);
    EXPECT_GE(askedFor(), before + 10) << "they do not wait behind the others";
    runFor(3s);
    EXPECT_EQ(40U, askedFor());
}

TEST_F(RadiusLoadTest, InterimRecordsSayWhatPassedSoFar) {
    config.accounting.on = true;
    config.accounting.interim = std::chrono::seconds(60);
    addLines(1);
    begin();
    serveAll();
    serveAccounting();
    link(1, true);
    frame(1, 1);
    runFor(1s);
    ASSERT_EQ(PortState::open, state(1));
    ASSERT_EQ(1U, accounting.requests.size());
    frame(1, 1);
    runFor(60s);
    frame(1, 1);
    runFor(60s);
    engine.setAdmin(1, false);
    runFor(1s);
    ASSERT_EQ(4U, accounting.requests.size());
    struct Record {
        uint32_t status;
        uint32_t frames;
        double seconds;
    };
    const Record expected[] = {{1, 0, 0}, {3, 2, 60}, {3, 3, 120}, {2, 3, 120}};
    for (size_t i = 0; i < std::size(expected); ++i) {
        const Sent& sent = accounting.requests[i];
        EXPECT_EQ(expected[i].status, number(sent, attribute::acctStatusType));
        EXPECT_EQ(expected[i].frames, number(sent, attribute::acctInputPackets));
        EXPECT_EQ(expected[i].frames * 17, number(sent, attribute::acctInputOctets));
        EXPECT_NEAR(expected[i].seconds, number(sent, attribute::acctSessionTime), 1.0);
    }
}

// Each login is accepted, accounted for and ended by a lost link.
TEST_F(RadiusLoadTest, HundredThousandLoginsLeaveNothingBehind) {
    config.accounting.on = true;
    config.sessionFile.clear();
    addLines(lines);
    begin();
    serveAll();
    serveAccounting();
    std::map<uint32_t, size_t> told;  // by status
    const auto round = [this, &told] {
        for (unsigned ifId = 1; ifId <= lines; ++ifId) {
            link(ifId, true);
            frame(ifId, static_cast<uint8_t>(ifId));
        }
        runFor(50ms);
        for (unsigned ifId = 1; ifId <= lines; ++ifId) {
            ASSERT_EQ(PortState::open, state(ifId));
            link(ifId, false);
        }
        runFor(50ms);
        for (const Sent& sent : accounting.requests) {
            ++told[number(sent, attribute::acctStatusType)];
        }
        // What the test itself keeps is not to be measured.
        server.requests.clear();
        accounting.requests.clear();
        out.str("");
    };
    for (int i = 0; i < 100 && !HasFatalFailure(); ++i) {
        round();
    }
    const size_t memory = allocated();
    const size_t descriptors = openDescriptors();
    for (int i = 0; i < 920 && !HasFatalFailure(); ++i) {
        round();
    }
    EXPECT_EQ(1020U * lines, told[1]);
    EXPECT_EQ(1020U * lines, told[2]);
    EXPECT_LT(allocated(), memory + 256 * 1024);
    EXPECT_EQ(descriptors, openDescriptors());
    runFor(1s);
    EXPECT_EQ(0U, radius->untold());
    for (const node::RadiusServerInfo& each : radius->servers()) {
        EXPECT_EQ(0U, each.inFlight);
        EXPECT_EQ(1U, each.channels);
    }
}

}  // namespace
