#include "node/radius.h"

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
        case Cause::traffic:
        case Cause::storedRequest:
        case Cause::automaticRequest:
            return RadiusIsa::Why::raised;
        default:
            return RadiusIsa::Why::answered;
    }
}

RadiusIsa::LineState stateOf(const Engine& engine, unsigned ifId) {
    RadiusIsa::LineState state;
    engine.read(ifId, [&state](const Port& port) {
        state.gate = port.state() == PortState::open      ? RadiusIsa::Gate::open
                     : port.state() == PortState::pending ? RadiusIsa::Gate::asking
                                                          : RadiusIsa::Gate::closed;
        state.request = port.requests();
        state.replays = port.raisedBy() == Cause::storedRequest;
        state.on = port.link() && port.active();
    });
    return state;
}

Traffic trafficOf(const Engine& engine, unsigned ifId) {
    const Engine::Passed passed = engine.passed(ifId);
    return {passed.inwardOctets, passed.outwardOctets, passed.inwardFrames, passed.outwardFrames};
}

}  // namespace

RadiusIsa::Lines radiusLines(Engine& engine) {
    RadiusIsa::Lines lines;
    lines.state = [&engine](unsigned ifId) { return stateOf(engine, ifId); };
    lines.traffic = [&engine](unsigned ifId) { return trafficOf(engine, ifId); };
    lines.ask = [&engine](unsigned ifId) { (void)engine.sendStoredRequest(ifId); };
    lines.end = [&engine](unsigned ifId) { engine.end(ifId); };
    return lines;
}

void tellMoves(Engine& engine, Loop& loop, RadiusIsa& isa) {
    engine.onMoved([&loop, &isa](unsigned ifId, Cause cause, uint32_t request) {
        loop.post([&isa, ifId, why = whyOf(cause), request] { isa.gateMoved(ifId, why, request); });
    });
}

void Node::useRadius(const RadiusConfig& config) {
    RadiusIsa::Lines lines = radiusLines(engine_);
    lines.name = [this](unsigned ifId) {
        const auto line = std::find_if(lines_.begin(), lines_.end(),
                                       [ifId](const PlayedLine& each) { return each.id == ifId; });
        return line == lines_.end() ? std::string() : line->name;
    };
    lines.profiles = [this](unsigned ifId, const LoginProfiles& profiles) {
        createProfiles(ifId, profiles);
    };
    radius_ = std::make_unique<RadiusIsa>(loop_, log_, isa_, std::move(lines), config);
    isa_.useAuthority(*radius_);
    tellMoves(engine_, loop_, *radius_);
}

}  // namespace node
