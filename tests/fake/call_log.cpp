#include "tests/fake/call_log.h"

#include <algorithm>
#include <sstream>

// Each thread appends to a list of its own and stamps its calls with a relaxed counter. A
// mutex around one list would be simpler, but every platform call would then order the calling
// thread behind the previous caller, and ThreadSanitizer would see no race in the module.

namespace fake {

namespace {

std::atomic<size_t> generations{1};

}  // namespace

CallLog::CallLog() : generation_(generations.fetch_add(1)) {}

CallLog::OneThread& CallLog::mine() {
    thread_local size_t generation = 0;
    thread_local OneThread* own = nullptr;
    if (generation != generation_) {
        auto fresh = std::make_unique<OneThread>();
        own = fresh.get();
        generation = generation_;
        const std::lock_guard<std::mutex> lock(mutex_);
        threads_.push_back(std::move(fresh));
    }
    return *own;
}

Call& CallLog::add(Call call) {
    OneThread& thread = mine();
    call.order = next_.fetch_add(1, std::memory_order_relaxed);
    call.exclusiveHeld = thread.depth.exclusive;
    call.sharedHeld = thread.depth.shared;
    thread.calls.push_back(std::move(call));
    return thread.calls.back();
}

Call& CallLog::latest() {
    return mine().calls.back();
}

LockDepth& CallLog::depth() {
    return mine().depth;
}

std::vector<Call> CallLog::all() const {
    std::vector<Call> merged;
    const std::lock_guard<std::mutex> lock(mutex_);
    for (const auto& thread : threads_) {
        merged.insert(merged.end(), thread->calls.begin(), thread->calls.end());
    }
    std::sort(merged.begin(), merged.end(),
              [](const Call& a, const Call& b) { return a.order < b.order; });
    return merged;
}

std::vector<std::string> CallLog::lines(std::initializer_list<Service> services) const {
    std::vector<std::string> lines;
    for (const Call& call : all()) {
        if (std::find(services.begin(), services.end(), call.service) != services.end()) {
            lines.push_back(call.text);
        }
    }
    return lines;
}

LockDepth CallLog::heldByAnyone() const {
    LockDepth sum;
    const std::lock_guard<std::mutex> lock(mutex_);
    for (const auto& thread : threads_) {
        sum.exclusive += thread->depth.exclusive;
        sum.shared += thread->depth.shared;
    }
    return sum;
}

void CallLog::clear() {
    const std::lock_guard<std::mutex> lock(mutex_);
    for (const auto& thread : threads_) {
        thread->calls.clear();
    }
}

testing::AssertionResult sameLines(const std::vector<std::string>& actual,
                                   const std::vector<std::string>& expected) {
    if (actual == expected) {
        return testing::AssertionSuccess();
    }
    std::ostringstream message;
    message << "actual (" << actual.size() << ") | expected (" << expected.size() << ")\n";
    for (size_t i = 0; i < std::max(actual.size(), expected.size()); ++i) {
        const std::string left = i < actual.size() ? actual[i] : "(nothing)";
        const std::string right = i < expected.size() ? expected[i] : "(nothing)";
        if (left == right) {
            message << "  " << left << "\n";
        } else {
            message << "- " << left << "\n+ " << right << "\n";
        }
    }
    message << "(- as it was, + as expected)";
    return testing::AssertionFailure() << message.str();
}

std::string quoted(const std::string& text) {
    std::string result = "\"";
    for (const char c : text) {
        if (c == '\n') {
            result += "\\n";
        } else if (static_cast<unsigned char>(c) < 0x20) {
            char code[8];
            snprintf(code, sizeof(code), "\\x%02x", static_cast<unsigned>(c));
            result += code;
        } else {
            result += c;
        }
    }
    return result + "\"";
}

std::string shown(const std::string& text) {
    return quoted(text);
}
std::string shown(const char* text) {
    return text == nullptr ? "null" : quoted(text);
}
std::string shown(bool value) {
    return value ? "true" : "false";
}
std::string shown(int value) {
    return std::to_string(value);
}
std::string shown(unsigned value) {
    return std::to_string(value);
}

}  // namespace fake
