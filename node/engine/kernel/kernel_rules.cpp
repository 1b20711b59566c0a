// The record of a rule is the engine's condition without its selector, so translating is one
// copy. The assertions below are what makes it one: both records, field by field.
#include "node/engine/kernel/kernel_rules.h"

#include <cstddef>
#include <cstring>

#include "node/engine/match_rules.h"

namespace node {
namespace {

constexpr size_t shift = offsetof(ittalCondition, type);

static_assert(sizeof(ittalCondition) == sizeof(KernelRule) + shift);
static_assert(offsetof(ittalCondition, code) == offsetof(KernelRule, code) + shift);
static_assert(offsetof(ittalCondition, u.match.subCode) ==
              offsetof(KernelRule, u.match.subCode) + shift);
static_assert(offsetof(ittalCondition, u.match.pattern) ==
              offsetof(KernelRule, u.match.pattern) + shift);
static_assert(sizeof(ittalCondition::u.match.pattern) == sizeof(KernelRule::u.match.pattern));
static_assert(offsetof(ittalCondition, u.match.length) ==
              offsetof(KernelRule, u.match.length) + shift);
static_assert(offsetof(ittalCondition, u.match.selection) ==
              offsetof(KernelRule, u.match.selection) + shift);
static_assert(offsetof(ittalCondition, u.value) == offsetof(KernelRule, u.value) + shift);
static_assert(sizeof(ittalCondition::u.value) == sizeof(KernelRule::u.value));
static_assert(offsetof(ittalCondition, u.mac.addr) == offsetof(KernelRule, u.mac.addr) + shift);
static_assert(offsetof(ittalCondition, u.mac.mask) == offsetof(KernelRule, u.mac.mask) + shift);
static_assert(offsetof(ittalCondition, u.ip.addr) == offsetof(KernelRule, u.ip.addr) + shift);
static_assert(offsetof(ittalCondition, u.ip.mask) == offsetof(KernelRule, u.ip.mask) + shift);
static_assert(offsetof(ittalCondition, u.user.sequence) ==
              offsetof(KernelRule, u.user.sequence) + shift);
static_assert(offsetof(ittalCondition, u.user.mask) == offsetof(KernelRule, u.user.mask) + shift);
static_assert(sizeof(ittalCondition::u) == sizeof(KernelRule::u));

}  // namespace

std::optional<KernelRules> kernelRules(std::span<const ittalCondition> conditions) {
    KernelRules rules{};
    for (const ittalCondition& condition : conditions) {
        if (matchKindIsKnown(condition.type, condition.code, condition.u.match.subCode) == 0) {
            continue;
        }
        if (rules.count == KERNEL_RULES) {
            return std::nullopt;
        }
        std::memcpy(&rules.rules[rules.count++], &condition.type, sizeof(KernelRule));
    }
    return rules;
}

}  // namespace node
