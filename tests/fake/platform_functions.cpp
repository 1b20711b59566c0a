// The platform's own classes and the system log, forwarded to the current FakePlatform.
#include "platform/log.h"
#include "platform/sysinfo.h"
#include "tests/fake/fake_platform.h"

#include <cstdarg>
#include <cstdio>

namespace {

template <class T>
T& only() {
    static T object;
    return object;
}

std::string formatted(const char* format, va_list values) {
    char text[1024];
    vsnprintf(text, sizeof(text), format, values);
    return text;
}

}  // namespace

template <>
BLLManager& singleton<BLLManager>::instance() {
    return only<BLLManager>();
}
template <>
Interfaces& singleton<Interfaces>::instance() {
    return only<Interfaces>();
}
template <>
itbridge& singleton<itbridge>::instance() {
    return only<itbridge>();
}
template <>
isaradiusbll& singleton<isaradiusbll>::instance() {
    return only<isaradiusbll>();
}
template <>
Ports& singleton<Ports>::instance() {
    return only<Ports>();
}
template <>
Log& singleton<Log>::instance() {
    return only<Log>();
}

// ---- entity manager

void BLLManager::registerEntity(BLEntity& entity) {
    fake::Manager::registerEntity(entity);
}

BLLManager::exclusiveLock_t::exclusiveLock_t()
    : locked_(FakePlatform::current().manager.lockExclusive()) {}
BLLManager::exclusiveLock_t::~exclusiveLock_t() {
    if (locked_) {
        FakePlatform::current().manager.unlockExclusive();
    }
}
BLLManager::sharedLock_t::sharedLock_t() : locked_(FakePlatform::current().manager.lockShared()) {}
BLLManager::sharedLock_t::~sharedLock_t() {
    if (locked_) {
        FakePlatform::current().manager.unlockShared();
    }
}

// ---- interface registry. Its entity name is unlike any other, so that nobody can guess it.

Interfaces::Interfaces() : BLEntity("registry of the fake") {}
unsigned Interfaces::interfaceListGet(std::vector<Interface>& list) const {
    return FakePlatform::current().interfaces.listGet(list);
}
unsigned Interfaces::interfaceGetTypeById(unsigned id, unsigned* type) const {
    return FakePlatform::current().interfaces.typeById(id, type);
}
unsigned Interfaces::interfaceGetNameById(unsigned id, std::string& name) const {
    return FakePlatform::current().interfaces.nameById(id, name);
}
unsigned Interfaces::interfaceGetLinuxnameById(unsigned id, std::string* name) const {
    return FakePlatform::current().interfaces.linuxNameById(id, name);
}
unsigned Interfaces::interfaceGetIdByLinuxname(const std::string& name, unsigned* id) const {
    return FakePlatform::current().interfaces.idByLinuxName(name, id);
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

// ---- bridge

itbridge::itbridge() : BLEntity("bridge of the fake") {}
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
    return FakePlatform::current().profiles.aclList(acls);
}
int ACLContainer_t::aclCheckDynamic(const std::string& name) {
    return FakePlatform::current().profiles.aclCheckDynamic(name);
}
int ACLContainer_t::setAclProtected(const std::string& name, unsigned level) {
    return FakePlatform::current().profiles.aclProtect(name, level);
}
int ACLContainer_t::accessListDynamicDeleteAll() {
    return FakePlatform::current().profiles.aclDeleteAll();
}

// ---- ISA

unsigned isaradiusbll::isaradiusbllLoginRequest(rpcTalLoginBlockBll* block,
                                                rpcIsaBllLoginRes* result) {
    return FakePlatform::current().isa.loginRequest(block, result);
}
unsigned isaradiusbll::isaradiusbllTalMode(int mode) {
    return FakePlatform::current().plain(fake::Service::isa, __func__, fake::shown(mode));
}
unsigned isaradiusbll::isaradiusbllClearConfig() {
    return FakePlatform::current().plain(fake::Service::isa, __func__, "");
}

// ---- board and node

unsigned Ports::getBoardType() const {
    return FakePlatform::current().boardType();
}
boost::shared_ptr<Vdsl> Ports::getVdslImpl() const {
    return FakePlatform::current().board.getVdslImpl();
}
unsigned Ports::vdslPortDynamicProfilesDelete(unsigned ifId) {
    return FakePlatform::current().plain(fake::Service::ports, __func__, fake::shown(ifId));
}

sysInfo::sysInfo() {
    ++FakePlatform::current().board.sysInfosMade;
}
sysInfo::~sysInfo() = default;
unsigned sysInfo::getShelfId(std::string& shelfId) const {
    return FakePlatform::current().board.shelf(shelfId);
}
extern "C" int ncfmGetMyBoardPos(unsigned char* position) {
    return FakePlatform::current().board.boardPosition(position);
}

// ---- logs. <syslog.h> stays out: with hardened headers it defines syslog() inline.

void Log::setMsgLevel(unsigned level) {
    FakePlatform::current().logs.setLevel(level);
}
void Log::write(const std::string& text) {
    FakePlatform::current().logs.write(text);
}

extern "C" {

__attribute__((format(printf, 2, 3))) void syslog(int priority, const char* format, ...) {
    va_list values;
    va_start(values, format);
    FakePlatform::current().logs.syslog(priority, formatted(format, values));
    va_end(values);
}

__attribute__((format(printf, 3, 4))) void __syslog_chk(int priority, int, const char* format,
                                                        ...) {
    va_list values;
    va_start(values, format);
    FakePlatform::current().logs.syslog(priority, formatted(format, values));
    va_end(values);
}
}
