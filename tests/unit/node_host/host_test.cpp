// The platform services of the node as the module meets them.
#include <gtest/gtest.h>

#include <sstream>

#include "node/host/board.h"
#include "node/host/interfaces.h"
#include "node/host/module_log.h"
#include "platform/bllmanager.h"
#include "platform/interfaces.h"
#include "platform/itbridge.h"
#include "platform/log.h"
#include "platform/ports.h"
#include "platform/profiles.h"
#include "platform/sysinfo.h"

namespace {

TEST(Registry, KnowsTheConfiguredInterfacesOnly) {
    node::setInterfaces({{3, "1/3", "dsl3"}, {9, "1/9", "eth9"}});
    Interfaces& interfaces = singleton<Interfaces>::instance();
    std::vector<Interfaces::Interface> list{{77}};
    ASSERT_EQ(interfaces.interfaceListGet(list), 0u);
    ASSERT_EQ(list.size(), 2u);
    EXPECT_EQ(list[1].id, 9u);
    unsigned number = 0;
    std::string text;
    EXPECT_EQ(interfaces.interfaceGetTypeById(3, &number), 0u);
    EXPECT_EQ(number, 1u);
    EXPECT_EQ(interfaces.interfaceGetNameById(3, text), 0u);
    EXPECT_EQ(text, "1/3");
    EXPECT_EQ(interfaces.interfaceGetLinuxnameById(9, &text), 0u);
    EXPECT_EQ(text, "eth9");
    EXPECT_EQ(interfaces.interfaceGetIdByLinuxname("dsl3", &number), 0u);
    EXPECT_EQ(number, 3u);

    EXPECT_NE(interfaces.interfaceGetTypeById(4, &number), 0u);
    EXPECT_NE(interfaces.interfaceGetTypeById(3, nullptr), 0u);
    EXPECT_NE(interfaces.interfaceGetNameById(4, text), 0u);
    EXPECT_NE(interfaces.interfaceGetLinuxnameById(9, nullptr), 0u);
    EXPECT_NE(interfaces.interfaceGetIdByLinuxname("dsl", &number), 0u);
    EXPECT_NE(interfaces.interfaceGetIdByLinuxname("dsl3", nullptr), 0u);
    EXPECT_EQ(number, 3u);
}

TEST(Board, TellsWhoTheNodeIs) {
    node::setBoard({"12", 200, 2});
    std::string shelf;
    EXPECT_EQ(sysInfo().getShelfId(shelf), 0u);
    EXPECT_EQ(shelf, "12");
    unsigned char position = 0;
    EXPECT_EQ(ncfmGetMyBoardPos(&position), 0);
    EXPECT_EQ(position, 200);
    EXPECT_NE(ncfmGetMyBoardPos(nullptr), 0);
    EXPECT_FALSE(singleton<Ports>::instance().getVdslImpl());
}

TEST(Board, BoardsWithDslLinesHaveAnImplementationWithoutProfiles) {
    for (const unsigned type : {1u, 5u, 7u}) {
        node::setBoard({"1", 1, type});
        const boost::shared_ptr<Vdsl> vdsl = singleton<Ports>::instance().getVdslImpl();
        ASSERT_TRUE(vdsl);
        rpcVdslProfileAll profiles;
        profiles.count = 9;
        EXPECT_EQ(vdsl->getProfileAll(profiles), 0u);
        EXPECT_EQ(profiles.count, 0u);
        AlarmProfileList alarms;
        alarms.name[0][0] = 'x';
        EXPECT_EQ(vdsl->getAlarmProfileAll(alarms), 0u);
        EXPECT_EQ(alarms.name[0][0], '\0');
        AlarmProfileProtectedFlags flags{};
        int result = 0;
        EXPECT_NE(vdsl->getAlarmProtectedFlag("", flags), 0u);
        EXPECT_NE(vdsl->profileProtect("a", 2, result), 0u);
        EXPECT_NE(vdsl->alarmProfileProtect("a", 2, result), 0u);
    }
}

TEST(Profiles, ThereAreNoneToEnumerateOrDelete) {
    std::list<std::string> names{"x"};
    EXPECT_EQ(singleton<servprofile>::instance().getAllServiceProfiles(names), 0u);
    EXPECT_TRUE(names.empty());
    names = {"x"};
    EXPECT_EQ(singleton<vlanprofile>::instance().getAllVlanProfiles(names), 0u);
    EXPECT_TRUE(names.empty());
    std::string next;
    EXPECT_NE(singleton<qos>::instance().qosProfileNextGet("", next), 0u);
    EXPECT_NE(singleton<mcastprofile>::instance().mcastProfileGetNext("", next), 0u);
    EXPECT_NE(singleton<securityprofile>::instance().securityProfileGetNext("", next), 0u);
    std::list<L2CP::Profile> profiles{{"x"}};
    EXPECT_EQ(singleton<L2CP>::instance().profileGetAll(profiles), 0u);
    EXPECT_TRUE(profiles.empty());
    std::list<ACLContainer_t::aclInfo_t> lists{{"x"}};
    ACLContainer_t& acls = singleton<itbridge>::instance().getACLContainer();
    EXPECT_EQ(acls.getACLsInfo(lists), 0);
    EXPECT_TRUE(lists.empty());
    EXPECT_EQ(acls.accessListDynamicDeleteAll(), 0);
    EXPECT_EQ(singleton<servprofile>::instance().serviceDynamicProfilesDelete(0), 0u);
    EXPECT_EQ(singleton<vlanprofile>::instance().vlanDynamicProfilesDelete(0), 0u);
    EXPECT_EQ(singleton<qos>::instance().qosFlowDynamicProfilesDeleteAll(), 0u);
    EXPECT_EQ(singleton<CliConfig>::instance().saveDynamicProfiles({}), 0u);
}

TEST(ModuleLog, TextsOfTheModuleAppearWithTheirLevel) {
    std::ostringstream out;
    node::EventLog log(out);
    Log& moduleLog = singleton<Log>::instance();
    moduleLog.write("dropped");
    node::attachModuleLog(&log);
    moduleLog.setMsgLevel(1);
    moduleLog.write("something failed.\n");
    node::attachModuleLog(nullptr);
    EXPECT_EQ(out.str(), "    0.000000  -           module    level 1: something failed.\n");
}

TEST(EventLog, LinesCarryTimeLabelAndPrintableTextOnly) {
    std::ostringstream out;
    node::EventLog log(out);
    log.setClock([] { return node::Time(61500000); });
    log.setLabel(3, "dsl3 1/3");
    log.line(3, "trap", "a\nb\x1b[31m");
    log.line(4, "gate", "x");
    EXPECT_EQ(out.str(),
              "   61.500000  dsl3 1/3    trap      a.b.[31m\n"
              "   61.500000  interface 4  gate      x\n");
}

TEST(EventLog, ListenerGetsWhatConcernsInterfacesUntilItIsTakenOff) {
    std::ostringstream out;
    node::EventLog log(out);
    std::vector<std::string> heard;
    log.setListener([&](unsigned ifId, std::string_view kind, std::string_view text) {
        heard.push_back(std::to_string(ifId) + " " + std::string(kind) + " " + std::string(text));
    });
    log.line(3, "trap", "a");
    log.line("module", "b");
    log.line(4, "gate", "c");
    log.setListener({});
    log.line(5, "gate", "d");
    EXPECT_EQ(heard, (std::vector<std::string>{"3 trap a", "4 gate c"}));
}

TEST(ManagerLock, ObjectsNestAndReleaseWhenTheyEnd) {
    {
        const BLLManager::exclusiveLock_t outer;
        const BLLManager::sharedLock_t shared;
        const BLLManager::exclusiveLock_t inner;
        EXPECT_TRUE(outer.isLocked());
        EXPECT_TRUE(shared.isLocked());
        EXPECT_TRUE(inner.isLocked());
    }
    const BLLManager::exclusiveLock_t again;
    EXPECT_TRUE(again.isLocked());
}

}  // namespace
