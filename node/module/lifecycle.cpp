#include "node/module/lifecycle.h"

#include <algorithm>
#include <map>
#include <set>
#include <stdexcept>

#include "platform/bllmanager.h"
#include "platform/interfaces.h"
#include "platform/itbridge.h"

namespace node {

namespace {

constexpr int eventOperationallyUp = 4;

using Depends = std::map<BLEntity*, std::list<std::string>>;

bool ready(const std::list<std::string>& needed, const std::set<std::string>& done) {
    return std::all_of(needed.begin(), needed.end(),
                       [&](const std::string& name) { return done.count(name) != 0; });
}

}  // namespace

std::vector<BLEntity*> startOrder(const std::vector<BLEntity*>& entities) {
    std::set<std::string> names;
    Depends depends;
    for (BLEntity* entity : entities) {
        if (!names.insert(entity->getName()).second) {
            throw std::runtime_error("two entities are called \"" + entity->getName() + "\"");
        }
        entity->getDependencies(depends[entity]);
    }
    for (const auto& [entity, needed] : depends) {
        for (const std::string& name : needed) {
            if (names.count(name) == 0) {
                throw std::runtime_error("entity \"" + entity->getName() + "\" depends on \"" +
                                         name + "\", which does not exist");
            }
        }
    }
    std::vector<BLEntity*> order;
    std::set<std::string> done;
    std::vector<BLEntity*> left = entities;
    while (!left.empty()) {
        const auto next = std::find_if(left.begin(), left.end(), [&](BLEntity* entity) {
            return ready(depends[entity], done);
        });
        if (next == left.end()) {
            throw std::runtime_error("entity \"" + left.front()->getName() +
                                     "\" and others depend on each other");
        }
        order.push_back(*next);
        done.insert((*next)->getName());
        left.erase(next);
    }
    return order;
}

void startEntities(const std::vector<BLEntity*>& order) {
    for (BLEntity* entity : order) {
        if (!entity->start()) {
            throw std::runtime_error("entity \"" + entity->getName() + "\" did not start");
        }
    }
}

std::vector<std::string> stopEntities(const std::vector<BLEntity*>& order) {
    std::vector<std::string> failed;
    for (auto entity = order.rbegin(); entity != order.rend(); ++entity) {
        if (!(*entity)->stop()) {
            failed.push_back((*entity)->getName());
        }
    }
    return failed;
}

void applyConfiguration(const std::function<void()>& settings) {
    BLLManager& manager = singleton<BLLManager>::instance();
    for (const auto& callback : manager.configurationApplyStartCallbacks) {
        callback();
    }
    const auto stop = [&manager](int result) {
        for (const auto& callback : manager.configurationApplyStopCallbacks) {
            callback(result);
        }
    };
    try {
        settings();
    } catch (...) {
        stop(1);
        throw;
    }
    stop(0);
}

void dropCallbacks() {
    singleton<BLLManager>::instance().configurationApplyStartCallbacks.clear();
    singleton<BLLManager>::instance().configurationApplyStopCallbacks.clear();
    singleton<Interfaces>::instance().interfaceEventCallbacks.clear();
    singleton<itbridge>::instance().talEventCallbacks.clear();
}

void deliverEvent(const std::string& line) {
    for (const auto& callback : singleton<itbridge>::instance().talEventCallbacks) {
        callback(line.c_str());
    }
}

void deliverInterfaceUp(unsigned ifId) {
    for (const auto& callback : singleton<Interfaces>::instance().interfaceEventCallbacks) {
        callback(static_cast<int>(ifId),
                 static_cast<Interfaces::interfaceEvent_t>(eventOperationallyUp));
    }
}

}  // namespace node
