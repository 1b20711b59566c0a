// The bridge entity: it carries the callbacks; the engine behind it needs no start of its own.
#include "platform/itbridge.h"

#include "platform/interfaces.h"

itbridge::itbridge() : BLEntity("itbridge") {}

ACLContainer_t& itbridge::getACLContainer() {
    return aclContainer_;
}

void itbridge::applyConfiguration(boost::shared_ptr<Storage::Setting>) {}
void itbridge::saveConfiguration(boost::shared_ptr<Storage::Setting>) const {}
bool itbridge::start() {
    return true;
}
bool itbridge::applyDefaultSettings() {
    return true;
}
bool itbridge::stop() {
    return true;
}

void itbridge::getDependencies(std::list<std::string>& dependencies) {
    dependencies.assign(1, singleton<Interfaces>::instance().getName());
}

template <>
itbridge& singleton<itbridge>::instance() {
    static itbridge bridge;
    return bridge;
}
