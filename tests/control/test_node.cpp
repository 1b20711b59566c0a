#include "tests/control/test_node.h"

#include <algorithm>
#include <array>
#include <map>
#include <stdexcept>

#include "node/control/rule_record.h"
#include "node/control/service_functions.h"
#include "node/rules/rule_record.h"

namespace node::control {

struct TestNode::Module {
    struct Line {
        std::array<bool, 4> settings{false, true, true, false};
        rpcTalRule rules = unsetRule(ruleAny);
    };

    std::mutex mutex;
    std::map<std::string, uint32_t> refusals;
    std::vector<std::string> calls;
    std::map<unsigned, Line> lines;
    bool admin = false;
    uint32_t forwarding = 0;
    uint32_t authentication = 1;
    uint32_t authorization = 1;

    // Runs `use` on the lines that `ifId` stands for, unless the function is refused.
    template <class Use>
    uint32_t onLines(const std::string& function, unsigned ifId, Use use) {
        const std::lock_guard<std::mutex> lock(mutex);
        if (const auto refusal = refusals.find(function); refusal != refusals.end()) {
            return refusal->second;
        }
        if (ifId != 0 && lines.count(ifId) == 0) {
            return 3;
        }
        for (auto& [id, line] : lines) {
            if (ifId == 0 || ifId == id) {
                use(line);
            }
        }
        return 0;
    }
    void record(const std::string& function, const std::string& arguments) {
        const std::lock_guard<std::mutex> lock(mutex);
        calls.push_back(function + "(" + arguments + ")");
    }
};

namespace {

TestNode::Module* module = nullptr;

template <size_t setting>
uint32_t setSetting(const char* function, unsigned ifId, int state) {
    module->record(function, std::to_string(ifId) + ", " + std::to_string(state));
    return module->onLines(function, ifId,
                           [&](auto& line) { line.settings[setting] = state != 0; });
}

template <size_t setting>
uint32_t getSetting(const char* function, unsigned ifId, bool* state) {
    return module->onLines(function, ifId, [&](auto& line) { *state = line.settings[setting]; });
}

uint32_t adminStateSet(int state) {
    module->record("rpcTalAdminStateSet", std::to_string(state));
    return module->onLines("rpcTalAdminStateSet", 0, [&](auto&) { module->admin = state != 0; });
}

uint32_t adminStateGet(bool* state) {
    return module->onLines("rpcTalAdminStateGet", 0, [&](auto&) { *state = module->admin; });
}

uint32_t intfAdminStateSet(unsigned ifId, int state) {
    return setSetting<0>("rpcTalIntfAdminStateSet", ifId, state);
}

uint32_t intfAdminStateGet(unsigned ifId, bool* state) {
    return getSetting<0>("rpcTalIntfAdminStateGet", ifId, state);
}

uint32_t intfAuthenAdminStateSet(unsigned ifId, int state) {
    return setSetting<1>("rpcTalIntfAuthenAdminStateSet", ifId, state);
}

uint32_t intfAuthenAdminStateGet(unsigned ifId, bool* state) {
    return getSetting<1>("rpcTalIntfAuthenAdminStateGet", ifId, state);
}

uint32_t intfAuthorAdminStateSet(unsigned ifId, int state) {
    return setSetting<2>("rpcTalIntfAuthorAdminStateSet", ifId, state);
}

uint32_t intfAuthorAdminStateGet(unsigned ifId, bool* state) {
    return getSetting<2>("rpcTalIntfAuthorAdminStateGet", ifId, state);
}

uint32_t intfAutoReqAdminStateSet(unsigned ifId, int state) {
    return setSetting<3>("rpcTalIntfAutoReqAdminStateSet", ifId, state);
}

uint32_t intfAutoReqAdminStateGet(unsigned ifId, bool* state) {
    return getSetting<3>("rpcTalIntfAutoReqAdminStateGet", ifId, state);
}

uint32_t intfAuthenOperStateGet(unsigned ifId, bool* state) {
    return module->onLines("rpcTalIntfAuthenOperStateGet", ifId, [&](auto&) { *state = true; });
}

uint32_t intfAuthorOperStateGet(unsigned ifId, bool* state) {
    return module->onLines("rpcTalIntfAuthorOperStateGet", ifId, [&](auto&) { *state = false; });
}

uint32_t intfStatisticsGet(unsigned ifId, uint32_t* c1, uint32_t* c2, uint32_t* c3, uint32_t* c4,
                           uint32_t* c5, uint32_t* c6, uint32_t* c7, uint32_t* c8, uint32_t* c9,
                           uint32_t* c10, uint32_t* c11, uint32_t* c12, uint32_t* c13) {
    return module->onLines("rpcTalIntfStatisticsGet", ifId, [&](auto&) {
        uint32_t value = 100 * ifId;
        for (uint32_t* counter : {c1, c2, c3, c4, c5, c6, c7, c8, c9, c10, c11, c12, c13}) {
            *counter = ++value;
        }
    });
}

// As the module's: a state outside its enumeration is not written.
uint32_t intfStatesGet(unsigned ifId, talIntfFwdState* forwarding,
                       talIntfAuthenFwdState* authentication,
                       talIntfAuthorFwdState* authorization) {
    return module->onLines("rpcTalIntfStatesGet", ifId, [&](auto&) {
        if (module->forwarding <= 2) {
            *forwarding = talIntfFwdState{module->forwarding};
        }
        if (module->authentication <= 4) {
            *authentication = talIntfAuthenFwdState{module->authentication};
        }
        if (module->authorization <= 4) {
            *authorization = talIntfAuthorFwdState{module->authorization};
        }
    });
}

// Copies the slots of one type, or of all.
void copySlots(const rpcTalRule& from, rpcTalRule& to, int type) {
    const auto wanted = [&](int slot) { return type < 0 || type == slot; };
    if (wanted(1)) {
        to.ethType = from.ethType;
    }
    if (wanted(2)) {
        to.type2Value = from.type2Value;
    }
    for (int i = 0; i < 3; ++i) {
        if (wanted(3 + i)) {
            to.pattern[i] = from.pattern[i];
        }
    }
    if (wanted(6)) {
        std::copy(std::begin(from.macAddr), std::end(from.macAddr), to.macAddr);
        std::copy(std::begin(from.macMask), std::end(from.macMask), to.macMask);
    }
    if (wanted(7)) {
        to.ipValue = from.ipValue;
        to.ipMask = from.ipMask;
    }
    if (wanted(8)) {
        to.type8Value = from.type8Value;
    }
    if (wanted(9)) {
        std::copy(std::begin(from.userPatternSequence), std::end(from.userPatternSequence),
                  to.userPatternSequence);
        std::copy(std::begin(from.userPatternMask), std::end(from.userPatternMask),
                  to.userPatternMask);
    }
}

uint32_t ruleSet(unsigned ifId, rpcTalRule* rule, talOperation op) {
    module->record("rpcTalRuleSet", std::to_string(ifId) + ", type " + std::to_string(rule->type) +
                                        (op == talOperationAdd ? ", add" : ", delete"));
    return module->onLines("rpcTalRuleSet", ifId,
                           [&](auto& line) { copySlots(*rule, line.rules, rule->type); });
}

uint32_t ruleBundleSet(unsigned ifId, rpcTalRule* rule) {
    module->record("rpcTalRuleBundleSet", std::to_string(ifId));
    return module->onLines("rpcTalRuleBundleSet", ifId,
                           [&](auto& line) { copySlots(*rule, line.rules, -1); });
}

uint32_t ruleGet(unsigned ifId, rpcTalRule* rule) {
    return module->onLines("rpcTalRuleGet", ifId,
                           [&](auto& line) { copySlots(line.rules, *rule, -1); });
}

uint32_t convertProfiles() {
    module->record("rpcTalConvertAllDynamicProfilesToStatic", "");
    return module->onLines("rpcTalConvertAllDynamicProfilesToStatic", 0, [](auto&) {});
}

uint32_t clearIsa() {
    module->record("clearIsaConfiguration", "");
    return module->onLines("clearIsaConfiguration", 0, [](auto&) {});
}

ServiceFunctions makeFunctions() {
    ServiceFunctions table;
    table.adminStateSet = adminStateSet;
    table.adminStateGet = adminStateGet;
    table.intfAdminStateSet = intfAdminStateSet;
    table.intfAdminStateGet = intfAdminStateGet;
    table.intfAuthenAdminStateSet = intfAuthenAdminStateSet;
    table.intfAuthenAdminStateGet = intfAuthenAdminStateGet;
    table.intfAuthorAdminStateSet = intfAuthorAdminStateSet;
    table.intfAuthorAdminStateGet = intfAuthorAdminStateGet;
    table.intfAutoReqAdminStateSet = intfAutoReqAdminStateSet;
    table.intfAutoReqAdminStateGet = intfAutoReqAdminStateGet;
    table.intfAuthenOperStateGet = intfAuthenOperStateGet;
    table.intfAuthorOperStateGet = intfAuthorOperStateGet;
    table.intfStatisticsGet = intfStatisticsGet;
    table.intfStatesGet = intfStatesGet;
    table.ruleSet = ruleSet;
    table.ruleBundleSet = ruleBundleSet;
    table.ruleGet = ruleGet;
    table.convertAllDynamicProfilesToStatic = convertProfiles;
    table.clearIsaConfiguration = clearIsa;
    return table;
}

}  // namespace

TestNode::TestNode() : module_(std::make_unique<Module>()) {
    if (module != nullptr) {
        throw std::logic_error("one test node at a time");
    }
    for (const unsigned id : {1u, 2u}) {
        interfaces_.push_back({.id = id,
                               .name = "1/" + std::to_string(id),
                               .kernelName = "dsl" + std::to_string(id),
                               .portState = PortState::blocked,
                               .gateOpen = false,
                               .timeout = 120,
                               .maxQueueSize = 1,
                               .anyRule = false});
        module_->lines[id];
    }
    module = module_.get();
}

TestNode::~TestNode() {
    module = nullptr;
}

const ServiceFunctions& TestNode::functions() {
    static const ServiceFunctions table = makeFunctions();
    return table;
}

const ServiceFunctions& TestNode::functionsWithoutRuleGet() {
    static const ServiceFunctions table = [] {
        ServiceFunctions incomplete = makeFunctions();
        incomplete.ruleGet = nullptr;
        return incomplete;
    }();
    return table;
}

void TestNode::refuse(const std::string& function, uint32_t result) {
    const std::lock_guard<std::mutex> lock(module_->mutex);
    if (result == 0) {
        module_->refusals.erase(function);
    } else {
        module_->refusals[function] = result;
    }
}

std::vector<std::string> TestNode::calls() const {
    const std::lock_guard<std::mutex> lock(module_->mutex);
    return module_->calls;
}

void TestNode::setFile(const std::string& contents) {
    const std::lock_guard<std::mutex> lock(mutex_);
    file_ = contents;
}

void TestNode::setInterface(const InterfaceView& view) {
    const std::lock_guard<std::mutex> lock(mutex_);
    for (InterfaceView& known : interfaces_) {
        if (known.id == view.id) {
            known = view;
        }
    }
}

void TestNode::setServers(std::vector<ServerView> servers) {
    const std::lock_guard<std::mutex> lock(mutex_);
    servers_ = std::move(servers);
}

void TestNode::setProfiles(std::vector<ProfileInfo> profiles) {
    const std::lock_guard<std::mutex> lock(mutex_);
    profiles_ = std::move(profiles);
}

void TestNode::setStates(uint32_t forwarding, uint32_t authentication, uint32_t authorization) {
    const std::lock_guard<std::mutex> lock(module_->mutex);
    module_->forwarding = forwarding;
    module_->authentication = authentication;
    module_->authorization = authorization;
}

Identity TestNode::identity() const {
    return {.shelf = "2",
            .boardPosition = 5,
            .boardType = 2,
            .version = "0.1.0",
            .started = std::chrono::system_clock::time_point(std::chrono::seconds(1700000000)),
            .uptime = std::chrono::seconds(3661)};
}

std::vector<InterfaceView> TestNode::interfaces() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return interfaces_;
}

std::vector<ServerView> TestNode::servers() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return servers_;
}

std::vector<ProfileInfo> TestNode::profiles() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return profiles_;
}

std::string TestNode::storageFile() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return file_;
}

uint32_t TestNode::anyRuleSet(unsigned ifId, bool present) {
    module_->record("anyRuleSet", std::to_string(ifId) + (present ? ", on" : ", off"));
    const uint32_t result = module_->onLines("anyRuleSet", ifId, [](auto&) {});
    if (result == 0) {
        const std::lock_guard<std::mutex> lock(mutex_);
        for (InterfaceView& known : interfaces_) {
            known.anyRule = ifId == 0 || ifId == known.id ? present : known.anyRule;
        }
    }
    return result;
}

std::string storedLogin(unsigned ifId) {
    const std::string pattern = "0011223344550211" + std::string(240, '0');
    return "interface: " + std::to_string(ifId) +
           "\nLoginAAAtype: 01\ncircuitId: node2 atm 5/1\nremoteId: \nvendorId: acme 1\n"
           "clientId: \x01\x02\nsourceMac: 02:11:22:33:44:55\nsourceIP: c0000207\n"
           "userPatternSequence: " +
           pattern + "\nuserPatternMask: " + std::string(256, '0') +
           "\nextraInt: 00000000\nextraString: \nloginIdType: fd\nvlanId: 64\n";
}

}  // namespace node::control
