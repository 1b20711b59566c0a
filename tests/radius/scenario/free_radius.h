// A FreeRADIUS of the test's own: own directory, own ports of 127.0.0.1, any user. Its files are
// written by script/free_radius.py.
// One thread.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

namespace radius_test {

class FreeRadius {
public:
    struct Options {
        std::string secret = "testing-secret";
        bool signsAnswers = true;  // puts Message-Authenticator into answers
        bool tls = false;          // also RADIUS over TLS
        std::string authorize;     // rules after the look-up of the user
    };

    // Knows the users "line-1" to "line-N" who are accepted with Class, Session-Timeout 3600 and
    // Filter-Id "gold", "barred-1" to "barred-N" who are rejected, all with password "pw"; nobody
    // else.
    static constexpr int users = 1000;

    static bool installed();

    explicit FreeRadius(const Options& options);
    ~FreeRadius();
    FreeRadius(const FreeRadius&) = delete;
    FreeRadius& operator=(const FreeRadius&) = delete;

    void start();  // until it is ready; throws std::runtime_error with its output
    void stop();   // and waits for its end

    uint16_t port() const { return port_; }
    uint16_t accountingPort() const { return static_cast<uint16_t>(port_ + 1); }
    uint16_t tlsPort() const { return port_; }
    const std::string& directory() const { return directory_; }
    std::string output() const;

    // Lines "NAME STATUS SESSION CLASS PACKETS CAUSE" of accounting taken, one per record.
    std::vector<std::string> accounted() const;

    // With TLS also what makeCertificates makes.
    std::string file(const std::string& name) const { return directory_ + "/" + name; }

private:
    void writeFiles(const Options& options);

    std::string directory_;
    uint16_t port_;
    pid_t pid_ = -1;
};

// Into the directory, by the same script: ca.pem, which signed server.pem and client.pem, and
// otherca.pem, which signed other.pem; their keys beside them as *.key. They hold for 127.0.0.1 and
// NAME.test.
void makeCertificates(const std::string& directory);

// Runs a program to its end; throws unless it ends with 0.
void run(const std::vector<std::string>& arguments, const std::string& outputFile);
int runForResult(const std::vector<std::string>& arguments, const std::string& outputFile);

}  // namespace radius_test
