// Deleting dynamic profiles when TAL is switched off, and the reset of ISA's configuration.
#include "rpc/rpctal.h"
#include "tests/fake/module_test.h"

#include <algorithm>

namespace {

using fake::sameLines;
using fake::Service;

class DynamicDeletionTest : public ModuleTest {
protected:
    std::vector<std::string> deletions() const {
        return platform.calls({Service::profiles, Service::acl, Service::ports, Service::vdsl});
    }
    static std::vector<std::string> everything(int board) {
        std::vector<std::string> lines = {
            "serviceDynamicProfilesDelete(0)",    "vlanDynamicProfilesDelete(0)",
            "qosFlowDynamicProfilesDeleteAll()",  "mcastDynamicProfilesDeleteAll()",
            "securityDynamicProfilesDeleteAll()", "l2cpDynamicProfilesDeleteAll()",
            "accessListDynamicDeleteAll()",       "getBoardType() = " + std::to_string(board)};
        if (board == 1 || board == 5 || board == 7) {
            lines.push_back("vdslPortDynamicProfilesDelete(0)");
        }
        lines.push_back("saveDynamicProfiles(0)");
        return lines;
    }
};

TEST_F(DynamicDeletionTest, OneInterfaceLosesServiceVlanAndDslProfilesOnly) {
    for (const int board : {0, 1, 2, 3, 4, 5, 6, 7, 8, 255, -1}) {
        platform.board.type = board;
        platform.forget();
        EXPECT_EQ(0u, module.talDynamicProfilesDelete(7));
        std::vector<std::string> expected = {"serviceDynamicProfilesDelete(7)",
                                             "vlanDynamicProfilesDelete(7)",
                                             "getBoardType() = " + std::to_string(board)};
        if (board == 1 || board == 5 || board == 7) {
            expected.push_back("vdslPortDynamicProfilesDelete(7)");
        }
        expected.push_back("saveDynamicProfiles(0)");
        EXPECT_TRUE(sameLines(platform.calls(), expected));
    }
}

TEST_F(DynamicDeletionTest, InterfaceZeroMeansEveryDynamicProfile) {
    for (const int board : {0, 1, 5, 7, 8}) {
        platform.board.type = board;
        platform.forget();
        EXPECT_EQ(0u, module.talDynamicProfilesDelete(0));
        EXPECT_TRUE(sameLines(platform.calls(), everything(board)));
    }
}

TEST_F(DynamicDeletionTest, NoResultIsLookedAt) {
    platform.board.type = 5;
    platform.answers.byDefault(1);
    EXPECT_EQ(0u, module.talDynamicProfilesDelete(0));
    std::vector<std::string> expected = everything(5);
    for (std::string& line : expected) {
        line += line.find("getBoardType") == 0 ? "" : " = 1";
    }
    EXPECT_TRUE(sameLines(platform.calls(), expected));
    EXPECT_TRUE(platform.texts().empty());
}

// Each call refused in turn, for all and for one interface, on a board with and one without DSL
// lines: every other call still happens, in its place.
TEST_F(DynamicDeletionTest, EveryRefusedCallLeavesAllTheOthers) {
    for (const int board : {2, 7}) {
        for (const unsigned intf : {0u, 7u}) {
            SCOPED_TRACE(std::to_string(board) + ", interface " + std::to_string(intf));
            platform.board.type = board;
            platform.forget();
            EXPECT_EQ(0u, module.talDynamicProfilesDelete(intf));
            const std::vector<std::string> whole = platform.calls();
            unsigned result = 1;
            const unsigned runs = fake::sweepFaults(
                platform, [&] { result = 1; },
                [&] { result = module.talDynamicProfilesDelete(intf); },
                [&](const fake::FaultRun& run) {
                    std::vector<std::string> expected = whole;
                    if (run.faulted) {
                        const std::string bare =
                            run.refused.text.substr(0, run.refused.text.rfind(" = "));
                        const auto place = std::find(expected.begin(), expected.end(), bare);
                        ASSERT_NE(expected.end(), place) << bare;
                        *place = run.refused.text;
                    }
                    EXPECT_TRUE(sameLines(platform.calls(), expected));
                    EXPECT_EQ(0u, result);
                    EXPECT_TRUE(platform.texts().empty());
                });
            // All but the question for the board's type, and a last run without a refusal.
            EXPECT_EQ(whole.size() - 1 + 1, runs);
        }
    }
}

TEST_F(DynamicDeletionTest, DeletionTakesNoLockOfItsOwn) {
    EXPECT_EQ(0u, module.talDynamicProfilesDelete(0));
    EXPECT_TRUE(platform.calls({Service::lock}).empty());
}

TEST_F(DynamicDeletionTest, InterfaceNumberReachesTheServicesAsTheyTakeIt) {
    platform.board.type = 1;
    EXPECT_EQ(0u, module.talDynamicProfilesDelete(0xFFFFFFFF));
    EXPECT_TRUE(sameLines(platform.calls(),
                          {"serviceDynamicProfilesDelete(-1)",
                           "vlanDynamicProfilesDelete(4294967295)", "getBoardType() = 1",
                           "vdslPortDynamicProfilesDelete(4294967295)", "saveDynamicProfiles(0)"}));
}

TEST_F(DynamicDeletionTest, SwitchingAnInterfaceOffDeletesUnderTheCallersLock) {
    platform.board.type = 1;
    startWith({1, 7});
    ASSERT_EQ(talResOk, module.talIntfAdminStateSet(7, true));
    platform.forget();
    EXPECT_EQ(talResOk, module.talIntfAdminStateSet(7, false));
    EXPECT_TRUE(sameLines(
        deletions(),
        {"serviceDynamicProfilesDelete(7)", "vlanDynamicProfilesDelete(7)", "getBoardType() = 1",
         "vdslPortDynamicProfilesDelete(7)", "saveDynamicProfiles(0)"}));
    for (const char* name : {"serviceDynamicProfilesDelete", "saveDynamicProfiles"}) {
        for (const fake::Call& call : platform.find(name)) {
            EXPECT_GE(call.exclusiveHeld, 1);
        }
    }
}

TEST_F(DynamicDeletionTest, SwitchingEverythingOffDeletesEverythingOnce) {
    platform.board.type = 7;
    startWith({1, 7});
    ASSERT_EQ(talResOk, module.talIntfAdminStateSet(0, true));
    platform.forget();
    EXPECT_EQ(talResOk, module.talIntfAdminStateSet(0, false));
    EXPECT_TRUE(sameLines(deletions(), everything(7)));
    ASSERT_EQ(0u, module.talAdminStateSet(true));
    platform.forget();
    EXPECT_EQ(0u, module.talAdminStateSet(false));
    EXPECT_TRUE(sameLines(deletions(), everything(7)));
    for (const fake::Call& call : platform.find("accessListDynamicDeleteAll")) {
        EXPECT_GE(call.exclusiveHeld, 1);
    }
}

// ---- the reset of ISA's configuration

TEST_F(DynamicDeletionTest, ClearAppliesTheDefaultsAndThenClearsIsa) {
    startWith({1, 5});
    ASSERT_EQ(talResOk, module.talIntfTimeoutSet(5, 30));
    ASSERT_EQ(0u, module.talAdminStateSet(true));
    platform.forget();
    EXPECT_EQ(0u, clearIsaConfiguration());
    uint32_t timeout = 0;
    EXPECT_EQ(talResOk, module.talIntfTimeoutGet(5, &timeout));
    EXPECT_EQ(120u, timeout);
    bool state = true;
    EXPECT_EQ(0u, module.talAdminStateGet(&state));
    EXPECT_FALSE(state);
    EXPECT_EQ(1u, platform.count("isaradiusbllClearConfig"));
    EXPECT_EQ("isaradiusbllClearConfig()", platform.calls().back());
}

TEST_F(DynamicDeletionTest, RefusedDefaultsLeaveIsaAlone) {
    startWith({1, 5});
    for (const char* name : {"ittalRequestState", "ittalPortTimeoutSet", "ittalPortMaxQueueSizeSet",
                             "ittalPortAutoReqAdminStateSet"}) {
        platform.answers.clear();
        platform.answers.always(name, -1);
        platform.forget();
        EXPECT_EQ(1u, clearIsaConfiguration()) << name;
        EXPECT_FALSE(module.clearIsaConfiguration());
        EXPECT_EQ(0u, platform.count("isaradiusbllClearConfig"));
    }
}

TEST_F(DynamicDeletionTest, RefusalByIsaIsNotLookedAt) {
    platform.answers.always("isaradiusbllClearConfig");
    EXPECT_EQ(0u, clearIsaConfiguration());
    EXPECT_TRUE(module.clearIsaConfiguration());
    EXPECT_EQ(2u, platform.count("isaradiusbllClearConfig"));
    EXPECT_TRUE(platform.texts().empty());
}

// An entity of its own that answers for the defaults.
class OtherDefaults : public tal {
public:
    bool applyDefaultSettings() override {
        ++asked;
        return answer;
    }
    bool answer = true;
    int asked = 0;
};

TEST_F(DynamicDeletionTest, DefaultsAreAppliedThroughTheVirtualCallAndWithoutALock) {
    OtherDefaults entity;
    EXPECT_TRUE(entity.clearIsaConfiguration());
    EXPECT_EQ(1, entity.asked);
    EXPECT_TRUE(sameLines(platform.calls(), {"isaradiusbllClearConfig()"}));
    EXPECT_TRUE(platform.calls({Service::lock}).empty());
    entity.answer = false;
    platform.forget();
    EXPECT_FALSE(entity.clearIsaConfiguration());
    EXPECT_EQ(2, entity.asked);
    EXPECT_TRUE(platform.calls().empty());
}

}  // namespace
