// The fake's services: what each one knows, and what it answers. Everything a test may set is
// a public member, set before the module runs; calls may then come from any thread.
#pragma once

#include "platform/bllmanager.h"
#include "platform/interfaces.h"
#include "platform/isaradiusbll.h"
#include "platform/itbridge.h"
#include "platform/ittal.h"
#include "platform/ports.h"
#include "tal/tal.h"
#include "tests/fake/desk.h"
#include "tests/fake/reentrant_lock.h"

#include <functional>
#include <list>
#include <map>
#include <string>
#include <vector>

namespace fake {

enum class LockMode {
    counting,  // every lock is obtained unless an answer refuses it; one thread
    real,      // a true lock as a host must provide it; any number of threads
};

// The entity manager: its lock, the entities registered and the configuration callbacks.
class Manager {
public:
    Manager(Desk& desk, LockMode mode) : desk_(desk), mode_(mode) {}

    // In the order of registration, the one at load included.
    static const std::vector<BLEntity*>& entities();
    // Runs before each exclusive lock is asked for, on the asking thread.
    std::function<void()> onLockExclusive;
    // Fire the callbacks as the manager does around the application of a configuration.
    void applyStart();
    void applyStop(int argument = 0);

    static void registerEntity(BLEntity& entity);
    static void forgetEntities();
    bool lockExclusive();
    bool lockShared();
    void unlockExclusive();
    void unlockShared();

private:
    Desk& desk_;
    const LockMode mode_;
    ReentrantLock lock_;
};

// The interface registry.
class InterfaceList {
public:
    struct Interface {
        unsigned id;
        unsigned type;
        std::string name;
        std::string linuxName;
    };

    explicit InterfaceList(Desk& desk) : desk_(desk) {}

    void add(unsigned id, unsigned type, const std::string& name, const std::string& linuxName);
    void clear() { list_.clear(); }
    void fireEvent(int id, int event);  // through the registered callbacks

    unsigned listGet(std::vector<Interfaces::Interface>& list);
    unsigned typeById(unsigned id, unsigned* type);
    unsigned nameById(unsigned id, std::string& name);
    unsigned linuxNameById(unsigned id, std::string* name);
    unsigned idByLinuxName(const std::string& name, unsigned* id);

private:
    const Interface* find(unsigned id) const;

    Desk& desk_;
    std::vector<Interface> list_;
};

// The forwarding engine behind the C functions of the bridge.
class Engine {
public:
    explicit Engine(Desk& desk) : desk_(desk) {}

    bool refusedGetsFill = false;  // a refused getter hands out its values all the same
    // What the call hands out through its pointers, in their order, for every interface
    // (intf 0) or one. Without any, zeros.
    void outputs(const std::string& name, std::vector<unsigned> values, unsigned intf = 0);
    void raise(const char* line);  // an event line through the registered callbacks

    // The records handed over so far, byte for byte.
    std::vector<ittalCondition> conditions() const;
    std::vector<ittalAction> actions() const;

    int call(const char* name, const char* bridge, const std::string& args);
    int call(const char* name, const char* bridge, unsigned intf, const std::string& args);
    int conditionAdd(const char* bridge, const ittalCondition* condition);
    int actionAdd(const char* bridge, const ittalAction* action);
    template <class Value>
    int get(const char* name, const char* bridge, std::initializer_list<Value*> outputs);
    template <class Value>
    int get(const char* name, const char* bridge, unsigned intf,
            std::initializer_list<Value*> outputs);

private:
    unsigned value(const std::string& name, const std::string& key, size_t index) const;
    template <class Value>
    void handOut(const char* name, const std::string& key, std::initializer_list<Value*> outputs);

    Desk& desk_;
    std::map<std::string, std::vector<unsigned> > outputs_;  // by name and key
};

// ISA.
class Isa {
public:
    explicit Isa(Desk& desk) : desk_(desk) {}

    // Runs inside each login request, after the block was copied: may change the block.
    std::function<void(rpcTalLoginBlockBll&)> onRequest;
    std::vector<rpcTalLoginBlockBll> requests() const;  // as they arrived

    unsigned loginRequest(rpcTalLoginBlockBll* block, rpcIsaBllLoginRes* result);

private:
    Desk& desk_;
};

// The board, its DSL services and the identity of the node.
class Board {
public:
    enum class VdslImpl { present, absent, throwing };

    explicit Board(Desk& desk) : desk_(desk) {}

    int type = 0;
    unsigned char position = 5;
    bool positionLeft = false;  // a board position that is read and not written
    std::string shelfId = "2";
    unsigned sysInfosMade = 0;
    VdslImpl vdslImpl = VdslImpl::present;
    std::string vdslException = "no scripter";
    unsigned vdslThrowsFrom = 1;  // when throwing: the n-th obtaining and those after it
    std::vector<rpcVdslProfile> vdslProfiles;
    struct AlarmProfile {
        std::string name;
        unsigned protectedFlag;
    };
    std::vector<AlarmProfile> alarmProfiles;  // at most 30
    void addVdslProfile(const std::string& name, unsigned protection);

    boost::shared_ptr<Vdsl> getVdslImpl();
    unsigned profileAll(rpcVdslProfileAll& all);
    unsigned profileProtect(const std::string& name, unsigned level, int& result);
    unsigned alarmProfileAll(AlarmProfileList& list);
    unsigned alarmProtectedFlag(const std::string& name, AlarmProfileProtectedFlags& flags);
    unsigned alarmProfileProtect(const std::string& name, unsigned level, int& result);
    int boardPosition(unsigned char* out);
    unsigned shelf(std::string& out);

private:
    Desk& desk_;
    unsigned vdslObtained_ = 0;
};

// The profile services and the access lists. Unprotecting a profile clears its flag.
class Profiles {
public:
    struct Profile {
        std::string name;
        bool protectFlag = false;
    };
    struct Flow {
        std::string name;
        bool internal = false;
        bool byDefault = false;
    };

    explicit Profiles(Desk& desk) : desk_(desk) {}

    bool refusedReadsFill = false;  // a refused read of a record still fills it
    std::vector<Profile> services;
    std::vector<Profile> vlans;
    std::vector<Profile> multicasts;
    std::vector<Flow> flows;
    std::vector<std::string> securities;
    std::vector<std::string> l2cps;
    std::vector<std::string> accessLists;  // whether dynamic: an answer of aclCheckDynamic

    unsigned getAll(const char* call, const std::vector<Profile>& from,
                    std::list<std::string>& names);
    unsigned get(const char* call, const std::vector<Profile>& from, const std::string& name,
                 bool& protectFlag);
    unsigned unprotect(const char* call, std::vector<Profile>& in, const std::string& name);
    unsigned next(const char* call, const std::vector<std::string>& names, const std::string& name,
                  std::string& next);
    bool ask(const char* call, const std::string& name, bool Flow::*property);
    // A call about one profile, and one about none.
    unsigned about(const char* call, const std::string& name, const std::string& args);
    unsigned plain(const char* call, const std::string& args);
    std::vector<std::string> flowNames() const;
    std::vector<std::string> multicastNames() const;

    int aclList(std::list<ACLContainer_t::aclInfo_t>& acls);
    int aclCheckDynamic(const std::string& name);
    int aclProtect(const std::string& name, unsigned level);
    int aclDeleteAll();
    unsigned l2cpList(std::list<std::string>& names);

private:
    Desk& desk_;
};

// The platform's log and the system log, as texts.
class Logs {
public:
    explicit Logs(Desk& desk) : desk_(desk) {}

    void setLevel(unsigned level);
    void write(const std::string& text);
    void syslog(int priority, const std::string& text);

    // Every message in order: "log 1: text" (the newline that must end it is taken off, one
    // that is missing is told) and "warning: text", "err: text" or "syslog <n>: text".
    std::vector<std::string> texts() const;

private:
    Desk& desk_;
};

template <class Value>
void Engine::handOut(const char* name, const std::string& key,
                     std::initializer_list<Value*> outputs) {
    std::string text;
    size_t index = 0;
    for (Value* output : outputs) {
        if (output != nullptr) {
            *output = static_cast<Value>(value(name, key, index));
            text += (text.empty() ? "" : ", ") + shown(*output);
        }
        ++index;
    }
    desk_.output(text);
}

template <class Value>
int Engine::get(const char* name, const char* bridge, std::initializer_list<Value*> outputs) {
    const int result = call(name, bridge, "");
    if (result == 0 || refusedGetsFill) {
        handOut(name, "0", outputs);
    }
    return result;
}

template <class Value>
int Engine::get(const char* name, const char* bridge, unsigned intf,
                std::initializer_list<Value*> outputs) {
    const int result = call(name, bridge, intf, shown(intf));
    if (result == 0 || refusedGetsFill) {
        handOut(name, std::to_string(intf), outputs);
    }
    return result;
}

}  // namespace fake
