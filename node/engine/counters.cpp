#include "node/engine/counters.h"

namespace node {

std::string_view counterName(Counter counter) {
    static constexpr std::array<std::string_view, counterCount> names{
        "frames-seen",     "frames-matched",  "requests-raised", "stored-requests",
        "accepts",         "rejects",         "timeouts",        "frames-queued",
        "queue-overflows", "dropped-blocked", "dropped-pending", "dropped-rejected",
        "forwarded"};
    const auto index = static_cast<size_t>(counter);
    return index < names.size() ? names[index] : "";
}

}  // namespace node
