// The fake platform is trusted by every other test, so its own rules are tested here.
#include "tests/fake/fake_platform.h"
#include "platform/log.h"
#include "platform/profiles.h"
#include "platform/sysinfo.h"
#include "tests/fake/fault_sweep.h"

#include <gtest/gtest-spi.h>
#include <gtest/gtest.h>
#include <syslog.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <thread>

using fake::sameLines;
using fake::Service;
using Lines = std::vector<std::string>;

namespace {

class FakePlatformTest : public testing::Test {
protected:
    FakePlatform platform;
};

TEST_F(FakePlatformTest, ProgramRunsInADirectoryOfItsOwn) {
    EXPECT_TRUE(std::filesystem::is_empty("."));
    EXPECT_NE(std::string::npos, std::filesystem::current_path().string().find("tal-test-"));
}

TEST_F(FakePlatformTest, CallsAreLoggedInOrderWithArgumentsAndResults) {
    platform.interfaces.add(7, 1, "1/7", "dsl7");
    platform.answers.always("ittalPortTimeoutSet", -3);
    unsigned type = 0;
    EXPECT_EQ(0, ittalSelectorAdd(bridgeName, "6"));
    EXPECT_EQ(0u, singleton<Interfaces>::instance().interfaceGetTypeById(7, &type));
    EXPECT_EQ(-3, ittalPortTimeoutSet(bridgeName, 7, 120));
    EXPECT_EQ(0, ittalPortAuthenReply(bridgeName, 7, true));
    EXPECT_TRUE(sameLines(platform.calls(), {
                                                "ittalSelectorAdd(\"6\")",
                                                "interfaceGetTypeById(7) -> 1",
                                                "ittalPortTimeoutSet(7, 120) = -3",
                                                "ittalPortAuthenReply(7, true)",
                                            }));
    EXPECT_TRUE(sameLines(platform.calls({Service::interfaces}), {"interfaceGetTypeById(7) -> 1"}));
    EXPECT_EQ(1u, platform.count("ittalSelectorAdd"));
    platform.forget();
    EXPECT_TRUE(platform.calls().empty());
}

TEST_F(FakePlatformTest, DifferingLinesAreShownSideBySide) {
    const testing::AssertionResult result = sameLines({"a", "b"}, {"a", "c", "d"});
    EXPECT_FALSE(result);
    EXPECT_STREQ(
        "actual (2) | expected (3)\n  a\n- b\n+ c\n- (nothing)\n+ d\n"
        "(- as it was, + as expected)",
        result.message());
    EXPECT_TRUE(sameLines({}, {}));
}

TEST_F(FakePlatformTest, AnswerForTheNthCallWinsOverInterfaceOverName) {
    platform.answers.byDefault(9);
    EXPECT_EQ(9, ittalPortTimeoutSet(bridgeName, 1, 1));
    platform.answers.always("ittalPortTimeoutSet", 2);
    platform.answers.forIntf("ittalPortTimeoutSet", 5, 3);
    platform.answers.nth("ittalPortTimeoutSet", 3, 4);
    EXPECT_EQ(2, ittalPortTimeoutSet(bridgeName, 1, 1));
    EXPECT_EQ(3, ittalPortTimeoutSet(bridgeName, 5, 1));
    EXPECT_EQ(4, ittalPortTimeoutSet(bridgeName, 5, 1));
    EXPECT_EQ(3, ittalPortTimeoutSet(bridgeName, 5, 1));
    EXPECT_EQ(9, ittalPortMaxQueueSizeSet(bridgeName, 5, 1));
    platform.answers.clear();
    EXPECT_EQ(0, ittalPortTimeoutSet(bridgeName, 5, 1));
}

TEST_F(FakePlatformTest, NthCallCanBeCountedPerInterface) {
    platform.answers.nthForIntf("ittalStoredReqSend", 5, 2, 7);
    EXPECT_EQ(0, ittalStoredReqSend(bridgeName, 5));
    EXPECT_EQ(0, ittalStoredReqSend(bridgeName, 4));
    EXPECT_EQ(7, ittalStoredReqSend(bridgeName, 5));
}

TEST_F(FakePlatformTest, LocksAreLoggedCountedAndRefused) {
    platform.answers.nth("exclusiveLock", 2);
    platform.answers.nth("sharedLock", 2);
    {
        const BLLManager::exclusiveLock_t outer;
        EXPECT_TRUE(outer.isLocked());
        const BLLManager::sharedLock_t inner;
        EXPECT_TRUE(inner.isLocked());
        const BLLManager::exclusiveLock_t refused;
        EXPECT_FALSE(refused.isLocked());
        const BLLManager::sharedLock_t refusedToo;
        EXPECT_FALSE(refusedToo.isLocked());
        EXPECT_EQ(1, platform.locksHeld().exclusive);
        EXPECT_EQ(1, platform.locksHeld().shared);
        ittalRequestState(bridgeName, true);
    }
    EXPECT_EQ(0, platform.locksHeld().exclusive);
    EXPECT_EQ(0, platform.locksHeld().shared);
    EXPECT_TRUE(sameLines(platform.calls({Service::lock}), {
                                                               "exclusiveLock()",
                                                               "sharedLock()",
                                                               "exclusiveLock() = 1",
                                                               "sharedLock() = 1",
                                                               "sharedUnlock()",
                                                               "exclusiveUnlock()",
                                                           }));
    const std::vector<fake::Call> calls = platform.find("ittalRequestState");
    ASSERT_EQ(1u, calls.size());
    EXPECT_EQ(1, calls[0].exclusiveHeld);
    EXPECT_EQ(1, calls[0].sharedHeld);
}

TEST_F(FakePlatformTest, RecordsAreKeptWhole) {
    ittalCondition condition{};
    memset(&condition, 0x5a, sizeof(condition));
    strcpy(condition.selector, "41");
    condition.type = 1;
    condition.code = 5;
    ittalAction action{};
    strcpy(action.list, "41");
    action.type = 2;
    action.code = 2;
    EXPECT_EQ(0, ittalConditionAdd(bridgeName, &condition));
    EXPECT_EQ(0, ittalActionAdd(bridgeName, &action));
    EXPECT_TRUE(sameLines(platform.calls(), {
                                                "ittalConditionAdd(\"41\", 1, 5)",
                                                "ittalActionAdd(\"41\", 2, 2)",
                                            }));
    ASSERT_EQ(1u, platform.engine.conditions().size());
    EXPECT_EQ(0, memcmp(&condition, &platform.engine.conditions()[0], sizeof(condition)));
    ASSERT_EQ(1u, platform.engine.actions().size());
    EXPECT_EQ(0, memcmp(&action, &platform.engine.actions()[0], sizeof(action)));
}

TEST_F(FakePlatformTest, IsaKeepsTheBlockAsItCameAndMayChangeIt) {
    platform.isa.onRequest = [](rpcTalLoginBlockBll& block) { block.extraInt = 5; };
    rpcTalLoginBlockBll block{};
    block.interface = 7;
    rpcIsaBllLoginRes result{};
    EXPECT_EQ(0u, singleton<isaradiusbll>::instance().isaradiusbllLoginRequest(&block, &result));
    EXPECT_EQ(5u, block.extraInt);
    ASSERT_EQ(1u, platform.isa.requests().size());
    EXPECT_EQ(0u, platform.isa.requests()[0].extraInt);
    EXPECT_EQ(7u, platform.isa.requests()[0].interface);
}

TEST_F(FakePlatformTest, GettersHandOutWhatWasSetAndNothingWhenRefused) {
    platform.engine.outputs("ittalPortStatesGet", {1, 2, 3});
    platform.engine.outputs("ittalPortStatesGet", {4, 5, 6}, 9);
    platform.answers.forIntf("ittalPortStatesGet", 8);
    unsigned a = 0, b = 0, c = 0;
    EXPECT_EQ(0, ittalPortStatesGet(bridgeName, 7, &a, &b, &c));
    EXPECT_EQ(1u, a);
    EXPECT_EQ(3u, c);
    EXPECT_EQ(0, ittalPortStatesGet(bridgeName, 9, &a, &b, &c));
    EXPECT_EQ(5u, b);
    a = 77;
    EXPECT_EQ(1, ittalPortStatesGet(bridgeName, 8, &a, &b, &c));
    EXPECT_EQ(77u, a);
    bool state = false;
    platform.engine.outputs("ittalAdminStateGet", {1});
    EXPECT_EQ(0, ittalAdminStateGet(bridgeName, &state));
    EXPECT_TRUE(state);
    EXPECT_TRUE(sameLines(platform.calls(), {
                                                "ittalPortStatesGet(7) -> 1, 2, 3",
                                                "ittalPortStatesGet(9) -> 4, 5, 6",
                                                "ittalPortStatesGet(8) = 1",
                                                "ittalAdminStateGet() -> true",
                                            }));
}

TEST_F(FakePlatformTest, UnknownInterfacesAreRefused) {
    platform.interfaces.add(1, 2, "1/1", "eth0");
    const Interfaces& registry = singleton<Interfaces>::instance();
    unsigned number = 77;
    std::string name = "kept";
    EXPECT_NE(0u, registry.interfaceGetTypeById(2, &number));
    EXPECT_NE(0u, registry.interfaceGetNameById(2, name));
    EXPECT_NE(0u, registry.interfaceGetLinuxnameById(2, &name));
    EXPECT_NE(0u, registry.interfaceGetIdByLinuxname("eth1", &number));
    EXPECT_EQ(77u, number);
    EXPECT_EQ("kept", name);
    EXPECT_EQ(0u, registry.interfaceGetIdByLinuxname("eth0", &number));
    EXPECT_EQ(1u, number);
    EXPECT_EQ(0u, registry.interfaceGetLinuxnameById(1, &name));
    EXPECT_EQ("eth0", name);
}

TEST_F(FakePlatformTest, TextsOfBothLogsStandInOneList) {
    Log& log = singleton<Log>::instance();
    log.setMsgLevel(1);
    log.write("first ");
    log.write("half\n");
    syslog(LOG_WARNING, "w %d", 5);
    syslog(LOG_ERR, "e %s", "x");
    log.setMsgLevel(0);
    log.write("open");
    EXPECT_TRUE(sameLines(platform.texts(), {
                                                "log 1: first half",
                                                "warning: w 5",
                                                "err: e x",
                                                "log 0: open (newline missing)",
                                            }));
}

TEST_F(FakePlatformTest, ProfileWalksEndAndUnprotectingClearsTheFlag) {
    platform.profiles.flows = {{"a", false, false}, {"b", true, false}};
    platform.profiles.services = {{"gold", true}};
    std::string next;
    EXPECT_EQ(0u, singleton<qos>::instance().qosProfileNextGet("", next));
    EXPECT_EQ("a", next);
    EXPECT_EQ(0u, singleton<qos>::instance().qosProfileNextGet("a", next));
    EXPECT_EQ("b", next);
    EXPECT_NE(0u, singleton<qos>::instance().qosProfileNextGet("b", next));
    EXPECT_TRUE(singleton<qos>::instance().qosIsFlowProfileInternal("b"));
    EXPECT_FALSE(singleton<qos>::instance().qosIsFlowProfileInternal("a"));
    rpcServProf profile{};
    EXPECT_EQ(0u, singleton<servprofile>::instance().servProfileGet("gold", profile));
    EXPECT_TRUE(profile.protectFlag);
    EXPECT_EQ(0u, singleton<servprofile>::instance().servProfileUnprotect("gold"));
    EXPECT_EQ(0u, singleton<servprofile>::instance().servProfileGet("gold", profile));
    EXPECT_FALSE(profile.protectFlag);
}

TEST_F(FakePlatformTest, DslServicesArePresentAbsentOrThrowing) {
    platform.board.addVdslProfile("p", 3);
    platform.board.alarmProfiles = {{"alarm", 3}};
    boost::shared_ptr<Vdsl> vdsl = singleton<Ports>::instance().getVdslImpl();
    ASSERT_TRUE(vdsl);
    static rpcVdslProfileAll all;
    int result = 0;
    EXPECT_EQ(0u, vdsl->getProfileAll(all));
    ASSERT_EQ(1u, all.count);
    EXPECT_STREQ("p", all.profile[0].name);
    EXPECT_EQ(0u, vdsl->profileProtect("p", 2, result));
    EXPECT_EQ(0u, vdsl->getProfileAll(all));
    EXPECT_EQ(2u, all.profile[0].protection);
    AlarmProfileProtectedFlags flags{};
    EXPECT_EQ(0u, vdsl->getAlarmProtectedFlag("alarm", flags));
    EXPECT_EQ(3u, flags.protectedFlag);
    EXPECT_NE(0u, vdsl->getAlarmProtectedFlag("", flags));
    platform.board.vdslImpl = fake::Board::VdslImpl::absent;
    EXPECT_FALSE(singleton<Ports>::instance().getVdslImpl());
    platform.board.vdslImpl = fake::Board::VdslImpl::throwing;
    EXPECT_THROW(singleton<Ports>::instance().getVdslImpl(), std::exception);
}

TEST_F(FakePlatformTest, SweepRefusesEachCallOnceAndEndsWithACleanRun) {
    Lines refused;
    unsigned failures = 0;
    unsigned result = 0;
    const unsigned runs = fake::sweepFaults(
        platform, [&] { ittalAdminStateSet(bridgeName, true); },
        [&] {
            const BLLManager::exclusiveLock_t lock;
            result = lock.isLocked() && ittalSelectorAdd(bridgeName, "1") == 0 &&
                     singleton<Ports>::instance().getBoardType() == 0 &&
                     ittalSelectorDel(bridgeName, "1") == 0;
        },
        [&](const fake::FaultRun& run) {
            EXPECT_EQ(run.faulted, result == 0);
            EXPECT_EQ(0u, platform.count("ittalAdminStateSet"));
            failures += result == 0 ? 1 : 0;
            refused.push_back(run.faulted ? run.refused.text : "none");
        });
    EXPECT_EQ(4u, runs);
    EXPECT_EQ(3u, failures);
    EXPECT_TRUE(sameLines(refused, {
                                       "exclusiveLock() = 1",
                                       "ittalSelectorAdd(\"1\") = -1",
                                       "ittalSelectorDel(\"1\") = -1",
                                       "none",
                                   }));
}

TEST_F(FakePlatformTest, SweepOfExceptionsThrowsInEachCallOnce) {
    Lines struck;
    const unsigned runs = fake::sweepExceptions(
        platform, [] {},
        [] {
            try {
                const BLLManager::exclusiveLock_t lock;
                ittalSelectorAdd(bridgeName, "1");
            } catch (const std::exception&) {
            }
        },
        [&](const fake::FaultRun& run) {
            struck.push_back(run.faulted ? run.refused.text : "none");
        });
    EXPECT_EQ(3u, runs);
    EXPECT_TRUE(
        sameLines(struck, {"exclusiveLock() threw", "ittalSelectorAdd(\"1\") threw", "none"}));
    EXPECT_NONFATAL_FAILURE(fake::sweepExceptions(
                                platform, [] {}, [] { ittalSelectorAdd(bridgeName, "1"); },
                                [](const fake::FaultRun&) {}),
                            "throw");
}

TEST_F(FakePlatformTest, CallbacksAreFiredThroughTheVectors) {
    Lines seen;
    singleton<itbridge>::instance().talEventCallbacks.push_back(
        [&](const char* line) { seen.push_back(line); });
    singleton<Interfaces>::instance().interfaceEventCallbacks.push_back(
        [&](int id, Interfaces::interfaceEvent_t event) {
            seen.push_back(fake::shownList(id, static_cast<int>(event)));
        });
    singleton<BLLManager>::instance().configurationApplyStartCallbacks.push_back(
        [&] { seen.push_back("start"); });
    singleton<BLLManager>::instance().configurationApplyStopCallbacks.push_back(
        [&](int argument) { seen.push_back("stop " + std::to_string(argument)); });
    platform.engine.raise("line");
    platform.interfaces.fireEvent(7, 4);
    platform.manager.applyStart();
    platform.manager.applyStop(3);
    EXPECT_TRUE(sameLines(seen, {"line", "7, 4", "start", "stop 3"}));
}

TEST(FakePlatformLifeTest, ModuleIsRegisteredAtLoadBeforeAnyPlatformObject) {
    ASSERT_EQ(1u, fake::Manager::entities().size());
    EXPECT_EQ("tal", fake::Manager::entities()[0]->getName());
}

TEST(FakePlatformLifeTest, ForgottenLockFailsTheTest) {
    EXPECT_NONFATAL_FAILURE(
        {
            alignas(BLLManager::sharedLock_t) static unsigned char
                place[sizeof(BLLManager::sharedLock_t)];
            const FakePlatform own;
            new (place) BLLManager::sharedLock_t;
        },
        "shared locks never given back");
}

TEST(FakePlatformLifeTest, CallWithoutPlatformEndsTheProcess) {
    EXPECT_DEATH(ittalSelectorAdd(bridgeName, "1"), "while no FakePlatform existed");
}

}  // namespace
