// What the node does for ISA over RADIUS: it tells ISA what becomes of gates and lets it ask for
// and end logins. What the engine tells on any thread goes through the loop, in its order.
#include <algorithm>

#include "node/node.h"

namespace node {

namespace {

RadiusIsa::Why whyOf(Cause cause) {
    switch (cause) {
        case Cause::timeout:
            return RadiusIsa::Why::timeout;
        case Cause::linkLoss:
            return RadiusIsa::Why::linkLost;
        case Cause::switchedOff:
        case Cause::switchedOn:
            return RadiusIsa::Why::switchedOff;
        case Cause::ended:
            return RadiusIsa::Why::ended;
        default:
            return RadiusIsa::Why::answered;
    }
}

RadiusIsa::Gate gateOf(const Engine& engine, unsigned ifId) {
    PortState state = PortState::blocked;
    engine.read(ifId, [&state](const Port& port) { state = port.state(); });
    return state == PortState::open      ? RadiusIsa::Gate::open
           : state == PortState::pending ? RadiusIsa::Gate::asking
                                         : RadiusIsa::Gate::closed;
}

Traffic trafficOf(const Engine& engine, unsigned ifId) {
    const Engine::Passed passed = engine.passed(ifId);
    return {passed.inwardOctets, passed.outwardOctets, passed.inwardFrames, passed.outwardFrames};
}

}  // namespace

void Node::useRadius(const RadiusConfig& config) {
    RadiusIsa::Lines lines;
    lines.gate = [this](unsigned ifId) { return gateOf(engine_, ifId); };
    lines.replays = [this](unsigned ifId) {
        bool stored = false;
        engine_.read(ifId, [&stored](const Port& port) {
            stored = port.raisedBy() == Cause::storedRequest;
        });
        return stored;
    };
    lines.traffic = [this](unsigned ifId) { return trafficOf(engine_, ifId); };
    lines.name = [this](unsigned ifId) {
        const auto line = std::find_if(lines_.begin(), lines_.end(),
                                       [ifId](const PlayedLine& each) { return each.id == ifId; });
        return line == lines_.end() ? std::string() : line->name;
    };
    lines.ask = [this](unsigned ifId) { (void)engine_.sendStoredRequest(ifId); };
    lines.end = [this](unsigned ifId) { engine_.end(ifId); };
    lines.profiles = [this](unsigned ifId, const LoginProfiles& profiles) {
        createProfiles(ifId, profiles);
    };
    radius_ = std::make_unique<RadiusIsa>(loop_, log_, isa_, std::move(lines), config);
    isa_.useAuthority(*radius_);
    engine_.onMoved([this](unsigned ifId, PortState, Cause cause) {
        loop_.post([this, ifId, why = whyOf(cause)] { radius_->gateMoved(ifId, why); });
    });
}

}  // namespace node
