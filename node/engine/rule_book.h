// The named objects of the engine: selectors with their conditions, action lists with their
// actions, and which of them each interface uses. Kept exactly as given.
// Pure; not thread-safe: the engine calls it under its lock.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "platform/ittal.h"

namespace node {

class RuleBook {
public:
    struct Binding {
        std::string selector;
        std::string actionList;
        int mode = 0;
        unsigned position = 0;
    };
    using Conditions = std::vector<ittalCondition>;  // ascending rule types
    using Actions = std::map<uint32_t, uint32_t>;    // action code by type

    // All answer whether the book now says what was asked for. Adding a selector or a list
    // that exists changes nothing and succeeds, so that a start can be repeated; a second
    // condition of a type is refused, because the two could not be told apart.
    bool addSelector(const std::string& name);
    bool deleteSelector(const std::string& name);  // refused while an interface uses it
    bool renameSelector(const std::string& from, const std::string& to);  // bindings follow
    bool addCondition(const std::string& selector, const ittalCondition& condition);
    bool deleteCondition(const std::string& selector, uint32_t type);
    bool addActionList(const std::string& name);
    bool deleteActionList(const std::string& name);  // refused while an interface uses it
    bool renameActionList(const std::string& from, const std::string& to);  // bindings follow
    bool addAction(const std::string& list, uint32_t type, uint32_t code);
    bool deleteAction(const std::string& list, uint32_t type);
    bool bind(unsigned ifId, const Binding& binding);  // replaces an earlier one

    // Null when unknown.
    const Conditions* conditions(const std::string& selector) const;
    const Actions* actions(const std::string& list) const;
    const Binding* binding(unsigned ifId) const;
    const Conditions* conditionsOf(unsigned ifId) const;  // of the selector it is bound to

private:
    std::map<std::string, Conditions> selectors_;
    std::map<std::string, Actions> lists_;
    std::map<unsigned, Binding> bindings_;
};

}  // namespace node
