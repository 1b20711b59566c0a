// One frame is read ahead, because the loop asks when the next one is due. Times that step
// backwards are played without a pause. A file that ends inside a frame or holds nonsense is
// played up to there. Tested by tests/unit/node_host/capture_test.cpp.
#include "node/engine/capture/capture.h"

#include <algorithm>
#include <filesystem>
#include <utility>

namespace node {

namespace {

std::string oneLine(std::string text) {
    std::replace(text.begin(), text.end(), '\n', ' ');
    return text;
}

// Of a damaged time stamp whatever can be added and subtracted without an overflow.
Time timeOf(const timeval& stamp) {
    constexpr int64_t latest = int64_t{1} << 40;
    return std::chrono::seconds(std::clamp<int64_t>(stamp.tv_sec, 0, latest)) +
           Time(std::clamp<int64_t>(stamp.tv_usec, 0, 999999));
}

}  // namespace

Capture::Capture(Settings settings, Deliver deliver)
    : settings_(std::move(settings)), deliver_(std::move(deliver)), due_(settings_.start) {
    const std::string& path = settings_.path;
    std::error_code error;
    size_ = std::filesystem::file_size(path, error);
    if (error) {
        throw CaptureError(path + ": " + error.message());
    }
    if (size_ == 0) {
        throw CaptureError(path + ": the capture is empty, it has not even a header");
    }
    char problem[PCAP_ERRBUF_SIZE] = "";
    handle_.reset(pcap_open_offline(path.c_str(), problem));
    if (!handle_) {
        throw CaptureError(path + ": not a capture that can be read: " + oneLine(problem));
    }
    const int linkType = pcap_datalink(handle_.get());
    if (linkType != DLT_EN10MB) {
        const char* name = pcap_datalink_val_to_name(linkType);
        throw CaptureError(path + ": the capture is of link type " +
                           (name ? name : std::to_string(linkType)) + ", only Ethernet is played");
    }
    readNext();
}

bool Capture::ownFrame(std::span<const uint8_t> frame) const {
    return settings_.nodeMac && frame.size() >= 12 &&
           std::equal(settings_.nodeMac->begin(), settings_.nodeMac->end(), frame.begin() + 6);
}

void Capture::readNext() {
    for (;;) {
        pcap_pkthdr* header = nullptr;
        const u_char* bytes = nullptr;
        const int result = pcap_next_ex(handle_.get(), &header, &bytes);
        if (result != 1) {
            ended_ = true;
            if (result != PCAP_ERROR_BREAK) {
                damage_ = settings_.path + ": damaged after " + std::to_string(frames_) +
                          " frames: " + oneLine(pcap_geterr(handle_.get()));
            }
            return;
        }
        const Time taken = timeOf(header->ts);
        first_ = first_.value_or(taken);
        due_ = std::max(due_, settings_.start + (taken - *first_));
        frame_ = {bytes, header->caplen};
        if (!ownFrame(frame_)) {
            return;
        }
    }
}

std::optional<Time> Capture::next() {
    return ended_ ? std::nullopt : std::optional<Time>(due_);
}

void Capture::deliver() {
    ++frames_;
    deliver_(frame_);
    readNext();
}

unsigned Capture::percent() const {
    if (ended_) {
        return 100;
    }
    FILE* const file = pcap_file(handle_.get());
    const long position = file ? ftell(file) : 0;
    return position <= 0 ? 0 : static_cast<unsigned>(static_cast<uint64_t>(position) * 100 / size_);
}

}  // namespace node
