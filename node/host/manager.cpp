// The entity manager as the module sees it. One lock for the whole process: the declarations
// give a lock object no way to name another.
#include "node/host/manager.h"

#include <algorithm>
#include <mutex>

#include "node/host/lock.h"

namespace node {

namespace {

// Far longer than any holder needs; a refused lock costs the caller its operation.
constexpr std::chrono::seconds lockPatience(30);

ReentrantLock& processLock() {
    static ReentrantLock lock(lockPatience);
    return lock;
}

struct EntityTable {
    std::mutex mutex;
    std::vector<BLEntity*> entities;
};

EntityTable& entityTable() {
    static EntityTable table;
    return table;
}

}  // namespace

std::vector<BLEntity*> registeredEntities() {
    const std::lock_guard<std::mutex> lock(entityTable().mutex);
    return entityTable().entities;
}

void forgetEntity(const BLEntity& entity) {
    const std::lock_guard<std::mutex> lock(entityTable().mutex);
    std::erase(entityTable().entities, &entity);
}

}  // namespace node

BLLManager::exclusiveLock_t::exclusiveLock_t() : locked_(node::processLock().lockExclusive()) {}

BLLManager::exclusiveLock_t::~exclusiveLock_t() {
    if (locked_) {
        node::processLock().unlockExclusive();
    }
}

BLLManager::sharedLock_t::sharedLock_t() : locked_(node::processLock().lockShared()) {}

BLLManager::sharedLock_t::~sharedLock_t() {
    if (locked_) {
        node::processLock().unlockShared();
    }
}

void BLLManager::registerEntity(BLEntity& entity) {
    const std::lock_guard<std::mutex> lock(node::entityTable().mutex);
    std::vector<BLEntity*>& entities = node::entityTable().entities;
    if (std::find(entities.begin(), entities.end(), &entity) == entities.end()) {
        entities.push_back(&entity);
    }
}

template <>
BLLManager& singleton<BLLManager>::instance() {
    static BLLManager manager;
    return manager;
}
