// The node's visible record: one line per decision, with the run's time and the access
// interface it concerns. Callable from any thread; lines never mix.
#pragma once

#include <functional>
#include <map>
#include <mutex>
#include <ostream>
#include <string>
#include <string_view>

#include "node/time.h"

namespace node {

class EventLog {
public:
    explicit EventLog(std::ostream& out) : out_(out) {}

    // Both before other threads write.
    void setClock(std::function<Time()> clock);
    void setLabel(unsigned ifId, std::string label);  // shown instead of the number

    // Gets every line that concerns an interface, from the thread that writes it, one at a time;
    // it must not write lines itself. Empty: nobody; none is running any more on return.
    using Listener =
        std::function<void(unsigned ifId, std::string_view kind, std::string_view text)>;
    void setListener(Listener listener);

    // `kind` is a word: trap, request, verdict, stored, gate, link, module, control.
    void line(unsigned ifId, std::string_view kind, std::string_view text);
    void line(std::string_view kind, std::string_view text);  // concerns the node

private:
    void write(unsigned ifId, std::string_view who, std::string_view kind, std::string_view text);

    std::ostream& out_;
    std::function<Time()> clock_;
    std::map<unsigned, std::string> labels_;
    Listener listener_;
    std::mutex mutex_;  // guards out_ and listener_
};

// Seconds with six decimals.
std::string timeText(Time time);

// The text with everything but printable ASCII replaced by dots, so that subscriber data can
// neither break a line nor drive a terminal.
std::string printable(std::string_view text);

}  // namespace node
