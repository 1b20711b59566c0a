#include "tests/radius/client_fixture.h"

namespace radius_test {

using namespace node::radius;

void ClientFixture::start(const std::function<void(ClientSettings&)>& change, size_t servers) {
    ClientSettings settings;
    settings.servers = {first_.settings()};
    if (servers == 2) {
        settings.servers.push_back(second_.settings());
    }
    settings.seed = 1;
    if (change) {
        change(settings);
    }
    client_ = std::make_unique<Client>(reactor_, std::move(settings));
}

Request ClientFixture::requestOf(const std::string& name) const {
    AttributeWriter writer;
    writer.addText(attribute::userName, name);
    Request request;
    request.attributes = writer.take();
    return request;
}

Client::Ticket ClientFixture::login(const std::string& name, bool replay) {
    Request request = requestOf(name);
    request.replay = replay;
    auto ticket = std::make_shared<Client::Ticket>(0);
    *ticket = client_->submit(std::move(request), [this, ticket](const Answer& answer) {
        seen_.emplace(*ticket,
                      Seen{answer.outcome, answer.challenged, answer.server, reactor_.now()});
    });
    return *ticket;
}

std::string ClientFixture::outcomeOf(Client::Ticket ticket) const {
    if (answers(ticket) != 1) {
        return answers(ticket) == 0 ? "none" : "several";
    }
    switch (seen(ticket).outcome) {
        case Outcome::accepted:
            return "accepted by " + seen(ticket).server;
        case Outcome::rejected:
            return "rejected by " + seen(ticket).server;
        case Outcome::unanswered:
            return "unanswered";
    }
    return "?";
}

void ClientFixture::killFirst() {
    login("victim");
    for (int i = 0; i < 60 && status(0).state == ServerState::alive; ++i) {
        reactor_.advance(second);
    }
    ASSERT_EQ(ServerState::dead, status(0).state);
}

}  // namespace radius_test
