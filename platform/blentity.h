// A business-logic entity: what the entity manager starts, stops and configures.
// The manager calls the operations one at a time; it never deletes an entity.
#pragma once

#include "platform/storage.h"

#include <list>
#include <string>

class BLEntity : public Storage::StorageItem {
public:
    explicit BLEntity(const std::string& name) : name_(name) {}

    const std::string& getName() const { return name_; }

    virtual bool start() = 0;                 // true = started
    virtual bool applyDefaultSettings() = 0;  // true = all defaults applied
    virtual bool stop() = 0;                  // true = stopped
    // Replaces the list by the names of the entities that must be started before this one.
    virtual void getDependencies(std::list<std::string>& dependencies) = 0;
    virtual ~BLEntity() = default;

private:
    std::string name_;
};
