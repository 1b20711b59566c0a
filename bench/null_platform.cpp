// Succeeding costs the same as refusing, so every service says yes and leaves its outputs at what
// a quiet node would answer: no profiles, no access lists, a board without DSL lines. The two
// things the benchmarks look at are real: the interface table, where the kernel name of an event
// line is found by its two digits, and the count of login requests.
#include "bench/null_platform.h"

#include "platform/aclcontainer.h"
#include "platform/bllmanager.h"
#include "platform/interfaces.h"
#include "platform/isaradiusbll.h"
#include "platform/itbridge.h"
#include "platform/log.h"
#include "platform/ports.h"
#include "platform/sysinfo.h"

namespace {

constexpr unsigned typeAccess = 1;
constexpr unsigned boardWithoutDsl = 2;
constexpr char kernelNameStart[] = "ln";

uint64_t requests = 0;

unsigned digitOf(char c) {
    return static_cast<unsigned char>(c) - unsigned{'0'};
}

bool exists(unsigned id) {
    return id >= 1 && id <= bench::interfaceCount;
}

}  // namespace

std::string bench::kernelName(unsigned id) {
    std::string name = kernelNameStart;
    name += static_cast<char>('0' + id / 10 % 10);
    name += static_cast<char>('0' + id % 10);
    return name;
}

uint64_t bench::loginRequests() {
    return requests;
}

// The manager.

template <>
BLLManager& singleton<BLLManager>::instance() {
    static BLLManager manager;
    return manager;
}

BLLManager::exclusiveLock_t::exclusiveLock_t() : locked_(true) {}
BLLManager::exclusiveLock_t::~exclusiveLock_t() = default;
BLLManager::sharedLock_t::sharedLock_t() : locked_(true) {}
BLLManager::sharedLock_t::~sharedLock_t() = default;

void BLLManager::registerEntity(BLEntity&) {}

// The interface registry.

template <>
Interfaces& singleton<Interfaces>::instance() {
    static Interfaces interfaces;
    return interfaces;
}

Interfaces::Interfaces() : BLEntity("interfaces") {}

unsigned Interfaces::interfaceListGet(std::vector<Interface>& list) const {
    for (unsigned id = 1; id <= bench::interfaceCount; ++id)
        list.push_back({id});
    return 0;
}

unsigned Interfaces::interfaceGetTypeById(unsigned id, unsigned* type) const {
    if (!exists(id))
        return 1;
    *type = typeAccess;
    return 0;
}

unsigned Interfaces::interfaceGetNameById(unsigned id, std::string& name) const {
    if (!exists(id))
        return 1;
    name = "1/";
    name += std::to_string(id);
    return 0;
}

unsigned Interfaces::interfaceGetLinuxnameById(unsigned id, std::string* name) const {
    if (!exists(id))
        return 1;
    *name = bench::kernelName(id);
    return 0;
}

unsigned Interfaces::interfaceGetIdByLinuxname(const std::string& name, unsigned* id) const {
    if (name.size() != 4 || !name.starts_with(kernelNameStart) || digitOf(name[2]) > 9 ||
        digitOf(name[3]) > 9)
        return 1;
    const unsigned found = digitOf(name[2]) * 10 + digitOf(name[3]);
    if (!exists(found))
        return 1;
    *id = found;
    return 0;
}

void Interfaces::applyConfiguration(boost::shared_ptr<Storage::Setting>) {}
void Interfaces::saveConfiguration(boost::shared_ptr<Storage::Setting>) const {}
bool Interfaces::start() {
    return true;
}
bool Interfaces::applyDefaultSettings() {
    return true;
}
bool Interfaces::stop() {
    return true;
}
void Interfaces::getDependencies(std::list<std::string>& dependencies) {
    dependencies.clear();
}

// The bridge and its access lists.

template <>
itbridge& singleton<itbridge>::instance() {
    static itbridge bridge;
    return bridge;
}

itbridge::itbridge() : BLEntity("itbridge") {}

ACLContainer_t& itbridge::getACLContainer() {
    return aclContainer_;
}

void itbridge::applyConfiguration(boost::shared_ptr<Storage::Setting>) {}
void itbridge::saveConfiguration(boost::shared_ptr<Storage::Setting>) const {}
bool itbridge::start() {
    return true;
}
bool itbridge::applyDefaultSettings() {
    return true;
}
bool itbridge::stop() {
    return true;
}
void itbridge::getDependencies(std::list<std::string>& dependencies) {
    dependencies.clear();
}

int ACLContainer_t::getACLsInfo(std::list<aclInfo_t>& acls) {
    acls.clear();
    return 0;
}

int ACLContainer_t::aclCheckDynamic(const std::string&) {
    return 1;  // static
}

int ACLContainer_t::setAclProtected(const std::string&, unsigned) {
    return 0;
}

int ACLContainer_t::accessListDynamicDeleteAll() {
    return 0;
}

// ISA.

template <>
isaradiusbll& singleton<isaradiusbll>::instance() {
    static isaradiusbll isa;
    return isa;
}

unsigned isaradiusbll::isaradiusbllLoginRequest(rpcTalLoginBlockBll*, rpcIsaBllLoginRes* result) {
    ++requests;
    result->result = 0;
    return 0;
}

unsigned isaradiusbll::isaradiusbllTalMode(int) {
    return 0;
}

unsigned isaradiusbll::isaradiusbllClearConfig() {
    return 0;
}

// The log, the board and the node.

template <>
Log& singleton<Log>::instance() {
    static Log log;
    return log;
}

void Log::setMsgLevel(unsigned) {}
void Log::write(const std::string&) {}

template <>
Ports& singleton<Ports>::instance() {
    static Ports ports;
    return ports;
}

unsigned Ports::getBoardType() const {
    return boardWithoutDsl;
}

boost::shared_ptr<Vdsl> Ports::getVdslImpl() const {
    return {};
}

unsigned Ports::vdslPortDynamicProfilesDelete(unsigned) {
    return 0;
}

sysInfo::sysInfo() = default;
sysInfo::~sysInfo() = default;

unsigned sysInfo::getShelfId(std::string& shelfId) const {
    shelfId = "shelf-1";
    return 0;
}

extern "C" int ncfmGetMyBoardPos(unsigned char* position) {
    *position = 1;
    return 0;
}
