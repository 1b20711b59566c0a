#include "tests/fake/answers.h"

#include <utility>

namespace fake {

void Answers::add(const std::string& name, std::optional<std::string> key, unsigned n, int result) {
    auto rule = std::make_unique<Rule>();
    rule->name = name;
    rule->key = std::move(key);
    rule->n = n;
    rule->result = result;
    rules_.push_back(std::move(rule));
}

void Answers::always(const std::string& name, int result) {
    add(name, {}, 0, result);
}

void Answers::forIntf(const std::string& name, unsigned intf, int result) {
    add(name, std::to_string(intf), 0, result);
}

void Answers::forKey(const std::string& name, const std::string& key, int result) {
    add(name, key, 0, result);
}

void Answers::nth(const std::string& name, unsigned n, int result) {
    add(name, {}, n, result);
}

void Answers::nthForIntf(const std::string& name, unsigned intf, unsigned n, int result) {
    add(name, std::to_string(intf), n, result);
}

void Answers::byDefault(int result) {
    default_ = result;
}

void Answers::clear() {
    rules_.clear();
    default_.reset();
}

std::optional<int> Answers::find(const std::string& name, const std::string& key, bool canRefuse) {
    std::optional<int> best = canRefuse ? default_ : std::nullopt;
    int bestRank = 0;
    for (const auto& rule : rules_) {
        if (rule->name != name || (rule->key && *rule->key != key)) {
            continue;
        }
        const unsigned seen = rule->seen.fetch_add(1, std::memory_order_relaxed) + 1;
        if (rule->n != 0 && rule->n != seen) {
            continue;
        }
        const int rank = rule->n != 0 ? 3 : rule->key ? 2 : 1;
        if (rank >= bestRank) {
            bestRank = rank;
            best = rule->result;
        }
    }
    return best;
}

}  // namespace fake
