// talnode: a Linux process that runs the TAL module. Exit codes: 0 the run ended as it should,
// 1 the module or the machine failed, 2 the command line, configuration, a capture or the
// profiles' file is wrong.
#include <syslog.h>

#include <CLI/CLI.hpp>
#include <exception>
#include <fstream>
#include <iostream>

#include "node/config/config.h"
#include "node/node.h"

namespace {

constexpr int exitFailed = 1;
constexpr int exitWrongInput = 2;

int fail(int code, const std::string& text) {
    std::cerr << "talnode: " << text << std::endl;
    return code;
}

int runNode(const std::string& configPath, const node::Node::Options& options,
            const std::string& reportPath) {
    const node::Config config = node::loadConfig(configPath);
    node::Node node(config, options, std::cout);
    const node::RunReport report = node.run();
    std::cout << '\n' << node::reportTable(report) << std::flush;
    if (!reportPath.empty()) {
        std::ofstream file(reportPath, std::ios::trunc);
        file << node::reportJson(report) << std::flush;
        if (!file) {
            return fail(exitFailed, reportPath + ": the report cannot be written");
        }
    }
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    CLI::App app("Runs the TAL module on the traffic of configured subscriber lines.");
    std::string configPath;
    std::string reportPath;
    std::string pace = "instant";
    bool release = false;
    node::Node::Options options;
    app.add_option("--config", configPath, "TOML file that describes the node")->required();
    app.add_option("--library", options.library, "libtal.so (default: the one beside the program)");
    app.add_option("--report", reportPath, "write what came out to this file, as JSON");
    app.add_option("--pace", pace, "play captures at once or as fast as they were taken")
        ->check(CLI::IsMember({"instant", "recorded"}))
        ->capture_default_str();
    app.add_option("--control", options.controlSocket,
                   "path of the Unix socket for management (default: as configured)");
    app.add_flag("--release", release,
                 "take the gates of earlier runs off the devices, which then pass everything; "
                 "no run");
    app.add_flag("--stay", options.stay, "run until SIGTERM, also after the captures");
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? 0 : exitWrongInput;
    }
    options.recordedPace = pace == "recorded";
    if (options.library.empty()) {
        options.library = node::defaultLibraryPath();
    }
    // What the module writes to the system log is also shown.
    openlog("talnode", LOG_PERROR, LOG_DAEMON);
    try {
        if (release) {
            node::Node::release(node::loadConfig(configPath), std::cout);
            return 0;
        }
        return runNode(configPath, options, reportPath);
    } catch (const node::ConfigError& error) {
        return fail(exitWrongInput, error.what());
    } catch (const node::SessionFileError& error) {
        return fail(exitWrongInput, error.what());
    } catch (const node::CaptureError& error) {
        return fail(exitWrongInput, error.what());
    } catch (const node::ProfileError& error) {
        return fail(exitWrongInput, error.what());
    } catch (const std::exception& error) {
        return fail(exitFailed, error.what());
    }
}
