// Hands live events to any number of readers without ever waiting for one: the newest events
// stand in one ring, every reader keeps its place, and one that falls off the ring is lost.
// Callable from any thread.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <list>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <vector>

namespace node::control {

enum class EventKind { trap, request, verdict, gate, store };

struct LiveEvent {
    EventKind kind = EventKind::trap;
    unsigned ifId = 0;
    std::string interfaceName{};
    std::string text{};  // cut at 1,024 bytes
};

class EventHub {
public:
    struct Record {
        uint64_t number = 0;  // from 1
        std::chrono::system_clock::time_point time;
        LiveEvent event;
    };

    struct Filter {
        unsigned ifId = 0;            // 0: all
        std::set<EventKind> kinds{};  // empty: all
    };

    // A reader's place. Dropping the last reference ends the reading.
    class Reader {
    public:
        enum class Found { event, nothing, lost, closed };
        // `nothing` asks for a call of `wake` once there is more; `lost`: events it had not
        // read were overwritten; `closed`: the hub ends.
        Found next(std::shared_ptr<const Record>& record);
        bool lost() const;

    private:
        friend class EventHub;
        Reader(EventHub& hub, Filter filter, std::function<void()> wake)
            : hub_(hub), filter_(std::move(filter)), wake_(std::move(wake)) {}

        EventHub& hub_;
        const Filter filter_;
        const std::function<void()> wake_;
        uint64_t next_ = 0;
        bool waiting_ = false;
    };

    // `tick`: how often every reader's `wake` is called though there is no news.
    EventHub(size_t capacity, size_t maxReaders, std::chrono::milliseconds tick);
    EventHub(const EventHub&) = delete;
    EventHub& operator=(const EventHub&) = delete;
    ~EventHub();

    void publish(LiveEvent event);  // short: readers are woken by a thread of the hub's own

    // Null when there are too many readers. `wake` runs on the hub's thread, without a lock.
    std::shared_ptr<Reader> subscribe(Filter filter, std::function<void()> wake);
    size_t readers() const;

    // Every reader finds the hub closed; no `wake` runs after the return. The readers must be
    // gone before the hub is destroyed.
    void close();

private:
    void run();

    mutable std::mutex mutex_;  // guards all below and the readers' places
    std::condition_variable news_;
    std::vector<std::shared_ptr<const Record>> ring_;
    uint64_t published_ = 0;
    std::list<std::weak_ptr<Reader>> readers_;
    const size_t maxReaders_;
    const std::chrono::milliseconds tick_;
    bool wakeWanted_ = false;
    bool closed_ = false;
    std::thread thread_;
};

}  // namespace node::control
