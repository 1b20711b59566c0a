// The ring of events: order, filters, loss, and publishers that wait for nobody.
#include "node/control/event_hub.h"

#include <gtest/gtest.h>

#include <atomic>
#include <condition_variable>
#include <thread>

namespace node::control {
namespace {

using Found = EventHub::Reader::Found;
using namespace std::chrono_literals;

constexpr auto patience = 10s;
constexpr auto never = 3600s;

// Counts wakes, and waits for them.
class Wakes {
public:
    std::function<void()> counter() {
        return [this] {
            const std::lock_guard<std::mutex> lock(mutex_);
            ++count_;
            changed_.notify_all();
        };
    }
    bool reach(unsigned count) {
        std::unique_lock<std::mutex> lock(mutex_);
        return changed_.wait_for(lock, patience, [&] { return count_ >= count; });
    }

private:
    std::mutex mutex_;
    std::condition_variable changed_;
    unsigned count_ = 0;
};

LiveEvent event(unsigned ifId, EventKind kind = EventKind::trap, const std::string& text = "x") {
    return {.kind = kind, .ifId = ifId, .interfaceName = "1/1", .text = text};
}

void ignore() {}

TEST(EventHub, ReaderGetsWhatIsPublishedAfterItCameInOrder) {
    EventHub hub(8, 1, never);
    hub.publish(event(9));
    const auto reader = hub.subscribe({}, ignore);
    hub.publish(event(1, EventKind::trap, "first"));
    hub.publish(event(2, EventKind::gate, "second"));
    std::shared_ptr<const EventHub::Record> record;
    ASSERT_EQ(Found::event, reader->next(record));
    EXPECT_EQ(2u, record->number);
    EXPECT_EQ("first", record->event.text);
    ASSERT_EQ(Found::event, reader->next(record));
    EXPECT_EQ(3u, record->number);
    EXPECT_EQ(EventKind::gate, record->event.kind);
    EXPECT_EQ(Found::nothing, reader->next(record));
}

TEST(EventHub, FilterLeavesOutOtherInterfacesAndKinds) {
    EventHub hub(8, 2, never);
    const auto second = hub.subscribe({.ifId = 2}, ignore);
    const auto gates = hub.subscribe({.kinds = {EventKind::gate, EventKind::store}}, ignore);
    hub.publish(event(1, EventKind::gate));
    hub.publish(event(2, EventKind::trap));
    std::shared_ptr<const EventHub::Record> record;
    ASSERT_EQ(Found::event, second->next(record));
    EXPECT_EQ(2u, record->event.ifId);
    EXPECT_EQ(Found::nothing, second->next(record));
    ASSERT_EQ(Found::event, gates->next(record));
    EXPECT_EQ(1u, record->event.ifId);
    EXPECT_EQ(Found::nothing, gates->next(record));
}

TEST(EventHub, ReaderMayLagBehindByTheWholeRingButNotByOneMore) {
    EventHub hub(4, 1, never);
    const auto reader = hub.subscribe({}, ignore);
    std::shared_ptr<const EventHub::Record> record;
    for (unsigned i = 1; i <= 4; ++i) {
        hub.publish(event(i));
    }
    EXPECT_FALSE(reader->lost());
    for (unsigned i = 1; i <= 4; ++i) {
        ASSERT_EQ(Found::event, reader->next(record));
        EXPECT_EQ(i, record->event.ifId);
    }
    for (unsigned i = 0; i < 5; ++i) {
        hub.publish(event(1));
    }
    EXPECT_TRUE(reader->lost());
    EXPECT_EQ(Found::lost, reader->next(record));
}

TEST(EventHub, WaitingReaderIsWokenOnceAndABusyOneNotAtAll) {
    EventHub hub(64, 2, never);
    Wakes waiting;
    std::atomic<unsigned> busyWakes{0};
    const auto reader = hub.subscribe({}, waiting.counter());
    const auto busy = hub.subscribe({}, [&] { ++busyWakes; });
    std::shared_ptr<const EventHub::Record> record;
    for (unsigned round = 1; round <= 3; ++round) {
        ASSERT_EQ(Found::nothing, reader->next(record));
        hub.publish(event(1));
        ASSERT_TRUE(waiting.reach(round));
        ASSERT_EQ(Found::event, reader->next(record));
    }
    EXPECT_EQ(0u, busyWakes);
}

TEST(EventHub, TickWakesEverybodyAlsoWhileEventsKeepComing) {
    EventHub hub(64, 1, 1ms);
    Wakes wakes;
    const auto reader = hub.subscribe({}, wakes.counter());
    std::atomic<bool> stop{false};
    std::thread publisher([&] {
        while (!stop) {
            hub.publish(event(1));
        }
    });
    EXPECT_TRUE(wakes.reach(3));
    stop = true;
    publisher.join();
}

TEST(EventHub, MoreReadersThanAllowedAreRefusedUntilOneGoes) {
    EventHub hub(4, 2, never);
    auto first = hub.subscribe({}, ignore);
    const auto second = hub.subscribe({}, ignore);
    EXPECT_EQ(nullptr, hub.subscribe({}, ignore));
    EXPECT_EQ(2u, hub.readers());
    first.reset();
    EXPECT_NE(nullptr, hub.subscribe({}, ignore));
}

TEST(EventHub, LongTextIsCut) {
    EventHub hub(4, 1, never);
    const auto reader = hub.subscribe({}, ignore);
    hub.publish(event(1, EventKind::trap, std::string(5000, 'a')));
    std::shared_ptr<const EventHub::Record> record;
    ASSERT_EQ(Found::event, reader->next(record));
    EXPECT_EQ(std::string(1024, 'a'), record->event.text);
}

TEST(EventHub, ClosedHubWakesEverybodyAndTellsThem) {
    EventHub hub(4, 1, never);
    Wakes wakes;
    const auto reader = hub.subscribe({}, wakes.counter());
    hub.publish(event(1));
    hub.close();
    EXPECT_TRUE(wakes.reach(1));
    std::shared_ptr<const EventHub::Record> record;
    EXPECT_EQ(Found::closed, reader->next(record));
}

TEST(EventHub, ManyPublishersAndReadersLoseNothingButByLagging) {
    constexpr unsigned publishers = 4;
    constexpr unsigned each = 2000;
    EventHub hub(publishers * each, 8, 5ms);
    std::vector<std::thread> threads;
    std::atomic<unsigned> complete{0};
    std::vector<std::shared_ptr<EventHub::Reader>> readers;
    std::vector<std::unique_ptr<Wakes>> wakes;
    for (unsigned i = 0; i < 4; ++i) {
        wakes.push_back(std::make_unique<Wakes>());
        readers.push_back(hub.subscribe({}, wakes.back()->counter()));
    }
    for (unsigned i = 0; i < 4; ++i) {
        threads.emplace_back([&, i] {
            std::shared_ptr<const EventHub::Record> record;
            uint64_t last = 0;
            const auto end = std::chrono::steady_clock::now() + patience;
            while (last < publishers * each && std::chrono::steady_clock::now() < end) {
                if (readers[i]->next(record) == Found::event) {
                    EXPECT_EQ(last + 1, record->number);
                    last = record->number;
                }
            }
            complete += last == publishers * each ? 1 : 0;
        });
    }
    for (unsigned i = 0; i < publishers; ++i) {
        threads.emplace_back([&] {
            for (unsigned n = 0; n < each; ++n) {
                hub.publish(event(1));
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(4u, complete);
    hub.close();
}

}  // namespace
}  // namespace node::control
