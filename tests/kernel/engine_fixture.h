// Lines of a namespace with a kernel engine on them. Test code, one thread.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "node/engine/kernel/kernel_engine.h"
#include "tests/kernel/line_net.h"

namespace node_test {

using node::Gate;
using node::KernelEngine;

// The engine with what it handed up.
class Engine {
public:
    explicit Engine(unsigned lines, const std::string& pins = {}) {
        std::vector<unsigned> interfaces;
        for (unsigned line = 1; line <= lines; ++line) {
            interfaces.push_back(LineNet::index(LineNet::access(line)));
        }
        std::string error;
        engine_ = KernelEngine::start(
            interfaces, {.pinDirectory = pins},
            [this](unsigned ifId, std::span<const uint8_t> frame) {
                trapped.emplace_back(ifId, Buffer(frame.begin(), frame.end()));
            },
            error);
        EXPECT_NE(engine_, nullptr) << error;
    }

    std::optional<KernelEngine::Found> attach(unsigned line, bool outwardOpen = false) {
        const std::string interface = LineNet::access(line);
        std::string error;
        const auto found = engine_->attach({.ifId = line,
                                            .ifIndex = LineNet::index(interface),
                                            .carrierDowns = LineNet::carrierDowns(interface),
                                            .outwardOpen = outwardOpen},
                                           error);
        EXPECT_TRUE(found) << error;
        return found;
    }

    KernelEngine* operator->() { return engine_.get(); }
    KernelEngine& operator*() { return *engine_; }

    // Waits until the line has counted so many frames of its subscriber, handed up or not.
    bool counted(unsigned line, uint32_t frames) {
        return eventually([&] {
            const auto totals = engine_->totals(line);
            return totals.counters[KERNEL_FRAMES_SEEN] + totals.trapped >= frames;
        });
    }

    std::vector<std::pair<unsigned, Buffer>> trapped;

private:
    std::unique_ptr<KernelEngine> engine_;
};

class KernelTest : public ::testing::Test {
protected:
    void SetUp() override {
        if (const std::string missing = missingPrivilege(); !missing.empty()) {
            GTEST_SKIP() << missing;
        }
    }
};

// The first frame of numbered() to come out behind the uplink; 0 when none does.
inline uint32_t nextNumber(RawSocket& core) {
    const auto frame = core.receive();
    if (!frame || frame->size() < 18) {
        return 0;
    }
    uint32_t number = 0;
    for (size_t i = 14; i < 18; ++i) {
        number = number << 8 | (*frame)[i];
    }
    return number;
}

}  // namespace node_test
