// Three proofs exist. Access-Request and Status-Server carry a random authenticator and prove
// the secret by Message-Authenticator alone. The other requests carry MD5 over the packet with
// a zero authenticator, and their Message-Authenticator is taken over that zero one too. Answers
// carry MD5 over the packet with the request's authenticator in place of their own; since MD5
// alone can be forged by who may choose attributes, Message-Authenticator is demanded as well.
// Accounting answers are signed over the request's authenticator by some servers and over a zero
// one by others; either proves the secret, and the request's is proven by the answer's own
// authenticator. Comparisons take the same time wherever the first difference is.
// The keyed context and the digest are fetched once: fetching costs more than hashing.
// Tested by tests/radius/signer_test.cpp against vectors made with Python's hashlib and hmac.
#include "node/isa/radius/packet/signer.h"

#include <openssl/core_names.h>
#include <openssl/crypto.h>
#include <openssl/evp.h>
#include <openssl/params.h>

#include <algorithm>
#include <array>
#include <stdexcept>

namespace node::radius {

namespace {

constexpr size_t longestPassword = 128;
constexpr size_t messageAuthenticatorOffset = headerSize + 2;
constexpr Authenticator zero{};

struct Free {
    void operator()(EVP_MD* md) const { EVP_MD_free(md); }
    void operator()(EVP_MD_CTX* context) const { EVP_MD_CTX_free(context); }
    void operator()(EVP_MAC* mac) const { EVP_MAC_free(mac); }
    void operator()(EVP_MAC_CTX* context) const { EVP_MAC_CTX_free(context); }
};

void require(bool done) {
    if (!done) {
        throw std::runtime_error("MD5 is not available in this OpenSSL");
    }
}

// A packet of our own to be signed. The place of its Message-Authenticator must be there.
PacketView ownPacket(const Buffer& packet) {
    const std::optional<PacketView> view = PacketView::parse(packet);
    const auto entry = view ? view->firstEntry(attribute::messageAuthenticator.type) : std::nullopt;
    if (!entry || entry->offset != messageAuthenticatorOffset || entry->value.size() != 16) {
        throw std::logic_error("a packet to be signed was not made by packetOf");
    }
    return *view;
}

bool randomAuthenticator(Code code) {
    return code == Code::accessRequest || code == Code::statusServer;
}

bool equal(Bytes a, Bytes b) {
    return a.size() == b.size() && CRYPTO_memcmp(a.data(), b.data(), a.size()) == 0;
}

void put(Buffer& packet, size_t offset, const Authenticator& value) {
    std::copy(value.begin(), value.end(), packet.begin() + static_cast<ptrdiff_t>(offset));
}

}  // namespace

struct Signer::Contexts {
    Secret secret;
    std::unique_ptr<EVP_MD, Free> md5;
    std::unique_ptr<EVP_MD_CTX, Free> digest;
    std::unique_ptr<EVP_MAC_CTX, Free> keyed;

    Bytes key() const {
        const std::string_view text = secret.reveal();
        return {reinterpret_cast<const uint8_t*>(text.data()), text.size()};
    }
};

Signer::Signer(const Secret& secret) : contexts_(std::make_unique<Contexts>()) {
    contexts_->secret = secret;
    contexts_->md5.reset(EVP_MD_fetch(nullptr, "MD5", nullptr));
    contexts_->digest.reset(EVP_MD_CTX_new());
    const std::unique_ptr<EVP_MAC, Free> hmac(EVP_MAC_fetch(nullptr, "HMAC", nullptr));
    require(contexts_->md5 && contexts_->digest && hmac);
    contexts_->keyed.reset(EVP_MAC_CTX_new(hmac.get()));
    std::string name = "MD5";
    const std::array parameters{
        OSSL_PARAM_construct_utf8_string(OSSL_MAC_PARAM_DIGEST, name.data(), name.size()),
        OSSL_PARAM_construct_end()};
    const Bytes key = contexts_->key();
    require(contexts_->keyed &&
            EVP_MAC_init(contexts_->keyed.get(), key.data(), key.size(), parameters.data()) == 1);
}

Signer::~Signer() = default;
Signer::Signer(Signer&&) noexcept = default;
Signer& Signer::operator=(Signer&&) noexcept = default;

Authenticator Signer::md5(std::initializer_list<Bytes> parts) {
    EVP_MD_CTX* const context = contexts_->digest.get();
    require(EVP_DigestInit_ex2(context, contexts_->md5.get(), nullptr) == 1);
    for (const Bytes part : parts) {
        require(EVP_DigestUpdate(context, part.data(), part.size()) == 1);
    }
    Authenticator digest;
    require(EVP_DigestFinal_ex(context, digest.data(), nullptr) == 1);
    return digest;
}

std::optional<Buffer> Signer::hidden(std::string_view password,
                                     const Authenticator& authenticator) {
    if (password.size() > longestPassword) {
        return std::nullopt;
    }
    Buffer value(password.begin(), password.end());
    value.resize(std::max<size_t>(16, (value.size() + 15) / 16 * 16));
    Authenticator previous = authenticator;
    for (size_t at = 0; at < value.size(); at += 16) {
        const Authenticator mask = md5({contexts_->key(), previous});
        for (size_t i = 0; i < 16; ++i) {
            value[at + i] ^= mask[i];
            previous[i] = value[at + i];
        }
    }
    return value;
}

std::string Signer::revealed(Bytes value, const Authenticator& authenticator) {
    std::string password;
    Authenticator previous = authenticator;
    for (size_t at = 0; at + 16 <= value.size(); at += 16) {
        const Authenticator mask = md5({contexts_->key(), previous});
        for (size_t i = 0; i < 16; ++i) {
            previous[i] = value[at + i];
            password += static_cast<char>(value[at + i] ^ mask[i]);
        }
    }
    password.erase(password.find_last_not_of('\0') + 1);
    return password;
}

// HMAC over the packet with `authenticator` in the header and the value at `offset` zeroed.
Authenticator Signer::messageAuthenticator(const PacketView& packet, size_t offset,
                                           const Authenticator& authenticator) {
    const Bytes bytes = packet.bytes();
    const std::array<Bytes, 5> parts{bytes.first(authenticatorOffset), Bytes(authenticator),
                                     bytes.subspan(headerSize, offset - headerSize), Bytes(zero),
                                     bytes.subspan(offset + zero.size())};
    EVP_MAC_CTX* const context = contexts_->keyed.get();
    require(EVP_MAC_init(context, nullptr, 0, nullptr) == 1);
    for (const Bytes part : parts) {
        require(EVP_MAC_update(context, part.data(), part.size()) == 1);
    }
    Authenticator digest;
    size_t size = 0;
    require(EVP_MAC_final(context, digest.data(), &size, digest.size()) == 1);
    return digest;
}

Authenticator Signer::authenticatorOver(const PacketView& packet,
                                        const Authenticator& authenticator) {
    const Bytes bytes = packet.bytes();
    return md5({bytes.first(authenticatorOffset), authenticator, bytes.subspan(headerSize),
                contexts_->key()});
}

void Signer::signRequest(Buffer& packet, const Authenticator& random) {
    const PacketView view = ownPacket(packet);
    if (randomAuthenticator(view.code())) {
        put(packet, authenticatorOffset, random);
        put(packet, messageAuthenticatorOffset,
            messageAuthenticator(view, messageAuthenticatorOffset, random));
        return;
    }
    put(packet, messageAuthenticatorOffset,
        messageAuthenticator(view, messageAuthenticatorOffset, zero));
    put(packet, authenticatorOffset, authenticatorOver(view, zero));
}

void Signer::signAnswer(Buffer& packet, const Authenticator& request) {
    const PacketView view = ownPacket(packet);
    put(packet, messageAuthenticatorOffset,
        messageAuthenticator(view, messageAuthenticatorOffset, request));
    put(packet, authenticatorOffset, authenticatorOver(view, request));
}

Proof Signer::proveMessageAuthenticator(const PacketView& packet,
                                        const Authenticator& authenticator, Demand demand) {
    const auto entry = packet.firstEntry(attribute::messageAuthenticator.type);
    if (!entry) {
        return demand == Demand::messageAuthenticator ? Proof::noMessageAuthenticator : Proof::good;
    }
    if (entry->value.size() != zero.size() ||
        packet.count(attribute::messageAuthenticator.type) != 1) {
        return Proof::badMessageAuthenticator;
    }
    if (equal(entry->value, messageAuthenticator(packet, entry->offset, authenticator))) {
        return Proof::good;
    }
    const bool zeroIsUsual = packet.code() == Code::accountingResponse;
    return zeroIsUsual && equal(entry->value, messageAuthenticator(packet, entry->offset, zero))
               ? Proof::good
               : Proof::badMessageAuthenticator;
}

Proof Signer::proveAnswer(const PacketView& answer, const Authenticator& request, Demand demand) {
    if (!equal(answer.authenticator(), authenticatorOver(answer, request))) {
        return Proof::badAuthenticator;
    }
    return proveMessageAuthenticator(answer, request, demand);
}

Proof Signer::proveRequest(const PacketView& request, Demand demand) {
    if (randomAuthenticator(request.code())) {
        return proveMessageAuthenticator(request, request.authenticator(), demand);
    }
    if (!equal(request.authenticator(), authenticatorOver(request, zero))) {
        return Proof::badAuthenticator;
    }
    return proveMessageAuthenticator(request, zero, demand);
}

}  // namespace node::radius
