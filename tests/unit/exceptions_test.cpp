// No exception of the platform leaves the module through a service function or a callback, no
// lock stays held, and the next call works as if nothing had happened.
#include "rpc/rpctal.h"
#include "tests/fake/module_test.h"

#include <array>
#include <functional>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

namespace {

struct Entry {
    const char* name;
    // The service function's answer; none for a callback.
    std::function<std::optional<uint32_t>(FakePlatform&)> call;
};

void PrintTo(const Entry& entry, std::ostream* out) {
    *out << entry.name;
}

bool flag;
std::array<uint32_t, 13> counters;

rpcTalRule managementRule() {
    rpcTalRule rule{};
    rule.ethType = 0x0800;
    rule.type8Value = talUnset;
    rule.type2Value = talUnset;
    for (rpcTalRulePattern& pattern : rule.pattern) {
        pattern.format = talUnset;
    }
    rule.type = static_cast<rpc_tal_rule_type>(1);
    return rule;
}

std::vector<Entry> entries() {
    return {
        {"rpcTalAdminStateSet", [](FakePlatform&) { return rpcTalAdminStateSet(0); }},
        {"rpcTalAdminStateGet", [](FakePlatform&) { return rpcTalAdminStateGet(&flag); }},
        {"rpcTalIntfAdminStateSet", [](FakePlatform&) { return rpcTalIntfAdminStateSet(7, 0); }},
        {"rpcTalIntfAdminStateGet",
         [](FakePlatform&) { return rpcTalIntfAdminStateGet(7, &flag); }},
        {"rpcTalIntfAuthenAdminStateSet",
         [](FakePlatform&) { return rpcTalIntfAuthenAdminStateSet(0, 0); }},
        {"rpcTalIntfAuthenAdminStateGet",
         [](FakePlatform&) { return rpcTalIntfAuthenAdminStateGet(7, &flag); }},
        {"rpcTalIntfAuthorAdminStateSet",
         [](FakePlatform&) { return rpcTalIntfAuthorAdminStateSet(7, 0); }},
        {"rpcTalIntfAuthorAdminStateGet",
         [](FakePlatform&) { return rpcTalIntfAuthorAdminStateGet(7, &flag); }},
        {"rpcTalIntfAutoReqAdminStateSet",
         [](FakePlatform&) { return rpcTalIntfAutoReqAdminStateSet(7, 1); }},
        {"rpcTalIntfAutoReqAdminStateGet",
         [](FakePlatform&) { return rpcTalIntfAutoReqAdminStateGet(7, &flag); }},
        {"rpcTalIntfAuthenOperStateGet",
         [](FakePlatform&) { return rpcTalIntfAuthenOperStateGet(7, &flag); }},
        {"rpcTalIntfAuthorOperStateGet",
         [](FakePlatform&) { return rpcTalIntfAuthorOperStateGet(7, &flag); }},
        {"rpcTalIntfStatisticsGet",
         [](FakePlatform&) {
             auto& c = counters;
             return rpcTalIntfStatisticsGet(7, &c[0], &c[1], &c[2], &c[3], &c[4], &c[5], &c[6],
                                            &c[7], &c[8], &c[9], &c[10], &c[11], &c[12]);
         }},
        {"rpcTalIntfStatesGet",
         [](FakePlatform&) {
             talIntfFwdState forwarding{};
             talIntfAuthenFwdState authentication{};
             talIntfAuthorFwdState authorization{};
             return rpcTalIntfStatesGet(7, &forwarding, &authentication, &authorization);
         }},
        {"rpcTalReply", [](FakePlatform&) { return rpcTalReply(7, 2, 0); }},
        {"rpcTalRuleSet",
         [](FakePlatform&) {
             rpcTalRule rule = managementRule();
             return rpcTalRuleSet(7, &rule, talOperationAdd);
         }},
        {"rpcTalRuleBundleSet",
         [](FakePlatform&) {
             rpcTalRule rule = managementRule();
             rule.type2Value = 0;  // a bundle must have one
             return rpcTalRuleBundleSet(7, &rule);
         }},
        {"rpcTalRuleGet",
         [](FakePlatform&) {
             rpcTalRule rule = managementRule();
             return rpcTalRuleGet(7, &rule);
         }},
        {"rpcTalConvertAllDynamicProfilesToStatic",
         [](FakePlatform&) { return rpcTalConvertAllDynamicProfilesToStatic(); }},
        {"clearIsaConfiguration", [](FakePlatform&) { return clearIsaConfiguration(); }},
        {"engineEvent",
         [](FakePlatform& platform) {
             platform.engine.raise("talif7_ 000100001a2b3c4d5e192.168.001.010");
             return std::optional<uint32_t>();
         }},
        {"interfaceEvent",
         [](FakePlatform& platform) {
             platform.interfaces.fireEvent(7, 4);
             return std::optional<uint32_t>();
         }},
        {"configurationApply",
         [](FakePlatform& platform) {
             platform.manager.applyStart();
             platform.manager.applyStop();
             return std::optional<uint32_t>();
         }},
    };
}

class ExceptionsTest : public ModuleTest, public testing::WithParamInterface<Entry> {
protected:
    // Everything on, a login stored and another in flight, a rule set: long ways for all.
    void prepare() {
        ASSERT_EQ(0u, module.talAdminStateSet(true));
        ASSERT_EQ(talResOk, module.talIntfAdminStateSet(7, true));
        ASSERT_EQ(talResOk, module.talIntfAutoReqAdminStateSet(7, false));
        // On and off and on again, so that a walk does not end at a held value.
        ASSERT_EQ(talResOk, module.talIntfAuthenAdminStateSet(7, true));
        ASSERT_EQ(talResOk, module.talIntfAuthorAdminStateSet(7, true));
        talRule rule{};
        module.setTalRuleDefault(&rule);
        rule.type = talRuleTypeEthType;
        ASSERT_EQ(talResOk, module.talRuleSet(7, &rule, talOperationDelete));
        storeLogins({7});
        raiseLogin(7);
    }
};

INSTANTIATE_TEST_SUITE_P(Entries, ExceptionsTest, testing::ValuesIn(entries()),
                         [](const auto& entry) { return entry.param.name; });

TEST_P(ExceptionsTest, StayInsideTheModule) {
    platform.board.type = 1;
    platform.profiles.services = {{"gold", true}};
    platform.profiles.vlans = {{"v", true}};
    platform.profiles.multicasts = {{"m", true}};
    platform.profiles.flows = {{"f", false, false}};
    platform.profiles.securities = {"s"};
    platform.profiles.l2cps = {"l"};
    platform.profiles.accessLists = {"a"};
    platform.board.addVdslProfile("p", 3);
    platform.board.alarmProfiles = {{"alarm", 3}};
    startWith({7});
    platform.interfaces.fireEvent(7, 4);

    std::optional<uint32_t> answer;
    const unsigned runs = fake::sweepExceptions(
        platform, [this] { prepare(); }, [&] { answer = GetParam().call(platform); },
        [&](const fake::FaultRun& run) {
            if (answer) {
                EXPECT_EQ(run.faulted ? 1u : 0u, *answer);
            }
        });
    EXPECT_LE(2u, runs) << "no call of the platform was struck";
}

using LoginExceptionTest = ModuleTest;

TEST_F(LoginExceptionTest, BlockWhoseStoringWasCutOffIsStoredByARepeatedAnswer) {
    startWith({7});
    raiseLogin(7);
    unsigned cutOff = 0;
    // The interface check, the engine, then the locks of the storing.
    for (unsigned n = 1; n <= 5; ++n) {
        platform.armException(n);
        EXPECT_EQ(1u, rpcTalReply(7, 2, 0));
        ASSERT_TRUE(platform.struck());
        cutOff += platform.struck()->name == "exclusiveLock";
        EXPECT_FALSE(isStored(7));
    }
    platform.disarmFault();
    EXPECT_EQ(3u, cutOff);
    EXPECT_EQ(0u, rpcTalReply(7, 2, 0));
    EXPECT_TRUE(isStored(7));
}

// Storing asks the lock; the newer login arrives while it does.
TEST_F(LoginExceptionTest, BlockWhoseStoringWasCutOffReplacesNoNewerOne) {
    startWith({7});
    raiseLogin(7);
    platform.board.shelfId = "9";
    platform.manager.onLockExclusive = [this] {
        raiseLogin(7);
        platform.armException(1);
    };
    EXPECT_EQ(1u, rpcTalReply(7, 2, 0));
    platform.disarmFault();
    platform.manager.onLockExclusive = nullptr;
    EXPECT_EQ(0u, rpcTalReply(7, 2, 0));
    EXPECT_NE(std::string::npos, storedFile().find("circuitId: KORVALIN:9 eth 5/1/7\n"));
}

}  // namespace
