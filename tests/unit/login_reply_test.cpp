// ISA's answers: what reaches the engine, what is stored, and which result comes back.
#include "rpc/rpctal.h"
#include "tests/fake/module_test.h"

#include <cstring>
#include <string>
#include <vector>

using fake::sameLines;
using fake::Service;
using Lines = std::vector<std::string>;

namespace {

constexpr unsigned authentication = 2;
constexpr unsigned authorization = 3;
constexpr int accepted = 0;
constexpr int rejected = -1;

class LoginReplyTest : public ModuleTest {
protected:
    void startQuiet(std::initializer_list<unsigned> ids) {
        startWith(ids);
        platform.forget();
    }
    // Interface 7 with a login in flight.
    void startPending() {
        startWith({7});
        raiseLogin(7);
        platform.forget();
    }
    Lines engineCalls() const { return platform.calls({Service::engine}); }
    static talRequestType type(unsigned number) { return static_cast<talRequestType>(number); }
    static talReplyResultCode code(unsigned number) {
        return static_cast<talReplyResultCode>(number);
    }
};

// ---- the service call

TEST_F(LoginReplyTest, AcceptedAuthenticationReachesTheEngineAndIsStored) {
    startPending();
    EXPECT_EQ(0u, rpcTalReply(7, authentication, accepted));
    EXPECT_TRUE(sameLines(platform.calls(), {"ittalPortAuthenReply(7, true)"}));
    EXPECT_TRUE(isStored(7));
    EXPECT_TRUE(platform.texts().empty());
}

TEST_F(LoginReplyTest, AcceptedAuthorizationReachesTheEngineAndIsStored) {
    startPending();
    EXPECT_EQ(0u, rpcTalReply(7, authorization, accepted));
    EXPECT_TRUE(sameLines(platform.calls(), {"ittalPortAuthorReply(7, true)"}));
    EXPECT_TRUE(isStored(7));
}

TEST_F(LoginReplyTest, SecondAcceptedReplyOfOneEventStoresNothing) {
    startPending();
    ASSERT_EQ(0u, rpcTalReply(7, authentication, accepted));
    ASSERT_EQ(0u, module.talDeleteStoredLoginData(7));
    platform.forget();
    EXPECT_EQ(0u, rpcTalReply(7, authorization, accepted));
    EXPECT_TRUE(sameLines(engineCalls(), {"ittalPortAuthorReply(7, true)"}));
    EXPECT_EQ("", storedFile());
    EXPECT_EQ(0u, platform.count("exclusiveLock"));
}

TEST_F(LoginReplyTest, NextEventIsStoredAgain) {
    startPending();
    ASSERT_EQ(0u, rpcTalReply(7, authentication, accepted));
    ASSERT_EQ(0u, module.talDeleteStoredLoginData(7));
    raiseLogin(7);
    EXPECT_EQ(0u, rpcTalReply(7, authorization, accepted));
    EXPECT_TRUE(isStored(7));
}

TEST_F(LoginReplyTest, RejectedLoginReachesTheEngineAndStaysPending) {
    startPending();
    EXPECT_EQ(0u, rpcTalReply(7, authentication, rejected));
    EXPECT_EQ(0u, rpcTalReply(7, authorization, rejected));
    EXPECT_TRUE(sameLines(engineCalls(), {
                                             "ittalPortAuthenReply(7, false)",
                                             "ittalPortAuthorReply(7, false)",
                                         }));
    EXPECT_EQ("(none)", storedFile());
    EXPECT_EQ(0u, rpcTalReply(7, authentication, accepted));
    EXPECT_TRUE(isStored(7)) << "the rejected block must still have been pending";
}

TEST_F(LoginReplyTest, AcceptedReplyWithoutAPendingLoginLeavesTheFileAlone) {
    startQuiet({7});
    EXPECT_EQ(0u, rpcTalReply(7, authentication, accepted));
    EXPECT_EQ("(none)", storedFile());
    EXPECT_EQ(0u, platform.count("exclusiveLock"));
    EXPECT_TRUE(platform.texts().empty());
}

TEST_F(LoginReplyTest, UnknownRequestKindCallsNobody) {
    startPending();
    for (const unsigned kind : {0u, 1u, 4u, 5u, 0x80000002u, 0xFFFFFFFFu}) {
        for (const int result : {accepted, rejected, 5}) {
            EXPECT_EQ(1u, rpcTalReply(7, kind, result)) << kind;
            EXPECT_EQ(1u, rpcTalReply(99, kind, result)) << kind;
        }
    }
    EXPECT_TRUE(platform.wholeLog().empty());
    EXPECT_EQ(0u, rpcTalReply(7, authentication, accepted));
    EXPECT_TRUE(isStored(7));
}

TEST_F(LoginReplyTest, KeepsAnswerOneOrThreeWhenTheRequestStateIsSwitchedOn) {
    startPending();
    for (const int result : {1, 2, 5, -2, 2147483647, -2147483647 - 1}) {
        for (const unsigned kind : {authentication, authorization}) {
            platform.forget();
            EXPECT_EQ(1u, rpcTalReply(7, kind, result)) << result;
            EXPECT_TRUE(sameLines(platform.calls(), {"ittalRequestState(true)"}));
            EXPECT_EQ(3u, rpcTalReply(99, kind, result)) << result;
            EXPECT_EQ(2u, engineCalls().size());
            EXPECT_TRUE(platform.texts().empty());
        }
    }
    EXPECT_EQ("(none)", storedFile());
    EXPECT_EQ(0u, rpcTalReply(7, authentication, accepted));
    EXPECT_TRUE(isStored(7)) << "the login must still have been pending";
}

TEST_F(LoginReplyTest, RequestStateThatCannotBeSwitchedIsOneForAnyInterface) {
    startQuiet({7});
    platform.answers.always("ittalRequestState", 3);
    EXPECT_EQ(1u, rpcTalReply(7, authentication, 5));
    EXPECT_EQ(1u, rpcTalReply(99, authentication, 5));
    const std::string text = "warning: talRequestStateSet Error setting TAL request state to 1.";
    EXPECT_TRUE(sameLines(platform.texts(), {text, text}));
}

TEST_F(LoginReplyTest, UnknownInterfaceIsThree) {
    startQuiet({7});
    for (const unsigned intf : {8u, 0xFFFFFFFFu}) {
        EXPECT_EQ(3u, rpcTalReply(intf, authentication, accepted));
        EXPECT_EQ(3u, rpcTalReply(intf, authorization, rejected));
    }
    EXPECT_TRUE(platform.calls().empty());
    EXPECT_TRUE(platform.texts().empty());
}

TEST_F(LoginReplyTest, RefusedEngineCallIsOneAndTheLoginStaysPending) {
    startPending();
    platform.answers.nth("ittalPortAuthenReply", 1, -9);
    platform.answers.nth("ittalPortAuthorReply", 1, 4);
    EXPECT_EQ(1u, rpcTalReply(7, authentication, accepted));
    EXPECT_EQ(1u, rpcTalReply(7, authorization, accepted));
    EXPECT_EQ("(none)", storedFile());
    EXPECT_TRUE(platform.texts().empty());
    EXPECT_EQ(0u, rpcTalReply(7, authentication, accepted));
    EXPECT_TRUE(isStored(7));
}

// ---- talReply itself

TEST_F(LoginReplyTest, UnknownCodeIsOneButOnlyOnAKnownInterface) {
    startPending();
    for (const unsigned number : {3u, 4u, 255u, 0xFFFFFFFFu}) {
        EXPECT_EQ(talResError, module.talReply(7, type(0), code(number))) << number;
        EXPECT_EQ(talResIntfInvalid, module.talReply(8, type(0), code(number))) << number;
    }
    EXPECT_TRUE(platform.calls().empty());
}

TEST_F(LoginReplyTest, UnknownTypeIsOne) {
    startPending();
    for (const unsigned number : {2u, 3u, 0xFFFFFFFFu}) {
        EXPECT_EQ(talResError, module.talReply(7, type(number), talReplyAccepted)) << number;
        EXPECT_EQ(talResError, module.talReply(7, type(number), talReplyRejected)) << number;
        EXPECT_EQ(talResIntfInvalid, module.talReply(8, type(number), talReplyAccepted));
    }
    EXPECT_TRUE(platform.calls().empty());
    EXPECT_EQ(talResOk, module.talReply(7, type(0), talReplyAccepted));
    EXPECT_TRUE(isStored(7));
}

TEST_F(LoginReplyTest, SwitchingTheRequestStateOnIgnoresTheType) {
    startQuiet({7});
    EXPECT_EQ(talResError, module.talReply(7, type(77), talReplyRequestStateOn));
    EXPECT_TRUE(sameLines(platform.calls(), {"ittalRequestState(true)"}));
}

TEST_F(LoginReplyTest, InterfaceZeroIsValidAndHasNothingPending) {
    startPending();
    EXPECT_EQ(0u, rpcTalReply(0, authentication, accepted));
    EXPECT_TRUE(sameLines(engineCalls(), {"ittalPortAuthenReply(0, true)"}));
    EXPECT_EQ("(none)", storedFile());
}

// ---- what is stored

TEST_F(LoginReplyTest, StoredBlockIsTheOneIsaLeftBehind) {
    startWith({7});
    platform.isa.onRequest = [](rpcTalLoginBlockBll& block) {
        strcpy(block.extraString, "from ISA");
        block.extraInt = 0x1234;
    };
    raiseLogin(7);
    ASSERT_EQ(0u, rpcTalReply(7, authentication, accepted));
    const std::string file = storedFile();
    EXPECT_NE(std::string::npos, file.find("\nextraString: from ISA\n"));
    EXPECT_NE(std::string::npos, file.find("\nextraInt: 00001234\n"));
    EXPECT_NE(std::string::npos, file.find("\ncircuitId: KORVALIN:2 eth 5/1/7\n"));
}

TEST_F(LoginReplyTest, EachInterfaceStoresItsOwnBlock) {
    startWith({5, 7});
    raiseLogin(5);
    raiseLogin(7);
    ASSERT_EQ(0u, rpcTalReply(7, authentication, accepted));
    EXPECT_TRUE(isStored(7));
    EXPECT_FALSE(isStored(5));
    ASSERT_EQ(0u, rpcTalReply(5, authentication, accepted));
    EXPECT_TRUE(isStored(7));
    EXPECT_TRUE(isStored(5));
}

TEST_F(LoginReplyTest, NewestLoginReplacesTheStoredOne) {
    startPending();
    ASSERT_EQ(0u, rpcTalReply(7, authentication, accepted));
    platform.board.shelfId = "9";
    raiseLogin(7);
    ASSERT_EQ(0u, rpcTalReply(7, authentication, accepted));
    const std::string file = storedFile();
    EXPECT_NE(std::string::npos, file.find("circuitId: KORVALIN:9 eth 5/1/7\n"));
    EXPECT_EQ(file.find("interface: 7"), file.rfind("interface: 7"));
}

TEST_F(LoginReplyTest, LoginThatCannotBeStoredIsReportedAndNotTriedAgain) {
    startPending();
    platform.answers.nth("exclusiveLock", 1);
    EXPECT_EQ(0u, rpcTalReply(7, authentication, accepted));
    EXPECT_EQ("(none)", storedFile());
    EXPECT_TRUE(sameLines(platform.texts(),
                          {
                              "log 1: Error obtaining exclusive lock in tal::talReadStorageFile.",
                              "log 1: tal::talReply: cannot store data on interface 7",
                          }));
    platform.forget();
    EXPECT_EQ(0u, rpcTalReply(7, authorization, accepted));
    EXPECT_EQ("(none)", storedFile());
    EXPECT_TRUE(platform.texts().empty());
}

TEST_F(LoginReplyTest, CorruptFileCostsTheLoginAndIsReported) {
    startPending();
    writeStoredFile("interface: 7\n");
    EXPECT_EQ(0u, rpcTalReply(7, authentication, accepted));
    EXPECT_EQ("", storedFile());
    EXPECT_TRUE(sameLines(platform.texts(),
                          {
                              "warning: talReadStorageFile Storage file is corrupt and has been "
                              "deleted.",
                              "log 1: tal::talReply: cannot store data on interface 7",
                          }));
}

// ---- locks

TEST_F(LoginReplyTest, EngineIsAnsweredWithNoLockHeld) {
    startPending();
    ASSERT_EQ(0u, rpcTalReply(7, authentication, accepted));
    ASSERT_EQ(0u, rpcTalReply(7, authorization, rejected));
    for (const char* name : {"ittalPortAuthenReply", "ittalPortAuthorReply"}) {
        ASSERT_EQ(1u, platform.count(name));
        EXPECT_EQ(0, platform.find(name)[0].exclusiveHeld);
        EXPECT_EQ(0, platform.find(name)[0].sharedHeld);
    }
}

TEST_F(LoginReplyTest, RequestStateIsSwitchedUnderTheExclusiveLock) {
    startQuiet({7});
    rpcTalReply(7, authentication, 5);
    ASSERT_EQ(1u, platform.count("ittalRequestState"));
    EXPECT_EQ(1, platform.find("ittalRequestState")[0].exclusiveHeld);
}

TEST_F(LoginReplyTest, RequestStateWhoseLockIsRefusedIsOneAndLoggedOnce) {
    startQuiet({7});
    platform.answers.always("exclusiveLock");
    EXPECT_EQ(1u, rpcTalReply(7, authentication, 5));
    EXPECT_EQ(1u, rpcTalReply(99, authentication, 5)) << "the interface is not looked at";
    const std::string text = "log 1: Error obtaining exclusive lock in tal::talRequestStateSet.";
    EXPECT_TRUE(sameLines(platform.texts(), {text, text}));
    EXPECT_TRUE(platform.calls().empty());
}

TEST_F(LoginReplyTest, RefusedCheckBehindTheRequestStateReadsAsUnknownInterface) {
    startQuiet({7});
    platform.answers.always("sharedLock");
    EXPECT_EQ(3u, rpcTalReply(7, authentication, 5));
    EXPECT_TRUE(sameLines(platform.calls(), {"ittalRequestState(true)"}));
    EXPECT_TRUE(sameLines(platform.texts(),
                          {"log 1: Error obtaining exclusive lock in tal::talIsValidIntf."}));
}

TEST_F(LoginReplyTest, RefusedCheckReadsAsUnknownInterface) {
    startPending();
    platform.answers.nth("sharedLock", 1);
    EXPECT_EQ(3u, rpcTalReply(7, authentication, accepted));
    EXPECT_TRUE(sameLines(platform.texts(),
                          {"log 1: Error obtaining exclusive lock in tal::talIsValidIntf."}));
    EXPECT_TRUE(platform.calls().empty());
}

TEST_F(LoginReplyTest, SweptReplyEitherStoresOrSaysWhyNot) {
    startWith({7});
    unsigned result = 0;
    for (const bool storedBefore : {false, true}) {
        fake::sweepFaults(
            platform,
            [&] {
                ASSERT_EQ(0u, module.talDeleteStoredLoginDataAll());
                if (storedBefore) {
                    storeLogins({7});
                }
                raiseLogin(7);
            },
            [&] { result = rpcTalReply(7, authentication, accepted); },
            [&](const fake::FaultRun& run) {
                const std::string& name = run.refused.name;
                const unsigned expected = name == "sharedLock"             ? 3
                                          : name == "ittalPortAuthenReply" ? 1
                                                                           : 0;
                EXPECT_EQ(expected, result);
                const Lines texts = platform.texts();
                if (name == "exclusiveLock") {
                    EXPECT_EQ(2u, texts.size());
                    EXPECT_EQ("log 1: tal::talReply: cannot store data on interface 7",
                              texts.back());
                } else {
                    EXPECT_EQ(name == "sharedLock" ? 1u : 0u, texts.size());
                }
                const bool fresh =
                    storedFile().find("circuitId: KORVALIN:2 eth 5/1/7\n") != std::string::npos;
                EXPECT_EQ(!run.faulted, fresh);
                EXPECT_EQ(!run.faulted || storedBefore, isStored(7));
            });
    }
}

// ---- operational states

TEST_F(LoginReplyTest, OperationalStatesReachTheEngineAsZeroOrOne) {
    startQuiet({7});
    EXPECT_EQ(talResOk, module.talIntfAuthenOperStateSet(7, true));
    EXPECT_EQ(talResOk, module.talIntfAuthenOperStateSet(7, false));
    EXPECT_EQ(talResOk, module.talIntfAuthorOperStateSet(7, true));
    EXPECT_EQ(talResOk, module.talIntfAuthorOperStateSet(7, false));
    EXPECT_TRUE(sameLines(platform.calls(), {
                                                "ittalPortAuthenOperStateSet(7, 1)",
                                                "ittalPortAuthenOperStateSet(7, 0)",
                                                "ittalPortAuthorOperStateSet(7, 1)",
                                                "ittalPortAuthorOperStateSet(7, 0)",
                                            }));
    EXPECT_EQ(1, platform.find("ittalPortAuthenOperStateSet")[0].exclusiveHeld);
    EXPECT_EQ(1, platform.find("ittalPortAuthorOperStateSet")[0].exclusiveHeld);
    EXPECT_TRUE(platform.texts().empty());
}

TEST_F(LoginReplyTest, OperationalStatesOfUnknownInterfacesAreThree) {
    startQuiet({7});
    EXPECT_EQ(talResIntfInvalid, module.talIntfAuthenOperStateSet(8, true));
    EXPECT_EQ(talResIntfInvalid, module.talIntfAuthorOperStateSet(8, true));
    EXPECT_TRUE(platform.calls().empty());
    EXPECT_TRUE(platform.texts().empty());
}

TEST_F(LoginReplyTest, OperationalStatesOfInterfaceZeroReachTheEngineAsTheyAre) {
    startQuiet({7});
    EXPECT_EQ(talResOk, module.talIntfAuthenOperStateSet(0, true));
    EXPECT_EQ(talResOk, module.talIntfAuthorOperStateSet(0, false));
    EXPECT_TRUE(sameLines(platform.calls(), {"ittalPortAuthenOperStateSet(0, 1)",
                                             "ittalPortAuthorOperStateSet(0, 0)"}));
}

TEST_F(LoginReplyTest, OperationalStatesReadARefusedCheckAsUnknownInterface) {
    startQuiet({7});
    platform.answers.always("sharedLock");
    EXPECT_EQ(talResIntfInvalid, module.talIntfAuthenOperStateSet(7, true));
    EXPECT_EQ(talResIntfInvalid, module.talIntfAuthorOperStateSet(7, true));
    EXPECT_TRUE(platform.calls().empty());
    const std::string text = "log 1: Error obtaining exclusive lock in tal::talIsValidIntf.";
    EXPECT_TRUE(sameLines(platform.texts(), {text, text}));
}

TEST_F(LoginReplyTest, OperationalStatesTheEngineRefusesAreReported) {
    startQuiet({7});
    platform.answers.always("ittalPortAuthenOperStateSet", -1);
    platform.answers.always("ittalPortAuthorOperStateSet", 6);
    EXPECT_EQ(talResError, module.talIntfAuthenOperStateSet(7, true));
    EXPECT_EQ(talResError, module.talIntfAuthorOperStateSet(7, false));
    EXPECT_TRUE(sameLines(
        platform.texts(),
        {
            "warning: talIntfAuthenOperStateSet Error setting TAL authentication operational "
            "state to 1 on interface 7.",
            "warning: talIntfAuthorOperStateSet Error setting TAL authorization operational "
            "state to 0 on interface 7.",
        }));
}

TEST_F(LoginReplyTest, OperationalStatesReportRefusedLocksByName) {
    startQuiet({7});
    platform.answers.always("exclusiveLock");
    EXPECT_EQ(talResError, module.talIntfAuthenOperStateSet(7, true));
    EXPECT_EQ(talResError, module.talIntfAuthorOperStateSet(7, true));
    EXPECT_TRUE(platform.calls().empty());
    EXPECT_TRUE(
        sameLines(platform.texts(),
                  {
                      "log 1: Error obtaining exclusive lock in tal::talIntfAuthenOperStateSet.",
                      "log 1: Error obtaining exclusive lock in tal::talIntfAuthorOperStateSet.",
                  }));
}

// ---- names and numbers at the seams

TEST(LoginReplyNumbers, TypesCodesAndResultsHaveTheirNumbers) {
    EXPECT_EQ(0u, static_cast<unsigned>(talRequestTypeAuthentication));
    EXPECT_EQ(1u, static_cast<unsigned>(talRequestTypeAuthorization));
    EXPECT_EQ(0u, static_cast<unsigned>(talReplyAccepted));
    EXPECT_EQ(1u, static_cast<unsigned>(talReplyRejected));
    EXPECT_EQ(2u, static_cast<unsigned>(talReplyRequestStateOn));
    EXPECT_EQ(0u, static_cast<unsigned>(talResOk));
    EXPECT_EQ(1u, static_cast<unsigned>(talResError));
    EXPECT_EQ(3u, static_cast<unsigned>(talResIntfInvalid));
}

}  // namespace
