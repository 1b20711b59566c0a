// Authenticators of RADIUS packets and the hiding of passwords, for one shared secret.
// Why: a packet without proof of the secret must not reach anything that acts on it.
// One thread at a time.
#pragma once

#include <memory>
#include <optional>

#include "node/isa/radius/packet/packet.h"
#include "node/isa/radius/secret.h"

namespace node::radius {

enum class Proof { good, badAuthenticator, noMessageAuthenticator, badMessageAuthenticator };

// Whether a packet without Message-Authenticator is refused. One that is there must hold.
enum class Demand { messageAuthenticator, ifPresent };

class Signer {
public:
    explicit Signer(const Secret& secret);  // throws std::runtime_error without MD5
    ~Signer();
    Signer(Signer&&) noexcept;
    Signer& operator=(Signer&&) noexcept;

    // The User-Password value: 16 to 128 bytes. Empty when the password is longer than 128.
    std::optional<Buffer> hidden(std::string_view password, const Authenticator& authenticator);
    std::string revealed(Bytes value, const Authenticator& authenticator);  // zeros at its end cut

    // Fill in Message-Authenticator and authenticator of a packet made by packetOf. Access
    // requests and Status-Server take `random`, the others compute theirs.
    void signRequest(Buffer& packet, const Authenticator& random);
    void signAnswer(Buffer& packet, const Authenticator& request);

    Proof proveAnswer(const PacketView& answer, const Authenticator& request, Demand demand);
    Proof proveRequest(const PacketView& request, Demand demand);

private:
    struct Contexts;

    Authenticator md5(std::initializer_list<Bytes> parts);
    Authenticator messageAuthenticator(const PacketView& packet, size_t offset,
                                       const Authenticator& authenticator);
    Authenticator authenticatorOver(const PacketView& packet, const Authenticator& authenticator);
    Proof proveMessageAuthenticator(const PacketView& packet, const Authenticator& authenticator,
                                    Demand demand);

    std::unique_ptr<Contexts> contexts_;
};

}  // namespace node::radius
