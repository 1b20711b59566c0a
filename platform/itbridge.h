// The bridge entity: source of the engine's event lines and owner of the access lists.
// An event line is NUL-terminated and valid only during the callback.
#pragma once

#include "platform/aclcontainer.h"
#include "platform/blentity.h"
#include "platform/singleton.h"

#include <boost/function.hpp>
#include <vector>

class itbridge : public BLEntity {
public:
    itbridge();

    ACLContainer_t& getACLContainer();

    std::vector<boost::function<void(const char*)> > talEventCallbacks;

    void applyConfiguration(boost::shared_ptr<Storage::Setting> setting) override;
    void saveConfiguration(boost::shared_ptr<Storage::Setting> setting) const override;
    bool start() override;
    bool applyDefaultSettings() override;
    bool stop() override;
    void getDependencies(std::list<std::string>& dependencies) override;

private:
    ACLContainer_t aclContainer_;
};

template <>
itbridge& singleton<itbridge>::instance();
