// A shared secret or password: wiped when it goes, never printed.
// Why: so that no copy of it outlives its use and none gets into a log by accident.
// One thread at a time.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <utility>

namespace node::radius {

class Secret {
public:
    Secret() = default;
    explicit Secret(std::string_view text) : text_(text) {}
    ~Secret() { wipe(); }
    Secret(const Secret&) = default;
    Secret(Secret&& other) noexcept : text_(other.text_) { other.wipe(); }
    Secret& operator=(const Secret& other) {
        if (this != &other) {
            wipe();
            text_ = other.text_;
        }
        return *this;
    }

    bool empty() const { return text_.empty(); }
    std::string_view reveal() const { return text_; }

private:
    void wipe();  // also what a moved-from short text would leave behind

    std::string text_;
};

}  // namespace node::radius
