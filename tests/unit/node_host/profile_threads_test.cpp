// Logins on the node's loop, management on its threads: one store.
#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "node/profiles/profile_store.h"

namespace {

using node::LoginProfiles;
using node::ProfileInfo;
using node::ProfileKind;
using node::ProfileState;

TEST(ProfileThreads, LoginsConversionsDeletionsSavesAndListingsMix) {
    constexpr unsigned rounds = 200;
    std::ostringstream out;
    node::EventLog log(out);
    node::ProfileStore store({"", true}, log);
    std::vector<std::thread> threads;
    for (const unsigned ifId : {1u, 2u}) {
        threads.emplace_back([&store, ifId] {
            for (unsigned i = 0; i < rounds; ++i) {
                LoginProfiles profiles;
                profiles.names.fill("p" + std::to_string(i % 7));
                store.login(ifId, profiles);
            }
        });
    }
    threads.emplace_back([&store] {
        for (unsigned i = 0; i < rounds; ++i) {
            for (const std::string& name : store.names(ProfileKind::flow)) {
                if (name == "p3") {
                    store.makeStatic(ProfileKind::flow, name);
                }
            }
            store.removeDynamic(ProfileKind::service, 1 + i % 2);
            store.removeDynamic(ProfileKind::flow, 0);
            store.save();
        }
    });
    threads.emplace_back([&store] {
        for (unsigned i = 0; i < rounds; ++i) {
            for (const ProfileInfo& info : store.list()) {
                const bool ownerless = info.state == ProfileState::dynamic &&
                                       node::profileKnowsInterfaces(info.kind) &&
                                       info.interfaces.empty();
                ASSERT_FALSE(ownerless) << info.name;
            }
        }
    });
    for (std::thread& thread : threads) {
        thread.join();
    }
    store.login(1, {});
    store.login(2, {});
    for (size_t i = 0; i < node::profileKindCount; ++i) {
        store.removeDynamic(static_cast<ProfileKind>(i), 0);
    }
    for (const ProfileInfo& info : store.list()) {
        EXPECT_NE(info.state, ProfileState::dynamic) << info.name;
        EXPECT_TRUE(info.interfaces.empty());
    }
}

}  // namespace
