// What the fake platform answers: 0, unless a rule says otherwise. The rule for the n-th call
// wins over the one for an interface or name, that over the one for all calls of a name; of
// two equal rules the later wins. Rules are set while one thread runs and read by any.
#pragma once

#include <atomic>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace fake {

class Answers {
public:
    // Every call of this name. Locks are the names "exclusiveLock" and "sharedLock": any
    // non-zero answer refuses them. Questions answer true for any non-zero value.
    void always(const std::string& name, int result = 1);
    // Every call of this name about this interface, or about this profile, list, name.
    void forIntf(const std::string& name, unsigned intf, int result = 1);
    void forKey(const std::string& name, const std::string& key, int result = 1);
    // The n-th call of this name from now on, counted from 1.
    void nth(const std::string& name, unsigned n, int result = 1);
    // The n-th call of this name about this interface from now on.
    void nthForIntf(const std::string& name, unsigned intf, unsigned n, int result = 1);
    // Every call that can be refused at all and has no rule of its own.
    void byDefault(int result);
    void clear();

    // Empty when no rule applies. Counts the call.
    std::optional<int> find(const std::string& name, const std::string& key, bool canRefuse);

private:
    struct Rule {
        std::string name;
        std::optional<std::string> key;
        unsigned n = 0;  // 0: every call
        int result = 0;
        std::atomic<unsigned> seen{0};
    };
    void add(const std::string& name, std::optional<std::string> key, unsigned n, int result);

    std::vector<std::unique_ptr<Rule>> rules_;
    std::optional<int> default_;
};

}  // namespace fake
