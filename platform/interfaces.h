// The interface registry: which interfaces exist, their types and names, and their events.
// Events arrive on the host's own thread, with no lock of the registry held.
#pragma once

#include "platform/blentity.h"
#include "platform/singleton.h"

#include <boost/function.hpp>
#include <string>
#include <vector>

class Interfaces : public BLEntity {
public:
    // Values outside the enumerators arrive by design; 4 is "operationally up".
    enum interfaceEvent_t : int {};

    struct Interface {
        unsigned id;
    };

    Interfaces();

    // All return 0 on success and leave the output alone otherwise. Type 1 carries subscribers.
    unsigned interfaceListGet(std::vector<Interface>& list) const;
    unsigned interfaceGetTypeById(unsigned id, unsigned* type) const;
    unsigned interfaceGetNameById(unsigned id, std::string& name) const;
    unsigned interfaceGetLinuxnameById(unsigned id, std::string* name) const;
    unsigned interfaceGetIdByLinuxname(const std::string& name, unsigned* id) const;

    std::vector<boost::function<void(int, interfaceEvent_t)> > interfaceEventCallbacks;

    void applyConfiguration(boost::shared_ptr<Storage::Setting> setting) override;
    void saveConfiguration(boost::shared_ptr<Storage::Setting> setting) const override;
    bool start() override;
    bool applyDefaultSettings() override;
    bool stop() override;
    void getDependencies(std::list<std::string>& dependencies) override;
};

template <>
Interfaces& singleton<Interfaces>::instance();
