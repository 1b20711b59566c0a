// Any bytes as a file of sessions: what is taken has interfaces and values that can be, and is
// written and read again as the same; what is not is refused with one line.
#include "node/isa/session_file.h"
#include "tests/fuzz/fuzz.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    std::vector<node::StoredSession> sessions;
    try {
        sessions = node::sessionsFromText(text, "path");
    } catch (const node::SessionFileError& error) {
        const std::string what = error.what();
        fuzz::require(
            what.starts_with("path: ") && what.size() < 120 && what.find('\n') == std::string::npos,
            "an odd error");
        return 0;
    }
    for (const node::StoredSession& session : sessions) {
        fuzz::require(session.ifId >= 1 && session.ifId <= 99, "no such interface");
        fuzz::require(session.line.interfaceNumber == session.ifId, "another interface");
        fuzz::require(!session.id.empty() && session.id.size() <= 253, "no such id");
        fuzz::require(session.began >= 0 && session.ended >= 0, "before all time");
        fuzz::require(session.line.vlan <= 4095, "no such VLAN");
        fuzz::require(session.sent || !session.announced, "taken before it was sent");
        for (const node::radius::Buffer& each : session.classes) {
            fuzz::require(each.size() <= 253, "a class that no packet holds");
        }
    }
    const std::string written = node::sessionText(sessions);
    fuzz::require(node::sessionText(node::sessionsFromText(written, "path")) == written,
                  "written and read again it is another");
    return 0;
}
