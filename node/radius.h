// What ISA over RADIUS gets to see of the engine. Any thread, but for the loop's calls.
#pragma once

#include <string>

#include "node/engine/engine.h"
#include "node/isa/radius_isa.h"

namespace node {

// Of these the caller adds names and profiles.
RadiusIsa::Lines radiusLines(Engine& engine);

// What becomes of gates goes through the loop, in its order. All three must outlive the engine's
// work.
void tellMoves(Engine& engine, Loop& loop, RadiusIsa& isa);

}  // namespace node
