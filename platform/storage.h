// The configuration tree as an entity sees it: opaque nodes, handed in to be applied or
// filled. The host calls both operations of an entity from its configuration thread.
#pragma once

#include <boost/shared_ptr.hpp>
#include <string>

namespace Storage {

const std::string defaultConfigFileName("default_config.xml");
const std::string savedConfigFileName("saved_config.xml");

class Setting;  // a node of the configuration tree

class StorageItem {
public:
    virtual void applyConfiguration(boost::shared_ptr<Setting> setting) = 0;
    virtual void saveConfiguration(boost::shared_ptr<Setting> setting) const = 0;

protected:
    StorageItem() = default;
    ~StorageItem() = default;  // never deleted through this base
};

}  // namespace Storage
