#include "node/host/interfaces.h"

#include <utility>

#include "platform/interfaces.h"

namespace node {

namespace {

constexpr unsigned typeAccess = 1;
constexpr unsigned failed = 1;

std::vector<AccessInterface>& registry() {
    static std::vector<AccessInterface> interfaces;
    return interfaces;
}

const AccessInterface* byId(unsigned id) {
    for (const AccessInterface& interface : registry()) {
        if (interface.id == id) {
            return &interface;
        }
    }
    return nullptr;
}

}  // namespace

void setInterfaces(std::vector<AccessInterface> interfaces) {
    registry() = std::move(interfaces);
}

}  // namespace node

using node::AccessInterface;

Interfaces::Interfaces() : BLEntity("interfaces") {}

unsigned Interfaces::interfaceListGet(std::vector<Interface>& list) const {
    list.clear();
    for (const AccessInterface& interface : node::registry()) {
        list.push_back({interface.id});
    }
    return 0;
}

unsigned Interfaces::interfaceGetTypeById(unsigned id, unsigned* type) const {
    if (!type || !node::byId(id)) {
        return node::failed;
    }
    *type = node::typeAccess;
    return 0;
}

unsigned Interfaces::interfaceGetNameById(unsigned id, std::string& name) const {
    const AccessInterface* interface = node::byId(id);
    if (!interface) {
        return node::failed;
    }
    name = interface->name;
    return 0;
}

unsigned Interfaces::interfaceGetLinuxnameById(unsigned id, std::string* name) const {
    const AccessInterface* interface = node::byId(id);
    if (!name || !interface) {
        return node::failed;
    }
    *name = interface->kernelName;
    return 0;
}

unsigned Interfaces::interfaceGetIdByLinuxname(const std::string& name, unsigned* id) const {
    for (const AccessInterface& interface : node::registry()) {
        if (id && interface.kernelName == name) {
            *id = interface.id;
            return 0;
        }
    }
    return node::failed;
}

// The registry's settings are the node's configuration file.
void Interfaces::applyConfiguration(boost::shared_ptr<Storage::Setting>) {}
void Interfaces::saveConfiguration(boost::shared_ptr<Storage::Setting>) const {}
bool Interfaces::start() {
    return true;
}
bool Interfaces::applyDefaultSettings() {
    return true;
}
bool Interfaces::stop() {
    return true;
}
void Interfaces::getDependencies(std::list<std::string>& dependencies) {
    dependencies.clear();
}

template <>
Interfaces& singleton<Interfaces>::instance() {
    static Interfaces interfaces;
    return interfaces;
}
