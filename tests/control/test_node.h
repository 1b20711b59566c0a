// A node for tests of management: a table of service functions that remembers what it is told
// and refuses what the test says, and the view beside it. One per process at a time; callable
// from any thread.
#pragma once

#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "node/control/module_calls.h"
#include "node/control/node_view.h"

namespace node::control {

struct ServiceFunctions;

class TestNode final : public NodeView {
public:
    TestNode();  // interfaces 1 ("1/1", "dsl1") and 2 ("1/2", "dsl2")
    ~TestNode() override;

    static const ServiceFunctions& functions();
    static const ServiceFunctions& functionsWithoutRuleGet();

    // Answers of the function of that C name from now on; 0 lifts it.
    void refuse(const std::string& function, uint32_t result);
    // Like "rpcTalIntfAdminStateSet(1, 1)", reads left out.
    std::vector<std::string> calls() const;
    void setFile(const std::string& contents);
    void setInterface(const InterfaceView& view);  // by id
    void setServers(std::vector<ServerView> servers);
    void setProfiles(std::vector<ProfileInfo> profiles);
    void setStates(uint32_t forwarding, uint32_t authentication, uint32_t authorization);

    Identity identity() const override;
    std::vector<InterfaceView> interfaces() const override;
    std::vector<ServerView> servers() const override;
    std::vector<ProfileInfo> profiles() const override;
    std::string storageFile() const override;
    uint32_t anyRuleSet(unsigned ifId, bool present) override;

    struct Module;  // what the functions work on

private:
    mutable std::mutex mutex_;
    std::vector<InterfaceView> interfaces_;
    std::vector<ServerView> servers_;
    std::vector<ProfileInfo> profiles_;
    std::string file_;
    std::unique_ptr<Module> module_;
};

// A login as the module writes it.
std::string storedLogin(unsigned ifId);

}  // namespace node::control
