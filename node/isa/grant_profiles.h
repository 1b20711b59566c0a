// Which profiles a server's answer names. Pure; any thread.
#pragma once

#include <string>
#include <vector>

#include "node/profile.h"

namespace node {

struct GrantedProfiles {
    LoginProfiles profiles;
    std::vector<std::string> problems;  // texts that name no profile, each with why
};

// Texts as "gold", a service profile, or "vlan=v100"; of several of one kind the first counts.
GrantedProfiles grantedProfiles(const std::vector<std::string>& texts);

}  // namespace node
