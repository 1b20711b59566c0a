// How far each of the thirteen counters moves: so many frames and answers of a kind, exactly
// these counts and no others.
#include <gtest/gtest.h>

#include <array>
#include <string>

#include "node/engine/port.h"

namespace {

using namespace std::chrono_literals;
using node::Counter;
using node::counterCount;
using node::Port;
using node::PortState;
using node::Stage;
using node::Time;

using Expected = std::array<uint32_t, counterCount>;

const std::array<uint8_t, 3> bytes{1, 2, 3};

class PortCounters : public testing::Test {
protected:
    PortCounters() {
        port.setNodeAdmin(true, 0s);
        port.setAdmin(true, 0s);
        port.setMaxQueue(4);
        port.linkUp(0s);
    }

    void frames(uint32_t count, bool matching) {
        for (uint32_t i = 0; i < count; ++i) {
            port.frame(bytes, matching, now);
        }
    }
    void matching(uint32_t count) { frames(count, true); }
    void others(uint32_t count) { frames(count, false); }
    void answer(bool accepted) {
        port.reply(Stage::authentication, accepted, now);
        port.reply(Stage::authorization, accepted, now);
    }

    // By how much what is done here moves each counter, in the engine's order.
    template <class Action>
    void expectMoves(const Expected& moves, Action action) {
        const Expected before = port.counters().values();
        action();
        const Expected after = port.counters().values();
        for (size_t i = 0; i < counterCount; ++i) {
            EXPECT_EQ(moves[i], after[i] - before[i])
                << counterName(static_cast<Counter>(i)) << " at "
                << node::portStateName(port.state());
        }
    }

    Port port;
    Time now = 1s;
};

// seen, matched, raised, stored, accepts, rejects, timeouts, queued, overflows, dropped while
// blocked, pending and rejected, forwarded

TEST_F(PortCounters, LineThatIsAcceptedAndUsed) {
    expectMoves({7, 0, 0, 0, 0, 0, 0, 0, 0, 7, 0, 0, 0}, [&] { others(7); });
    expectMoves({1, 1, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 0}, [&] { matching(1); });
    expectMoves({3, 3, 0, 0, 0, 0, 0, 3, 0, 0, 0, 0, 0}, [&] { matching(3); });
    expectMoves({5, 5, 0, 0, 0, 0, 0, 0, 5, 0, 5, 0, 0}, [&] { matching(5); });
    expectMoves({11, 0, 0, 0, 0, 0, 0, 0, 0, 0, 11, 0, 0}, [&] { others(11); });
    expectMoves({0, 0, 0, 0, 2, 0, 0, 0, 0, 0, 0, 0, 4}, [&] { answer(true); });
    ASSERT_EQ(PortState::open, port.state());
    expectMoves({13, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 13}, [&] { others(13); });
    expectMoves({17, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 17}, [&] { matching(17); });
    // Answers count, also those that change nothing.
    expectMoves({0, 0, 0, 0, 2, 0, 0, 0, 0, 0, 0, 0, 0}, [&] { answer(true); });
}

TEST_F(PortCounters, LineThatIsRejectedAndAsksAgainLater) {
    matching(4);
    expectMoves({0, 0, 0, 0, 0, 1, 0, 0, 0, 0, 4, 0, 0},
                [&] { port.reply(Stage::authentication, false, now); });
    ASSERT_EQ(PortState::rejected, port.state());
    expectMoves({3, 3, 0, 0, 0, 0, 0, 0, 0, 0, 0, 3, 0}, [&] { matching(3); });
    expectMoves({5, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 5, 0}, [&] { others(5); });
    now += node::rejectBackOff;
    expectMoves({2, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 2, 0}, [&] { others(2); });
    expectMoves({2, 2, 1, 0, 0, 0, 0, 2, 0, 0, 0, 0, 0}, [&] { matching(2); });
    ASSERT_EQ(PortState::pending, port.state());
}

TEST_F(PortCounters, RequestThatNobodyAnswers) {
    matching(6);
    now += 120s;
    expectMoves({0, 0, 0, 0, 0, 0, 1, 0, 0, 0, 4, 0, 0}, [&] { port.expire(now); });
    ASSERT_EQ(PortState::blocked, port.state());
    expectMoves({0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}, [&] { answer(true); });
}

TEST_F(PortCounters, StoredAndAutomaticRequests) {
    expectMoves({0, 0, 1, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0}, [&] { port.storedRequest(now); });
    expectMoves({2, 2, 0, 0, 2, 0, 0, 2, 0, 0, 0, 0, 2}, [&] {
        matching(2);
        answer(true);
    });
    expectMoves({0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}, [&] { port.linkDown(now); });
    port.setAutoRequest(true);
    expectMoves({0, 0, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}, [&] { port.linkUp(now); });
}

TEST_F(PortCounters, LinkThatIsLostWithFramesKept) {
    matching(3);
    expectMoves({0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 3, 0, 0}, [&] { port.linkDown(now); });
    expectMoves({0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}, [&] {
        matching(5);
        others(5);
    });
}

TEST_F(PortCounters, LineThatIsSwitchedOff) {
    matching(2);
    expectMoves({0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 2, 0, 0}, [&] { port.setAdmin(false, now); });
    expectMoves({5, 2, 0, 0, 0, 0, 0, 0, 0, 5, 0, 0, 0}, [&] {
        matching(2);
        others(3);
    });
}

}  // namespace
