// The node at the other end: calls that return or throw a Failure, and names of interfaces.
// One thread.
#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <string>

#include <tal/v1/tal.grpc.pb.h>

namespace node::ctl {

namespace v1 = ::tal::v1;

struct Endpoint {
    std::string server = "unix:/run/tal/control.sock";  // or HOST:PORT
    std::string ca;                                     // PEM files, for HOST:PORT
    std::string certificate;
    std::string key;
    unsigned timeout = 10;  // seconds for an answer
};

class Client {
public:
    // Throws Failure when the endpoint cannot be meant or a file cannot be read.
    explicit Client(const Endpoint& endpoint);

    template <class Request, class Response>
    Response call(grpc::Status (v1::Management::Stub::*method)(grpc::ClientContext*, const Request&,
                                                               Response*),
                  const Request& request = {}) {
        Response response;
        invoke([&](grpc::ClientContext& context) {
            return ((*stub_).*method)(&context, request, &response);
        });
        return response;
    }

    // Calls `take` for each event until it returns false or the stream ends.
    void events(const v1::EventsRequest& request,
                const std::function<bool(const v1::Event&)>& take);

    // An id, a name ("1/3") or a kernel name ("dsl1"), in this order of preference; "all" is 0
    // where that is allowed.
    unsigned interfaceNamed(const std::string& name, bool allAllowed = false);

private:
    void invoke(const std::function<grpc::Status(grpc::ClientContext&)>& call);

    Endpoint endpoint_;
    std::unique_ptr<v1::Management::Stub> stub_;
};

}  // namespace node::ctl
