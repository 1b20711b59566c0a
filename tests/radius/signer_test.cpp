#include "node/isa/radius/packet/signer.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "tests/radius/hex.h"

namespace {

using namespace node::radius;
using radius_test::fromHex;
using radius_test::toHex;

const Authenticator random = [] {
    Authenticator value;
    for (size_t i = 0; i < value.size(); ++i) {
        value[i] = static_cast<uint8_t>(i + 1);
    }
    return value;
}();

Buffer packetWithName(Code code) {
    AttributeWriter writer;
    writer.addText(attribute::userName, "line-1");
    return *packetOf(code, 7, writer.bytes());
}

Proof proofOf(Signer& signer, const Buffer& answer, Demand demand = Demand::messageAuthenticator) {
    return signer.proveAnswer(*PacketView::parse(answer), random, demand);
}

class SignedRequests : public ::testing::TestWithParam<Code> {};

TEST_P(SignedRequests, AreProvenBySameSecretOnly) {
    Signer ours{Secret("a secret of ours")};
    Signer other{Secret("a secret of another")};
    Buffer packet = packetWithName(GetParam());
    ours.signRequest(packet, random);
    const auto view = PacketView::parse(packet);
    ASSERT_TRUE(view);
    EXPECT_EQ(Proof::good, ours.proveRequest(*view, Demand::messageAuthenticator));
    EXPECT_NE(Proof::good, other.proveRequest(*view, Demand::messageAuthenticator));
}

TEST_P(SignedRequests, AreRefusedWithAnyBitChanged) {
    Signer signer{Secret("a secret of ours")};
    Buffer packet = packetWithName(GetParam());
    signer.signRequest(packet, random);
    for (size_t bit = 0; bit < 8 * packet.size(); ++bit) {
        Buffer changed = packet;
        changed[bit / 8] = static_cast<uint8_t>(changed[bit / 8] ^ 1 << bit % 8);
        const auto view = PacketView::parse(changed);
        EXPECT_TRUE(!view ||
                    signer.proveRequest(*view, Demand::messageAuthenticator) != Proof::good)
            << "bit " << bit;
    }
}

INSTANTIATE_TEST_SUITE_P(Codes, SignedRequests,
                         ::testing::Values(Code::accessRequest, Code::statusServer,
                                           Code::accountingRequest, Code::coaRequest,
                                           Code::disconnectRequest),
                         [](const auto& tested) {
                             return "Code" + std::to_string(static_cast<int>(tested.param));
                         });

TEST(Signer, AnswerIsRefusedWithAnyBitChanged) {
    Signer signer{Secret("a secret of ours")};
    Buffer packet = packetWithName(Code::accessAccept);
    signer.signAnswer(packet, random);
    ASSERT_EQ(Proof::good, proofOf(signer, packet));
    for (size_t bit = 0; bit < 8 * packet.size(); ++bit) {
        Buffer changed = packet;
        changed[bit / 8] = static_cast<uint8_t>(changed[bit / 8] ^ 1 << bit % 8);
        const auto view = PacketView::parse(changed);
        EXPECT_TRUE(!view || proofOf(signer, changed) != Proof::good) << "bit " << bit;
    }
}

TEST(Signer, AnswerToAnotherRequestIsRefused) {
    Signer signer{Secret("a secret of ours")};
    Buffer packet = packetWithName(Code::accessAccept);
    Authenticator other = random;
    other[15] ^= 1;
    signer.signAnswer(packet, other);
    EXPECT_EQ(Proof::badAuthenticator, proofOf(signer, packet));
}

// What a server that signs no Message-Authenticator sends; made with Python:
// md5(header + bytes(range(1, 17)) + attributes + b"testing-secret").
TEST(Signer, AnswerWithoutMessageAuthenticatorIsRefusedWhenDemanded) {
    const Buffer answer = fromHex("02070016 0519ed758362918cd7912ac63f16d25c 0102");
    Signer signer{Secret("testing-secret")};
    EXPECT_EQ(Proof::noMessageAuthenticator, proofOf(signer, answer));
    EXPECT_EQ(Proof::good, proofOf(signer, answer, Demand::ifPresent));
}

// Each with its right authenticator: a Message-Authenticator of zeros, one of 15 bytes, and two
// of which the first holds.
TEST(Signer, WrongMessageAuthenticatorIsRefusedEvenWhenNotDemanded) {
    Signer signer{Secret("testing-secret")};
    for (const char* hex :
         {"02070026 25d4f4f3ef370af77b8a30cefa86b83f 5012 00000000000000000000000000000000",
          "02070025 68ccdcfcae28d47049b36779cb016244 5011 000000000000000000000000000000",
          "02070038 fa2fd9f2b4509828dfff6d33d4bcbb27 5012 8e12462a3717f60243cf843381b3a96c"
          " 5012 00000000000000000000000000000000"}) {
        SCOPED_TRACE(hex);
        EXPECT_EQ(Proof::badMessageAuthenticator, proofOf(signer, fromHex(hex)));
        EXPECT_EQ(Proof::badMessageAuthenticator, proofOf(signer, fromHex(hex), Demand::ifPresent));
    }
}

// As FreeRADIUS signs accounting answers; made with Python.
TEST(Signer, AccountingAnswerSignedOverZeroIsGood) {
    Signer signer{Secret("testing-secret")};
    const Buffer answer =
        fromHex("05070026 16374c9d6450ba5c36e910602517217d 5012 e27c8cb8c020d9e25686d53165eed4cb");
    EXPECT_EQ(Proof::good, proofOf(signer, answer));
    const Buffer accept =
        fromHex("02070026 123c3bed6b53c034d56a5b019867d6f1 5012 5c003b3949685773ababa34dce416015");
    EXPECT_EQ(Proof::badMessageAuthenticator, proofOf(signer, accept)) << "of an accept";
}

TEST(Signer, PasswordIsHiddenInBlocksOf16AndRevealed) {
    Signer signer{Secret("testing-secret")};
    for (const size_t length : {0U, 1U, 15U, 16U, 17U, 32U, 33U, 127U, 128U}) {
        SCOPED_TRACE(length);
        const std::string password(length, 'p');
        const auto value = signer.hidden(password, random);
        ASSERT_TRUE(value);
        EXPECT_EQ(std::max<size_t>(16, (length + 15) / 16 * 16), value->size());
        EXPECT_EQ(password, signer.revealed(*value, random));
        EXPECT_EQ(std::string::npos, textOf(*value).find("pppp"));
    }
    EXPECT_FALSE(signer.hidden(std::string(129, 'p'), random));
}

TEST(Signer, PacketNotMadeByPacketOfIsNotSigned) {
    Signer signer{Secret("testing-secret")};
    Buffer packet = radius_test::rawPacket(1, 0, "010361");
    EXPECT_THROW(signer.signRequest(packet, random), std::logic_error);
    EXPECT_THROW(signer.signAnswer(packet, random), std::logic_error);
}

}  // namespace
