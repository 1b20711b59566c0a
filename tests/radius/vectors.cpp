// Answers questions of check_vectors.py, one line each: a word and hex texts ("-" is empty).
//   request CODE ID AUTHENTICATOR SECRET ATTRIBUTES   the signed packet
//   answer CODE ID AUTHENTICATOR SECRET ATTRIBUTES    the signed packet
//   hide PASSWORD AUTHENTICATOR SECRET                the hidden value
//   prove-answer PACKET AUTHENTICATOR SECRET          good, authenticator, missing or message
//   prove-request PACKET SECRET                       the same
#include <algorithm>
#include <iostream>
#include <sstream>
#include <stdexcept>

#include "node/isa/radius/packet/signer.h"
#include "tests/radius/hex.h"

namespace {

using namespace node::radius;
using radius_test::fromHex;
using radius_test::toHex;

Buffer hex(std::istream& in) {
    std::string text;
    in >> text;
    return text == "-" ? Buffer() : fromHex(text);
}

Authenticator authenticator(std::istream& in) {
    const Buffer bytes = hex(in);
    Authenticator value{};
    if (bytes.size() != value.size()) {
        throw std::invalid_argument("an authenticator has 16 bytes");
    }
    std::copy(bytes.begin(), bytes.end(), value.begin());
    return value;
}

Signer signer(std::istream& in) {
    return Signer{Secret(textOf(hex(in)))};
}

std::string nameOf(Proof proof) {
    switch (proof) {
        case Proof::good:
            return "good";
        case Proof::badAuthenticator:
            return "authenticator";
        case Proof::noMessageAuthenticator:
            return "missing";
        case Proof::badMessageAuthenticator:
            return "message";
    }
    return "?";
}

std::string signedPacket(std::istream& in, bool answer) {
    const Buffer code = hex(in);
    const Buffer id = hex(in);
    const Authenticator random = authenticator(in);
    Signer signs = signer(in);
    Buffer packet = packetOf(static_cast<Code>(code.at(0)), id.at(0), hex(in)).value();
    answer ? signs.signAnswer(packet, random) : signs.signRequest(packet, random);
    return toHex(packet);
}

std::string reply(const std::string& line) {
    std::istringstream in(line);
    std::string word;
    in >> word;
    if (word == "request" || word == "answer") {
        return signedPacket(in, word == "answer");
    }
    if (word == "hide") {
        const std::string password = textOf(hex(in));
        const Authenticator random = authenticator(in);
        return toHex(signer(in).hidden(password, random).value());
    }
    const Buffer packet = hex(in);
    const auto view = PacketView::parse(packet);
    if (!view) {
        return "malformed";
    }
    if (word == "prove-answer") {
        const Authenticator random = authenticator(in);
        return nameOf(signer(in).proveAnswer(*view, random, Demand::messageAuthenticator));
    }
    if (word == "prove-request") {
        return nameOf(signer(in).proveRequest(*view, Demand::messageAuthenticator));
    }
    throw std::invalid_argument("unknown word " + word);
}

}  // namespace

int main() {
    std::string line;
    while (std::getline(std::cin, line)) {
        std::cout << reply(line) << std::endl;
    }
    return 0;
}
