// A server over a test node on a Unix socket in a directory of its own, and a client.
#pragma once

#include <grpcpp/grpcpp.h>
#include <gtest/gtest.h>
#include <stdlib.h>

#include <filesystem>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include <tal/v1/tal.grpc.pb.h>
#include "node/control/server.h"
#include "tests/control/test_node.h"

namespace node::control {

namespace v1 = ::tal::v1;

// Asks until it holds, for at most ten seconds.
inline bool eventually(const std::function<bool()>& holds) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (!holds()) {
        if (std::chrono::steady_clock::now() > end) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    return true;
}

class ScratchDirectory {
public:
    ScratchDirectory() {
        std::string name = (std::filesystem::temp_directory_path() / "tal-control-XXXXXX").string();
        if (mkdtemp(name.data()) == nullptr) {
            throw std::runtime_error("no scratch directory");
        }
        path_ = name;
    }
    ~ScratchDirectory() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    std::string file(const std::string& name) const { return (path_ / name).string(); }

private:
    std::filesystem::path path_;
};

class ServerTest : public testing::Test {
protected:
    ServerTest() { options.socketPath = scratch.file("control.sock"); }

    void start() {
        server = std::make_unique<Server>(TestNode::functions(), node, options,
                                          [this](const std::string& line) {
                                              const std::lock_guard<std::mutex> lock(logMutex_);
                                              log_.push_back(line);
                                          });
    }
    std::vector<std::string> log() {
        const std::lock_guard<std::mutex> lock(logMutex_);
        return log_;
    }

    std::string target() const { return "unix:" + options.socketPath; }

    // Every channel has a connection of its own.
    static std::shared_ptr<grpc::Channel> channelTo(
        const std::string& target, const std::shared_ptr<grpc::ChannelCredentials>& credentials =
                                       grpc::InsecureChannelCredentials()) {
        grpc::ChannelArguments arguments;
        arguments.SetInt(GRPC_ARG_USE_LOCAL_SUBCHANNEL_POOL, 1);
        return grpc::CreateCustomChannel(target, credentials, arguments);
    }
    std::unique_ptr<v1::Management::Stub> client() {
        return v1::Management::NewStub(channelTo(target()));
    }

    // A call with a deadline.
    template <class Request, class Response>
    static grpc::Status call(v1::Management::Stub& stub,
                             grpc::Status (v1::Management::Stub::*method)(grpc::ClientContext*,
                                                                          const Request&,
                                                                          Response*),
                             const Request& request, Response& response,
                             std::string* result = nullptr) {
        grpc::ClientContext context;
        setDeadline(context);
        const grpc::Status status = (stub.*method)(&context, request, &response);
        if (result != nullptr) {
            const auto& trailers = context.GetServerTrailingMetadata();
            const auto found = trailers.find("rpc-tal-res");
            *result = found == trailers.end()
                          ? "none"
                          : std::string(found->second.data(), found->second.size());
        }
        return status;
    }
    static void setDeadline(grpc::ClientContext& context) {
        context.set_deadline(std::chrono::system_clock::now() + std::chrono::seconds(20));
    }

    ScratchDirectory scratch;
    TestNode node;
    ServerOptions options;
    std::unique_ptr<Server> server;

private:
    std::mutex logMutex_;
    std::vector<std::string> log_;
};

}  // namespace node::control
