// The tree is the one source of the help, the manual page and the completion: names, values and
// sentences stand here once. An option's type name tells its values ("on|off"); the completion
// offers those that are joined by bars.
//
// Tests: tests/control/talctl_test.cpp and the Python ones beside it.
#include "node/ctl/commands.h"

#include <CLI/CLI.hpp>

#include <chrono>
#include <fstream>
#include <iterator>
#include <map>
#include <memory>
#include <ostream>
#include <thread>

#include "node/control/message.h"
#include "node/control/storage_reader.h"
#include "node/ctl/client.h"
#include "node/ctl/completion.h"
#include "node/ctl/failure.h"
#include "node/ctl/help.h"
#include "node/ctl/man_page.h"
#include "node/ctl/rule_option.h"
#include "node/ctl/show.h"

namespace node::ctl {

namespace {

using Stub = v1::Management::Stub;

// Everything the command line may say. One object per run.
class Talctl {
public:
    Talctl(std::ostream& out, std::ostream& err) : out_(out), err_(err) { build(); }

    int run(std::vector<std::string> arguments);

private:
    using SetSetting = grpc::Status (Stub::*)(grpc::ClientContext*, const v1::IntfStateSetRequest&,
                                              v1::IntfStateSetResponse*);

    void build();
    void buildInterface();
    void buildRule();
    void buildStore();
    void buildOther();
    CLI::App* command(CLI::App* parent, const std::string& name, const std::string& description,
                      void (Talctl::*action)());
    CLI::App* group(const std::string& name, const std::string& description);
    void addRuleOptions(CLI::App* command, bool withAny);
    std::string usageProblem(const CLI::ParseError& error) const;
    void refuse(const Failure& failure);

    Client& client();
    template <class Shown>
    void show(const Shown& shown);
    void done();
    std::vector<control::Rule> rules() const;
    unsigned interface(bool allAllowed = false) {
        return client().interfaceNamed(interface_, allAllowed);
    }
    v1::ListInterfacesResponse interfaces();
    v1::ListStoredLoginsResponse fileContents() const;

    void status();
    void interfaceList();
    void interfaceShow();
    void interfaceSet();
    void adminSet();
    void ruleAdd();
    void ruleDelete();
    void ruleShow();
    void ruleBundle();
    void stats();
    void logins();
    void servers();
    void storeShow();
    void storeVerify();
    void events();
    void profilesList();
    void profilesConvert();
    void isaClear();
    void completion();
    void manPage();

    std::ostream& out_;
    std::ostream& err_;
    CLI::App app_{"Manages a TAL node. More: talctl COMMAND --help; exit codes: talctl man.",
                  "talctl"};
    std::unique_ptr<Client> client_;

    // What was said.
    Endpoint endpoint_;
    bool json_ = false;
    std::string interface_;
    std::string onOff_;
    std::map<std::string, std::string> settings_;
    std::map<control::RuleKind, std::string> ruleValues_;
    std::string kind_;
    std::vector<std::string> eventKinds_;
    std::string file_;
    std::string shell_;
    unsigned watch_ = 0;
    unsigned count_ = 0;
};

const std::vector<std::string> onAndOff{"on", "off"};

struct SettingOption {
    const char* name;
    const char* help;
    grpc::Status (Stub::*set)(grpc::ClientContext*, const v1::IntfStateSetRequest&,
                              v1::IntfStateSetResponse*);
};

const SettingOption settingOptions[] = {
    {"--admin", "TAL on this interface", &Stub::IntfAdminStateSet},
    {"--authentication", "ask for authentication", &Stub::IntfAuthenAdminStateSet},
    {"--authorization", "ask for authorization", &Stub::IntfAuthorAdminStateSet},
    {"--auto-request", "log in as soon as the interface is up", &Stub::IntfAutoReqAdminStateSet},
};

const std::vector<std::string> eventKindNames{"trap", "request", "verdict", "gate", "store"};

const char interfaceHelp[] = "id, name (1/3) or kernel name (dsl1)";
const char interfaceOrAllHelp[] = "id, name (1/3), kernel name (dsl1) or all";

// Writes an option's values into its type name, where the completion finds them.
CLI::Option* oneOf(CLI::Option* option, const std::vector<std::string>& values) {
    std::string bars;
    for (const std::string& value : values) {
        bars += (bars.empty() ? "" : "|") + value;
    }
    return option->type_name(bars)->check(CLI::IsMember(values).description(""));
}

CLI::App* Talctl::command(CLI::App* parent, const std::string& name, const std::string& description,
                          void (Talctl::*action)()) {
    CLI::App* const added = parent->add_subcommand(name, description);
    added->final_callback([this, action] { (this->*action)(); });
    return added;
}

CLI::App* Talctl::group(const std::string& name, const std::string& description) {
    CLI::App* const added = app_.add_subcommand(name, description);
    added->require_subcommand(1);
    return added;
}

void Talctl::build() {
    app_.formatter(std::make_shared<HelpFormatter>());
    app_.fallthrough();
    app_.require_subcommand(1);
    app_.set_version_flag("--version", std::string("talctl ") + TAL_VERSION, "tell the version");
    app_.set_help_flag("-h,--help");
    app_.add_option("--server", endpoint_.server, "unix:PATH or HOST:PORT")
        ->type_name("ADDRESS")
        ->envname("TALCTL_SERVER");
    app_.add_option("--ca", endpoint_.ca, "who signed the node's certificate")
        ->type_name("FILE")
        ->envname("TALCTL_CA");
    app_.add_option("--cert", endpoint_.certificate, "the certificate to show to the node")
        ->type_name("FILE")
        ->envname("TALCTL_CERT");
    app_.add_option("--key", endpoint_.key, "its key")->type_name("FILE")->envname("TALCTL_KEY");
    app_.add_option("--timeout", endpoint_.timeout, "wait so long for an answer, 10 unless said")
        ->type_name("SECONDS")
        ->check(CLI::Range(1, 3600).description(""));
    app_.add_flag("--json", json_, "answer for programs");

    command(&app_, "status", "the node, its interfaces in numbers, its servers", &Talctl::status);
    CLI::App* const admin =
        command(&app_, "admin", "switch TAL on or off for the whole node", &Talctl::adminSet);
    oneOf(admin->add_option("state", onOff_, "off forgets all stored logins")->required(),
          onAndOff);
    buildInterface();
    buildRule();
    buildOther();
    buildStore();
    for (CLI::App* each : app_.get_subcommands({})) {
        each->fallthrough();
        for (CLI::App* inner : each->get_subcommands({})) {
            inner->fallthrough();
        }
    }
}

void Talctl::buildInterface() {
    CLI::App* const interfaces = group("interface", "list, show and set interfaces");
    command(interfaces, "list", "all interfaces", &Talctl::interfaceList);
    command(interfaces, "show", "all that is known of one interface", &Talctl::interfaceShow)
        ->add_option("interface", interface_, interfaceHelp)
        ->type_name("INTERFACE")
        ->required();
    CLI::App* const set =
        command(interfaces, "set", "switch an interface's settings", &Talctl::interfaceSet);
    set->add_option("interface", interface_, interfaceOrAllHelp)
        ->type_name("INTERFACE")
        ->required();
    for (const SettingOption& each : settingOptions) {
        oneOf(set->add_option(each.name, settings_[each.name], each.help), onAndOff);
    }
    set->footer("Example: talctl interface set 1/3 --admin on");
}

void Talctl::addRuleOptions(CLI::App* command, bool withAny) {
    command->add_option("interface", interface_, interfaceOrAllHelp)
        ->type_name("INTERFACE")
        ->required();
    for (const RuleOption& each : ruleOptions) {
        const std::string name = "--" + std::string(nameOf(each.kind));
        const std::string help(each.help);
        if (each.value.empty() && withAny) {
            command->add_flag_callback(
                name, [this, kind = each.kind] { ruleValues_[kind] = ""; }, help);
        } else if (!each.value.empty()) {
            command
                ->add_option_function<std::string>(
                    name,
                    [this, kind = each.kind](const std::string& value) {
                        ruleValues_[kind] = value;
                    },
                    help)
                ->type_name(std::string(each.value));
        }
    }
}

void Talctl::buildRule() {
    CLI::App* const rule = group("rule", "what traffic asks for a login");
    CLI::App* const add =
        command(rule, "add", "add a rule, or replace the one of its kind", &Talctl::ruleAdd);
    addRuleOptions(add, true);
    add->footer("Exactly one rule. Example: talctl rule add 1/3 --vendor-id \"acme*\"");
    CLI::App* const remove =
        command(rule, "delete", "delete the rule of a kind", &Talctl::ruleDelete);
    remove->add_option("interface", interface_, interfaceOrAllHelp)
        ->type_name("INTERFACE")
        ->required();
    std::vector<std::string> kinds;
    for (const RuleOption& each : ruleOptions) {
        kinds.emplace_back(nameOf(each.kind));
    }
    kinds.emplace_back("all");
    oneOf(remove->add_option("kind", kind_, "the kind of the rule")->required(), kinds)
        ->type_name("KIND");
    remove->footer(
        "Kinds: any, ethertype, dhcp, vendor-id, remote-id, client-id, mac, ip, vlan,\n"
        "user-pattern, all. Example: talctl rule delete 1/3 vlan");
    command(rule, "show", "the rules of an interface", &Talctl::ruleShow)
        ->add_option("interface", interface_, interfaceHelp)
        ->type_name("INTERFACE")
        ->required();
    CLI::App* const bundle =
        command(rule, "bundle", "replace all rules of an interface at once", &Talctl::ruleBundle);
    addRuleOptions(bundle, false);
    bundle->footer(
        "--dhcp is always needed; a bundle drops what patterns hold, so only \"*\" is taken\n"
        "there. Example: talctl rule bundle 1/3 --dhcp discover --ethertype ipv4");
}

void Talctl::buildOther() {
    CLI::App* const stats = command(&app_, "stats", "counters of the interfaces", &Talctl::stats);
    stats->add_option("interface", interface_, interfaceHelp)->type_name("INTERFACE");
    stats->add_option("--watch", watch_, "read again and again, and show what changed")
        ->type_name("SECONDS")
        ->expected(0, 1)
        ->default_str("2")
        ->check(CLI::Range(1, 3600).description(""));
    stats->add_option("--count", count_, "with --watch: stop after so many readings")
        ->type_name("N");
    command(&app_, "logins", "stored logins, as the node's file holds them", &Talctl::logins)
        ->add_option("interface", interface_, interfaceHelp)
        ->type_name("INTERFACE");
    command(&app_, "servers", "the servers that ISA asks, with their counters", &Talctl::servers);
    CLI::App* const events = command(&app_, "events", "what happens, live", &Talctl::events);
    events->add_option("interface", interface_, interfaceHelp)->type_name("INTERFACE");
    oneOf(events->add_option("--kind", eventKinds_, "only these; may be repeated"), eventKindNames)
        ->expected(1)
        ->take_all();
    events->add_option("--count", count_, "stop after so many")->type_name("N");
    CLI::App* const profiles = group("profiles", "list profiles, keep what logins have created");
    command(profiles, "list", "all profiles of the node", &Talctl::profilesList);
    command(profiles, "convert", "turn all dynamic profiles into static ones",
            &Talctl::profilesConvert);
    command(group("isa", "the node's RADIUS side"), "clear",
            "set all TAL settings to their defaults and clear ISA's configuration",
            &Talctl::isaClear);
}

void Talctl::buildStore() {
    CLI::App* const store = group("store", "a file of stored logins, without a node");
    command(store, "show", "the logins that a file holds", &Talctl::storeShow)
        ->add_option("file", file_, "such as /var/log/tal.store.dat")
        ->type_name("FILE")
        ->required();
    command(store, "verify", "whether a node would take a file", &Talctl::storeVerify)
        ->add_option("file", file_, "such as /var/log/tal.store.dat")
        ->type_name("FILE")
        ->required();
    CLI::App* const completion =
        command(&app_, "completion", "a script that completes talctl's words", &Talctl::completion);
    oneOf(completion->add_option("shell", shell_, "eval \"$(talctl completion bash)\"")->required(),
          {"bash", "zsh"});
    command(&app_, "man", "this manual: talctl man | man -l -", &Talctl::manPage);
}

int Talctl::run(std::vector<std::string> arguments) {
    std::reverse(arguments.begin(), arguments.end());
    try {
        app_.parse(std::move(arguments));
        return exitDone;
    } catch (const CLI::ParseError& error) {
        if (error.get_exit_code() == static_cast<int>(CLI::ExitCodes::Success)) {
            return app_.exit(error, out_, err_);
        }
        refuse({exitUsage, usageProblem(error)});
        return exitUsage;
    } catch (const Failure& failure) {
        refuse(failure);
        return failure.code();
    }
}

std::string Talctl::usageProblem(const CLI::ParseError& error) const {
    const std::vector<std::string> unknown = app_.remaining(true);
    return unknown.empty() ? error.what() : "what is " + unknown.front() + "?";
}

void Talctl::refuse(const Failure& failure) {
    err_ << "talctl: " << failure.what() << '\n';
    if (failure.code() == exitUsage) {
        err_ << "Try talctl --help, or --help behind a command.\n";
    }
    if (json_) {
        out_ << Json::object()
                    .add("error", Json::object()
                                      .add("exit_code", static_cast<uint32_t>(failure.code()))
                                      .add("rpc_tal_res",
                                           failure.result() ? Json::of(uint32_t{*failure.result()})
                                                            : Json::null())
                                      .add("message", failure.what()))
                    .text();
    }
}

Client& Talctl::client() {
    if (!client_) {
        client_ = std::make_unique<Client>(endpoint_);
    }
    return *client_;
}

template <class Shown>
void Talctl::show(const Shown& shown) {
    out_ << (json_ ? jsonOf(shown).text() : tableOf(shown)) << std::flush;
}

void Talctl::done() {
    out_ << (json_ ? Json::object().add("done", true).text() : "done\n");
}

v1::ListInterfacesResponse Talctl::interfaces() {
    v1::ListInterfacesRequest request;
    request.set_interface(interface_.empty() ? 0 : interface());
    return client().call(&Stub::ListInterfaces, request);
}

void Talctl::status() {
    Status status;
    status.node = client().call(&Stub::NodeInfo);
    status.admin = client().call(&Stub::AdminStateGet).enabled();
    status.interfaces = client().call(&Stub::ListInterfaces);
    status.logins = client().call(&Stub::ListStoredLogins);
    status.servers = client().call(&Stub::ListServers);
    show(status);
}

void Talctl::interfaceList() {
    show(interfaces());
}

void Talctl::interfaceShow() {
    show(interfaces().interfaces(0));
}

void Talctl::interfaceSet() {
    v1::IntfStateSetRequest request;
    bool any = false;
    for (const SettingOption& each : settingOptions) {
        any = any || !settings_[each.name].empty();
    }
    if (!any) {
        throw Failure(exitUsage, "name a setting, such as --admin on");
    }
    request.set_interface(interface(true));
    for (const SettingOption& each : settingOptions) {
        if (!settings_[each.name].empty()) {
            request.set_enabled(settings_[each.name] == "on");
            client().call(each.set, request);
        }
    }
    done();
}

void Talctl::adminSet() {
    v1::AdminStateSetRequest request;
    request.set_enabled(onOff_ == "on");
    client().call(&Stub::AdminStateSet, request);
    done();
}

std::vector<control::Rule> Talctl::rules() const {
    std::vector<control::Rule> rules;
    for (const auto& [kind, value] : ruleValues_) {
        ParsedRule parsed = parseRule(kind, value);
        if (!parsed.rule) {
            throw Failure(exitUsage, "--" + std::string(nameOf(kind)) + " " + parsed.problem);
        }
        rules.push_back(std::move(*parsed.rule));
    }
    return rules;
}

void Talctl::ruleAdd() {
    const std::vector<control::Rule> said = rules();
    if (said.size() != 1) {
        throw Failure(exitUsage,
                      "give exactly one rule; several rules of an interface are alternatives, "
                      "added one by one");
    }
    v1::RuleSetRequest request;
    request.set_interface(interface(true));
    *request.mutable_add() = control::messageOf(said.front());
    client().call(&Stub::RuleSet, request);
    done();
}

void Talctl::ruleDelete() {
    v1::RuleSetRequest request;
    request.set_interface(interface(true));
    for (const RuleOption& each : ruleOptions) {
        if (kind_ == "all" || kind_ == nameOf(each.kind)) {
            request.set_delete_(
                static_cast<v1::RuleKind>(static_cast<int>(each.kind) + v1::RULE_KIND_ANY));
            client().call(&Stub::RuleSet, request);
        }
    }
    done();
}

void Talctl::ruleShow() {
    v1::IntfRequest request;
    request.set_interface(interface());
    const auto list = client().call(&Stub::RuleGet, request);
    if (json_) {
        out_ << Json::object()
                    .add("interface", request.interface())
                    .add("rules", jsonOf(list))
                    .text();
    } else {
        out_ << tableOf(list);
    }
}

void Talctl::ruleBundle() {
    const std::vector<control::Rule> said = rules();
    if (const std::string problem = control::problemOfBundle(said); !problem.empty()) {
        throw Failure(exitUsage, problem);
    }
    v1::RuleBundleSetRequest request;
    request.set_interface(interface(true));
    *request.mutable_rules() = control::messageOf(said).rules();
    client().call(&Stub::RuleBundleSet, request);
    done();
}

void Talctl::stats() {
    std::map<unsigned, v1::IntfStatistics> before;
    for (unsigned reading = 1;; ++reading) {
        std::vector<NamedStatistics> statistics;
        const auto list = interfaces();
        for (const v1::Interface& each : list.interfaces()) {
            v1::IntfRequest request;
            request.set_interface(each.id());
            NamedStatistics read{each, client().call(&Stub::IntfStatisticsGet, request), {}, false};
            read.changes = before.count(each.id()) != 0;
            read.before = std::exchange(before[each.id()], read.counters);
            statistics.push_back(std::move(read));
        }
        if (json_ && watch_ != 0) {
            out_ << jsonOf(statistics).line() << std::endl;
        } else {
            out_ << (reading > 1 ? "\n" : "");
            show(statistics);
        }
        if (watch_ == 0 || reading == count_) {
            return;
        }
        std::this_thread::sleep_for(std::chrono::seconds(watch_));
    }
}

void Talctl::logins() {
    v1::ListStoredLoginsRequest request;
    request.set_interface(interface_.empty() ? 0 : interface());
    show(client().call(&Stub::ListStoredLogins, request));
}

void Talctl::servers() {
    show(client().call(&Stub::ListServers));
}

v1::ListStoredLoginsResponse Talctl::fileContents() const {
    std::ifstream file(file_, std::ios::binary);
    const std::string contents{std::istreambuf_iterator<char>(file),
                               std::istreambuf_iterator<char>()};
    if (!file) {
        throw Failure(exitUsage, file_ + " cannot be read");
    }
    const control::StorageContents read = control::readStorage(contents);
    v1::ListStoredLoginsResponse list;
    list.set_valid(read.problem.empty());
    list.set_problem(read.problem);
    for (const control::StoredLogin& login : read.logins) {
        *list.add_logins() = control::messageOf(login);
    }
    return list;
}

void Talctl::storeShow() {
    show(fileContents());
}

void Talctl::storeVerify() {
    const v1::ListStoredLoginsResponse list = fileContents();
    if (!list.valid()) {
        throw Failure(exitRefused, file_ + " is corrupt: " + list.problem());
    }
    if (json_) {
        out_ << Json::object()
                    .add("valid", true)
                    .add("logins", static_cast<uint32_t>(list.logins_size()))
                    .text();
    } else {
        out_ << file_ << ": " << list.logins_size() << " stored logins, no fault\n";
    }
}

void Talctl::events() {
    v1::EventsRequest request;
    request.set_interface(interface_.empty() ? 0 : interface());
    for (const std::string& name : eventKinds_) {
        const auto index = std::find(eventKindNames.begin(), eventKindNames.end(), name);
        request.add_kinds(
            static_cast<v1::EventKind>(index - eventKindNames.begin() + v1::EVENT_KIND_TRAP));
    }
    unsigned seen = 0;
    client().events(request, [&](const v1::Event& event) {
        out_ << (json_ ? jsonOf(event).line() + "\n" : lineOf(event)) << std::flush;
        return ++seen != count_;
    });
}

void Talctl::profilesList() {
    show(client().call(&Stub::ListProfiles));
}

void Talctl::profilesConvert() {
    client().call(&Stub::ConvertAllDynamicProfilesToStatic);
    done();
}

void Talctl::isaClear() {
    client().call(&Stub::ClearIsaConfiguration);
    done();
}

void Talctl::completion() {
    out_ << (shell_ == "zsh" ? zshCompletion(app_) : bashCompletion(app_));
}

void Talctl::manPage() {
    out_ << node::ctl::manPage(app_);
}

}  // namespace

int run(const std::vector<std::string>& arguments, std::ostream& out, std::ostream& err) {
    return Talctl(out, err).run(arguments);
}

}  // namespace node::ctl
