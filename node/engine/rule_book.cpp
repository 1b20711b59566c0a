#include "node/engine/rule_book.h"

#include <algorithm>
#include <utility>

namespace node {

namespace {

template <class Map>
const typename Map::mapped_type* find(const Map& map, const typename Map::key_type& key) {
    const auto found = map.find(key);
    return found == map.end() ? nullptr : &found->second;
}

template <class Map>
bool rename(Map& map, const std::string& from, const std::string& to) {
    if (to.empty() || map.count(from) == 0 || map.count(to) != 0) {
        return false;
    }
    auto node = map.extract(from);
    node.key() = to;
    map.insert(std::move(node));
    return true;
}

RuleBook::Conditions::iterator placeOf(RuleBook::Conditions& conditions, uint32_t type) {
    return std::lower_bound(
        conditions.begin(), conditions.end(), type,
        [](const ittalCondition& condition, uint32_t wanted) { return condition.type < wanted; });
}

bool holds(const RuleBook::Conditions& conditions, RuleBook::Conditions::iterator place,
           uint32_t type) {
    return place != conditions.end() && place->type == type;
}

}  // namespace

bool RuleBook::addSelector(const std::string& name) {
    return !name.empty() && (selectors_.try_emplace(name), true);
}

bool RuleBook::deleteSelector(const std::string& name) {
    const bool used = std::any_of(bindings_.begin(), bindings_.end(),
                                  [&](const auto& entry) { return entry.second.selector == name; });
    return !used && selectors_.erase(name) != 0;
}

bool RuleBook::renameSelector(const std::string& from, const std::string& to) {
    if (!rename(selectors_, from, to)) {
        return false;
    }
    for (auto& [ifId, binding] : bindings_) {
        if (binding.selector == from) {
            binding.selector = to;
        }
    }
    return true;
}

bool RuleBook::addCondition(const std::string& selector, const ittalCondition& condition) {
    const auto found = selectors_.find(selector);
    if (found == selectors_.end()) {
        return false;
    }
    const auto place = placeOf(found->second, condition.type);
    if (holds(found->second, place, condition.type)) {
        return false;
    }
    found->second.insert(place, condition);
    return true;
}

bool RuleBook::deleteCondition(const std::string& selector, uint32_t type) {
    const auto found = selectors_.find(selector);
    if (found == selectors_.end()) {
        return false;
    }
    const auto place = placeOf(found->second, type);
    if (!holds(found->second, place, type)) {
        return false;
    }
    found->second.erase(place);
    return true;
}

bool RuleBook::addActionList(const std::string& name) {
    return !name.empty() && (lists_.try_emplace(name), true);
}

bool RuleBook::deleteActionList(const std::string& name) {
    const bool used = std::any_of(bindings_.begin(), bindings_.end(), [&](const auto& entry) {
        return entry.second.actionList == name;
    });
    return !used && lists_.erase(name) != 0;
}

bool RuleBook::renameActionList(const std::string& from, const std::string& to) {
    if (!rename(lists_, from, to)) {
        return false;
    }
    for (auto& [ifId, binding] : bindings_) {
        if (binding.actionList == from) {
            binding.actionList = to;
        }
    }
    return true;
}

bool RuleBook::addAction(const std::string& list, uint32_t type, uint32_t code) {
    const auto found = lists_.find(list);
    if (found == lists_.end()) {
        return false;
    }
    found->second[type] = code;
    return true;
}

bool RuleBook::deleteAction(const std::string& list, uint32_t type) {
    const auto found = lists_.find(list);
    return found != lists_.end() && found->second.erase(type) != 0;
}

bool RuleBook::bind(unsigned ifId, const Binding& binding) {
    if (!conditions(binding.selector) || !actions(binding.actionList)) {
        return false;
    }
    bindings_[ifId] = binding;
    return true;
}

const RuleBook::Conditions* RuleBook::conditions(const std::string& selector) const {
    return find(selectors_, selector);
}

const RuleBook::Actions* RuleBook::actions(const std::string& list) const {
    return find(lists_, list);
}

const RuleBook::Binding* RuleBook::binding(unsigned ifId) const {
    return find(bindings_, ifId);
}

const RuleBook::Conditions* RuleBook::conditionsOf(unsigned ifId) const {
    const Binding* const bound = binding(ifId);
    return bound ? conditions(bound->selector) : nullptr;
}

}  // namespace node
