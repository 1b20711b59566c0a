// One ring for all instead of a queue for each: an event is kept once however many read, a
// reader costs a number, and memory is bounded without a word about how many clients there are.
// Publishing is an assignment under a short lock; it happens on the node's main loop, which
// nothing of management may hold up. Rejected: a queue per reader (a thousand slow readers hold
// a thousand copies) and waking readers from publish() (a thousand writes on the main loop).
//
// Tests: tests/control/event_hub_test.cpp.
#include "node/control/event_hub.h"

#include <algorithm>
#include <utility>

namespace node::control {

namespace {

constexpr size_t longestText = 1024;

}  // namespace

EventHub::EventHub(size_t capacity, size_t maxReaders, std::chrono::milliseconds tick)
    : ring_(std::max<size_t>(capacity, 1)), maxReaders_(maxReaders), tick_(tick) {
    thread_ = std::thread([this] { run(); });
}

EventHub::~EventHub() {
    close();
}

void EventHub::publish(LiveEvent event) {
    event.text.resize(std::min(event.text.size(), longestText));
    auto record = std::make_shared<Record>();
    record->time = std::chrono::system_clock::now();
    record->event = std::move(event);
    std::shared_ptr<const Record> overwritten;  // freed after the lock
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        record->number = ++published_;
        overwritten = std::exchange(ring_[published_ % ring_.size()], std::move(record));
        wakeWanted_ = true;
    }
    news_.notify_one();
}

std::shared_ptr<EventHub::Reader> EventHub::subscribe(Filter filter, std::function<void()> wake) {
    const std::shared_ptr<Reader> reader(new Reader(*this, std::move(filter), std::move(wake)));
    const std::lock_guard<std::mutex> lock(mutex_);
    readers_.remove_if([](const auto& entry) { return entry.expired(); });
    if (readers_.size() >= maxReaders_) {
        return nullptr;
    }
    reader->next_ = published_ + 1;
    readers_.push_back(reader);
    return reader;
}

size_t EventHub::readers() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return static_cast<size_t>(std::count_if(readers_.begin(), readers_.end(),
                                             [](const auto& entry) { return !entry.expired(); }));
}

void EventHub::close() {
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        closed_ = true;
    }
    news_.notify_one();
    if (thread_.joinable()) {
        thread_.join();
    }
}

void EventHub::run() {
    std::unique_lock<std::mutex> lock(mutex_);
    auto nextTick = std::chrono::steady_clock::now() + tick_;
    bool last = false;
    while (!last) {
        news_.wait_until(lock, nextTick, [this] { return wakeWanted_ || closed_; });
        wakeWanted_ = false;
        last = closed_;
        const auto now = std::chrono::steady_clock::now();
        const bool everyone = last || now >= nextTick;
        nextTick = everyone ? now + tick_ : nextTick;
        std::vector<std::shared_ptr<Reader>> awake;
        for (auto entry = readers_.begin(); entry != readers_.end();) {
            if (auto reader = entry->lock()) {
                if (everyone || reader->waiting_) {
                    reader->waiting_ = false;
                    awake.push_back(std::move(reader));
                }
                ++entry;
            } else {
                entry = readers_.erase(entry);
            }
        }
        lock.unlock();
        for (const auto& reader : awake) {
            reader->wake_();
        }
        awake.clear();
        lock.lock();
    }
}

EventHub::Reader::Found EventHub::Reader::next(std::shared_ptr<const Record>& record) {
    const std::lock_guard<std::mutex> lock(hub_.mutex_);
    if (hub_.closed_) {
        return Found::closed;
    }
    if (hub_.published_ >= next_ + hub_.ring_.size()) {
        return Found::lost;
    }
    while (next_ <= hub_.published_) {
        record = hub_.ring_[next_++ % hub_.ring_.size()];
        const LiveEvent& event = record->event;
        if ((filter_.ifId == 0 || filter_.ifId == event.ifId) &&
            (filter_.kinds.empty() || filter_.kinds.count(event.kind) != 0)) {
            return Found::event;
        }
    }
    record.reset();
    waiting_ = true;
    return Found::nothing;
}

bool EventHub::Reader::lost() const {
    const std::lock_guard<std::mutex> lock(hub_.mutex_);
    return hub_.published_ >= next_ + hub_.ring_.size();
}

}  // namespace node::control
