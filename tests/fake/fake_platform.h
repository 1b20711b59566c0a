// The platform as the module's tests see it: it answers every call of the module and keeps
// one ordered log of them. One object per test, made before the module is used (only the
// registration at load may come earlier). Any thread may call in when LockMode::real is set.
#pragma once

// How to use it
//
//   class LoginTest : public ModuleTest {};          // tests/fake/module_test.h: `platform`,
//   TEST_F(LoginTest, RuleInWords) {                 // `module`, addInterface(), started(), ...
//       startWith({1, 5});                           // two interfaces "if1", "if5" of type 1
//       platform.forget();                           // empties the log
//       EXPECT_EQ(3u, module.talIntfTimeoutSet(9, 5));
//       EXPECT_TRUE(fake::sameLines(platform.calls({fake::Service::engine}), {}));
//   }
//
// Lines of the log: "ittalPortTimeoutSet(5, 120)", " = 7" after it when the answer was not 0,
// " -> 1, 2" when it handed something out; texts in quotes, bools true/false; the bridge's
// name is left out (Call::bridge has it). Locks are the lines "exclusiveLock()",
// "exclusiveUnlock()", "sharedLock()", "sharedUnlock()". Conditions and actions show name, type
// and code; login requests the interface.
//
//   platform.calls()                     all lines but locks, log and syslog
//   platform.calls({Service::engine, Service::syslog})        only these, in order
//   platform.count("ittalListSet")       how often
//   platform.find("ittalListSet")        the Call objects: key, result, bridge, record bytes,
//                                        exclusiveHeld / sharedHeld (locks of the caller)
//   platform.texts()                     "log 1: Error ... in tal::x.", "warning: ...", "err: ..."
//   platform.engine.conditions(), .actions(), platform.isa.requests()    records, byte for byte
//
//   platform.answers.always("ittalPortTimeoutSet", -3)        every call
//   platform.answers.forIntf("ittalPortTimeoutSet", 5)        calls about interface 5, answer 1
//   platform.answers.forKey("aclCheckDynamic", "name", 6)     calls about a name
//   platform.answers.nth("ittalPortTimeoutSet", 2)            the second call from now on
//   platform.answers.nth("sharedLock", 1)                     refuses a lock ("exclusiveLock")
//
//   platform.interfaces.add(id, type, "1/3", "dsl1")          platform.board.type = 5
//   platform.engine.outputs("ittalPortTimeoutGet", {30}, 5)   what a getter hands out
//   platform.isa.onRequest = [](rpcTalLoginBlockBll& block) { ... }
//   platform.profiles.services = {{"gold", true}}             and vlans, flows, accessLists, ...
//   platform.engine.raise("taldsl1 00...")                    platform.interfaces.fireEvent(5, 4)
//   platform.manager.applyStart() / applyStop()               platform.manager.entities()
//
//   fake::sweepFaults(platform, prepare, operation, check)    tests/fake/fault_sweep.h, and
//   fake::sweepExceptions(...), in which each call throws instead of being refused
//
// The end of the object fails the test when a lock is still held or a name of the bridge other
// than the current one was passed on, and prints the log of a failed test. Every test program
// runs in a fresh directory of its own, where "tal.store.dat" is the storage file.

#include "tests/fake/fake_services.h"

class FakePlatform {
public:
    explicit FakePlatform(fake::LockMode mode = fake::LockMode::counting);
    ~FakePlatform();
    FakePlatform(const FakePlatform&) = delete;
    FakePlatform& operator=(const FakePlatform&) = delete;

    // The object of the running test; ends the process when there is none.
    static FakePlatform& current();

private:
    fake::Desk desk_;

public:
    fake::Answers& answers;
    fake::Manager manager;
    fake::InterfaceList interfaces;
    fake::Engine engine;
    fake::Isa isa;
    fake::Board board;
    fake::Profiles profiles;
    fake::Logs logs;

    std::vector<std::string> calls() const;
    std::vector<std::string> calls(std::initializer_list<fake::Service> services) const;
    std::vector<fake::Call> find(const std::string& name) const;
    size_t count(const std::string& name) const { return find(name).size(); }
    std::vector<std::string> texts() const { return logs.texts(); }
    std::string wholeLog() const;
    void forget() { desk_.log.clear(); }
    // What a host does before it unloads the module: no callback and no entity is left.
    void letModuleGo();
    fake::LockDepth locksHeld() const { return desk_.log.heldByAnyone(); }

    // Refuses the n-th refusable call from now on, or lets it throw; what it was, once it
    // happened.
    void armFault(unsigned n) { desk_.armFault(n); }
    void armException(unsigned n) { desk_.armException(n); }
    void disarmFault() { desk_.disarmFault(); }
    const std::optional<fake::Call>& struck() const { return desk_.struck(); }

    // Forwards of calls that need no service of their own.
    unsigned plain(fake::Service service, const char* name, const std::string& args);
    unsigned boardType();

private:
    void dropCallbacks();
    void checkBridgeName() const;
};
