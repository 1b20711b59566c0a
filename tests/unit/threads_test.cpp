// The module under calls from many threads at once, with a real lock. Run under ThreadSanitizer
// these tests show that nothing the module owns is raced for; run without, that nothing is lost,
// torn or left locked.
#include "rpc/rpctal.h"
#include "tests/fake/module_test.h"

#include <array>
#include <atomic>
#include <cstring>
#include <functional>
#include <string>
#include <thread>
#include <vector>

namespace {

constexpr unsigned interfaceCount = 6;

class ThreadsTest : public testing::Test {
protected:
    FakePlatform platform{fake::LockMode::real};
    tal& module = singleton<tal>::instance();

    void SetUp() override {
        platform.board.type = 1;
        for (unsigned id = 1; id <= interfaceCount; ++id) {
            const std::string number = std::to_string(id);
            platform.interfaces.add(id, 1, "1/" + number, "dsl" + number);
        }
        // Not in the module's table: its events insert an entry by lookup.
        platform.interfaces.add(90, 2, "1/90", "eth0");
        ASSERT_TRUE(module.start());
        ASSERT_EQ(0u, module.talAdminStateSet(true));
        ASSERT_EQ(talResOk, module.talIntfAdminStateSet(0, true));
        platform.forget();
    }

    // Runs all jobs at once, each `rounds` times with its own round number.
    static void together(const std::vector<std::function<void(unsigned)> >& jobs, unsigned rounds) {
        std::atomic<bool> go{false};
        std::vector<std::thread> threads;
        for (const auto& job : jobs) {
            threads.emplace_back([&go, &job, rounds] {
                while (!go) {
                    std::this_thread::yield();
                }
                for (unsigned round = 0; round < rounds; ++round) {
                    job(round);
                }
            });
        }
        go = true;
        for (std::thread& thread : threads) {
            thread.join();
        }
    }

    static unsigned intfOf(unsigned round) { return 1 + round % interfaceCount; }

    // A line with all of header, VLAN, MAC, address, pattern and three options.
    static std::string fullLine(unsigned id) {
        std::string line = "taldsl" + std::to_string(id) + " 000100";
        line += "001a2b3c4d5e";
        line += "192.168.001.010";
        line += std::string(256, '5');
        line += "060003isp";
        line += "002004port";
        line += "061003000abc";
        return line;
    }
    static std::string headerLine(unsigned id) { return "taldsl" + std::to_string(id) + " 00"; }

    void expectHealthy() {
        EXPECT_EQ(0, platform.locksHeld().exclusive);
        EXPECT_EQ(0, platform.locksHeld().shared);
        for (const std::string& text : platform.texts()) {
            ADD_FAILURE() << "nothing was refused, yet: " << text;
        }
        std::vector<std::string> lines;
        EXPECT_EQ(0u, module.talReadStorageFile(talStorageFile, lines));
        for (size_t i = 0; i < lines.size(); i += 14) {
            EXPECT_EQ(0u, lines[i].find("interface: "));
        }
    }
};

TEST_F(ThreadsTest, EverythingAtOnceLeavesTheModuleWhole) {
    const std::vector<std::function<void(unsigned)> > jobs = {
        // Engine events on two threads.
        [&](unsigned round) { platform.engine.raise(fullLine(intfOf(round)).c_str()); },
        [&](unsigned round) {
            platform.engine.raise(headerLine(intfOf(round)).c_str());
            platform.engine.raise("taleth0 000100");
        },
        // ISA's answers on two threads.
        [&](unsigned round) { rpcTalReply(intfOf(round), 2, 0); },
        [&](unsigned round) { rpcTalReply(intfOf(round), 3, round % 3 == 0 ? -1 : 0); },
        // Settings, single and all.
        [&](unsigned round) {
            const unsigned id = round % 4 == 0 ? 0 : intfOf(round);
            const bool state = round % 3 != 0;
            rpcTalIntfAdminStateSet(id, state);
            rpcTalIntfAuthenAdminStateSet(id, state);
            rpcTalIntfAuthorAdminStateSet(id, !state);
            rpcTalIntfAutoReqAdminStateSet(id, state);
            module.talIntfTimeoutSet(id, 1 + round % 300);
            module.talIntfMaxQueueSizeSet(id, 1 + round % 100);
        },
        // Rules, single, all and bundled.
        [&](unsigned round) {
            talRule rule{};
            module.setTalRuleDefault(&rule);
            rule.type = talRuleTypeEthType;
            rule.ethType = 0x0800 + round % 2;
            module.talRuleSet(round % 4 == 0 ? 0 : intfOf(round), &rule, talOperationAdd);
            if (round % 5 == 0) {
                talRule bundle{};
                module.setTalRuleDefault(&bundle);
                module.talRuleBundleSet(intfOf(round), &bundle);
            }
            module.talRuleGet(intfOf(round), &rule);
            module.talRuleEmpty(intfOf(round));
        },
        // The global states.
        [&](unsigned round) {
            rpcTalAdminStateSet(round % 2 == 0);
            module.talRequestStateSet(round % 2 != 0);
        },
        // Interface events.
        [&](unsigned round) { platform.interfaces.fireEvent(static_cast<int>(intfOf(round)), 4); },
        // Getters, interface 0 included, which inserts.
        [&](unsigned round) {
            const unsigned id = round % 3 == 0 ? 0 : intfOf(round);
            bool state = false;
            uint32_t value = 0;
            rpcTalAdminStateGet(&state);
            rpcTalIntfAdminStateGet(id, &state);
            rpcTalIntfAuthenAdminStateGet(id, &state);
            module.talIntfTimeoutGet(id, &value);
            module.talIntfMaxQueueSizeGet(id, &value);
            module.talIntfTimeoutDefaultGet(id, &value);
            rpcTalIntfAuthenOperStateGet(id, &state);
            std::array<uint32_t, 13> c{};
            rpcTalIntfStatisticsGet(id, &c[0], &c[1], &c[2], &c[3], &c[4], &c[5], &c[6], &c[7],
                                    &c[8], &c[9], &c[10], &c[11], &c[12]);
            module.talIsAccessIntf(id);
        },
        // DSL lines going down, for one and for all.
        [&](unsigned round) { module.talDslIntfDisabled(round % 3 == 0 ? 0 : intfOf(round)); },
        // Configuration applies; the first one replays.
        [&](unsigned) {
            platform.manager.applyStart();
            platform.manager.applyStop();
        },
        // Stored logins, read and deleted.
        [&](unsigned round) {
            rpcTalLoginBlockBll block{};
            module.talStoreLoginDataGet(intfOf(round), block);
            module.talIsLoginDataStored(intfOf(round));
            module.talDeleteStoredLoginData(intfOf(round));
        },
    };
    together(jobs, 60);
    expectHealthy();
    EXPECT_LT(0u, platform.isa.requests().size());
    for (unsigned id = 1; id <= interfaceCount; ++id) {
        EXPECT_TRUE(module.talIsValidIntf(id));
        uint32_t timeout = 0;
        EXPECT_EQ(talResOk, module.talIntfTimeoutGet(id, &timeout));
        EXPECT_LE(1u, timeout);
        EXPECT_GE(60u, timeout);
    }
    EXPECT_FALSE(module.talIsValidIntf(90));
}

TEST_F(ThreadsTest, LoginsAcceptedAtOnceAreAllStored) {
    std::vector<std::function<void(unsigned)> > jobs;
    std::atomic<unsigned> missing{0};
    for (unsigned id = 1; id <= interfaceCount; ++id) {
        jobs.push_back([&, id](unsigned) {
            platform.engine.raise(fullLine(id).c_str());
            EXPECT_EQ(0u, rpcTalReply(id, 2, 0));
            missing += module.talIsLoginDataStored(id) ? 0 : 1;
        });
    }
    together(jobs, 25);
    EXPECT_EQ(0u, missing);
    expectHealthy();
    for (unsigned id = 1; id <= interfaceCount; ++id) {
        rpcTalLoginBlockBll block{};
        EXPECT_EQ(0u, module.talStoreLoginDataGet(id, block));
        EXPECT_EQ("KORVALIN:2 eth 5/1/" + std::to_string(id), block.circuitId);
        EXPECT_STREQ("port", block.remoteId);
        EXPECT_STREQ("isp", block.vendorId);
        EXPECT_STREQ("abc", block.clientId);
    }
}

TEST_F(ThreadsTest, TwoAnswersAtOnceStoreOneEventOnce) {
    for (unsigned round = 0; round < 40; ++round) {
        ASSERT_EQ(0u, module.talDeleteStoredLoginDataAll());
        platform.engine.raise(fullLine(1).c_str());
        platform.forget();
        together({[&](unsigned) { EXPECT_EQ(0u, rpcTalReply(1, 2, 0)); },
                  [&](unsigned) { EXPECT_EQ(0u, rpcTalReply(1, 3, 0)); }},
                 1);
        EXPECT_TRUE(module.talIsLoginDataStored(1));
        // One store takes the lock three times: around, read, write; the look above once.
        EXPECT_EQ(4u, platform.count("exclusiveLock"));
    }
    expectHealthy();
}

TEST_F(ThreadsTest, BlocksArriveAtIsaWhole) {
    std::vector<std::function<void(unsigned)> > jobs;
    for (unsigned id = 1; id <= interfaceCount; ++id) {
        jobs.push_back([&, id](unsigned) { platform.engine.raise(fullLine(id).c_str()); });
    }
    together(jobs, 50);
    const std::vector<rpcTalLoginBlockBll> requests = platform.isa.requests();
    EXPECT_EQ(50u * interfaceCount, requests.size());
    for (const rpcTalLoginBlockBll& block : requests) {
        EXPECT_EQ("KORVALIN:2 eth 5/1/" + std::to_string(block.interface), block.circuitId);
        EXPECT_STREQ("isp", block.vendorId);
        EXPECT_EQ(10u, block.vlanId);
        EXPECT_EQ(0x55555555u, block.userPatternSequence[0]);
        EXPECT_EQ(0x05555555u, block.userPatternSequence[31]);
    }
    expectHealthy();
}

TEST_F(ThreadsTest, SlowIsaDelaysNoOtherLine) {
    // ISA does not answer the first line before the second line's request has arrived.
    std::atomic<bool> secondArrived{false};
    std::atomic<bool> firstWaits{false};
    platform.isa.onRequest = [&](rpcTalLoginBlockBll& block) {
        if (block.interface == 1) {
            firstWaits = true;
            for (int i = 0; i < 200000 && !secondArrived; ++i) {
                std::this_thread::yield();
            }
        } else {
            secondArrived = true;
        }
    };
    together({[&](unsigned) { platform.engine.raise(headerLine(1).c_str()); },
              [&](unsigned) {
                  while (!firstWaits) {
                      std::this_thread::yield();
                  }
                  // Neither a setting nor another login may wait for ISA.
                  EXPECT_EQ(talResOk, module.talIntfTimeoutSet(0, 9));
                  platform.engine.raise(headerLine(2).c_str());
              }},
             1);
    EXPECT_TRUE(secondArrived);
    expectHealthy();
}

TEST_F(ThreadsTest, LookupsThatInsertRaceWithWalks) {
    together({[&](unsigned) {
                  bool state = false;
                  EXPECT_EQ(talResOk, module.talIntfAdminStateGet(0, &state));
              },
              [&](unsigned) { EXPECT_EQ(0u, module.talDslIntfDisabled(0)); },
              [&](unsigned) { platform.engine.raise("taleth0 000100"); },
              [&](unsigned round) { EXPECT_EQ(talResOk, module.talIntfTimeoutSet(0, 1 + round)); },
              [&](unsigned round) { module.talIsValidIntf(round % 10); },
              [&](unsigned) { module.talApplyStoredData(); }},
             100);
    expectHealthy();
    uint32_t timeout = 0;
    EXPECT_EQ(talResOk, module.talIntfTimeoutGet(3, &timeout));
    EXPECT_EQ(100u, timeout);
}

TEST_F(ThreadsTest, ArmingEventIsTakenByOneThreadOnly) {
    // Of the first three events 4 that arrive at once exactly one is swallowed.
    for (unsigned round = 0; round < 40; ++round) {
        ASSERT_EQ(0u, module.talIntfInit(1));
        ASSERT_EQ(talResOk, module.talIntfAdminStateSet(1, true));
        platform.forget();
        const auto event = [&](unsigned) { platform.interfaces.fireEvent(1, 4); };
        together({event, event, event}, 1);
        EXPECT_EQ(2u, platform.count("ittalPortAuthenOperStateSet"));
    }
}

TEST_F(ThreadsTest, GlobalStateFollowsTheEngine) {
    const auto flip = [&](unsigned round) { EXPECT_EQ(0u, rpcTalAdminStateSet(round % 2 == 0)); };
    together({flip, flip, flip}, 60);
    const std::vector<fake::Call> calls = platform.find("ittalAdminStateSet");
    bool state = false;
    EXPECT_EQ(0u, rpcTalAdminStateGet(&state));
    ASSERT_FALSE(calls.empty());
    // Every engine call changed something: no two equal ones in a row.
    for (size_t i = 1; i < calls.size(); ++i) {
        EXPECT_NE(calls[i - 1].text, calls[i].text);
    }
    EXPECT_EQ(state ? "ittalAdminStateSet(true)" : "ittalAdminStateSet(false)", calls.back().text);
    expectHealthy();
}

}  // namespace
