// A request is dropped in silence unless a known host proves its secret twice, by authenticator
// and Message-Authenticator, and says when it was made. What was made too long ago or lies too
// far ahead is dropped. Within that window each request is remembered with its answer, so that
// a repetition, honest or not, gets the same answer and does nothing; nothing is forgotten
// before its time is over, and when memory is full new requests are refused. Other settings do not
// make anything forgotten. A new process remembers nothing: one that refused what is older than
// itself would refuse honest servers whose clocks lag, and depend on a clock that may be set.
// Tested by tests/radius/dynamic_authority_test.cpp; radclient asks in the scenario tests.
#include "node/isa/radius/dynamic/authority.h"

#include <algorithm>
#include <cstdlib>

namespace node::radius {

DynamicAuthority::DynamicAuthority(DynamicSettings settings, WallSeconds wall, Handler handler)
    : wall_(std::move(wall)), handler_(std::move(handler)) {
    settings_.window = settings.window;
    use(std::move(settings));
}

void DynamicAuthority::use(DynamicSettings settings) {
    if (settings.window > settings_.window) {
        earliest_ = std::max(earliest_, wall_() - int64_t{settings_.window});
    }
    for (Asker& asker : askers_) {
        asker.signer.reset();
    }
    for (const DynamicClient& client : settings.clients) {
        auto asker = std::find_if(askers_.begin(), askers_.end(), [&client](const Asker& known) {
            return known.host.sameHost(client.host);
        });
        if (asker == askers_.end()) {
            asker = askers_.insert(asker, {client.host, std::nullopt});
        }
        if (!asker->signer) {
            asker->signer.emplace(client.secret);
        }
    }
    settings_ = std::move(settings);
    settings_.clients.clear();
    counters_ = {};
}

std::optional<Buffer> DynamicAuthority::judge(const SocketAddress& from, Bytes datagram) {
    const auto asker = std::find_if(askers_.begin(), askers_.end(), [&from](const Asker& known) {
        return known.signer && known.host.sameHost(from);
    });
    if (asker == askers_.end()) {
        ++counters_.unknownClient;
        return std::nullopt;
    }
    const std::optional<PacketView> packet = PacketView::parse(datagram);
    if (!packet) {
        ++counters_.malformed;
        return std::nullopt;
    }
    if (packet->code() != Code::coaRequest && packet->code() != Code::disconnectRequest) {
        ++counters_.wrongCode;
        return std::nullopt;
    }
    if (asker->signer->proveRequest(*packet, Demand::messageAuthenticator) != Proof::good) {
        ++counters_.notProven;
        return std::nullopt;
    }
    const int64_t now = wall_();
    const std::optional<uint32_t> made = eventTimestamp(*packet);
    if (!made || *made < earliest_ || std::abs(now - int64_t{*made}) > int64_t{settings_.window}) {
        ++counters_.untimely;
        return std::nullopt;
    }
    forget(now);
    const Key key{static_cast<size_t>(asker - askers_.begin()), packet->authenticator()};
    if (const auto known = answers_.find(key); known != answers_.end()) {
        ++counters_.repeated;
        return known->second;
    }
    const bool full = answers_.size() >= settings_.mostRemembered;
    Buffer answer = decide(*asker->signer, *packet, full);
    if (!full) {
        answers_.emplace(key, answer);
        made_.emplace(*made, key);
    }
    return answer;
}

void DynamicAuthority::forget(int64_t now) {
    while (!made_.empty() && made_.begin()->first + settings_.window < now) {
        answers_.erase(made_.begin()->second);
        made_.erase(made_.begin());
    }
}

Buffer DynamicAuthority::decide(Signer& signer, const PacketView& packet, bool full) {
    std::optional<ErrorCause> refusal;
    if (full) {
        refusal = ErrorCause::resourcesUnavailable;
    } else {
        const DynamicReading reading = readDynamicRequest(packet, settings_.format);
        refusal = reading.request ? handler_(*reading.request) : reading.error;
    }
    AttributeWriter writer;
    if (refusal) {
        writer.addNumber(attribute::errorCause, static_cast<uint32_t>(*refusal));
    }
    // The request had room for these and for more than Message-Authenticator besides.
    for (const Bytes state : packet.all(attribute::proxyState)) {
        writer.add(attribute::proxyState, state);
    }
    ++(refusal ? counters_.naks : counters_.acks);
    const bool change = packet.code() == Code::coaRequest;
    const Code ack = change ? Code::coaAck : Code::disconnectAck;
    const Code nak = change ? Code::coaNak : Code::disconnectNak;
    Buffer answer = packetOf(refusal ? nak : ack, packet.id(), writer.bytes()).value();
    signer.signAnswer(answer, packet.authenticator());
    return answer;
}

}  // namespace node::radius
