#include "node/module/lifecycle.h"

#include <gtest/gtest.h>

#include <stdexcept>

#include "node/host/manager.h"
#include "platform/interfaces.h"
#include "platform/itbridge.h"

namespace {

class Entity : public BLEntity {
public:
    Entity(const std::string& name, std::list<std::string> needs, std::string* journal = nullptr)
        : BLEntity(name), needs_(std::move(needs)), journal_(journal) {}

    void applyConfiguration(boost::shared_ptr<Storage::Setting>) override {}
    void saveConfiguration(boost::shared_ptr<Storage::Setting>) const override {}
    bool start() override { return note("+"), willing; }
    bool applyDefaultSettings() override { return true; }
    bool stop() override { return note("-"), willing; }
    void getDependencies(std::list<std::string>& list) override { list = needs_; }

    bool willing = true;

private:
    void note(const char* what) {
        if (journal_) {
            *journal_ += what + getName() + " ";
        }
    }
    std::list<std::string> needs_;
    std::string* journal_;
};

std::string namesOf(const std::vector<BLEntity*>& order) {
    std::string names;
    for (const BLEntity* entity : order) {
        names += entity->getName() + " ";
    }
    return names;
}

TEST(StartOrder, EachComesAfterThoseItDependsOn) {
    Entity a("a", {"b", "c"});
    Entity b("b", {"c"});
    Entity c("c", {});
    Entity d("d", {});
    EXPECT_EQ(namesOf(node::startOrder({&a, &b, &c, &d})), "c b a d ");
    EXPECT_EQ(namesOf(node::startOrder({&d, &c, &b, &a})), "d c b a ");
}

TEST(StartOrder, CirclesMissingAndDoubleNamesAreRefused) {
    Entity a("a", {"b"});
    Entity b("b", {"a"});
    Entity c("c", {"x"});
    Entity d("d", {"d"});
    Entity secondA("a", {});
    EXPECT_THROW(node::startOrder({&a, &b}), std::runtime_error);
    EXPECT_THROW(node::startOrder({&c}), std::runtime_error);
    EXPECT_THROW(node::startOrder({&d}), std::runtime_error);
    EXPECT_THROW(node::startOrder({&a, &b, &secondA}), std::runtime_error);
}

TEST(StartOrder, StopGoesBackwardsAndNamesFailures) {
    std::string journal;
    Entity a("a", {}, &journal);
    Entity b("b", {"a"}, &journal);
    node::startEntities({&a, &b});
    a.willing = false;
    EXPECT_EQ(node::stopEntities({&a, &b}), std::vector<std::string>{"a"});
    EXPECT_EQ(journal, "+a +b -b -a ");
}

TEST(StartOrder, FailedStartEndsTheStarting) {
    std::string journal;
    Entity a("a", {}, &journal);
    Entity b("b", {}, &journal);
    a.willing = false;
    EXPECT_THROW(node::startEntities({&a, &b}), std::runtime_error);
    EXPECT_EQ(journal, "+a ");
}

TEST(Manager, EntityIsRegisteredOnceAndForgotten) {
    Entity a("a", {});
    BLLManager& manager = singleton<BLLManager>::instance();
    manager.registerEntity(a);
    manager.registerEntity(a);
    EXPECT_EQ(node::registeredEntities(), std::vector<BLEntity*>{&a});
    node::forgetEntity(a);
    EXPECT_TRUE(node::registeredEntities().empty());
}

TEST(Callbacks, ConfigurationIsAppliedBetweenStartAndStop) {
    std::string journal;
    BLLManager& manager = singleton<BLLManager>::instance();
    manager.configurationApplyStartCallbacks.push_back([&] { journal += "start "; });
    manager.configurationApplyStopCallbacks.push_back([&](int) { journal += "stop "; });
    node::applyConfiguration([&] { journal += "settings "; });
    EXPECT_EQ(journal, "start settings stop ");
    node::dropCallbacks();
    node::applyConfiguration([&] { journal += "alone "; });
    EXPECT_EQ(journal, "start settings stop alone ");
}

TEST(Callbacks, ApplicationEndsAlsoWhenItsSettingsFail) {
    std::string journal;
    BLLManager& manager = singleton<BLLManager>::instance();
    manager.configurationApplyStartCallbacks.push_back([&] { journal += "start "; });
    manager.configurationApplyStopCallbacks.push_back(
        [&](int result) { journal += "stop " + std::to_string(result); });
    EXPECT_THROW(node::applyConfiguration([] { throw std::runtime_error("refused"); }),
                 std::runtime_error);
    EXPECT_EQ(journal, "start stop 1");
    node::dropCallbacks();
}

TEST(Callbacks, EventsReachEveryCallbackUntilDropped) {
    std::string journal;
    singleton<itbridge>::instance().talEventCallbacks.push_back(
        [&](const char* text) { journal += text; });
    singleton<Interfaces>::instance().interfaceEventCallbacks.push_back(
        [&](int ifId, Interfaces::interfaceEvent_t event) {
            journal += " " + std::to_string(ifId) + ":" + std::to_string(static_cast<int>(event));
        });
    node::deliverEvent("taldsl1 00");
    node::deliverInterfaceUp(7);
    EXPECT_EQ(journal, "taldsl1 00 7:4");
    node::dropCallbacks();
    node::deliverEvent("taldsl1 00");
    node::deliverInterfaceUp(7);
    EXPECT_EQ(journal, "taldsl1 00 7:4");
}

}  // namespace
