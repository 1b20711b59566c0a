// The keys of the configuration that speak of real interfaces. Pure; any thread.
#pragma once

#include "node/config/config.h"
#include "node/config/section.h"

namespace node {

Config::Engine readEngine(Section section, const std::string& directory);

// The keys of an [[interface]] that name its device; after those of its capture were read.
void readDevice(Section& section, Config::Interface& interface);

// What one interface cannot know of the others; `section` is that of `interface`.
void checkDevice(const Section& section, const Config::Interface& interface,
                 const std::vector<Config::Interface>& others);

}  // namespace node
