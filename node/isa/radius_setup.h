// From the configuration and the file of secrets to what the RADIUS library works with.
// Any thread.
#pragma once

#include <optional>

#include "node/config/radius_section.h"
#include "node/isa/radius/client/settings.h"
#include "node/isa/radius/dynamic/authority.h"
#include "node/isa/radius/secret_file.h"
#include "node/loop/reactor.h"

namespace node {

struct RadiusSetup {
    radius::LoginFormat format;
    std::optional<radius::Secret> password;
    radius::ClientSettings logins;
    std::optional<radius::ClientSettings> accounting;
    radius::DynamicSettings dynamic;  // no clients: nobody is listened to
};

// Throws ConfigError when a secret is missing or a file cannot be used.
RadiusSetup radiusSetup(const RadiusConfig& config, const radius::Secrets& secrets,
                        Reactor& reactor);
radius::Secrets radiusSecrets(const RadiusConfig& config);

bool sameSecrets(const radius::Secrets& a, const radius::Secrets& b);

}  // namespace node
