#include "node/isa/isa.h"

#include <gtest/gtest.h>

#include <cstring>
#include <sstream>
#include <string>
#include <vector>

#include "platform/isaradiusbll.h"

namespace {

using namespace std::chrono_literals;
using node::Isa;
using node::IsaAnswer;
using node::LoginProfiles;
using node::UserList;

class IsaTest : public testing::Test {
protected:
    IsaTest() : isa(loop, log, users()) {
        isa.onReply([this](unsigned ifId, unsigned kind, int result) {
            replies.push_back(std::to_string(ifId) + " " + std::to_string(kind) + " " +
                              std::to_string(result));
            EXPECT_FALSE(requesting);
            return refuse ? 1u : 0u;
        });
        isa.onStages([this](unsigned) { return stages; });
        isa.onAnswered([this](unsigned, const IsaAnswer& answer) {
            answered.push_back(answer.accepted);
            profiles = answer.profiles;
        });
    }
    static UserList users() {
        UserList users(IsaAnswer{false, 0ms, {}});
        LoginProfiles profiles;
        profiles.of(node::ProfileKind::vlan) = "v100";
        users.add("good", IsaAnswer{true, 10ms, profiles});
        users.add("silent", std::nullopt);
        return users;
    }
    void request(unsigned ifId, const std::string& circuitId) {
        rpcTalLoginBlockBll block{};
        block.interface = ifId;
        std::memcpy(block.circuitId, circuitId.data(), std::min<size_t>(circuitId.size(), 64));
        requesting = true;
        isa.request(block);
        requesting = false;
    }

    node::Loop loop{node::Pace::instant};
    std::ostringstream out;
    node::EventLog log{out};
    Isa isa;
    Isa::Stages stages;
    bool refuse = false;
    bool requesting = false;
    std::vector<std::string> replies;
    std::vector<bool> answered;
    LoginProfiles profiles;
};

using Replies = std::vector<std::string>;

TEST_F(IsaTest, AcceptedLoginIsAnsweredForBothStagesAfterItsDelay) {
    request(3, "good");
    EXPECT_TRUE(replies.empty());
    loop.run(true);
    EXPECT_EQ(replies, (Replies{"3 2 0", "3 3 0"}));
    EXPECT_EQ(loop.now(), 10ms);
    EXPECT_EQ(isa.record(3).verdict, Isa::Verdict::accepted);
    EXPECT_EQ(answered, std::vector<bool>{true});
    EXPECT_EQ(profiles.of(node::ProfileKind::vlan), "v100");
}

TEST_F(IsaTest, RejectedLoginIsAnsweredOnce) {
    request(3, "stranger");
    loop.run(true);
    EXPECT_EQ(replies, (Replies{"3 2 -1"}));
    EXPECT_EQ(isa.record(3).verdict, Isa::Verdict::rejected);
}

TEST_F(IsaTest, OnlyStagesSwitchedOnAreAnswered) {
    stages = {true, false};
    request(3, "good");
    loop.run(true);
    EXPECT_EQ(replies, (Replies{"3 2 0"}));
    replies.clear();
    stages = {false, true};
    request(3, "good");
    request(4, "stranger");
    loop.run(true);
    EXPECT_EQ(replies, (Replies{"4 3 -1", "3 3 0"}));
    replies.clear();
    stages = {false, false};
    request(3, "good");
    loop.run(true);
    EXPECT_EQ(replies, Replies{});
}

TEST_F(IsaTest, DuplicateJoinsTheOpenRequestOfItsLineOnly) {
    request(3, "good");
    request(3, "good");
    request(4, "good");
    loop.run(true);
    EXPECT_EQ(replies, (Replies{"3 2 0", "3 3 0", "4 2 0", "4 3 0"}));
    EXPECT_EQ(isa.record(3).requests, 2u);
    request(3, "good");
    loop.run(true);
    EXPECT_EQ(replies.size(), 6u);
}

TEST_F(IsaTest, SilentUserIsNeverAnswered) {
    request(3, "silent");
    loop.run(true);
    EXPECT_TRUE(replies.empty());
    EXPECT_EQ(isa.record(3).verdict, Isa::Verdict::neverAnswered);
}

TEST_F(IsaTest, AnswerTheModuleDoesNotTakeIsNoVerdict) {
    refuse = true;
    request(3, "good");
    loop.run(true);
    EXPECT_EQ(replies, (Replies{"3 2 0"}));
    EXPECT_EQ(isa.record(3).late, 1u);
    EXPECT_NE(isa.record(3).verdict, Isa::Verdict::accepted);
    EXPECT_TRUE(answered.empty());
}

TEST_F(IsaTest, NothingIsAnsweredAfterTheModuleIsGone) {
    request(3, "good");
    isa.close();
    loop.run(true);
    EXPECT_TRUE(replies.empty());
}

TEST_F(IsaTest, ClearedConfigurationKnowsNobody) {
    isa.clearUsers();
    request(3, "good");
    loop.run(true);
    EXPECT_EQ(replies, (Replies{"3 2 -1"}));
}

TEST_F(IsaTest, CircuitIdWithoutEndIsReadToTheEndOfItsField) {
    request(3, std::string(64, 'g'));
    loop.run(true);
    EXPECT_EQ(replies, (Replies{"3 2 -1"}));
}

// Somebody else answers; here the test.
class Authority : public node::LoginAuthority {
public:
    void prepare(rpcTalLoginBlockBll& block) override { std::strcpy(block.remoteId, "known"); }
    void ask(const rpcTalLoginBlockBll& block) override { asked.push_back(block.interface); }
    void forgetConfiguration() override { ++forgotten; }

    std::vector<unsigned> asked;
    int forgotten = 0;
};

TEST_F(IsaTest, AuthorityIsAskedOncePerOpenRequestAndFillsInTheBlock) {
    Authority authority;
    isa.useAuthority(authority);
    rpcTalLoginBlockBll block{};
    block.interface = 3;
    isa.request(block);
    EXPECT_STREQ(block.remoteId, "known");
    request(3, "good");
    request(4, "good");
    loop.run(true);
    EXPECT_EQ(authority.asked, (std::vector<unsigned>{3, 4}));
    EXPECT_TRUE(replies.empty());
    EXPECT_EQ(isa.record(3).verdict, Isa::Verdict::waiting);
    isa.answer(3, {true, 0ms, {}});
    EXPECT_EQ(replies, (Replies{"3 2 0", "3 3 0"}));
    request(3, "good");
    EXPECT_EQ(authority.asked.size(), 3u);
}

TEST_F(IsaTest, AuthorityIsAskedAfreshAfterARequestWasWithdrawn) {
    Authority authority;
    isa.useAuthority(authority);
    request(3, "good");
    isa.withdraw(3);
    EXPECT_EQ(isa.record(3).verdict, Isa::Verdict::neverAnswered);
    request(3, "good");
    EXPECT_EQ(authority.asked, (std::vector<unsigned>{3, 3}));
    isa.answer(3, {false, 0ms, {}});
    isa.answer(3, {false, 0ms, {}});  // not asked for: a login that is ended
    EXPECT_EQ(replies, (Replies{"3 2 -1", "3 2 -1"}));
}

TEST_F(IsaTest, ClearingIsTheAuthoritysMatter) {
    Authority authority;
    isa.useAuthority(authority);
    isa.clearUsers();
    EXPECT_EQ(authority.forgotten, 1);
}

TEST_F(IsaTest, PlatformClassRefusesWithoutIsaAndWithoutBlock) {
    rpcTalLoginBlockBll block{};
    isaradiusbll& service = singleton<isaradiusbll>::instance();
    EXPECT_NE(service.isaradiusbllLoginRequest(&block, nullptr), 0u);
    node::attachIsa(&isa);
    EXPECT_NE(service.isaradiusbllLoginRequest(nullptr, nullptr), 0u);
    EXPECT_EQ(service.isaradiusbllLoginRequest(&block, nullptr), 0u);
    EXPECT_EQ(service.isaradiusbllTalMode(1), 0u);
    EXPECT_EQ(service.isaradiusbllClearConfig(), 0u);
    node::attachIsa(nullptr);
}

}  // namespace
