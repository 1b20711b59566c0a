// The sessions of accepted logins as they outlive the process, and the file that holds them.
// Why: a restart must neither start a session twice nor forget to stop one. One thread.
#pragma once

#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "node/isa/radius/packet/login.h"

namespace node {

// What went through a line's gate; input comes from the subscriber.
struct Traffic {
    uint64_t inputOctets = 0;
    uint64_t outputOctets = 0;
    uint64_t inputPackets = 0;
    uint64_t outputPackets = 0;
    bool operator==(const Traffic&) const = default;
};

struct StoredSession {
    std::string id;
    unsigned ifId = 0;
    int64_t began = 0;       // seconds since 1970
    bool sent = false;       // its Start, so that a server may know of it
    bool announced = false;  // the server has taken its Start
    int64_t ended = 0;       // 0: it goes on
    radius::TerminateCause cause = radius::TerminateCause::nasRequest;  // once it has ended
    Traffic traffic;                                                    // when it was written
    uint32_t seconds = 0;                                               // the same
    radius::Line line;
    std::string userName;  // as its Start says; empty: written by a node that did not keep it
    std::string nasPortId;
    std::vector<radius::Buffer> classes;
};

// what(): one line with the path, and the number of the line that is wrong.
class SessionFileError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

std::string sessionText(const std::vector<StoredSession>& sessions);
std::vector<StoredSession> sessionsFromText(std::string_view text, const std::string& path);

// No file: no sessions. Throws SessionFileError.
std::vector<StoredSession> readSessionFile(const std::string& path);
// As a whole or not at all; mode 0600. Throws SessionFileError.
void writeSessionFile(const std::string& path, const std::vector<StoredSession>& sessions);

}  // namespace node
