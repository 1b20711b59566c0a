// Which circuit ids are accepted: the answers of a small ISA that asks nobody else. Pure.
#pragma once

#include <chrono>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "node/profile.h"

namespace node {

struct IsaAnswer {
    bool accepted = false;
    std::chrono::milliseconds delay{0};
    LoginProfiles profiles;  // of an accepted user
};

class UserList {
public:
    // No answer: the request is never answered.
    explicit UserList(std::optional<IsaAnswer> unknown) : unknown_(std::move(unknown)) {}

    void add(const std::string& circuitId, std::optional<IsaAnswer> answer);
    void clear() { users_.clear(); }

    // Whole circuit ids are compared, byte by byte.
    std::optional<IsaAnswer> find(std::string_view circuitId) const;

private:
    std::optional<IsaAnswer> unknown_;
    std::map<std::string, std::optional<IsaAnswer>, std::less<>> users_;
};

}  // namespace node
