// Asks the attached program whether it would hand up a frame: in a test run of the kernel, and
// with the frame sent over a line, where the outer tag reaches the program as metadata.
// Test code, one thread.
#pragma once

#include <gtest/gtest.h>

#include <optional>
#include <span>
#include <vector>

#include "node/engine/classify.h"
#include "tests/kernel/engine_fixture.h"
#include "tests/kernel/test_run.h"

namespace node_test {

constexpr unsigned longestFrame = 9000;

class KernelMatcher {
public:
    KernelMatcher() : net_(1, longestFrame), engine_(1), wire_(LineNet::subscriber(1)) {
        engine_.attach(1);
        ifIndex_ = LineNet::index(LineNet::access(1));
    }

    bool setRules(std::span<const ittalCondition> conditions) {
        return engine_->setRules(1, conditions);
    }

    // Empty: the kernel takes no such frame for a test run, or does not deliver it to a line.
    std::optional<bool> inTestRun(std::span<const uint8_t> frame) {
        // The kernel's test runs want data behind the Ethernet header, and a whole IP header
        // behind an IP type.
        if (frame.size() <= ethernetHeader ||
            (typeIs(frame, 0x08, 0x00) && frame.size() < ethernetHeader + 20) ||
            (typeIs(frame, 0x86, 0xdd) && frame.size() < ethernetHeader + 40)) {
            return std::nullopt;
        }
        engine_->arm(1);
        const auto said = testRun(engine_->program(), arrivedOn(ifIndex_), frame);
        if (!said) {
            ADD_FAILURE() << "no test run with " << frame.size() << " bytes";
            return std::nullopt;
        }
        ++frames_;
        EXPECT_EQ(said, 2U);  // dropped
        return handedUp(frame);
    }

    std::optional<bool> onTheWire(std::span<const uint8_t> frame) {
        if (frame.size() < ethernetHeader ||
            (frame.size() < deliveredTag &&
             (typeIs(frame, 0x81, 0x00) || typeIs(frame, 0x88, 0xa8)))) {
            return std::nullopt;
        }
        engine_->arm(1);
        wire_.send(frame);
        ++frames_;
        EXPECT_TRUE(engine_.counted(1, frames_));
        return handedUp(frame);
    }

private:
    static constexpr size_t ethernetHeader = 14;
    static constexpr size_t deliveredTag = 20;  // the stack drops a shorter frame with a tag

    static bool typeIs(std::span<const uint8_t> frame, unsigned high, unsigned low) {
        return frame[12] == high && frame[13] == low;
    }

    bool handedUp(std::span<const uint8_t> frame) {
        engine_.trapped.clear();
        engine_->poll();
        EXPECT_LE(engine_.trapped.size(), 1U);
        if (engine_.trapped.empty()) {
            return false;
        }
        EXPECT_EQ(engine_.trapped[0].first, 1U);
        EXPECT_EQ(engine_.trapped[0].second, Buffer(frame.begin(), frame.end()));
        return true;
    }

    LineNet net_;
    Engine engine_;
    RawSocket wire_;
    unsigned ifIndex_ = 0;
    uint32_t frames_ = 0;
};

inline bool pureVerdict(std::span<const uint8_t> bytes,
                        std::span<const ittalCondition> conditions) {
    const auto frame = node::parseFrame(bytes);
    return frame && node::firstMatch(*frame, conditions) != nullptr;
}

}  // namespace node_test
