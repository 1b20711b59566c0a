// Turning dynamic profiles into static ones: which services, in which order, on which profiles.
#include "rpc/rpctal.h"
#include "tests/fake/module_test.h"

#include <algorithm>
#include <csignal>
#include <set>

namespace {

using fake::sameLines;
using fake::Service;

constexpr int dslBoards[] = {1, 5, 7};

class DynamicProfilesTest : public ModuleTest {
protected:
    using Profile = fake::Profiles::Profile;

    // Two dynamic profiles of every kind and one that is not; the names tell the kind.
    void offerEverything() {
        platform.profiles.services = {{"s1", true}, {"s2", false}, {"s3", true}};
        platform.profiles.vlans = {{"v1", true}, {"v2", false}, {"v3", true}};
        platform.profiles.flows = {{"f1"}, {"DEFAULT"}, {"f2"}};
        platform.profiles.multicasts = {{"m1", true}, {"m2", false}, {"m3", true}};
        platform.profiles.securities = {"x1", "x2"};
        platform.profiles.l2cps = {"l1", "l2"};
        platform.profiles.accessLists = {"a1", "a2", "a3"};
        platform.answers.forKey("aclCheckDynamic", "a2", 1);
        platform.board.type = 1;
        platform.board.addVdslProfile("d1", 3);
        platform.board.addVdslProfile("d2", 1);
        platform.board.addVdslProfile("d3", 3);
        platform.board.alarmProfiles = {{"r1", 3}, {"r2", 2}, {"r3", 3}};
    }
    // The calls that change something, in order.
    std::vector<std::string> changes() const {
        static const char* const names[] = {"Unprotect(",           "qosProfileFlagsSet(",
                                            "profileSetDynamic(",   "profileSetProtect(",
                                            "setAclProtected(",     "profileProtect(",
                                            "alarmProfileProtect(", "saveDynamicProfiles("};
        std::vector<std::string> lines = platform.calls();
        std::erase_if(lines, [](const std::string& line) {
            return std::none_of(std::begin(names), std::end(names), [&line](const char* name) {
                return line.find(name) != std::string::npos;
            });
        });
        return lines;
    }
    // The answers of a kind's own member and of the calls it makes.
    std::vector<std::string> without(std::vector<std::string> lines, const std::string& part) {
        std::erase_if(lines, [&part](const std::string& line) {
            return line.find(part) != std::string::npos;
        });
        return lines;
    }
    bool convert() { return module.talConvertAllDynamicProfilesToStatic(); }
};

// ---- the whole conversion

TEST_F(DynamicProfilesTest, KindsAreConvertedInTheirOrderAndThenSaved) {
    offerEverything();
    EXPECT_TRUE(convert());
    EXPECT_TRUE(sameLines(changes(), {
                                         "servProfileUnprotect(\"s1\")",
                                         "servProfileUnprotect(\"s3\")",
                                         "vlanProfileUnprotect(\"v1\")",
                                         "vlanProfileUnprotect(\"v3\")",
                                         "qosProfileFlagsSet(\"f1\", 0, false)",
                                         "qosProfileFlagsSet(\"f1\", 1, false)",
                                         "qosProfileFlagsSet(\"f2\", 0, false)",
                                         "qosProfileFlagsSet(\"f2\", 1, false)",
                                         "mcastProfileUnprotect(\"m1\")",
                                         "mcastProfileUnprotect(\"m3\")",
                                         "securityProfileUnprotect(\"x1\")",
                                         "securityProfileUnprotect(\"x2\")",
                                         "profileSetDynamic(\"l1\", false)",
                                         "profileSetProtect(\"l1\", false)",
                                         "profileSetDynamic(\"l2\", false)",
                                         "profileSetProtect(\"l2\", false)",
                                         "setAclProtected(\"a1\", 2)",
                                         "setAclProtected(\"a3\", 2)",
                                         "profileProtect(\"d1\", 2)",
                                         "profileProtect(\"d3\", 2)",
                                         "alarmProfileProtect(\"r1\", 2)",
                                         "alarmProfileProtect(\"r3\", 2)",
                                         "saveDynamicProfiles(0)",
                                     }));
    EXPECT_EQ(platform.calls().back(), "saveDynamicProfiles(0)");
}

TEST_F(DynamicProfilesTest, ConversionTakesNoLockAndLogsNothing) {
    offerEverything();
    EXPECT_TRUE(convert());
    EXPECT_TRUE(platform.calls({Service::lock, Service::log, Service::syslog}).empty());
    EXPECT_TRUE(platform.calls({Service::engine, Service::isa, Service::interfaces}).empty());
}

TEST_F(DynamicProfilesTest, NothingToConvertStillSaves) {
    EXPECT_TRUE(convert());
    EXPECT_TRUE(sameLines(changes(), {"saveDynamicProfiles(0)"}));
}

TEST_F(DynamicProfilesTest, OnlyDslBoardsConvertDslAndAlarmProfiles) {
    for (const int board : {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 255, -1}) {
        SCOPED_TRACE(board);
        platform.board.vdslProfiles.clear();
        offerEverything();
        platform.board.type = board;
        platform.forget();
        EXPECT_TRUE(convert());
        const bool dsl = std::count(std::begin(dslBoards), std::end(dslBoards), board) != 0;
        EXPECT_EQ(dsl ? 2u : 0u, platform.count("profileProtect"));
        EXPECT_EQ(dsl ? 2u : 0u, platform.count("alarmProfileProtect"));
        EXPECT_EQ(dsl, platform.count("getVdslImpl") != 0);
        EXPECT_EQ(1u, platform.count("getBoardType"));
        EXPECT_EQ(1u, platform.count("saveDynamicProfiles"));
    }
}

TEST_F(DynamicProfilesTest, BoardIsAskedAfterTheKindsOfEveryBoard) {
    offerEverything();
    platform.answers.always("setAclProtected", -1);
    EXPECT_FALSE(convert());
    EXPECT_EQ(0u, platform.count("getBoardType"));
    platform.answers.clear();
    platform.forget();
    EXPECT_TRUE(convert());
    const std::vector<fake::Call> board = platform.find("getBoardType");
    ASSERT_EQ(1u, board.size());
    for (const char* before : {"servProfileUnprotect", "setAclProtected"}) {
        for (const fake::Call& call : platform.find(before)) {
            EXPECT_LT(call.order, board[0].order);
        }
    }
    for (const fake::Call& call : platform.find("getVdslImpl")) {
        EXPECT_GT(call.order, board[0].order);
    }
}

TEST_F(DynamicProfilesTest, ServiceCallAnswersZeroOrOne) {
    offerEverything();
    EXPECT_EQ(0u, rpcTalConvertAllDynamicProfilesToStatic());
    platform.answers.always("profileGetAll");
    EXPECT_EQ(1u, rpcTalConvertAllDynamicProfilesToStatic());
}

TEST_F(DynamicProfilesTest, RefusedSaveIsNotLookedAt) {
    platform.answers.always("saveDynamicProfiles");
    EXPECT_EQ(0u, rpcTalConvertAllDynamicProfilesToStatic());
}

TEST_F(DynamicProfilesTest, SecondRunFindsOnlyWhatIsConvertedUnconditionally) {
    offerEverything();
    ASSERT_TRUE(convert());
    platform.answers.always("aclCheckDynamic", 1);
    platform.answers.forKey("aclCheckDynamic", "a2", 1);
    platform.forget();
    EXPECT_TRUE(convert());
    EXPECT_TRUE(sameLines(
        changes(), {"qosProfileFlagsSet(\"f1\", 0, false)", "qosProfileFlagsSet(\"f1\", 1, false)",
                    "qosProfileFlagsSet(\"f2\", 0, false)", "qosProfileFlagsSet(\"f2\", 1, false)",
                    "securityProfileUnprotect(\"x1\")", "securityProfileUnprotect(\"x2\")",
                    "profileSetDynamic(\"l1\", false)", "profileSetProtect(\"l1\", false)",
                    "profileSetDynamic(\"l2\", false)", "profileSetProtect(\"l2\", false)",
                    "saveDynamicProfiles(0)"}));
}

TEST_F(DynamicProfilesTest, NamesAreCollectedBeforeAnyProfileIsChanged) {
    offerEverything();
    ASSERT_TRUE(convert());
    const std::pair<const char*, const char*> kinds[] = {
        {"getAllServiceProfiles", "servProfileUnprotect"},
        {"getAllVlanProfiles", "vlanProfileUnprotect"},
        {"qosProfileNextGet", "qosProfileFlagsSet"},
        {"mcastProfileGetNext", "mcastProfileUnprotect"},
        {"securityProfileGetNext", "securityProfileUnprotect"},
        {"profileGetAll", "profileSetDynamic"},
        {"getACLsInfo", "setAclProtected"},
        {"getProfileAll", "profileProtect"},
        {"getAlarmProfileAll", "alarmProfileProtect"},
    };
    for (const auto& [enumeration, change] : kinds) {
        ASSERT_NE(0u, platform.count(enumeration)) << enumeration;
        ASSERT_NE(0u, platform.count(change)) << change;
        EXPECT_LT(platform.find(enumeration).back().order, platform.find(change).front().order)
            << enumeration;
    }
    for (const char* next :
         {"qosProfileNextGet", "mcastProfileGetNext", "securityProfileGetNext"}) {
        std::vector<fake::Call> calls = platform.find(next);
        EXPECT_EQ("", calls.front().key) << "starts from the empty name";
        EXPECT_NE(0, calls.back().result) << "goes on until it fails";
    }
}

// ---- what a refused call ends and what it leaves

// What refusing a call of this name means for the rest of the conversion.
enum class Refused {
    ends,         // false, and nothing more
    isIgnored,    // everything else goes on
    skipsOne,     // the profile it is about is not changed
    skipsBehind,  // the profiles of the kind behind the one it is about are not there
    skipsKind,    // no profile of the kind is there
};

struct Meaning {
    const char* name;
    Refused refused;
    std::vector<std::string> kind;  // the names of its kind, in order
};

TEST_F(DynamicProfilesTest, EveryRefusedCallEndsOrSkipsExactlyWhatItShould) {
    const Meaning meanings[] = {
        {"getAllServiceProfiles", Refused::skipsKind, {"s1", "s2", "s3"}},
        {"servProfileGet", Refused::skipsOne, {}},
        {"servProfileUnprotect", Refused::ends, {}},
        {"getAllVlanProfiles", Refused::skipsKind, {"v1", "v2", "v3"}},
        {"vlanProfileGet", Refused::skipsOne, {}},
        {"vlanProfileUnprotect", Refused::ends, {}},
        {"qosProfileNextGet", Refused::skipsBehind, {"f1", "DEFAULT", "f2"}},
        {"qosProfileGet", Refused::isIgnored, {}},
        {"qosProfileFlagsSet", Refused::isIgnored, {}},
        {"mcastProfileGetNext", Refused::skipsBehind, {"m1", "m2", "m3"}},
        {"mcastProfileGet", Refused::skipsOne, {}},
        {"mcastProfileUnprotect", Refused::ends, {}},
        {"securityProfileGetNext", Refused::skipsBehind, {"x1", "x2"}},
        {"securityProfileGet", Refused::ends, {}},
        {"securityProfileUnprotect", Refused::ends, {}},
        {"profileGetAll", Refused::ends, {}},
        {"profileGet", Refused::ends, {}},
        {"profileSetDynamic", Refused::ends, {}},
        {"profileSetProtect", Refused::ends, {}},
        {"getACLsInfo", Refused::ends, {}},
        {"aclCheckDynamic", Refused::ends, {}},
        {"setAclProtected", Refused::ends, {}},
        {"getProfileAll", Refused::skipsKind, {"d1", "d2", "d3"}},
        {"profileProtect", Refused::ends, {}},
        {"getAlarmProfileAll", Refused::ends, {}},
        {"getAlarmProtectedFlag", Refused::skipsBehind, {"r1", "r2", "r3", ""}},
        {"alarmProfileProtect", Refused::ends, {}},
        {"saveDynamicProfiles", Refused::isIgnored, {}},
    };
    const auto prepare = [this] {
        platform.answers.clear();
        platform.board.vdslProfiles.clear();
        offerEverything();
    };
    // Obtaining the implementation has a test of its own.
    const auto callsMade = [this] { return without(platform.calls(), "getVdslImpl"); };

    prepare();
    ASSERT_TRUE(convert());
    const std::vector<std::string> whole = callsMade();

    std::set<std::string> swept;
    bool result = false;
    fake::sweepFaults(
        platform, prepare, [&] { result = convert(); },
        [&](const fake::FaultRun& run) {
            if (!run.faulted) {
                EXPECT_TRUE(result);
                EXPECT_TRUE(sameLines(callsMade(), whole));
                return;
            }
            const auto meaning =
                std::find_if(std::begin(meanings), std::end(meanings),
                             [&](const Meaning& one) { return run.refused.name == one.name; });
            ASSERT_NE(std::end(meanings), meaning) << run.refused.name;
            swept.insert(meaning->name);
            const std::vector<std::string> made = callsMade();
            const auto place = std::find(made.begin(), made.end(), run.refused.text);
            ASSERT_NE(made.end(), place);

            // The refused call in its place; what comes behind it depends.
            const auto index = place - made.begin();
            std::vector<std::string> expected(whole.begin(), whole.begin() + index);
            expected.push_back(run.refused.text);
            std::vector<std::string> rest(whole.begin() + index + 1, whole.end());
            const auto skip = [&](const std::string& name) {
                rest = without(rest, "(\"" + name + "\"");
            };
            switch (meaning->refused) {
                case Refused::ends:
                    rest.clear();
                    break;
                case Refused::isIgnored:
                    break;
                case Refused::skipsOne:
                    skip(run.refused.key);
                    break;
                case Refused::skipsBehind: {
                    const bool alarm = run.refused.name == "getAlarmProtectedFlag";
                    bool behind = !alarm && run.refused.key.empty();
                    for (const std::string& name : meaning->kind) {
                        behind = behind || (alarm && name == run.refused.key);
                        if (behind) {
                            skip(name);
                        }
                        behind = behind || name == run.refused.key;
                    }
                    break;
                }
                case Refused::skipsKind:
                    for (const std::string& name : meaning->kind) {
                        skip(name);
                    }
                    break;
            }
            expected.insert(expected.end(), rest.begin(), rest.end());
            EXPECT_TRUE(sameLines(made, expected));
            EXPECT_EQ(meaning->refused != Refused::ends, result);
            EXPECT_TRUE(platform.texts().empty());
        });
    EXPECT_EQ(std::size(meanings), swept.size()) << "every call was refused at least once";
}

TEST_F(DynamicProfilesTest, RefusedReadThatStillFillsTheRecordIsBelieved) {
    offerEverything();
    platform.profiles.refusedReadsFill = true;
    for (const char* read : {"servProfileGet", "vlanProfileGet", "mcastProfileGet"}) {
        platform.answers.always(read);
    }
    EXPECT_TRUE(convert());
    EXPECT_EQ(2u, platform.count("servProfileUnprotect"));
    EXPECT_EQ(2u, platform.count("vlanProfileUnprotect"));
    EXPECT_EQ(2u, platform.count("mcastProfileUnprotect"));
}

TEST_F(DynamicProfilesTest, ConversionNeverReadsOrWritesTheInterfaceTable) {
    offerEverything();
    EXPECT_TRUE(convert()) << "without a start and without interfaces";
    startWith({1, 7});
    ASSERT_EQ(talResOk, module.talIntfTimeoutSet(7, 33));
    platform.forget();
    EXPECT_TRUE(convert());
    uint32_t timeout = 0;
    EXPECT_TRUE(platform.calls({Service::lock, Service::engine, Service::interfaces}).empty());
    EXPECT_EQ(talResOk, module.talIntfTimeoutGet(7, &timeout));
    EXPECT_EQ(33u, timeout);
}

// ---- flow profiles

TEST_F(DynamicProfilesTest, InternalDefaultAndDefaultNamedFlowsKeepTheirFlags) {
    platform.profiles.flows = {{"inner", true, false},     {"usual", false, true},
                               {"both", true, true},       {"DEFAULT", false, false},
                               {"default", false, false},  {"DEFAULT2", false, false},
                               {"xDEFAULT", false, false}, {"Default", false, false}};
    EXPECT_TRUE(module.convertAllFlowProfiles());
    std::vector<std::string> expected;
    for (const char* name : {"default", "DEFAULT2", "xDEFAULT", "Default"}) {
        const std::string start = std::string("(\"") + name + "\"";
        expected.push_back("qosProfileGet" + start + ")");
        expected.push_back("qosProfileFlagsSet" + start + ", 0, false)");
        expected.push_back("qosProfileFlagsSet" + start + ", 1, false)");
    }
    const std::vector<std::string> asked =
        without(without(platform.calls(), "qosIs"), "qosProfileNextGet");
    EXPECT_TRUE(sameLines(asked, expected));
}

TEST_F(DynamicProfilesTest, FlowConversionNeverFails) {
    platform.profiles.flows = {{"f1"}, {"f2"}};
    platform.answers.always("qosProfileGet");
    platform.answers.always("qosProfileFlagsSet");
    EXPECT_TRUE(module.convertAllFlowProfiles());
    EXPECT_EQ(4u, platform.count("qosProfileFlagsSet"));
}

// ---- security and L2CP profiles

TEST_F(DynamicProfilesTest, EverySecurityProfileIsReadAndUnprotected) {
    platform.profiles.securities = {"x1", "x2"};
    EXPECT_TRUE(module.convertAllSecurityProfiles());
    EXPECT_TRUE(
        sameLines(platform.calls(),
                  {"securityProfileGetNext(\"\") -> \"x1\"",
                   "securityProfileGetNext(\"x1\") -> \"x2\"", "securityProfileGetNext(\"x2\") = 1",
                   "securityProfileGet(\"x1\")", "securityProfileUnprotect(\"x1\")",
                   "securityProfileGet(\"x2\")", "securityProfileUnprotect(\"x2\")"}));
}

TEST_F(DynamicProfilesTest, EveryL2cpProfileIsReadAndMadeStatic) {
    platform.profiles.l2cps = {"l1", "l2"};
    EXPECT_TRUE(module.convertAllL2CPProfiles());
    EXPECT_TRUE(
        sameLines(platform.calls(),
                  {"profileGetAll()", "profileGet(\"l1\")", "profileSetDynamic(\"l1\", false)",
                   "profileSetProtect(\"l1\", false)", "profileGet(\"l2\")",
                   "profileSetDynamic(\"l2\", false)", "profileSetProtect(\"l2\", false)"}));
}

// ---- MAC access lists

TEST_F(DynamicProfilesTest, AccessListIsProtectedWhenDynamicAndSkippedWhenStatic) {
    platform.profiles.accessLists = {"zero", "one", "five", "seven", "minus", "last"};
    platform.answers.forKey("aclCheckDynamic", "one", 1);
    platform.answers.forKey("aclCheckDynamic", "five", 5);
    platform.answers.forKey("aclCheckDynamic", "seven", 7);
    platform.answers.forKey("aclCheckDynamic", "minus", -1);
    EXPECT_TRUE(module.convertAllMacAclProfiles());
    EXPECT_TRUE(
        sameLines(changes(), {"setAclProtected(\"zero\", 2)", "setAclProtected(\"last\", 2)"}));
    EXPECT_EQ(6u, platform.count("aclCheckDynamic"));
}

TEST_F(DynamicProfilesTest, FailedAccessListCheckStopsEverythingAndSavesNothing) {
    offerEverything();
    platform.answers.forKey("aclCheckDynamic", "a2", 6);
    EXPECT_EQ(1u, rpcTalConvertAllDynamicProfilesToStatic());
    EXPECT_EQ(1u, platform.count("setAclProtected")) << "the list before it stays converted";
    EXPECT_EQ(2u, platform.count("aclCheckDynamic"));
    EXPECT_EQ(0u, platform.count("saveDynamicProfiles"));
    EXPECT_EQ(0u, platform.count("getVdslImpl"));
}

TEST_F(DynamicProfilesTest, NoAccessListIsFineAndARefusedListIsNot) {
    EXPECT_TRUE(module.convertAllMacAclProfiles());
    for (const int refusal : {1, -1, 6}) {
        platform.answers.always("getACLsInfo", refusal);
        EXPECT_FALSE(module.convertAllMacAclProfiles());
    }
    EXPECT_EQ(0u, platform.count("aclCheckDynamic"));
}

// ---- DSL profiles

TEST_F(DynamicProfilesTest, DslProfileIsConvertedWhenItsProtectionIsThree) {
    for (const unsigned protection : {0u, 1u, 2u, 3u, 4u, 0x103u, 0xFFFFFFFFu}) {
        platform.board.addVdslProfile("p" + std::to_string(protection), protection);
    }
    EXPECT_TRUE(module.convertAllDslProfiles());
    EXPECT_TRUE(sameLines(platform.calls(), {"getVdslImpl()", "getProfileAll()", "getVdslImpl()",
                                             "profileProtect(\"p3\", 2)"}));
}

TEST_F(DynamicProfilesTest, ImplementationIsObtainedBeforeEachDslCall) {
    for (const char* name : {"one", "two", "three"}) {
        platform.board.addVdslProfile(name, 3);
    }
    platform.board.alarmProfiles = {{"r1", 3}, {"r2", 1}};
    EXPECT_TRUE(module.convertAllDslProfiles());
    EXPECT_TRUE(module.convertAllAlarmProfiles());
    const std::vector<std::string> calls = platform.calls();
    ASSERT_EQ(2 * (4u + 5u), calls.size());
    for (size_t i = 0; i < calls.size(); ++i) {
        EXPECT_EQ(i % 2 == 0, calls[i] == "getVdslImpl()") << calls[i];
    }
}

TEST_F(DynamicProfilesTest, DslNameThatFillsItsFieldIsTakenWhole) {
    const std::string name(64, 'n');
    platform.board.addVdslProfile(name, 3);
    platform.board.addVdslProfile("short", 3);
    EXPECT_TRUE(module.convertAllDslProfiles());
    EXPECT_TRUE(sameLines(changes(),
                          {"profileProtect(\"" + name + "\", 2)", "profileProtect(\"short\", 2)"}));
}

TEST_F(DynamicProfilesTest, AllOf128DslProfilesAreConvertedAndNoMoreIsBelieved) {
    for (const unsigned count : {128u, 129u, 1000u}) {
        platform.board.vdslProfiles.clear();
        for (unsigned i = 0; i < count; ++i) {
            platform.board.addVdslProfile("p" + std::to_string(i), 3);
        }
        platform.forget();
        EXPECT_TRUE(module.convertAllDslProfiles());
        EXPECT_EQ(128u, platform.count("profileProtect"));
        EXPECT_EQ("p127", platform.find("profileProtect").back().key);
    }
}

TEST_F(DynamicProfilesTest, KeepsARefusedListOfDslProfilesAsNothingToDo) {
    offerEverything();
    platform.answers.always("getProfileAll");
    EXPECT_TRUE(module.convertAllDslProfiles());
    EXPECT_TRUE(convert());
    EXPECT_EQ(0u, platform.count("profileProtect"));
    EXPECT_EQ(2u, platform.count("alarmProfileProtect"));
}

TEST_F(DynamicProfilesTest, ExceptionOfTheDslBoardIsLoggedAndEndsTheConversion) {
    offerEverything();
    platform.board.vdslImpl = fake::Board::VdslImpl::throwing;
    platform.board.vdslException = "line card 3 is away";
    EXPECT_FALSE(module.convertAllDslProfiles());
    const std::vector<std::string> texts = {
        "log 0: Exceptional situation (VdslScripter): line card 3 is away."};
    EXPECT_TRUE(sameLines(platform.texts(), texts));
    platform.forget();
    EXPECT_EQ(1u, rpcTalConvertAllDynamicProfilesToStatic());
    EXPECT_TRUE(sameLines(platform.texts(), texts));
    EXPECT_EQ(0u, platform.count("getAlarmProfileAll"));
    EXPECT_EQ(0u, platform.count("saveDynamicProfiles"));
}

// The list and the first profile are through when the implementation is refused.
TEST_F(DynamicProfilesTest, ExceptionBetweenTwoDslProfilesLeavesTheFirstConverted) {
    offerEverything();
    platform.board.vdslImpl = fake::Board::VdslImpl::throwing;
    platform.board.vdslThrowsFrom = 3;
    EXPECT_FALSE(convert());
    EXPECT_EQ(1u, platform.count("profileProtect"));
    EXPECT_EQ("d1", platform.find("profileProtect")[0].key);
    EXPECT_TRUE(
        sameLines(platform.texts(), {"log 0: Exceptional situation (VdslScripter): no scripter."}));
    EXPECT_EQ(0u, platform.count("saveDynamicProfiles"));
}

// Only the obtaining of the implementation is reported, not what is then done with it.
TEST_F(DynamicProfilesTest, ExceptionOfACallReachesTheCallerWithoutALine) {
    platform.board.type = 1;
    platform.board.addVdslProfile("d1", 3);
    std::vector<std::string> struck;
    for (const unsigned n : {1u, 2u}) {
        platform.armException(n);
        EXPECT_THROW(module.convertAllDslProfiles(), std::runtime_error);
        ASSERT_TRUE(platform.struck());
        struck.push_back(platform.struck()->name);
    }
    platform.disarmFault();
    EXPECT_EQ((std::vector<std::string>{"getProfileAll", "profileProtect"}), struck);

    uint32_t result = 0;
    fake::sweepExceptions(
        platform, [] {}, [&] { result = rpcTalConvertAllDynamicProfilesToStatic(); },
        [&](const fake::FaultRun& run) {
            EXPECT_EQ(run.faulted ? 1u : 0u, result);
            EXPECT_TRUE(platform.texts().empty());
        });
    EXPECT_TRUE(platform.texts().empty());
}

TEST_F(DynamicProfilesTest, ExceptionBehindTheDslProfilesIsAFailureWithoutALine) {
    offerEverything();
    platform.board.vdslImpl = fake::Board::VdslImpl::throwing;
    platform.board.vdslThrowsFrom = 4;  // the list, two profiles, then the alarm profiles
    EXPECT_EQ(1u, rpcTalConvertAllDynamicProfilesToStatic());
    EXPECT_EQ(2u, platform.count("profileProtect"));
    EXPECT_EQ(0u, platform.count("getAlarmProfileAll"));
    EXPECT_EQ(0u, platform.count("saveDynamicProfiles"));
    EXPECT_TRUE(platform.texts().empty());
}

TEST_F(DynamicProfilesTest, MissingImplementationOnADslBoardIsFatal) {
    offerEverything();
    platform.board.vdslImpl = fake::Board::VdslImpl::absent;
    for (const int board : dslBoards) {
        platform.board.type = board;
        EXPECT_EXIT(convert(), testing::KilledBySignal(SIGABRT), "") << board;
    }
    EXPECT_EXIT(module.convertAllDslProfiles(), testing::KilledBySignal(SIGABRT), "");
    EXPECT_EXIT(module.convertAllAlarmProfiles(), testing::KilledBySignal(SIGABRT), "");
    platform.board.type = 2;
    EXPECT_TRUE(convert()) << "other boards need none";
}

// ---- alarm profiles

TEST_F(DynamicProfilesTest, AlarmProfileIsConvertedWhenItsFlagIsThreeAndItsNameNoDefault) {
    platform.board.alarmProfiles = {
        {"Default", 3}, {"DefaultOne", 3}, {"xDefault", 3}, {"default", 3}, {"Defaul", 3},
        {"DEFAULT", 3}, {" Default", 3},   {"plain", 2},    {"other", 4},   {"last", 3}};
    EXPECT_TRUE(module.convertAllAlarmProfiles());
    std::vector<std::string> expected;
    for (const char* name : {"xDefault", "default", "Defaul", "DEFAULT", " Default", "last"}) {
        expected.push_back(std::string("alarmProfileProtect(\"") + name + "\", 2)");
    }
    EXPECT_TRUE(sameLines(changes(), expected));
    EXPECT_EQ(11u, platform.count("getAlarmProtectedFlag"))
        << "the flag of every slot is read, a default's too, and the first empty one ends it";
}

TEST_F(DynamicProfilesTest, AllThirtyAlarmSlotsAreWalked) {
    for (int i = 0; i < 30; ++i) {
        platform.board.alarmProfiles.push_back({"r" + std::to_string(i), 3});
    }
    EXPECT_TRUE(module.convertAllAlarmProfiles());
    EXPECT_EQ(30u, platform.count("getAlarmProtectedFlag"));
    EXPECT_EQ(30u, platform.count("alarmProfileProtect"));
}

TEST_F(DynamicProfilesTest, UnreadableFlagEndsTheWalkWithSuccess) {
    platform.board.alarmProfiles = {{"r1", 3}, {"r2", 3}, {"r3", 3}};
    platform.answers.forKey("getAlarmProtectedFlag", "r2");
    EXPECT_TRUE(module.convertAllAlarmProfiles());
    EXPECT_TRUE(sameLines(changes(), {"alarmProfileProtect(\"r1\", 2)"}));
    EXPECT_EQ(2u, platform.count("getAlarmProtectedFlag"));
}

TEST_F(DynamicProfilesTest, AlarmNameThatFillsItsFieldIsTakenWhole) {
    const std::string name(64, 'n');
    platform.board.alarmProfiles = {{name, 3}, {"short", 3}};
    EXPECT_TRUE(module.convertAllAlarmProfiles());
    EXPECT_TRUE(sameLines(changes(), {"alarmProfileProtect(\"" + name + "\", 2)",
                                      "alarmProfileProtect(\"short\", 2)"}));
}

TEST_F(DynamicProfilesTest, RefusedAlarmListFails) {
    platform.board.alarmProfiles = {{"r1", 3}};
    platform.answers.always("getAlarmProfileAll");
    EXPECT_FALSE(module.convertAllAlarmProfiles());
    EXPECT_EQ(0u, platform.count("getAlarmProtectedFlag"));
}

}  // namespace
