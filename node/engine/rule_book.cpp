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
    return found != selectors_.end() && found->second.try_emplace(condition.type, condition).second;
}

bool RuleBook::deleteCondition(const std::string& selector, uint32_t type) {
    const auto found = selectors_.find(selector);
    return found != selectors_.end() && found->second.erase(type) != 0;
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

}  // namespace node
