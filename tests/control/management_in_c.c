/* A management program in C that knows nothing of the module but rpc/'s header: it switches TAL on,
   sets rules, sees a login through, reads everything back and switches off. */
#include "rpc/rpctal.h"

#include <stdio.h>
#include <string.h>

#include "tests/control/c_stage.h"

#define COUNTERS 13

static int failures = 0;

static void expect(int holds, const char* what, int line) {
    if (!holds) {
        printf("management_in_c.c:%d: not so: %s\n", line, what);
        ++failures;
    }
}
#define EXPECT(what) expect((what) ? 1 : 0, #what, __LINE__)

struct IntfState {
    uint32_t (*set)(unsigned intf, int state);
    uint32_t (*get)(unsigned intf, bool* state);
    bool atStart;
};

static void settings(void) {
    const struct IntfState states[] = {
        {rpcTalIntfAdminStateSet, rpcTalIntfAdminStateGet, false},
        {rpcTalIntfAuthenAdminStateSet, rpcTalIntfAuthenAdminStateGet, true},
        {rpcTalIntfAuthorAdminStateSet, rpcTalIntfAuthorAdminStateGet, true},
        {rpcTalIntfAutoReqAdminStateSet, rpcTalIntfAutoReqAdminStateGet, false},
    };
    bool state = true;
    EXPECT(rpcTalAdminStateGet(&state) == 0 && !state);
    EXPECT(rpcTalAdminStateSet(7) == 0);
    EXPECT(rpcTalAdminStateGet(&state) == 0 && state);
    EXPECT(rpcTalAdminStateGet(NULL) == 1);
    for (size_t i = 0; i < sizeof states / sizeof *states; ++i) {
        state = !states[i].atStart;
        EXPECT(states[i].get(1, &state) == 0 && state == states[i].atStart);
        EXPECT(states[i].set(1, states[i].atStart ? 0 : 7) == 0);
        EXPECT(states[i].get(1, &state) == 0 && state != states[i].atStart);
        EXPECT(states[i].get(2, &state) == 0 && state == states[i].atStart);
        EXPECT(states[i].set(1, states[i].atStart) == 0);
        EXPECT(states[i].set(77, 1) == 3);
        state = true;
        EXPECT(states[i].get(77, &state) == 3 && state);
        EXPECT(states[i].get(1, NULL) == 1);
    }
    EXPECT(rpcTalIntfAdminStateSet(1, 1) == 0);
}

static rpcTalRule unsetRule(rpc_tal_rule_type type) {
    rpcTalRule rule;
    memset(&rule, 0, sizeof rule);
    rule.ethType = talUnset;
    rule.type2Value = talUnset;
    rule.type8Value = talUnset;
    for (int i = 0; i < 3; ++i) {
        rule.pattern[i].format = talUnset;
    }
    rule.type = type;
    return rule;
}

static void rules(void) {
    rpcTalRule vendor = unsetRule(3);
    vendor.pattern[0].format = 0;
    strcpy(vendor.pattern[0].text, "acme");
    rpcTalRule vlan = unsetRule(8);
    vlan.type8Value = 100;
    rpcTalRule read = unsetRule(0);

    EXPECT(rpcTalRuleSet(1, &vendor, talOperationAdd) == 0);
    EXPECT(rpcTalRuleSet(1, &vlan, talOperationAdd) == 0);
    EXPECT(rpcTalRuleGet(1, &read) == 0);
    EXPECT(read.pattern[0].format == 0 && strcmp(read.pattern[0].text, "acme") == 0);
    EXPECT(read.type8Value == 100 && read.ethType == talUnset && read.type2Value == talUnset);
    EXPECT(rpcTalRuleGet(2, &read) == 0);
    EXPECT(read.pattern[0].format == talUnset && read.type8Value == talUnset);

    rpcTalRule gone = unsetRule(3);
    EXPECT(rpcTalRuleSet(1, &gone, talOperationDelete) == 0);
    EXPECT(rpcTalRuleGet(1, &read) == 0);
    EXPECT(read.pattern[0].format == talUnset && read.type8Value == 100);

    rpcTalRule bundle = unsetRule(2);
    bundle.type2Value = 1;
    bundle.ethType = 0x0800;
    EXPECT(rpcTalRuleBundleSet(1, &bundle) == 0);
    EXPECT(rpcTalRuleGet(1, &read) == 0);
    EXPECT(read.type2Value == 1 && read.ethType == 0x0800 && read.type8Value == talUnset);

    rpcTalRule arp = unsetRule(1);
    arp.ethType = 0x0806;
    EXPECT(rpcTalRuleSet(1, &arp, talOperationAdd) == 2);
    EXPECT(rpcTalRuleSet(77, &vlan, talOperationAdd) == 3);
    EXPECT(rpcTalRuleGet(77, &read) == 3);
    EXPECT(rpcTalRuleGet(1, NULL) == 1);
    EXPECT(rpcTalRuleSet(1, NULL, talOperationAdd) == 1);
    EXPECT(rpcTalRuleBundleSet(1, NULL) == 1);
}

static uint32_t statistics(unsigned intf, uint32_t c[COUNTERS]) {
    return rpcTalIntfStatisticsGet(intf, &c[0], &c[1], &c[2], &c[3], &c[4], &c[5], &c[6], &c[7],
                                   &c[8], &c[9], &c[10], &c[11], &c[12]);
}

static void status(void) {
    uint32_t reported[COUNTERS];
    uint32_t read[COUNTERS] = {0};
    for (uint32_t i = 0; i < COUNTERS; ++i) {
        reported[i] = 0xFFFFFFF0U + i;
    }
    stageEngineReports("ittalPortStatisticsGet", reported, COUNTERS);
    EXPECT(statistics(1, read) == 0 && memcmp(read, reported, sizeof read) == 0);
    EXPECT(statistics(77, read) == 3);

    const uint32_t up[] = {1};
    bool state = false;
    stageEngineReports("ittalPortAuthenOperStateGet", up, 1);
    EXPECT(rpcTalIntfAuthenOperStateGet(1, &state) == 0 && state);
    state = false;
    stageEngineReports("ittalPortAuthorOperStateGet", up, 1);
    EXPECT(rpcTalIntfAuthorOperStateGet(1, &state) == 0 && state);

    const uint32_t states[] = {3, 4, 5};
    talIntfFwdState forwarding = 99;
    talIntfAuthenFwdState authentication = 99;
    talIntfAuthorFwdState authorization = 99;
    stageEngineReports("ittalPortStatesGet", states, 3);
    EXPECT(rpcTalIntfStatesGet(1, &forwarding, &authentication, &authorization) == 0);
    EXPECT(forwarding == 99 && authentication == 4 && authorization == 99);
    EXPECT(rpcTalIntfStatesGet(1, NULL, &authentication, &authorization) == 1);
}

static void login(void) {
    stageTrap(1);
    EXPECT(rpcTalReply(1, 4, 0) == 1);
    EXPECT(rpcTalReply(77, 2, 0) == 3);
    EXPECT(!stageStoresALogin());
    EXPECT(rpcTalReply(1, 2, 0) == 0);
    EXPECT(stageStoresALogin());
    EXPECT(rpcTalReply(1, 3, 0) == 0);
    EXPECT(rpcTalReply(1, 2, 5) != 0);
    EXPECT(rpcTalAdminStateSet(0) == 0);
    EXPECT(!stageStoresALogin());
}

static void profilesAndReset(void) {
    stageAddServiceProfile("gold");
    EXPECT(rpcTalConvertAllDynamicProfilesToStatic() == 0);
    EXPECT(clearIsaConfiguration() == 0);
    bool state = true;
    EXPECT(rpcTalIntfAdminStateGet(1, &state) == 0 && !state);
    stageRefuse("ittalRequestState");
    EXPECT(clearIsaConfiguration() == 1);
}

int manageInC(void) {
    stageBegin();
    settings();
    rules();
    status();
    login();
    profilesAndReset();
    stageEnd();
    return failures;
}
