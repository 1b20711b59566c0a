#include "tests/fake/fake_services.h"

#include <algorithm>
#include <cstring>
#include <stdexcept>

namespace fake {

// ---- entity manager

namespace {

std::vector<BLEntity*>& registered() {
    static std::vector<BLEntity*> entities;
    return entities;
}

}  // namespace

const std::vector<BLEntity*>& Manager::entities() {
    return registered();
}
void Manager::registerEntity(BLEntity& entity) {
    registered().push_back(&entity);
}
void Manager::forgetEntities() {
    registered().clear();
}

void Manager::applyStart() {
    for (const auto& callback :
         singleton<BLLManager>::instance().configurationApplyStartCallbacks) {
        callback();
    }
}

void Manager::applyStop(int argument) {
    for (const auto& callback : singleton<BLLManager>::instance().configurationApplyStopCallbacks) {
        callback(argument);
    }
}

bool Manager::lockExclusive() {
    if (onLockExclusive) {
        onLockExclusive();
    }
    bool obtained = desk_.ask({Service::lock, "exclusiveLock", "", ""}) == 0;
    if (obtained && mode_ == LockMode::real) {
        obtained = lock_.lockExclusive();
        if (!obtained) {
            desk_.output("refused");
        }
    }
    if (obtained) {
        ++desk_.log.depth().exclusive;
    }
    return obtained;
}

bool Manager::lockShared() {
    const bool obtained = desk_.ask({Service::lock, "sharedLock", "", ""}) == 0;
    if (obtained && mode_ == LockMode::real) {
        lock_.lockShared();
    }
    if (obtained) {
        ++desk_.log.depth().shared;
    }
    return obtained;
}

void Manager::unlockExclusive() {
    --desk_.log.depth().exclusive;
    desk_.ask({Service::lock, "exclusiveUnlock", "", "", Refusal::never});
    if (mode_ == LockMode::real) {
        lock_.unlock();
    }
}

void Manager::unlockShared() {
    --desk_.log.depth().shared;
    desk_.ask({Service::lock, "sharedUnlock", "", "", Refusal::never});
    if (mode_ == LockMode::real) {
        lock_.unlock();
    }
}

// ---- interface registry

void InterfaceList::add(unsigned id, unsigned type, const std::string& name,
                        const std::string& linuxName) {
    list_.push_back({id, type, name, linuxName});
}

void InterfaceList::fireEvent(int id, int event) {
    for (const auto& callback : singleton<Interfaces>::instance().interfaceEventCallbacks) {
        callback(id, static_cast<Interfaces::interfaceEvent_t>(event));
    }
}

const InterfaceList::Interface* InterfaceList::find(unsigned id) const {
    const auto found = std::find_if(list_.begin(), list_.end(),
                                    [id](const Interface& entry) { return entry.id == id; });
    return found == list_.end() ? nullptr : &*found;
}

unsigned InterfaceList::listGet(std::vector<Interfaces::Interface>& list) {
    const int result = desk_.ask({Service::interfaces, "interfaceListGet", "", ""});
    if (result == 0) {
        std::string ids;
        list.clear();
        for (const Interface& entry : list_) {
            list.push_back({entry.id});
            ids += (ids.empty() ? "" : ", ") + shown(entry.id);
        }
        desk_.output(ids.empty() ? "none" : ids);
    }
    return static_cast<unsigned>(result);
}

unsigned InterfaceList::typeById(unsigned id, unsigned* type) {
    const Interface* entry = find(id);
    const int result = desk_.ask({Service::interfaces, "interfaceGetTypeById", shown(id), shown(id),
                                  Refusal::one, entry == nullptr ? 1 : 0});
    if (result == 0) {
        *type = entry == nullptr ? 0 : entry->type;
        desk_.output(shown(*type));
    }
    return static_cast<unsigned>(result);
}

unsigned InterfaceList::nameById(unsigned id, std::string& name) {
    const Interface* entry = find(id);
    const int result = desk_.ask({Service::interfaces, "interfaceGetNameById", shown(id), shown(id),
                                  Refusal::one, entry == nullptr ? 1 : 0});
    if (result == 0) {
        name = entry == nullptr ? "" : entry->name;
        desk_.output(shown(name));
    }
    return static_cast<unsigned>(result);
}

unsigned InterfaceList::linuxNameById(unsigned id, std::string* name) {
    const Interface* entry = find(id);
    const int result = desk_.ask({Service::interfaces, "interfaceGetLinuxnameById", shown(id),
                                  shown(id), Refusal::one, entry == nullptr ? 1 : 0});
    if (result == 0) {
        *name = entry == nullptr ? "" : entry->linuxName;
        desk_.output(shown(*name));
    }
    return static_cast<unsigned>(result);
}

unsigned InterfaceList::idByLinuxName(const std::string& name, unsigned* id) {
    const auto entry =
        std::find_if(list_.begin(), list_.end(),
                     [&name](const Interface& candidate) { return candidate.linuxName == name; });
    const int result = desk_.ask({Service::interfaces, "interfaceGetIdByLinuxname", name,
                                  shown(name), Refusal::one, entry == list_.end() ? 1 : 0});
    if (result == 0) {
        *id = entry == list_.end() ? 0 : entry->id;
        desk_.output(shown(*id));
    }
    return static_cast<unsigned>(result);
}

// ---- forwarding engine

void Engine::outputs(const std::string& name, std::vector<unsigned> values, unsigned intf) {
    outputs_[name + " " + std::to_string(intf)] = std::move(values);
}

void Engine::raise(const char* line) {
    for (const auto& callback : singleton<itbridge>::instance().talEventCallbacks) {
        callback(line);
    }
}

namespace {

template <class Record>
std::vector<Record> recordsOf(const CallLog& log, const std::string& name) {
    std::vector<Record> records;
    for (const Call& call : log.all()) {
        if (call.name == name && call.record.size() == sizeof(Record)) {
            Record record;
            std::memcpy(&record, call.record.data(), sizeof(record));
            records.push_back(record);
        }
    }
    return records;
}

}  // namespace

std::vector<ittalCondition> Engine::conditions() const {
    return recordsOf<ittalCondition>(desk_.log, "ittalConditionAdd");
}

std::vector<ittalAction> Engine::actions() const {
    return recordsOf<ittalAction>(desk_.log, "ittalActionAdd");
}

int Engine::call(const char* name, const char* bridge, const std::string& args) {
    return desk_.ask({Service::engine, name, "", args, Refusal::negative, 0, bridge});
}

int Engine::call(const char* name, const char* bridge, unsigned intf, const std::string& args) {
    return desk_.ask({Service::engine, name, shown(intf), args, Refusal::negative, 0, bridge});
}

int Engine::conditionAdd(const char* bridge, const ittalCondition* condition) {
    const std::string selector(condition->selector,
                               strnlen(condition->selector, sizeof(condition->selector)));
    return desk_.ask({Service::engine, "ittalConditionAdd", selector,
                      shownList(selector, condition->type, condition->code), Refusal::negative, 0,
                      bridge, condition, sizeof(*condition)});
}

int Engine::actionAdd(const char* bridge, const ittalAction* action) {
    const std::string list(action->list, strnlen(action->list, sizeof(action->list)));
    return desk_.ask({Service::engine, "ittalActionAdd", list,
                      shownList(list, action->type, action->code), Refusal::negative, 0, bridge,
                      action, sizeof(*action)});
}

unsigned Engine::value(const std::string& name, const std::string& key, size_t index) const {
    auto found = outputs_.find(name + " " + key);
    if (found == outputs_.end()) {
        found = outputs_.find(name + " 0");
    }
    return found == outputs_.end() || index >= found->second.size() ? 0 : found->second[index];
}

// ---- ISA

std::vector<rpcTalLoginBlockBll> Isa::requests() const {
    return recordsOf<rpcTalLoginBlockBll>(desk_.log, "isaradiusbllLoginRequest");
}

unsigned Isa::loginRequest(rpcTalLoginBlockBll* block, rpcIsaBllLoginRes* result) {
    const int answer =
        desk_.ask({Service::isa, "isaradiusbllLoginRequest", shown(block->interface),
                   shown(block->interface), Refusal::one, 0, nullptr, block, sizeof(*block)});
    if (onRequest) {
        onRequest(*block);
    }
    if (result != nullptr) {
        result->result = static_cast<unsigned>(answer);
    }
    return static_cast<unsigned>(answer);
}

// ---- logs

void Logs::setLevel(unsigned level) {
    desk_.ask({Service::log, "setMsgLevel", std::to_string(level), shown(level), Refusal::never});
}

void Logs::write(const std::string& text) {
    desk_.ask({Service::log, "write", text, shown(text), Refusal::never});
}

void Logs::syslog(int priority, const std::string& text) {
    const std::string name = priority == 4   ? "warning"
                             : priority == 3 ? "err"
                                             : "syslog " + std::to_string(priority);
    Call call;
    call.service = Service::syslog;
    call.name = "syslog";
    call.key = text;
    call.text = name + ": " + text;
    call.result = 0;
    desk_.log.add(std::move(call));
}

std::vector<std::string> Logs::texts() const {
    std::vector<std::string> texts;
    std::string level = "?";
    std::string open;  // a message whose newline has not come yet
    for (const Call& call : desk_.log.all()) {
        if (call.service == Service::syslog) {
            texts.push_back(call.text);
        } else if (call.name == "setMsgLevel" && call.service == Service::log) {
            level = call.key;
        } else if (call.service == Service::log) {
            open += call.key;
            if (!open.empty() && open.back() == '\n') {
                open.pop_back();
                texts.push_back("log " + level + ": " + open);
                open.clear();
            }
        }
    }
    if (!open.empty()) {
        texts.push_back("log " + level + ": " + open + " (newline missing)");
    }
    return texts;
}

}  // namespace fake
