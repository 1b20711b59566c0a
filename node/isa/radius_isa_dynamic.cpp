// What servers ask for by themselves: to end logins, or to change them. Whether a request may be
// believed is decided before.
#include "node/isa/login_line.h"
#include "node/isa/radius_isa.h"

namespace node {

bool RadiusIsa::fits(unsigned ifId, const Login& login,
                     const radius::DynamicRequest& request) const {
    const radius::Line line = loginLine(login.block, lines_.name(ifId));
    const Sessions::Names names = sessions_.namesOf(ifId).value_or(Sessions::Names());
    const auto fitsText = [](const std::optional<std::string>& wanted, const std::string& is) {
        return !wanted || *wanted == is;
    };
    return login.open && lines_.state(ifId).gate == Gate::open &&
           fitsText(request.userName, names.userName) &&
           fitsText(request.nasPortId, names.nasPortId) &&
           fitsText(request.circuitId, line.circuitId) &&
           fitsText(request.remoteId, line.remoteId) &&
           fitsText(request.callingStationId, line.mac ? radius::macText(*line.mac) : "") &&
           fitsText(request.sessionId, sessions_.idOf(ifId)) &&
           (!request.nasPort || *request.nasPort == ifId) &&
           (!request.framedIpAddress || request.framedIpAddress == line.address);
}

std::optional<radius::ErrorCause> RadiusIsa::judge(const radius::DynamicRequest& request) {
    std::vector<unsigned> lines;
    for (const auto& [ifId, login] : logins_) {
        if (fits(ifId, login, request)) {
            lines.push_back(ifId);
        }
    }
    if (lines.empty()) {
        return radius::ErrorCause::sessionContextNotFound;
    }
    if (request.kind == radius::DynamicRequest::Kind::change) {
        return change(lines, request.grant);
    }
    for (const unsigned ifId : lines) {
        log_.line(ifId, "radius", "a server ends the login");
        logins_[ifId].endCause = radius::TerminateCause::adminReset;
        giveVerdict(ifId, false, {});
        if (lines_.state(ifId).gate == Gate::open) {
            logins_[ifId].endCause.reset();
            return radius::ErrorCause::resourcesUnavailable;
        }
    }
    return std::nullopt;
}

std::optional<radius::ErrorCause> RadiusIsa::change(const std::vector<unsigned>& lines,
                                                    const radius::Grant& grant) {
    if (!grant.filterIds.empty() && format_.profiles != radius::attribute::filterId) {
        return radius::ErrorCause::unsupportedAttribute;  // nothing here is filtered by it
    }
    for (const unsigned ifId : lines) {
        Login& login = logins_[ifId];
        log_.line(ifId, "radius", "a server changes the login");
        if (!grant.classes.empty()) {
            login.grant.classes = grant.classes;
            sessions_.changeClasses(ifId, grant.classes);
        }
        if (grant.sessionTimeout) {
            login.grant.sessionTimeout = grant.sessionTimeout;
            armSession(ifId, login);
        }
        if (!grant.profiles.empty()) {
            login.grant.profiles = grant.profiles;
            lines_.profiles(ifId, profilesOf(ifId, grant.profiles));
        }
    }
    return std::nullopt;
}

}  // namespace node
