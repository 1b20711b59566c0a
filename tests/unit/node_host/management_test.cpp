// What of the log management shows live; the rest is shown by tests/scenario.
#include "node/management/management.h"

#include <gtest/gtest.h>

namespace {

using node::control::EventKind;

TEST(Management, DecisionsAreLiveEventsAndOtherLinesAreNot) {
    const std::pair<const char*, EventKind> shown[] = {{"trap", EventKind::trap},
                                                       {"request", EventKind::request},
                                                       {"verdict", EventKind::verdict},
                                                       {"gate", EventKind::gate},
                                                       {"stored", EventKind::store}};
    for (const auto& [word, expected] : shown) {
        EventKind kind = expected == EventKind::trap ? EventKind::gate : EventKind::trap;
        EXPECT_TRUE(node::liveEventKind(word, kind)) << word;
        EXPECT_EQ(kind, expected) << word;
    }
    EventKind kind = EventKind::gate;
    for (const char* word : {"link", "rule", "capture", "store", "", "traps"}) {
        EXPECT_FALSE(node::liveEventKind(word, kind)) << word;
    }
    EXPECT_EQ(kind, EventKind::gate);
}

}  // namespace
