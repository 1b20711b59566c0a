// The test node as a process, for clients that are programs of their own. It listens on the
// socket given, says "ready" and obeys lines on its input until that ends:
//   event KIND INTERFACE TEXT   refuse FUNCTION RESULT   file PATH   calls
// Each is answered by one line; "calls" by the number of calls and then the calls.
#include <fstream>
#include <iostream>
#include <iterator>
#include <map>
#include <sstream>

#include "node/control/server.h"
#include "tests/control/test_node.h"

namespace {

using namespace node::control;

const std::map<std::string, EventKind> kinds{{"trap", EventKind::trap},
                                             {"request", EventKind::request},
                                             {"verdict", EventKind::verdict},
                                             {"gate", EventKind::gate},
                                             {"store", EventKind::store}};

std::string obey(const std::string& line, TestNode& node, Server& server) {
    std::istringstream words(line);
    std::string command;
    words >> command;
    if (command == "event") {
        std::string kind;
        LiveEvent event;
        words >> kind >> event.ifId >> std::ws;
        std::getline(words, event.text);
        event.kind = kinds.at(kind);
        event.interfaceName = "1/" + std::to_string(event.ifId);
        server.publish(std::move(event));
        return "done";
    }
    if (command == "refuse") {
        std::string function;
        uint32_t result = 0;
        words >> function >> result;
        node.refuse(function, result);
        return "done";
    }
    if (command == "file") {
        std::string path;
        words >> path;
        std::ifstream file(path, std::ios::binary);
        node.setFile({std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()});
        return "done";
    }
    if (command == "calls") {
        const std::vector<std::string> calls = node.calls();
        std::string text = std::to_string(calls.size());
        for (const std::string& call : calls) {
            text += "\n" + call;
        }
        return text;
    }
    return "unknown command";
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::cerr << "usage: test_node SOCKET\n";
        return 2;
    }
    TestNode node;
    node.setFile(storedLogin(2));
    node.setServers({{.name = "first",
                      .address = "192.0.2.1:1812",
                      .role = "authentication",
                      .alive = true,
                      .requests = 7,
                      .timeouts = 1,
                      .note = ""}});
    node.setProfiles({{.kind = node::ProfileKind::service,
                       .name = "gold",
                       .state = node::ProfileState::dynamic,
                       .isProtected = true,
                       .interfaces = {1, 2}},
                      {.kind = node::ProfileKind::accessList,
                       .name = "guests",
                       .state = node::ProfileState::fixed,
                       .isProtected = false,
                       .interfaces = {}}});
    ServerOptions options;
    options.socketPath = argv[1];
    Server server(TestNode::functions(), node, options, [](const std::string&) {});
    std::cout << "ready" << std::endl;
    for (std::string line; std::getline(std::cin, line);) {
        std::cout << obey(line, node, server) << std::endl;
    }
}
