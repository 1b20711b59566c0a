#include "tests/radius/scripted_server.h"

#include <algorithm>
#include <cerrno>
#include <stdexcept>
#include <system_error>

namespace radius_test {

using namespace node::radius;

class ScriptedServer::Wire : public Channel {
public:
    Wire(ScriptedServer& server, size_t index, Events events)
        : events_(std::move(events)), server_(server), index_(index), reliable_(server.reliable) {}
    ~Wire() override { server_.channels_[index_] = nullptr; }

    void send(Bytes packet) override { server_.arrived(index_, packet); }
    bool reliable() const override { return reliable_; }

    Events events_;
    bool broken_ = false;

private:
    ScriptedServer& server_;
    size_t index_;
    bool reliable_;
};

ScriptedServer::ScriptedServer(VirtualReactor& reactor, std::string name, const std::string& secret)
    : reactor_(reactor), name_(std::move(name)), secret_(secret), signer_(secret_) {}

ServerSettings ScriptedServer::settings() {
    ServerSettings settings;
    settings.name = name_;
    settings.secret = secret_;
    settings.makeChannel = [this](Channel::Events events) -> std::unique_ptr<Channel> {
        if (throwsChannels) {
            throw std::system_error(ENOSPC, std::generic_category(), "epoll_ctl");
        }
        if (refusesChannels) {
            return nullptr;
        }
        auto wire = std::make_unique<Wire>(*this, channels_.size(), std::move(events));
        channels_.push_back(wire.get());
        return wire;
    };
    return settings;
}

void ScriptedServer::arrived(size_t channel, Bytes packet) {
    const Sent sent{channel, Buffer(packet.begin(), packet.end()), reactor_.now()};
    if (!PacketView::parse(packet) ||
        signer_.proveRequest(sent.view(), Demand::messageAuthenticator) != Proof::good) {
        throw std::logic_error("the client sent a packet that does not hold");
    }
    if (sent.view().code() == Code::statusServer) {
        probes.push_back(sent);
        if (answersProbes) {
            reactor_.at(reactor_.now() + probeDelay,
                        [this, sent] { answer(sent, Code::accessAccept); });
        }
        return;
    }
    requests.push_back(sent);
    if (onRequest) {
        reactor_.at(reactor_.now(), [this, sent] { onRequest(sent); });
    }
}

Buffer ScriptedServer::answerTo(const Sent& request, Code code, const Buffer& attributes) {
    Buffer packet = packetOf(code, request.view().id(), attributes).value();
    signer_.signAnswer(packet, request.view().authenticator());
    return packet;
}

void ScriptedServer::answer(const Sent& request, Code code, const Buffer& attributes) {
    deliver(request.channel, answerTo(request, code, attributes));
}

void ScriptedServer::deliver(size_t channel, const Buffer& datagram) {
    if (channels_[channel] && !channels_[channel]->broken_) {
        channels_[channel]->events_.received(datagram);
    }
}

void ScriptedServer::acceptAll() {
    while (accepted_ < requests.size()) {
        answer(Sent(requests[accepted_++]), Code::accessAccept);
    }
}

void ScriptedServer::breakChannel(size_t channel) {
    if (channels_[channel] && !channels_[channel]->broken_) {
        channels_[channel]->broken_ = true;
        channels_[channel]->events_.broken();
    }
}

size_t ScriptedServer::channelsOpen() const {
    return static_cast<size_t>(
        std::count_if(channels_.begin(), channels_.end(), [](const Wire* w) { return w; }));
}

std::string ScriptedServer::passwordOf(const Sent& request) {
    const auto value = request.view().first(attribute::userPassword);
    return value ? signer_.revealed(*value, request.view().authenticator()) : "";
}

}  // namespace radius_test
