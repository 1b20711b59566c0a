// The event line: what the engine tells the module about a login, one text line by fixed
// character positions. Pure.
#pragma once

#include <string>
#include <string_view>

#include "node/engine/frame.h"

namespace node {

// A login asked for by trapped traffic.
std::string trafficLine(std::string_view kernelName, const Frame& frame);

// A login asked for by the line itself; carries no traffic, but is longer than a header, so
// that it cannot be taken for a stored request.
std::string automaticLine(std::string_view kernelName);

// A stored login asked for again: the header alone.
std::string storedLine(std::string_view kernelName);

}  // namespace node
