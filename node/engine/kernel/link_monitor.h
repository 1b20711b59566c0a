// Follows the network interfaces that carry lines: there, up, down, gone, and back under a new
// index. Needs no privileges.
// Not thread-safe: one thread, which also gets the events.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <span>
#include <string>

#include "node/engine/kernel/fd.h"
#include "node/engine/kernel/link_message.h"

namespace node {

struct LinkState {
    unsigned ifIndex = 0;
    bool up = false;
    uint32_t carrierDowns = 0;
};

enum class LinkEvent {
    appeared,  // under state.ifIndex; `up` follows when it is up already
    up,        // operationally
    down,
    gone,  // after `down` when it was up
};

class LinkMonitor {
public:
    using Changed =
        std::function<void(const std::string& name, LinkEvent event, const LinkState& state)>;

    // Null on failure, with `error` set.
    static std::unique_ptr<LinkMonitor> open(Changed changed, std::string& error);

    // From here on the interface of this name is followed; what is known of it already is
    // reported at once.
    void watch(const std::string& name);
    // Empty: there is no such interface, or it is not watched.
    std::optional<LinkState> state(const std::string& name) const;

    // All interfaces that were there at open() have been reported.
    bool complete() const { return !listing_; }

    int fd() const { return socket_.get(); }  // readable when read() has something to do
    // Reports what has changed. False when the socket is of no more use.
    bool read(std::string& error);

private:
    explicit LinkMonitor(Changed changed) : changed_(std::move(changed)) {}
    bool askForList(std::string& error);
    bool take(std::span<const uint8_t> datagram, std::string& error);
    void present(const LinkMessage& message);
    void gone(unsigned ifIndex);
    void finishList();
    void move(const std::string& name, const std::optional<LinkState>& to);

    struct Interface {
        std::string name;
        LinkState state;
        bool listed = true;  // seen since the list was asked for
    };

    Fd socket_;
    const Changed changed_;
    std::map<unsigned, Interface> interfaces_;                 // all there are
    std::map<std::string, std::optional<LinkState>> watched_;  // as last reported
    bool listing_ = false;
    bool listAgain_ = false;
    uint32_t sequence_ = 0;
};

}  // namespace node
