#include "node/isa/radius_setup.h"

#include <algorithm>

#include "node/config/config.h"
#include "node/isa/radius/client/tls_channel.h"
#include "node/isa/radius/client/udp_channel.h"

namespace node {

namespace {

constexpr const char* secretOverTls = "radsec";

const radius::Secret& secretNamed(const radius::Secrets& secrets, const std::string& name,
                                  const RadiusConfig& config) {
    const auto found = secrets.find(name);
    if (found == secrets.end()) {
        throw ConfigError(config.secretFile + ": has no line for \"" + name + "\"");
    }
    return found->second;
}

radius::MakeChannel channels(const RadiusConfig::Server& server, uint16_t port, Reactor& reactor) {
    const auto address = radius::SocketAddress::parse(server.host, port).value();
    if (!server.tls) {
        radius::UdpSettings udp{address, std::nullopt};
        if (!server.source.empty()) {
            udp.source = radius::SocketAddress::parse(server.source, 0);
        }
        return radius::udpChannels(reactor, udp);
    }
    radius::TlsSettings tls;
    tls.context = radius::makeTlsContext(
        {server.files.authorities, server.files.certificate, server.files.key});
    tls.server = address;
    tls.peerName = server.files.peerName;
    return radius::tlsChannels(reactor, tls);
}

radius::ServerSettings serverSettings(const RadiusConfig& config,
                                      const RadiusConfig::Server& server, bool accounting,
                                      const radius::Secrets& secrets, Reactor& reactor) {
    radius::ServerSettings settings;
    settings.name = server.name;
    settings.makeChannel =
        channels(server, accounting ? server.accountingPort : server.port, reactor);
    settings.secret = server.tls && !secrets.contains(server.name)
                          ? radius::Secret(secretOverTls)
                          : secretNamed(secrets, server.name, config);
    settings.accountingDemand =
        server.signsAccounting ? radius::Demand::messageAuthenticator : radius::Demand::ifPresent;
    settings.weight = server.weight;
    settings.window = server.window;
    settings.retry = {server.firstWait, server.longestWait, server.tries};
    settings.statusServer = server.statusServer;
    settings.probeInterval = server.probeInterval;
    settings.restTime = server.rest;
    return settings;
}

radius::ClientSettings clientSettings(const RadiusConfig& config, bool accounting,
                                      const radius::Secrets& secrets, Reactor& reactor) {
    radius::ClientSettings settings;
    for (const RadiusConfig::Server& server : config.servers) {
        settings.servers.push_back(serverSettings(config, server, accounting, secrets, reactor));
    }
    settings.order = config.weighted ? radius::Order::weighted : radius::Order::listed;
    settings.patience = accounting ? Time(0) : Time(config.patience);
    settings.pacedRate = config.pacedRate;
    settings.pacedBurst = config.pacedBurst;
    return settings;
}

radius::Buffer ownAddress(const std::string& address) {
    const auto parsed = radius::SocketAddress::parse(address, 0);
    return parsed ? parsed->bytes() : radius::Buffer();
}

radius::LoginFormat loginFormat(const RadiusConfig& config) {
    radius::LoginFormat format;
    format.userName = radius::TextTemplate::parse(config.userName).value();
    format.nasPortId = radius::TextTemplate::parse(config.nasPortId).value();
    format.nasIdentifier = config.nasIdentifier;
    format.nasIpAddress = ownAddress(config.nasIpAddress);
    format.nasIpv6Address = ownAddress(config.nasIpv6Address);
    format.vendorClass = radius::attributeNameFromText(config.vendorClassAttribute);
    format.clientId = radius::attributeNameFromText(config.clientIdAttribute);
    format.profiles = radius::attributeNameFromText(config.profileAttribute).value();
    return format;
}

}  // namespace

radius::Secrets radiusSecrets(const RadiusConfig& config) {
    try {
        return radius::readSecretFile(config.secretFile);
    } catch (const radius::SecretFileError& error) {
        throw ConfigError(error.what());
    }
}

RadiusSetup radiusSetup(const RadiusConfig& config, const radius::Secrets& secrets,
                        Reactor& reactor) {
    try {
        RadiusSetup setup;
        setup.format = loginFormat(config);
        if (!config.passwordEntry.empty()) {
            setup.password = secretNamed(secrets, config.passwordEntry, config);
        }
        setup.logins = clientSettings(config, false, secrets, reactor);
        if (config.accounting.on) {
            setup.accounting = clientSettings(config, true, secrets, reactor);
        }
        setup.dynamic.format = setup.format;
        setup.dynamic.window = static_cast<uint32_t>(config.dynamic.window.count());
        for (const RadiusConfig::DynamicClient& client : config.dynamic.clients) {
            setup.dynamic.clients.push_back({radius::SocketAddress::parse(client.host, 0).value(),
                                             secretNamed(secrets, client.name, config)});
        }
        return setup;
    } catch (const ConfigError&) {
        throw;
    } catch (const std::runtime_error& error) {  // files of TLS
        throw ConfigError(error.what());
    }
}

bool sameSecrets(const radius::Secrets& a, const radius::Secrets& b) {
    return std::equal(
        a.begin(), a.end(), b.begin(), b.end(), [](const auto& one, const auto& other) {
            return one.first == other.first && one.second.reveal() == other.second.reveal();
        });
}

}  // namespace node
