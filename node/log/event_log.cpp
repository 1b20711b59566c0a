#include "node/log/event_log.h"

#include <cinttypes>
#include <cstdio>
#include <utility>

namespace node {

namespace {

std::string padded(std::string_view text, size_t width) {
    std::string result(text);
    if (result.size() < width) {
        result.append(width - result.size(), ' ');
    }
    return result;
}

}  // namespace

std::string timeText(Time time) {
    char text[40];
    const int64_t micros = time.count();
    std::snprintf(text, sizeof text, "%" PRId64 ".%06" PRId64, micros / 1000000, micros % 1000000);
    return text;
}

std::string printable(std::string_view text) {
    std::string result(text);
    for (char& c : result) {
        if (c < 0x20 || c > 0x7e) {
            c = '.';
        }
    }
    return result;
}

void EventLog::setClock(std::function<Time()> clock) {
    clock_ = std::move(clock);
}

void EventLog::setLabel(unsigned ifId, std::string label) {
    labels_[ifId] = std::move(label);
}

void EventLog::line(unsigned ifId, std::string_view kind, std::string_view text) {
    const auto label = labels_.find(ifId);
    write(ifId, label != labels_.end() ? label->second : "interface " + std::to_string(ifId), kind,
          text);
}

void EventLog::line(std::string_view kind, std::string_view text) {
    write(0, "-", kind, text);
}

void EventLog::setListener(Listener listener) {
    const std::lock_guard<std::mutex> lock(mutex_);
    listener_ = std::move(listener);
}

void EventLog::write(unsigned ifId, std::string_view who, std::string_view kind,
                     std::string_view text) {
    const std::string time = timeText(clock_ ? clock_() : Time(0));
    std::string line(time.size() < 12 ? 12 - time.size() : 0, ' ');
    line += time + "  " + padded(who, 10) + "  " + padded(kind, 8) + "  " + printable(text) + '\n';
    const std::lock_guard<std::mutex> lock(mutex_);
    out_ << line << std::flush;
    if (listener_ && ifId != 0) {
        listener_(ifId, kind, text);
    }
}

}  // namespace node
