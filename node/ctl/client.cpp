#include "node/ctl/client.h"

#include <grpcpp/grpcpp.h>

#include <fstream>
#include <iterator>

#include "node/control/text.h"
#include "node/ctl/failure.h"
#include "node/text/bytes.h"

namespace node::ctl {

namespace {

constexpr char resultKey[] = "rpc-tal-res";
constexpr char unixPrefix[] = "unix:";

std::string contentsOf(const std::string& option, const std::string& path) {
    if (path.empty()) {
        throw Failure(exitUsage, "a node on TCP needs " + option);
    }
    std::ifstream file(path, std::ios::binary);
    std::string contents{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
    if (!file || contents.empty()) {
        throw Failure(exitUsage, option + ": " + path + " cannot be read");
    }
    return contents;
}

std::shared_ptr<grpc::ChannelCredentials> credentialsOf(const Endpoint& endpoint) {
    if (endpoint.server.starts_with(unixPrefix)) {
        return grpc::InsecureChannelCredentials();
    }
    grpc::SslCredentialsOptions options;
    options.pem_root_certs = contentsOf("--ca", endpoint.ca);
    options.pem_cert_chain = contentsOf("--cert", endpoint.certificate);
    options.pem_private_key = contentsOf("--key", endpoint.key);
    return grpc::SslCredentials(options);
}

// "/run/tal/control.sock" is meant as a socket, too.
Endpoint completed(Endpoint endpoint) {
    if (endpoint.server.starts_with("/") || endpoint.server.starts_with("./")) {
        endpoint.server = unixPrefix + endpoint.server;
    }
    if (!endpoint.server.starts_with(unixPrefix) &&
        endpoint.server.find(':') == std::string::npos) {
        throw Failure(exitUsage, "--server: expected unix:PATH or HOST:PORT");
    }
    return endpoint;
}

std::optional<unsigned> resultIn(const grpc::ClientContext& context) {
    const auto& trailers = context.GetServerTrailingMetadata();
    const auto found = trailers.find(resultKey);
    return found == trailers.end()
               ? std::nullopt
               : decimalOf(std::string_view(found->second.data(), found->second.size()));
}

// The library tells each attempt's reason behind words about its own ways.
std::string reasonOf(const std::string& message) {
    constexpr std::string_view lead = "failed to connect to all addresses; last error: UNKNOWN: ";
    return message.starts_with(lead) ? message.substr(lead.size()) : message;
}

[[noreturn]] void fail(const Endpoint& endpoint, const grpc::Status& status,
                       const grpc::ClientContext& context) {
    const std::string message = control::escaped(status.error_message());
    switch (status.error_code()) {
        case grpc::StatusCode::INVALID_ARGUMENT:
        case grpc::StatusCode::NOT_FOUND:
        case grpc::StatusCode::FAILED_PRECONDITION:
            throw Failure(exitRefused, message, resultIn(context));
        case grpc::StatusCode::UNAVAILABLE:
            throw Failure(exitUnreachable,
                          "no node at " + endpoint.server + ": " + reasonOf(message));
        case grpc::StatusCode::DEADLINE_EXCEEDED:
            throw Failure(exitUnreachable, "the node at " + endpoint.server +
                                               " did not answer within " +
                                               std::to_string(endpoint.timeout) + " s");
        default:
            throw Failure(exitFailed, message);
    }
}

}  // namespace

Client::Client(const Endpoint& endpoint) : endpoint_(completed(endpoint)) {
    grpc::ChannelArguments arguments;
    arguments.SetInt(GRPC_ARG_KEEPALIVE_TIME_MS, 20000);
    arguments.SetInt(GRPC_ARG_ENABLE_HTTP_PROXY, 0);
    stub_ = v1::Management::NewStub(
        grpc::CreateCustomChannel(endpoint_.server, credentialsOf(endpoint_), arguments));
}

void Client::invoke(const std::function<grpc::Status(grpc::ClientContext&)>& call) {
    grpc::ClientContext context;
    context.set_deadline(std::chrono::system_clock::now() +
                         std::chrono::seconds(endpoint_.timeout));
    const grpc::Status status = call(context);
    if (!status.ok()) {
        fail(endpoint_, status, context);
    }
}

void Client::events(const v1::EventsRequest& request,
                    const std::function<bool(const v1::Event&)>& take) {
    // Once a node has answered, whatever ends the stream is no question of reaching it.
    call(&v1::Management::Stub::NodeInfo);
    grpc::ClientContext context;
    const auto reader = stub_->Events(&context, request);
    v1::Event event;
    while (reader->Read(&event)) {
        if (!take(event)) {
            context.TryCancel();
            reader->Finish();
            return;
        }
    }
    const grpc::Status status = reader->Finish();
    if (status.ok() || status.error_code() == grpc::StatusCode::UNAVAILABLE) {
        throw Failure(exitFailed,
                      "the stream of events ended: " + control::escaped(status.error_message()));
    }
    fail(endpoint_, status, context);
}

unsigned Client::interfaceNamed(const std::string& name, bool allAllowed) {
    if (name == "all" && allAllowed) {
        return 0;
    }
    if (const auto id = decimalOf(name)) {
        if (*id == 0) {
            throw Failure(exitUsage, "interfaces are counted from 1");
        }
        return *id;
    }
    const auto list = call(&v1::Management::Stub::ListInterfaces);
    std::string known;
    for (const v1::Interface& each : list.interfaces()) {
        if (each.name() == name) {
            return each.id();
        }
        known += (known.empty() ? "" : ", ") + each.name();
    }
    for (const v1::Interface& each : list.interfaces()) {
        if (each.kernel_name() == name) {
            return each.id();
        }
    }
    throw Failure(exitRefused, "there is no interface " + name + "; known are " + known);
}

}  // namespace node::ctl
