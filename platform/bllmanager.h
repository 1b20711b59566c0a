// The entity manager: lifecycle, the process-wide lock and the configuration callbacks.
// The lock is re-entrant for the thread that holds it, in either form inside either form,
// and is given back at the outermost release. Callbacks are appended once per successful
// start and never removed: a host empties the vectors before it unloads the module.
#pragma once

#include "platform/blentity.h"
#include "platform/singleton.h"

#include <boost/function.hpp>
#include <vector>

class BLLManager {
public:
    // Scope-bound: the constructor tries to take the lock, the destructor gives it back if it
    // was obtained. When two shared holders both ask for the exclusive form, one is refused.
    class exclusiveLock_t {
    public:
        exclusiveLock_t();
        ~exclusiveLock_t();
        exclusiveLock_t(const exclusiveLock_t&) = delete;
        exclusiveLock_t& operator=(const exclusiveLock_t&) = delete;

        bool isLocked() const { return locked_; }

    private:
        bool locked_;
    };

    // As above; a nested shared lock never waits behind a waiting writer.
    class sharedLock_t {
    public:
        sharedLock_t();
        ~sharedLock_t();
        sharedLock_t(const sharedLock_t&) = delete;
        sharedLock_t& operator=(const sharedLock_t&) = delete;

        bool isLocked() const { return locked_; }

    private:
        bool locked_;
    };

    // Keeps a reference: the entity must outlive the manager's use of it.
    void registerEntity(BLEntity& entity);

    // Fired around the application of a configuration, with no lock held.
    std::vector<boost::function<void()> > configurationApplyStartCallbacks;
    std::vector<boost::function<void(int)> > configurationApplyStopCallbacks;
};

template <>
BLLManager& singleton<BLLManager>::instance();
