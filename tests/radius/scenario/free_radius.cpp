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
constexpr const char* python = "/usr/bin/python3";
constexpr const char* script = FREE_RADIUS_SCRIPT;
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
    run({python, script, "--directory", directory, "--certificates"}, directory + "/openssl.log");
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
    std::ostringstream known;
    for (int i = 1; i <= users; ++i) {
        known << "line-" << i << "\tCleartext-Password := \"pw\"\n"
              << "\tClass = \"class of " << i << "\", Session-Timeout = 3600, "
              << "Filter-Id = \"gold\"\n"
              << "barred-" << i << "\tAuth-Type := Reject\n\tReply-Message = \"barred\"\n";
    }
    write(file("known"), known.str());
    std::vector<std::string> command{
        python,     script,         "--prepare",           "--unrecorded",   "--directory",
        directory_, "--port",       std::to_string(port_), "--users",        file("known"),
        "--secret", options.secret, "--authorize",         options.authorize};
    if (!options.signsAnswers) {
        command.push_back("--unsigned");
    }
    if (options.tls) {
        command.push_back("--tls");
    }
    run(command, file("prepared"));
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
