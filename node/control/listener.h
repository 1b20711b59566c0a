// Listening sockets of the management server, and the thread that accepts on them. The server
// gets accepted connections instead of addresses, so that the mode of the socket file is right
// before the first client can come and a flood of clients cannot eat the node's descriptors.
#pragma once

#include <atomic>
#include <functional>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace node::control {

class ListenError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// A descriptor that closes itself.
class Descriptor {
public:
    explicit Descriptor(int fd = -1) : fd_(fd) {}
    Descriptor(Descriptor&& other) noexcept : fd_(other.release()) {}
    Descriptor& operator=(Descriptor&& other) noexcept;
    ~Descriptor();

    int get() const { return fd_; }
    int release();

private:
    int fd_;
};

// Mode 0660; `group` by name, empty for the process's own. Takes the place of a socket that
// nobody listens on, of nothing else. Throws ListenError.
Descriptor listenUnix(const std::string& path, const std::string& group);

// "192.0.2.1:7443" or "[::1]:7443". Throws ListenError.
Descriptor listenTcp(const std::string& address);
int portOf(const Descriptor& listening);

// Raises this process's limit of open descriptors, as far as it may be raised.
void allowDescriptors(unsigned wanted);

class Acceptor {
public:
    struct Listener {
        Descriptor socket;
        std::function<void(int fd)> onConnection;  // owns fd from now on; on the thread
    };

    // Connections that would leave the process fewer than `spare` descriptors are refused.
    Acceptor(std::vector<Listener> listeners, int spare);
    ~Acceptor();  // no onConnection runs afterwards

    unsigned long refused() const { return refused_; }

private:
    void run();
    bool acceptOne(const Listener& listener);

    std::vector<Listener> listeners_;
    const int spare_;
    Descriptor stop_;
    std::atomic<unsigned long> refused_{0};
    std::thread thread_;
};

}  // namespace node::control
