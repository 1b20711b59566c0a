#include "node/isa/radius/dynamic/authority.h"

#include <gtest/gtest.h>

#include "tests/radius/hex.h"

namespace {

using namespace node::radius;
using radius_test::fromHex;
using radius_test::rawPacket;
using radius_test::toHex;

constexpr int64_t noon = 1'700'000'000;

class Authority : public ::testing::Test {
protected:
    Authority() {
        authority_ = std::make_unique<DynamicAuthority>(
            settingsOf({{host_, Secret("secret of one")}, {other_, Secret("secret of two")}}),
            [this] { return now_; },
            [this](const DynamicRequest& request) {
                handled_.push_back(request);
                return refusal_;
            });
    }

    static DynamicSettings settingsOf(std::vector<DynamicClient> clients) {
        DynamicSettings settings;
        settings.clients = std::move(clients);
        settings.format.nasIdentifier = "nas";
        settings.mostRemembered = 4;
        return settings;
    }

    // A request that names a line, made at `made`, with further attributes.
    static Buffer request(Code code, std::optional<int64_t> made = noon,
                          const std::string& more = "", const char* secret = "secret of one") {
        AttributeWriter writer;
        writer.addText(attribute::userName, "line-1");
        if (made) {
            writer.addNumber(attribute::eventTimestamp, static_cast<uint32_t>(*made));
        }
        writer.addRaw(fromHex(more));
        Buffer packet = *packetOf(code, 77, writer.bytes());
        Signer(Secret(secret)).signRequest(packet, {});
        return packet;
    }

    std::optional<Code> judged(const Buffer& packet) {
        const auto answer = authority_->judge(host_, packet);
        if (!answer) {
            return std::nullopt;
        }
        const PacketView view = *PacketView::parse(*answer);
        const Authenticator asked = PacketView::parse(packet)->authenticator();
        EXPECT_EQ(77, view.id());
        EXPECT_EQ(
            Proof::good,
            Signer(Secret("secret of one")).proveAnswer(view, asked, Demand::messageAuthenticator));
        const auto cause = view.first(attribute::errorCause);
        cause_ = cause ? *numberOf(*cause) : 0;
        return view.code();
    }

    SocketAddress host_ = *SocketAddress::parse("192.0.2.1", 1000);
    SocketAddress other_ = *SocketAddress::parse("192.0.2.2", 0);
    int64_t now_ = noon;
    std::optional<ErrorCause> refusal_;
    std::vector<DynamicRequest> handled_;
    uint32_t cause_ = 0;
    std::unique_ptr<DynamicAuthority> authority_;
};

TEST_F(Authority, DisconnectAndChangeAreDoneAndAcknowledged) {
    EXPECT_EQ(Code::disconnectAck, judged(request(Code::disconnectRequest)));
    EXPECT_EQ(Code::coaAck, judged(request(Code::coaRequest, noon, "1b06 0000003c")));
    ASSERT_EQ(2U, handled_.size());
    EXPECT_EQ(DynamicRequest::Kind::disconnect, handled_[0].kind);
    EXPECT_EQ("line-1", handled_[0].userName);
    EXPECT_EQ(60U, handled_[1].grant.sessionTimeout);
    EXPECT_EQ(2U, authority_->counters().acks);
}

TEST_F(Authority, RefusalOfTheHandlerIsToldWithItsCause) {
    refusal_ = ErrorCause::sessionContextNotFound;
    EXPECT_EQ(Code::disconnectNak, judged(request(Code::disconnectRequest)));
    EXPECT_EQ(503U, cause_);
    EXPECT_EQ(Code::coaNak, judged(request(Code::coaRequest)));
    EXPECT_EQ(503U, cause_);
    EXPECT_EQ(2U, authority_->counters().naks);
}

TEST_F(Authority, RequestThatCannotBeReadIsRefusedAndNotDone) {
    EXPECT_EQ(Code::coaNak, judged(request(Code::coaRequest, noon, "0606 00000001")));
    EXPECT_EQ(401U, cause_);
    EXPECT_TRUE(handled_.empty());
}

TEST_F(Authority, ProxyStateIsReturnedInOrder) {
    const auto answer =
        authority_->judge(host_, request(Code::disconnectRequest, noon, "2103 61 2103 62"));
    ASSERT_TRUE(answer);
    const auto states = PacketView::parse(*answer)->all(attribute::proxyState);
    ASSERT_EQ(2U, states.size());
    EXPECT_EQ("a", textOf(states[0]));
    EXPECT_EQ("b", textOf(states[1]));
}

TEST_F(Authority, UnknownHostGetsNoAnswer) {
    const auto stranger = *SocketAddress::parse("192.0.2.3", 1000);
    EXPECT_FALSE(authority_->judge(stranger, request(Code::disconnectRequest)));
    EXPECT_EQ(1U, authority_->counters().unknownClient);
    EXPECT_TRUE(handled_.empty());
}

TEST_F(Authority, SecretOfAnotherHostProvesNothing) {
    EXPECT_FALSE(judged(request(Code::disconnectRequest, noon, "", "secret of two")));
    EXPECT_EQ(1U, authority_->counters().notProven);
    EXPECT_TRUE(
        authority_->judge(other_, request(Code::disconnectRequest, noon, "", "secret of two")));
}

TEST_F(Authority, RequestWithAnyBitChangedIsDropped) {
    const Buffer good = request(Code::disconnectRequest);
    for (size_t bit = 0; bit < good.size() * 8; ++bit) {
        Buffer changed = good;
        changed[bit / 8] = static_cast<uint8_t>(changed[bit / 8] ^ 1 << bit % 8);
        EXPECT_FALSE(authority_->judge(host_, changed)) << "bit " << bit;
    }
    EXPECT_TRUE(handled_.empty());
}

TEST_F(Authority, MessageAuthenticatorIsDemanded) {
    // Made with Python: md5 over the packet with a zero authenticator and the secret.
    const Buffer bare =
        fromHex("2807 0022 df3dbe6d3b7572b3d4c2ae04139c5409 0108 6c696e652d31 3706 6553f100");
    EXPECT_FALSE(authority_->judge(host_, bare));
    EXPECT_EQ(1U, authority_->counters().notProven);
}

TEST_F(Authority, OtherCodesAreDropped) {
    for (const Code code : {Code::accessRequest, Code::accountingRequest, Code::statusServer,
                            Code::coaAck, Code::disconnectNak}) {
        EXPECT_FALSE(judged(request(code)));
    }
    EXPECT_EQ(5U, authority_->counters().wrongCode);
    EXPECT_FALSE(authority_->judge(host_, {}));
    EXPECT_EQ(1U, authority_->counters().malformed);
}

TEST_F(Authority, TimeOutsideTheWindowOrMissingIsDropped) {
    EXPECT_TRUE(judged(request(Code::disconnectRequest, noon - 300)));
    EXPECT_TRUE(judged(request(Code::disconnectRequest, noon + 300)));
    EXPECT_FALSE(judged(request(Code::disconnectRequest, noon - 301)));
    EXPECT_FALSE(judged(request(Code::disconnectRequest, noon + 301)));
    EXPECT_FALSE(judged(request(Code::disconnectRequest, std::nullopt)));
    EXPECT_FALSE(judged(request(Code::disconnectRequest, std::nullopt, "3705 000000")));
    EXPECT_EQ(4U, authority_->counters().untimely);
    EXPECT_EQ(2U, handled_.size());
}

TEST_F(Authority, RepetitionGetsTheSameAnswerAndIsNotDoneAgain) {
    const Buffer packet = request(Code::disconnectRequest);
    const auto first = authority_->judge(host_, packet);
    refusal_ = ErrorCause::sessionContextNotFound;
    now_ = noon + 300;
    EXPECT_EQ(first, authority_->judge(host_, packet));
    EXPECT_EQ(1U, handled_.size());
    EXPECT_EQ(1U, authority_->counters().repeated);
    now_ = noon + 301;
    EXPECT_FALSE(authority_->judge(host_, packet)) << "forgotten, but no longer timely";
    EXPECT_EQ(1U, handled_.size());
}

TEST_F(Authority, NothingIsForgottenBeforeItsTimeAndMemoryIsBounded) {
    for (int i = 0; i < 4; ++i) {
        EXPECT_EQ(Code::disconnectAck, judged(request(Code::disconnectRequest, noon + i)));
    }
    EXPECT_EQ(Code::disconnectNak, judged(request(Code::disconnectRequest, noon + 10)));
    EXPECT_EQ(506U, cause_);
    EXPECT_EQ(4U, handled_.size());
    EXPECT_TRUE(judged(request(Code::disconnectRequest, noon)));
    EXPECT_EQ(4U, handled_.size()) << "a repetition was done again";
    EXPECT_EQ(4U, authority_->remembered());
    now_ = noon + 302;
    EXPECT_EQ(Code::disconnectAck, judged(request(Code::disconnectRequest, noon + 10)));
    EXPECT_EQ(3U, authority_->remembered());
}

TEST_F(Authority, OtherSettingsDoNotMakeARequestForgotten) {
    const Buffer disconnect = request(Code::disconnectRequest);
    ASSERT_EQ(Code::disconnectAck, judged(disconnect));
    // In another order, with another secret of the other host.
    authority_->use(
        settingsOf({{other_, Secret("another of two")}, {host_, Secret("secret of one")}}));
    EXPECT_EQ(Code::disconnectAck, judged(disconnect));
    EXPECT_EQ(1U, handled_.size());
    EXPECT_EQ(1U, authority_->counters().repeated);
    // Nor does being away.
    authority_->use(settingsOf({{other_, Secret("another of two")}}));
    EXPECT_EQ(std::nullopt, judged(disconnect));
    EXPECT_EQ(1U, authority_->counters().unknownClient);
    authority_->use(settingsOf({{host_, Secret("secret of one")}}));
    EXPECT_EQ(Code::disconnectAck, judged(disconnect));
    EXPECT_EQ(1U, handled_.size());
    EXPECT_EQ(1U, authority_->remembered());
}

TEST_F(Authority, LongerWindowLetsNothingInThatWasForgottenInTheShorterOne) {
    const Buffer disconnect = request(Code::disconnectRequest);
    ASSERT_EQ(Code::disconnectAck, judged(disconnect));
    now_ = noon + 301;
    ASSERT_EQ(Code::disconnectAck, judged(request(Code::disconnectRequest, now_)));
    ASSERT_EQ(1U, authority_->remembered()) << "the first is forgotten";
    DynamicSettings longer = settingsOf({{host_, Secret("secret of one")}});
    longer.window = 3600;
    authority_->use(std::move(longer));
    EXPECT_EQ(std::nullopt, judged(disconnect));
    EXPECT_EQ(2U, handled_.size());
    EXPECT_EQ(Code::coaAck, judged(request(Code::coaRequest, noon + 2)));
}

TEST_F(Authority, HostGetsItsNewSecretAtOnce) {
    authority_->use(settingsOf({{host_, Secret("another of one")}}));
    EXPECT_EQ(std::nullopt, judged(request(Code::coaRequest)));
    EXPECT_EQ(1U, authority_->counters().notProven);
    EXPECT_TRUE(authority_->judge(host_, request(Code::coaRequest, noon, "", "another of one")));
}

}  // namespace
