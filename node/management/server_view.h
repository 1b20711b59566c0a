// A RADIUS server as management shows it. Pure; any thread.
#pragma once

#include "node/control/node_view.h"
#include "node/isa/radius_isa.h"

namespace node {

control::ServerView serverView(const RadiusServerInfo& server);

}  // namespace node
