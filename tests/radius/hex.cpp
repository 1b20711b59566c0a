#include "tests/radius/hex.h"

#include <openssl/evp.h>

#include <algorithm>
#include <stdexcept>

namespace radius_test {

using node::radius::Authenticator;
using node::radius::Buffer;
using node::radius::Bytes;
using node::radius::Code;
using node::radius::PacketView;

namespace {

uint8_t digit(char c) {
    const size_t value = std::string_view("0123456789abcdef").find(c);
    if (value == std::string_view::npos) {
        throw std::invalid_argument("no hex digit");
    }
    return static_cast<uint8_t>(value);
}

Buffer withAuthenticator(Buffer answer, const PacketView& request, std::string_view secret) {
    const Authenticator asked = request.authenticator();
    std::copy(asked.begin(), asked.end(), answer.begin() + node::radius::authenticatorOffset);
    Buffer hashed = answer;
    hashed.insert(hashed.end(), secret.begin(), secret.end());
    if (EVP_Digest(hashed.data(), hashed.size(), answer.data() + node::radius::authenticatorOffset,
                   nullptr, EVP_md5(), nullptr) != 1) {
        throw std::runtime_error("no MD5");
    }
    return answer;
}

}  // namespace

Buffer fromHex(std::string_view text) {
    std::string digits;
    for (const char c : text) {
        if (c != ' ') {
            digits += c;
        }
    }
    if (digits.size() % 2 != 0) {
        throw std::invalid_argument("odd number of hex digits");
    }
    Buffer bytes;
    for (size_t i = 0; i < digits.size(); i += 2) {
        bytes.push_back(static_cast<uint8_t>(digit(digits[i]) << 4 | digit(digits[i + 1])));
    }
    return bytes;
}

std::string toHex(Bytes bytes) {
    constexpr char digits[] = "0123456789abcdef";
    std::string text;
    for (const uint8_t byte : bytes) {
        text += digits[byte >> 4];
        text += digits[byte & 15];
    }
    return text;
}

Buffer rawPacket(uint8_t code, uint8_t id, std::string_view attributesInHex) {
    const Buffer attributes = fromHex(attributesInHex);
    const size_t length = node::radius::headerSize + attributes.size();
    Buffer packet(length);
    packet[0] = code;
    packet[1] = id;
    packet[2] = static_cast<uint8_t>(length >> 8);
    packet[3] = static_cast<uint8_t>(length);
    std::copy(attributes.begin(), attributes.end(), packet.begin() + node::radius::headerSize);
    return packet;
}

Buffer answerWithoutMessageAuthenticator(Code code, const PacketView& request,
                                         std::string_view secret) {
    return withAuthenticator(rawPacket(static_cast<uint8_t>(code), request.id(), "0b03 61"),
                             request, secret);
}

Buffer answerWithMessageAuthenticator(Code code, const PacketView& request, std::string_view secret,
                                      const Authenticator& value) {
    return withAuthenticator(
        rawPacket(static_cast<uint8_t>(code), request.id(), "5012" + toHex(value)), request,
        secret);
}

}  // namespace radius_test
