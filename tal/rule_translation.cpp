// A rule in the engine's form. All slots are copied whatever the type; the three pattern slots
// share one place in the engine's record, so the last one set wins. The table hands over records
// in which only the slot of the rule's own type is set.
#include <algorithm>

#include <string.h>

#include "tal/rule_slots.h"
#include "tal/tal.h"

namespace {

constexpr uint32_t macLength = 6;

void copyPattern(const talRulePattern& pattern, TalFea::feaTalRule& fea) {
    switch (pattern.format) {
        case talPatternFormatText:
            fea.patternLength = static_cast<uint32_t>(strnlen(pattern.data, sizeof pattern.data));
            break;
        case talPatternFormatMac:
            fea.patternLength = macLength;
            break;
        case talPatternFormatRaw:
            fea.patternLength = pattern.length;
            break;
        default:
            return;
    }
    std::copy(std::begin(pattern.data), std::end(pattern.data), fea.pattern);
}

}  // namespace

uint32_t tal::talFeaRuleSet(talRule* rule, TalFea::feaTalRule* fea) {
    if (rule == nullptr || fea == nullptr)
        return 1;
    std::copy(std::begin(rule->macAddr), std::end(rule->macAddr), fea->macAddr);
    std::copy(std::begin(rule->macMask), std::end(rule->macMask), fea->macMask);
    fea->ipAddr = rule->ipValue;
    fea->ipMask = rule->ipMask;
    fea->ethType = rule->ethType;
    fea->type8Value = rule->type8Value;
    std::copy(std::begin(rule->userPatternSequence), std::end(rule->userPatternSequence),
              fea->userPatternSequence);
    std::copy(std::begin(rule->userPatternMask), std::end(rule->userPatternMask),
              fea->userPatternMask);
    if (rule->type2Flag <= 1)
        fea->selection = rule->type2Flag;
    for (const talRulePattern& pattern : rule->pattern)
        copyPattern(pattern, *fea);
    if (!tal_rule::isType(rule->type))
        return 1;
    fea->type = static_cast<uint32_t>(rule->type);
    return 0;
}
