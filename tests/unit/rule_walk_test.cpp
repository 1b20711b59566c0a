// Random walks over the rule table, step by step against a plain model of it: result, engine
// calls byte for byte, the table, and the stored logins.
//
// Values come from small pools, so that rules meet their like; records often carry more slots
// than the one addressed, engine calls are refused at random, and interface 0 is set, deleted
// and read like the others. A walk is fixed by its seed; a failure names seed and step.
#include "tests/oracle/rule_table_model.h"
#include "tests/unit/rule_table_fixture.h"

#include <algorithm>
#include <iterator>
#include <random>
#include <set>
#include <sstream>

namespace {

using oracle::ConditionCall;
using oracle::RuleTableModel;

constexpr unsigned stepsPerWalk = 25000;
constexpr unsigned ids[] = {1, 2, 7, 42, 98, 99};
constexpr unsigned unknown = 50;

enum class Start {
    plain,        // no entry under key 0
    zeroEntry,    // an entry under key 0 from the beginning
    zeroLater,    // one that the first read of interface 0 makes
    interrupted,  // a start that failed and goes on for ever; it succeeds half-way
};

struct Walk {
    unsigned seed;
    Start start;
};

// Becomes part of the test's name.
void PrintTo(const Walk& walk, std::ostream* out) {
    *out << "Seed" << walk.seed;
}

class RuleWalkTest : public RuleTableFixture, public testing::WithParamInterface<Walk> {
protected:
    // ---- chance

    unsigned below(unsigned limit) { return static_cast<unsigned>(random_() % limit); }
    bool oneIn(unsigned n) { return below(n) == 0; }
    template <size_t Size>
    uint32_t anyOf(const uint32_t (&pool)[Size]) {
        return pool[below(Size)];
    }

    unsigned anyInterface() {
        const unsigned choice = below(10);
        if (choice < 6) {
            return ids[choice];
        }
        return choice == 9 && oneIn(4) ? unknown : choice < 8 ? ids[below(2)] : 0;
    }
    // Interface 0 only where the table has it or may get it.
    unsigned anyReadInterface() {
        const unsigned id = anyInterface();
        const bool zeroMayBeRead = GetParam().start == Start::zeroLater && step_ > 5000;
        return id != 0 || model_.interfaces.count(0) != 0 || zeroMayBeRead ? id : ids[0];
    }

    void randomSlot(talRule& rule, int type) {
        static const uint32_t values[] = {0, 1, 2, rules::unset};
        static const uint32_t etherTypes[] = {rules::ipv4, rules::ipv4,  rules::ipv4,
                                              rules::arp,  rules::unset, 0};
        static const uint32_t words[] = {0, 0x0A000001, 0x0A000002};
        static const unsigned char bytes[] = {0, 0x02, 0x03};
        static const uint32_t formats[] = {0, 1, 2, 0, 1, 2, 3, rules::unset};
        static const uint32_t lengths[] = {0, 3, 6, 300};
        switch (type) {
            case 0:
                rule.type0Value = anyOf(values);
                break;
            case 1:
                rule.ethType = anyOf(etherTypes);
                break;
            case 2:
                rule.type2Flag = anyOf(values);
                break;
            case 3:
            case 4:
            case 5: {
                static const std::string data[] = {"", "abc", "abd", std::string(256, 'x'),
                                                   std::string("abc\0x", 5)};
                talRulePattern& pattern = rule.pattern[type - 3];
                pattern.format = static_cast<talPatternFormat>(anyOf(formats));
                const std::string& text = data[below(5)];
                memset(pattern.data, 0, sizeof(pattern.data));
                memcpy(pattern.data, text.data(), text.size());
                pattern.length = anyOf(lengths);
                break;
            }
            case 6:
                memset(rule.macAddr, bytes[below(3)], 5);
                rule.macAddr[5] = bytes[below(3)];
                memset(rule.macMask, bytes[below(3)], 6);
                break;
            case 7:
                rule.ipValue = anyOf(words);
                rule.ipMask = anyOf(words);
                break;
            case 8:
                rule.type8Value = anyOf(values);
                break;
            default:
                memset(rule.userPatternSequence, 0, sizeof(rule.userPatternSequence));
                memset(rule.userPatternMask, 0, sizeof(rule.userPatternMask));
                rule.userPatternSequence[below(2) * 31] = anyOf(words);
                rule.userPatternMask[below(2) * 31] = anyOf(words);
                break;
        }
    }
    talRule randomRule(int type, unsigned othersOneIn) {
        talRule rule = rules::blank(type);
        for (const int slot : rules::types) {
            if (slot == type || (othersOneIn != 0 && oneIn(othersOneIn))) {
                randomSlot(rule, slot);
            }
        }
        return rule;
    }
    int randomType() { return oneIn(60) ? (oneIn(2) ? 10 : -1) : static_cast<int>(below(10)); }

    // ---- the two sides

    void begin() {
        for (const unsigned id : ids) {
            addInterface(id);
            model_.addInterface(id);
        }
        if (GetParam().start == Start::interrupted) {
            platform.answers.always("ittalRequestState");
            ASSERT_FALSE(module.start());
            platform.answers.clear();
            model_.starting = true;
        } else {
            ASSERT_TRUE(module.start());
        }
        module.configurationApplyStop();  // the one that replays stored logins
        if (GetParam().start == Start::zeroEntry) {
            uint32_t timeout = 0;
            ASSERT_EQ(talResOk, module.talIntfTimeoutGet(0, &timeout));
            model_.addZeroEntry();
        }
        platform.forget();
    }

    void refuseSomeCalls() {
        platform.answers.clear();
        model_.refuseAdd = oneIn(8) ? 1 + below(8) : 0;
        model_.refuseDelete = oneIn(8) ? 1 + below(8) : 0;
        if (model_.refuseAdd != 0) {
            platform.answers.nth("ittalConditionAdd", model_.refuseAdd, -1);
        }
        if (model_.refuseDelete != 0) {
            platform.answers.nth("ittalConditionDel", model_.refuseDelete, 7);
        }
    }

    void take() {
        const unsigned choice = below(100);
        if (choice < 45) {
            const unsigned id = anyInterface();
            const bool deleting = oneIn(3);
            talRule rule = randomRule(randomType(), oneIn(2) ? 3 : 0);
            if (deleting && !oneIn(6)) {
                rule = rules::blank(rule.type);
            }
            static const uint32_t deletions[] = {1, 2, 0x80000000, 0xFFFFFFFF};
            const uint32_t op = deleting ? anyOf(deletions) : 0;
            did("set", id, rule.type, op);
            expected_ = model_.set(id, rule, op);
            actual_ = module.talRuleSet(id, &rule, static_cast<talOperation>(op));
        } else if (choice < 60) {
            const unsigned id = anyInterface();
            talRule mine = randomRule(-1, 1 + below(6));
            if (oneIn(4)) {
                mine = rules::blank(-1);
            } else if (!oneIn(4)) {
                mine.ethType = oneIn(2) ? rules::ipv4 : rules::unset;
            }
            talRule theirs = mine;
            did("bundle", id);
            expected_ = model_.setBundle(id, mine);
            actual_ = module.talRuleBundleSet(id, &theirs);
            EXPECT_EQ(0, memcmp(&mine, &theirs, sizeof(mine))) << "the caller's bundle";
        } else if (choice < 80) {
            question(anyReadInterface());
        } else if (choice < 82) {
            // Off is rare: it writes the storage file, which is slow and ends the purging.
            const bool on = !oneIn(10);
            did("node admin state", on);
            model_.switchNode(on);
            expected_ = 0;
            actual_ = module.talAdminStateSet(on);
        } else if (choice < 88) {
            const bool on = !oneIn(4);
            const unsigned id = on || oneIn(10) ? anyInterface() : ids[below(6)];
            did("admin state", id, on);
            expected_ = model_.switchInterface(id, on);
            actual_ = module.talIntfAdminStateSet(id, on);
        } else if (choice < 92) {
            const bool start = oneIn(2);
            did("apply", start);
            model_.applying = start;
            start ? module.configurationApplyStart() : module.configurationApplyStop();
            expected_ = actual_ = 0;
        } else if (choice < 94) {
            const unsigned id = anyInterface();
            did("defaults", id);
            expected_ = model_.setDefaults(id);
            actual_ = module.talIntfDefaultSet(id);
        } else if (oneIn(10)) {
            const unsigned id = ids[below(6)];
            did("store login", id);
            rpcTalLoginBlockBll block;
            memset(static_cast<void*>(&block), 0, sizeof(block));
            block.interface = id;
            model_.interfaces[id].loginStored = true;
            expected_ = 0;
            actual_ = module.talStoreLoginData(id, block);
        } else {
            question(anyReadInterface());
        }
    }

    void question(unsigned id) {
        const int type = randomType();
        did("question", id, type);
        expected_ = (model_.exists(id, type) ? 1u : 0u) + (model_.empty(id) ? 2u : 0u);
        actual_ = (exists(id, type) ? 1u : 0u) + (module.talRuleEmpty(id) ? 2u : 0u);
    }

    // ---- the comparison

    std::vector<ConditionCall> engineTrace() const {
        std::vector<fake::Call> calls = platform.find("ittalConditionAdd");
        const std::vector<fake::Call> deletions = platform.find("ittalConditionDel");
        calls.insert(calls.end(), deletions.begin(), deletions.end());
        std::sort(calls.begin(), calls.end(), [](const fake::Call& one, const fake::Call& two) {
            return one.order < two.order;
        });
        std::vector<ConditionCall> trace;
        for (const fake::Call& call : calls) {
            // ittalConditionAdd("41", 3, 29): the selector stands between the quotes.
            const size_t open = call.text.find('"');
            const size_t close = call.text.find('"', open + 1);
            const auto type = static_cast<uint32_t>(std::stoul(call.text.substr(close + 3)));
            trace.push_back({call.name == "ittalConditionAdd",
                             call.text.substr(open + 1, close - open - 1), type,
                             std::string(call.record.begin(), call.record.end())});
        }
        return trace;
    }
    static std::string text(const std::vector<ConditionCall>& trace) {
        std::string lines;
        for (const ConditionCall& call : trace) {
            lines += "  " + oracle::text(call) + "\n";
        }
        return lines;
    }

    void compare() {
        ASSERT_EQ(expected_, actual_);
        const std::vector<ConditionCall> trace = engineTrace();
        ASSERT_TRUE(model_.trace == trace) << "the engine saw\n"
                                           << text(trace) << "and should have seen\n"
                                           << text(model_.trace);
        ASSERT_TRUE(platform.texts().empty()) << platform.texts().front();
        conditionCalls_ += trace.size();

        for (const auto& [id, interface] : model_.interfaces) {
            talRule rule = rules::blank(-1);
            ASSERT_EQ(talResOk, module.talRuleGet(id, &rule));
            if (memcmp(&interface.rule, &rule, offsetof(talRule, type)) != 0) {
                const std::vector<int> types = rules::differing(interface.rule, rule);
                ASSERT_FALSE(types.empty());
                FAIL() << "interface " << id << " differs in type " << types.front();
            }
        }
        ASSERT_EQ(model_.get(unknown, scratch_), unsigned{module.talRuleGet(unknown, &scratch_)});

        std::string stored;
        std::istringstream file(storedFile());
        for (std::string line; std::getline(file, line);) {
            if (line.compare(0, 11, "interface: ") == 0) {
                stored += line.substr(11) + " ";
            }
        }
        std::istringstream words(stored);
        const std::set<unsigned> inFile{std::istream_iterator<unsigned>(words), {}};
        std::set<unsigned> inModel;
        for (const auto& [id, interface] : model_.interfaces) {
            if (interface.loginStored) {
                inModel.insert(id);
            }
        }
        ASSERT_EQ(inModel, inFile) << "stored logins";
    }

    template <class... Values>
    void did(const char* what, Values... values) {
        std::ostringstream words;
        words << "step " << step_ << ": " << what;
        ((words << " " << static_cast<int64_t>(values)), ...);
        words << ", refusing add " << model_.refuseAdd << " delete " << model_.refuseDelete;
        words_ = words.str();
    }

    void walk() {
        begin();
        for (step_ = 1; step_ <= stepsPerWalk; ++step_) {
            if (GetParam().start == Start::interrupted && step_ == stepsPerWalk / 2) {
                platform.answers.clear();
                ASSERT_TRUE(module.start());
                model_.startAgain();
                platform.forget();
            }
            refuseSomeCalls();
            model_.trace.clear();
            take();
            platform.answers.clear();
            if (!HasFailure()) {
                compare();
            }
            ASSERT_FALSE(HasFailure()) << words_;
            platform.forget();
            results_.insert(actual_);
        }
    }

    std::mt19937 random_{GetParam().seed};
    RuleTableModel model_;
    talRule scratch_ = rules::blank(-1);
    unsigned step_ = 0;
    unsigned expected_ = 0;
    unsigned actual_ = 0;
    size_t conditionCalls_ = 0;
    std::set<unsigned> results_;
    std::string words_;
};

TEST_P(RuleWalkTest, TableEngineAndStoredLoginsFollowTheModel) {
    walk();
    // The walk went somewhere.
    EXPECT_GT(conditionCalls_, stepsPerWalk / 2);
    EXPECT_EQ((std::set<unsigned>{0, 1, 2, 3}), results_);
    EXPECT_GT(model_.purges, 20u);
}

INSTANTIATE_TEST_SUITE_P(Seeds, RuleWalkTest,
                         testing::Values(Walk{1, Start::plain}, Walk{2, Start::plain},
                                         Walk{3, Start::zeroEntry}, Walk{4, Start::zeroEntry},
                                         Walk{5, Start::zeroLater}, Walk{6, Start::zeroLater},
                                         Walk{7, Start::interrupted}, Walk{8, Start::interrupted}));

static_assert(8 * stepsPerWalk >= 200000);

}  // namespace
