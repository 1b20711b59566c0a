// The event decoder and its literal twin agree on random and mutated lines of fixed seeds.
#include "tests/oracle/event_line_oracle.h"
#include "tal/event_line.h"
#include "tests/oracle/random_text.h"

#include <gtest/gtest.h>

#include <string.h>

#include <memory>

namespace {

// How often the lines reached each field, so that the comparison cannot run empty.
struct Reached {
    int complete = 0, vlan = 0, mac = 0, address = 0, pattern = 0;
    int remote = 0, vendor = 0, client = 0;
};

void compare(const std::string& line, Reached& reached) {
    const oracle::Event expected = oracle::decodeEventLine(line.c_str());
    // An exact copy on the heap, so that a sanitizer sees a read beyond the end.
    const std::unique_ptr<char[]> copy(new char[line.size()]);
    memcpy(copy.get(), line.data(), line.size());
    const std::string_view view(copy.get(), line.size());

    const auto interface = tal_text::eventLineInterface(view);
    if (expected.dropped) {
        EXPECT_TRUE(!interface || view.size() < tal_text::eventLineComplete);
        return;
    }
    ASSERT_TRUE(interface);
    EXPECT_EQ(expected.interface, *interface);
    const tal_text::EventFields fields = tal_text::decodeEventFields(view);
    EXPECT_EQ(expected.vlanId, fields.vlanId);
    EXPECT_EQ(0, memcmp(expected.sourceMac, fields.sourceMac, 6));
    EXPECT_EQ(expected.sourceIp, fields.sourceIp);
    EXPECT_EQ(expected.patternPresent, fields.patternPresent);
    EXPECT_EQ(0, memcmp(expected.pattern, fields.pattern, sizeof(fields.pattern)));
    EXPECT_EQ(expected.remoteId, fields.remoteId);
    EXPECT_EQ(expected.vendorId, fields.vendorId);
    EXPECT_EQ(expected.clientId, fields.clientId);

    reached.complete++;
    reached.vlan += expected.vlanId != 0;
    reached.mac += expected.sourceMac[5] != 0;
    reached.address += expected.sourceIp != 0;
    reached.pattern += expected.patternPresent;
    reached.remote += !expected.remoteId.empty();
    reached.vendor += !expected.vendorId.empty();
    reached.client += !expected.clientId.empty();
}

void run(unsigned seed) {
    oracle::RandomText random(seed);
    Reached reached;
    for (int i = 0; i < 30000; i++) {
        const std::string line = random.eventLine();
        compare(line, reached);
        if (testing::Test::HasFailure())
            FAIL() << "seed " << seed << ", line " << i << ": " << testing::PrintToString(line);
    }
    EXPECT_GT(reached.complete, 20000);
    EXPECT_GT(reached.vlan, 10000);
    EXPECT_GT(reached.mac, 10000);
    EXPECT_GT(reached.address, 10000);
    EXPECT_GT(reached.pattern, 10000);
    EXPECT_GT(reached.remote, 2000);
    EXPECT_GT(reached.vendor, 2000);
    EXPECT_GT(reached.client, 2000);
}

TEST(EventLineOracle, AgreesOnRandomLinesOfSeed1) {
    run(1);
}
TEST(EventLineOracle, AgreesOnRandomLinesOfSeed2) {
    run(2);
}
TEST(EventLineOracle, AgreesOnRandomLinesOfSeed3) {
    run(3);
}
TEST(EventLineOracle, AgreesOnRandomLinesOfSeed4) {
    run(4);
}

// Pure noise behind the header, of every length up to 330.
TEST(EventLineOracle, AgreesOnNoiseOfEveryLength) {
    oracle::RandomText random(5);
    Reached reached;
    for (size_t length = 0; length <= 330; length++)
        for (int i = 0; i < 60; i++) {
            const std::string noise = i % 2 == 0 ? random.numberText(length) : random.bytes(length);
            const std::string line = ("taldsl1 00" + noise).substr(0, length);
            compare(line, reached);
            if (testing::Test::HasFailure())
                FAIL() << testing::PrintToString(line);
        }
    EXPECT_GT(reached.pattern, 1000);
}

}  // namespace
