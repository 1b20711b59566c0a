#include "tests/radius/scenario/free_radius.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <stdexcept>
#include <thread>

#include "tests/radius/scenario/udp_proxy.h"

namespace radius_test {

namespace {

constexpr const char* program = "/usr/sbin/freeradius";
constexpr std::chrono::seconds patience{20};

pid_t spawn(const std::vector<std::string>& arguments, const std::string& outputFile) {
    std::vector<char*> raw;
    for (const std::string& argument : arguments) {
        raw.push_back(const_cast<char*>(argument.c_str()));
    }
    raw.push_back(nullptr);
    const pid_t pid = fork();
    if (pid == 0) {
        // The server must not outlive a test that is killed.
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        const int out = open(outputFile.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0600);
        const int in = open("/dev/null", O_RDONLY);
        dup2(in, 0);
        dup2(out, 1);
        dup2(out, 2);
        execvp(raw[0], raw.data());
        _exit(127);
    }
    return pid;
}

std::string contents(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

void write(const std::string& path, const std::string& text) {
    std::ofstream(path, std::ios::binary) << text;
    chmod(path.c_str(), 0600);
}

std::string replaced(std::string text, const std::string& what, const std::string& by) {
    for (size_t at = text.find(what); at != std::string::npos; at = text.find(what, at)) {
        text.replace(at, what.size(), by);
        at += by.size();
    }
    return text;
}

constexpr const char* configuration = R"(
prefix = /usr
libdir = /usr/lib/freeradius
logdir = DIRECTORY/log
run_dir = DIRECTORY/run
pidfile = DIRECTORY/run/pid
max_requests = 65536
max_request_time = 30
cleanup_delay = 2
security {
    status_server = yes
    reject_delay = 0
    max_attributes = 200
}
thread pool {
    start_servers = 2
    max_servers = 4
    min_spare_servers = 1
    max_spare_servers = 3
    max_requests_per_server = 0
}
log {
    destination = stdout
}
client local {
    ipaddr = 127.0.0.1
    secret = SECRET
    require_message_authenticator = yes
}
modules {
    files {
        usersfile = DIRECTORY/users
        key = "%{User-Name}"
    }
    pap {
    }
    always ok {
        rcode = ok
    }
    linelog accounted {
        filename = DIRECTORY/accounted
        format = "%{User-Name} %{Acct-Status-Type} %{Acct-Session-Id}"
    }
}
server default {
    listen {
        type = auth
        ipaddr = 127.0.0.1
        port = PORT0
        recv_buff = 4194304
    }
    listen {
        type = acct
        ipaddr = 127.0.0.1
        port = PORT1
        recv_buff = 4194304
    }
TLS
    authorize {
        files
        AUTHORIZE
        pap
        Autz-Type Status-Server {
            SIGN
            ok
        }
    }
    authenticate {
        Auth-Type PAP {
            pap
        }
    }
    post-auth {
        SIGN
        Post-Auth-Type REJECT {
            SIGN
        }
    }
    preacct {
        ok
    }
    accounting {
        accounted
        SIGN
    }
}
)";

constexpr const char* signing = R"(update reply {
            Message-Authenticator := 0x00
        })";

constexpr const char* tlsSection = R"(
    listen {
        type = auth
        proto = tcp
        ipaddr = 127.0.0.1
        port = PORT2
        clients = radsec
        limit {
            max_connections = 32
            lifetime = 0
            idle_timeout = 0
        }
        tls {
            private_key_file = DIRECTORY/server.key
            certificate_file = DIRECTORY/server.pem
            ca_file = DIRECTORY/ca.pem
            require_client_cert = yes
            tls_min_version = "1.2"
            tls_max_version = "1.2"
        }
    }
)";

constexpr const char* tlsClients = R"(
clients radsec {
    client tls {
        ipaddr = 127.0.0.1
        proto = tls
        secret = radsec
        require_message_authenticator = yes
    }
}
)";

}  // namespace

void run(const std::vector<std::string>& arguments, const std::string& outputFile) {
    if (runForResult(arguments, outputFile) != 0) {
        throw std::runtime_error(arguments[0] + " failed: " + contents(outputFile));
    }
}

int runForResult(const std::vector<std::string>& arguments, const std::string& outputFile) {
    const pid_t pid = spawn(arguments, outputFile);
    int status = 0;
    waitpid(pid, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

void makeCertificates(const std::string& directory) {
    const auto file = [&directory](const std::string& name) { return directory + "/" + name; };
    const std::string log = file("openssl.log");
    const auto authority = [&](const std::string& name) {
        run({"openssl", "req", "-x509", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:P-256",
             "-nodes", "-days", "30", "-subj", "/CN=" + name, "-keyout", file(name + ".key"),
             "-out", file(name + ".pem")},
            log);
    };
    const auto certificate = [&](const std::string& name, const std::string& by) {
        write(file(name + ".ext"), "subjectAltName=IP:127.0.0.1,DNS:" + name + ".test\n");
        run({"openssl", "req", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:P-256", "-nodes",
             "-subj", "/CN=" + name, "-keyout", file(name + ".key"), "-out", file(name + ".csr")},
            log);
        run({"openssl", "x509", "-req", "-in", file(name + ".csr"), "-CA", file(by + ".pem"),
             "-CAkey", file(by + ".key"), "-CAcreateserial", "-days", "30", "-extfile",
             file(name + ".ext"), "-out", file(name + ".pem")},
            log);
        chmod(file(name + ".key").c_str(), 0600);
    };
    authority("ca");
    authority("otherca");
    certificate("server", "ca");
    certificate("client", "ca");
    certificate("other", "otherca");
}

bool FreeRadius::installed() {
    return access(program, X_OK) == 0;
}

FreeRadius::FreeRadius(const Options& options) : port_(freePort()) {
    std::string name = std::filesystem::temp_directory_path().string() + "/radius.XXXXXX";
    if (!mkdtemp(name.data())) {
        throw std::runtime_error("no temporary directory");
    }
    directory_ = name;
    writeFiles(options);
}

FreeRadius::~FreeRadius() {
    stop();
    std::error_code ignored;
    std::filesystem::remove_all(directory_, ignored);
}

void FreeRadius::writeFiles(const Options& options) {
    std::filesystem::create_directory(directory_ + "/run");
    std::filesystem::create_directory(directory_ + "/log");
    write(directory_ + "/dictionary", "$INCLUDE /usr/share/freeradius/dictionary\n");
    std::ostringstream known;
    for (int i = 1; i <= users; ++i) {
        known << "line-" << i << "\tCleartext-Password := \"pw\"\n"
              << "\tClass = \"class of " << i << "\", Session-Timeout = 3600, "
              << "Filter-Id = \"gold\"\n"
              << "barred-" << i << "\tAuth-Type := Reject\n\tReply-Message = \"barred\"\n";
    }
    write(directory_ + "/users", known.str() + "DEFAULT\tAuth-Type := Reject\n");
    std::string text = configuration;
    if (options.tls) {
        makeCertificates(directory_);
        text = tlsClients + text;
    }
    text = replaced(text, "TLS\n", options.tls ? std::string(tlsSection) : "");
    text = replaced(text, "SIGN", options.signsAnswers ? signing : "");
    text = replaced(text, "AUTHORIZE", options.authorize);
    text = replaced(text, "DIRECTORY", directory_);
    text = replaced(text, "SECRET", options.secret);
    for (int i = 0; i < 3; ++i) {
        text = replaced(text, "PORT" + std::to_string(i), std::to_string(port_ + i));
    }
    write(directory_ + "/radiusd.conf", text);
}

void FreeRadius::start() {
    write(file("output"), "");
    pid_ = spawn({program, "-d", directory_, "-f", "-l", "stdout"}, file("output"));
    const auto end = std::chrono::steady_clock::now() + patience;
    while (output().find("Ready to process requests") == std::string::npos) {
        int status = 0;
        if (waitpid(pid_, &status, WNOHANG) == pid_) {
            pid_ = -1;
            throw std::runtime_error("FreeRADIUS ended: " + output());
        }
        if (std::chrono::steady_clock::now() > end) {
            throw std::runtime_error("FreeRADIUS is not ready: " + output());
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
}

void FreeRadius::stop() {
    if (pid_ < 0) {
        return;
    }
    // It holds nothing worth saving, and a polite end may take as long as a request is old.
    kill(pid_, SIGKILL);
    waitpid(pid_, nullptr, 0);
    pid_ = -1;
}

std::string FreeRadius::output() const {
    return contents(file("output"));
}

std::vector<std::string> FreeRadius::accounted() const {
    std::vector<std::string> lines;
    std::istringstream text(contents(file("accounted")));
    for (std::string line; std::getline(text, line);) {
        lines.push_back(line);
    }
    return lines;
}

}  // namespace radius_test
