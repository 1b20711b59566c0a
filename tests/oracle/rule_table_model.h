// A plain model of the rule table: what every rule operation answers, which conditions the
// engine is asked to add and delete, and what the table and the stored logins hold afterwards.
// It shares no line with the module; the random walks compare the two. One thread.
#pragma once

#include "tal/tal.h"

#include <map>
#include <string>
#include <vector>

namespace oracle {

// One condition call as the engine saw it. `condition` holds the 400 bytes of an add.
struct ConditionCall {
    bool add;
    std::string selector;
    uint32_t type;
    std::string condition;

    bool operator==(const ConditionCall& other) const = default;
};

std::string text(const ConditionCall& call);

// An unset record: every slot holds its unset marker, every other byte is zero.
talRule unsetRule();

// The bytes that make up the slot of a rule type 0 to 9.
std::string slotBytes(const talRule& rule, int type);

// Whether a slot is set.
bool isSet(const talRule& rule, int type);

class RuleTableModel {
public:
    struct Interface {
        talRule rule;
        bool adminState;
        bool loginStored;
    };

    std::map<unsigned, Interface> interfaces;
    bool globalAdminState = false;
    bool starting = false;
    bool applying = false;

    // The engine refuses the n-th add and the n-th delete from now on (1 = the next); 0 = none.
    unsigned refuseAdd = 0;
    unsigned refuseDelete = 0;
    // The condition calls since the test last cleared them.
    std::vector<ConditionCall> trace;
    // Stored logins that rule changes have removed so far.
    unsigned purges = 0;

    void addInterface(unsigned id);  // with an unset rule, switched off
    void addZeroEntry();             // what an inserting lookup of key 0 leaves

    // The admin states, as far as they bear on rules and stored logins; the engine and ISA
    // accept them.
    void switchNode(bool on);
    unsigned switchInterface(unsigned id, bool on);
    // Default settings, which remove the interface's rules unless a start is going on.
    unsigned setDefaults(unsigned id);
    // A start that succeeds; the list of interfaces is the one of the start before.
    void startAgain();

    unsigned set(unsigned id, const talRule& rule, uint32_t op);
    unsigned setBundle(unsigned id, talRule& bundle);  // changes the bundle's pattern data
    unsigned get(unsigned id, talRule& out);
    bool exists(unsigned id, int type);
    bool empty(unsigned id);

private:
    bool valid(unsigned id) const;
    bool call(const ConditionCall& call);
    bool compatible(unsigned id, const talRule& rule);
    bool modified(unsigned id, const talRule& rule);
    unsigned setInEngine(unsigned id, const talRule& rule, bool add);
    unsigned setOne(unsigned id, const talRule& rule, bool add);
};

}  // namespace oracle
