// One ordered log of everything the module did to its platform. Recording is safe from any
// thread and orders no thread behind another, so it hides no race from a checker; reading
// and clearing are for moments when only the test's own thread is running.
#pragma once

#include <gtest/gtest.h>

#include <atomic>
#include <initializer_list>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace fake {

enum class Service {
    manager,
    lock,
    interfaces,
    bridge,
    engine,
    isa,
    sysinfo,
    ports,
    vdsl,
    profiles,
    acl,
    log,
    syslog,
};

// One call: "name(arguments)", then " -> outputs" or " = result" when there is one to tell.
struct Call {
    size_t order = 0;
    Service service = Service::manager;
    std::string name;
    std::string key;  // interface number or name the call is about; empty when about none
    std::string text;
    int result = 0;
    std::string bridge;                 // first argument of an engine call
    std::vector<unsigned char> record;  // the record handed over, byte for byte
    int exclusiveHeld = 0;              // manager locks the calling thread held at the call
    int sharedHeld = 0;
};

struct LockDepth {
    int exclusive = 0;
    int shared = 0;
};

class CallLog {
public:
    CallLog();

    // The new entry, valid until the thread's next call.
    Call& add(Call call);
    Call& latest();      // of the calling thread, which must have made one
    LockDepth& depth();  // of the calling thread

    std::vector<Call> all() const;  // in order
    std::vector<std::string> lines(std::initializer_list<Service> services) const;
    LockDepth heldByAnyone() const;
    void clear();  // forgets the calls, keeps the lock depths

private:
    struct OneThread {
        std::vector<Call> calls;
        LockDepth depth;
    };
    OneThread& mine();

    const size_t generation_;
    std::atomic<size_t> next_{0};
    mutable std::mutex mutex_;
    std::vector<std::unique_ptr<OneThread>> threads_;
};

// Compares lists of lines; the message shows both side by side with the first difference.
testing::AssertionResult sameLines(const std::vector<std::string>& actual,
                                   const std::vector<std::string>& expected);

// "a, "b", true": texts quoted with control characters escaped.
std::string quoted(const std::string& text);
std::string shown(const std::string& text);
std::string shown(const char* text);
std::string shown(bool value);
std::string shown(int value);
std::string shown(unsigned value);

template <class... Values>
std::string shownList(const Values&... values) {
    std::string list;
    ((list += (list.empty() ? "" : ", ") + shown(values)), ...);
    return list;
}

}  // namespace fake
