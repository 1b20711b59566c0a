// The bridge's C functions: check what comes in, forward to the engine, 0 or -1. A bridge
// name other than the engine's own, a null pointer and a name that is not ended within its
// field are refused. std::bad_alloc ends as a refusal too.
#include "node/engine/bridge.h"

#include <cstring>
#include <exception>

#include "platform/ittal.h"

const char* bridgeName = "bridge0";

namespace node {

namespace {

constexpr const char* ownBridge = "bridge0";
constexpr int refused = -1;

Engine* attached = nullptr;

template <class Use>
int withEngine(const char* bridge, Use use) {
    if (!attached || !bridge || std::strcmp(bridge, ownBridge) != 0) {
        return refused;
    }
    try {
        return use(*attached) ? 0 : refused;
    } catch (const std::exception&) {
        return refused;
    }
}

template <class Use>
int withRules(const char* bridge, Use use) {
    return withEngine(bridge, [&](Engine& engine) {
        return engine.withRules<bool>([&](RuleBook& rules) { return use(rules); });
    });
}

template <class Value, class Get>
int readPort(const char* bridge, unsigned ifId, Value* out, Get get) {
    return withEngine(bridge, [&](Engine& engine) {
        return out && engine.read(ifId, [&](const Port& port) { *out = get(port); });
    });
}

// The text of a fixed field, if it is ended inside the field.
template <size_t size>
bool fieldText(const char (&field)[size], std::string& text) {
    const size_t length = strnlen(field, size);
    text.assign(field, length);
    return length < size;
}

}  // namespace

void attachBridge(Engine* engine) {
    attached = engine;
}

}  // namespace node

using namespace node;

extern "C" {

int ittalSelectorAdd(const char* bridge, const char* name) {
    return withRules(bridge, [&](RuleBook& rules) { return name && rules.addSelector(name); });
}

int ittalSelectorDel(const char* bridge, const char* name) {
    return withRules(bridge, [&](RuleBook& rules) { return name && rules.deleteSelector(name); });
}

int itqosSelectorRename(const char* bridge, const char* from, const char* to) {
    return withRules(bridge,
                     [&](RuleBook& rules) { return from && to && rules.renameSelector(from, to); });
}

int ittalConditionAdd(const char* bridge, struct ittalCondition* condition) {
    return withRules(bridge, [&](RuleBook& rules) {
        std::string selector;
        return condition && fieldText(condition->selector, selector) &&
               rules.addCondition(selector, *condition);
    });
}

int ittalConditionDel(const char* bridge, const char* selector, unsigned type) {
    return withRules(
        bridge, [&](RuleBook& rules) { return selector && rules.deleteCondition(selector, type); });
}

int ittalActionAdd(const char* bridge, struct ittalAction* action) {
    return withRules(bridge, [&](RuleBook& rules) {
        std::string list;
        return action && fieldText(action->list, list) &&
               rules.addAction(list, action->type, action->code);
    });
}

int ittalActionDel(const char* bridge, const char* list, unsigned type) {
    return withRules(bridge,
                     [&](RuleBook& rules) { return list && rules.deleteAction(list, type); });
}

int ittalActionListAdd(const char* bridge, const char* name) {
    return withRules(bridge, [&](RuleBook& rules) { return name && rules.addActionList(name); });
}

int ittalActionListDel(const char* bridge, const char* name) {
    return withRules(bridge, [&](RuleBook& rules) { return name && rules.deleteActionList(name); });
}

int ittalActionListRename(const char* bridge, const char* from, const char* to) {
    return withRules(
        bridge, [&](RuleBook& rules) { return from && to && rules.renameActionList(from, to); });
}

int ittalListSet(const char* bridge, unsigned ifId, const char* selector, const char* actionList,
                 int mode, unsigned position) {
    return withEngine(bridge, [&](Engine& engine) {
        return selector && actionList && engine.read(ifId, [](const Port&) {}) &&
               engine.withRules<bool>([&](RuleBook& rules) {
                   return rules.bind(ifId, {selector, actionList, mode, position});
               });
    });
}

int ittalAdminStateSet(const char* bridge, bool state) {
    return withEngine(bridge, [&](Engine& engine) { return engine.setNodeAdmin(state); });
}

int ittalAdminStateGet(const char* bridge, bool* state) {
    return withEngine(bridge, [&](Engine& engine) {
        if (state) {
            *state = engine.nodeAdmin();
        }
        return state != nullptr;
    });
}

int ittalPortAdminStateSet(const char* bridge, unsigned ifId, bool state) {
    return withEngine(bridge, [&](Engine& engine) { return engine.setAdmin(ifId, state); });
}

int ittalPortAdminStateGet(const char* bridge, unsigned ifId, bool* state) {
    return readPort(bridge, ifId, state, [](const Port& port) { return port.admin(); });
}

int ittalPortAuthenAdminStateSet(const char* bridge, unsigned ifId, bool state) {
    return withEngine(bridge, [&](Engine& engine) {
        return engine.setStageAdmin(ifId, Stage::authentication, state);
    });
}

int ittalPortAuthenAdminStateGet(const char* bridge, unsigned ifId, bool* state) {
    return readPort(bridge, ifId, state,
                    [](const Port& port) { return port.stageAdmin(Stage::authentication); });
}

int ittalPortAuthorAdminStateSet(const char* bridge, unsigned ifId, bool state) {
    return withEngine(bridge, [&](Engine& engine) {
        return engine.setStageAdmin(ifId, Stage::authorization, state);
    });
}

int ittalPortAuthorAdminStateGet(const char* bridge, unsigned ifId, bool* state) {
    return readPort(bridge, ifId, state,
                    [](const Port& port) { return port.stageAdmin(Stage::authorization); });
}

int ittalPortAutoReqAdminStateSet(const char* bridge, unsigned ifId, bool state) {
    return withEngine(bridge, [&](Engine& engine) { return engine.setAutoRequest(ifId, state); });
}

int ittalPortAutoReqAdminStateGet(const char* bridge, unsigned ifId, bool* state) {
    return readPort(bridge, ifId, state, [](const Port& port) { return port.autoRequest(); });
}

int ittalPortTimeoutSet(const char* bridge, unsigned ifId, unsigned timeout) {
    return withEngine(bridge, [&](Engine& engine) { return engine.setTimeout(ifId, timeout); });
}

int ittalPortTimeoutGet(const char* bridge, unsigned ifId, unsigned* timeout) {
    return readPort(bridge, ifId, timeout, [](const Port& port) { return port.timeout(); });
}

int ittalPortMaxQueueSizeSet(const char* bridge, unsigned ifId, unsigned size) {
    return withEngine(bridge, [&](Engine& engine) { return engine.setMaxQueue(ifId, size); });
}

int ittalPortMaxQueueSizeGet(const char* bridge, unsigned ifId, unsigned* size) {
    return readPort(bridge, ifId, size, [](const Port& port) { return port.maxQueue(); });
}

int ittalPortAuthenOperStateSet(const char* bridge, unsigned ifId, unsigned state) {
    return withEngine(bridge, [&](Engine& engine) {
        return engine.setStageOper(ifId, Stage::authentication, state != 0);
    });
}

int ittalPortAuthenOperStateGet(const char* bridge, unsigned ifId, unsigned* state) {
    return readPort(bridge, ifId, state, [](const Port& port) {
        return port.stageOper(Stage::authentication) ? 1u : 0u;
    });
}

int ittalPortAuthorOperStateSet(const char* bridge, unsigned ifId, unsigned state) {
    return withEngine(bridge, [&](Engine& engine) {
        return engine.setStageOper(ifId, Stage::authorization, state != 0);
    });
}

int ittalPortAuthorOperStateGet(const char* bridge, unsigned ifId, unsigned* state) {
    return readPort(bridge, ifId, state, [](const Port& port) {
        return port.stageOper(Stage::authorization) ? 1u : 0u;
    });
}

int ittalPortStatisticsGet(const char* bridge, unsigned ifId, unsigned* c1, unsigned* c2,
                           unsigned* c3, unsigned* c4, unsigned* c5, unsigned* c6, unsigned* c7,
                           unsigned* c8, unsigned* c9, unsigned* c10, unsigned* c11, unsigned* c12,
                           unsigned* c13) {
    unsigned* const outs[counterCount] = {c1, c2, c3, c4, c5, c6, c7, c8, c9, c10, c11, c12, c13};
    return withEngine(bridge, [&](Engine& engine) {
        for (const unsigned* out : outs) {
            if (!out) {
                return false;
            }
        }
        const std::optional<Counters> counters = engine.counters(ifId);
        for (size_t i = 0; counters && i < counterCount; ++i) {
            *outs[i] = counters->values()[i];
        }
        return counters.has_value();
    });
}

int ittalPortAuthenReply(const char* bridge, unsigned ifId, bool accepted) {
    return withEngine(bridge, [&](Engine& engine) {
        return engine.reply(ifId, Stage::authentication, accepted);
    });
}

int ittalPortAuthorReply(const char* bridge, unsigned ifId, bool accepted) {
    return withEngine(
        bridge, [&](Engine& engine) { return engine.reply(ifId, Stage::authorization, accepted); });
}

int ittalPortStatesGet(const char* bridge, unsigned ifId, unsigned* forwarding,
                       unsigned* authentication, unsigned* authorization) {
    return withEngine(bridge, [&](Engine& engine) {
        return forwarding && authentication && authorization &&
               engine.read(ifId, [&](const Port& port) {
                   *forwarding = static_cast<unsigned>(port.forwardingState());
                   *authentication = static_cast<unsigned>(port.stageState(Stage::authentication));
                   *authorization = static_cast<unsigned>(port.stageState(Stage::authorization));
               });
    });
}

int ittalRequestState(const char* bridge, bool state) {
    return withEngine(bridge, [&](Engine& engine) { return engine.setRequests(state); });
}

int ittalStoredReqSend(const char* bridge, unsigned ifId) {
    return withEngine(bridge, [&](Engine& engine) { return engine.sendStoredRequest(ifId); });
}
}
