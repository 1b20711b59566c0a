// The access interfaces of the node as the platform's registry knows them.
// Filled before the module is loaded, not changed afterwards.
#pragma once

#include <string>
#include <vector>

namespace node {

struct AccessInterface {
    unsigned id;
    std::string name;
    std::string kernelName;
};

void setInterfaces(std::vector<AccessInterface> interfaces);

}  // namespace node
