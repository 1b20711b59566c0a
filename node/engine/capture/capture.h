// A capture file as the traffic of one line: its frames in their order, the first at a given
// time and the others after it as far apart as they were taken. Loop thread only.
#pragma once

#include <pcap/pcap.h>

#include <array>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>

#include "node/loop/loop.h"

namespace node {

class CaptureError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

class Capture : public Source {
public:
    using Mac = std::array<uint8_t, 6>;
    using Deliver = std::function<void(std::span<const uint8_t> frame)>;

    struct Settings {
        std::string path;
        Time start{0};
        std::optional<Mac> nodeMac;  // frames with this source are the node's own: left out
    };

    // Throws CaptureError with one line that names the file when it cannot be played at all.
    Capture(Settings settings, Deliver deliver);

    std::optional<Time> next() override;
    void deliver() override;

    uint64_t frames() const { return frames_; }  // played so far
    unsigned percent() const;                    // of the file's bytes read
    // Why the end of the file was not reached: one line; empty while all is well.
    const std::string& damage() const { return damage_; }

private:
    struct Close {
        void operator()(pcap_t* handle) const { pcap_close(handle); }
    };

    void readNext();
    bool ownFrame(std::span<const uint8_t> frame) const;

    const Settings settings_;
    const Deliver deliver_;
    std::unique_ptr<pcap_t, Close> handle_;
    uint64_t size_ = 0;
    std::optional<Time> first_;  // the capture's own time of its first frame
    Time due_{0};
    std::span<const uint8_t> frame_;  // valid until the next read
    bool ended_ = false;
    uint64_t frames_ = 0;
    std::string damage_;
};

}  // namespace node
