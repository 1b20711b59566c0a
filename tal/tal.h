// The TAL module: turns trapped subscriber traffic into logins and keeps the accepted ones.
// State is guarded by the entity manager's lock, which setters hold exclusively and getters
// shared; the interface table has a lock of its own inside it, never held across a call out.
#pragma once

#include "platform/blentity.h"
#include "platform/interfaces.h"
#include "platform/singleton.h"
#include "talfea/talfea.h"

#include <stddef.h>
#include <stdint.h>

#include <atomic>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

// One login as exchanged with ISA, kept per interface and stored in the storage file.
// Integers in the processor's byte order; texts end with a NUL and hold at most 63 characters.
struct rpcTalLoginBlockBll {
    uint32_t interface;          // interface id
    unsigned char LoginAAAtype;  // 1 or 2: which AAA service
    char circuitId[64];
    char remoteId[64];
    char vendorId[64];
    char clientId[64];
    unsigned char sourceMac[6];
    uint32_t sourceIP;                 // first octet in the top 8 bits
    uint32_t userPatternSequence[32];  // 128 bytes of the trapped frame
    uint32_t userPatternMask[32];
    uint32_t extraInt;
    char extraString[64];
    unsigned char loginIdType;  // which identifiers are present, talLoginId bits
    uint32_t vlanId;
};

static_assert(sizeof(rpcTalLoginBlockBll) == 604);
static_assert(offsetof(rpcTalLoginBlockBll, circuitId) == 5);
static_assert(offsetof(rpcTalLoginBlockBll, sourceMac) == 261);
static_assert(offsetof(rpcTalLoginBlockBll, sourceIP) == 268);
static_assert(offsetof(rpcTalLoginBlockBll, loginIdType) == 596);
static_assert(offsetof(rpcTalLoginBlockBll, vlanId) == 600);

// Bits of rpcTalLoginBlockBll::loginIdType.
enum talLoginId : unsigned char {
    talLoginIdCircuitId = 0x01,
    talLoginIdRemoteId = 0x02,
    talLoginIdVendorId = 0x04,
    talLoginIdClientId = 0x08,
    talLoginIdSourceMac = 0x10,
    talLoginIdSourceIp = 0x20,
    talLoginIdUserPattern = 0x40,
    talLoginIdVlan = 0x80,
};

// Values outside the enumerators arrive by design in all of these.
enum talRuleType : int32_t {
    talRuleTypeUnset = -1,
    talRuleTypeAny = 0,
    talRuleTypeEthType = 1,
    talRuleTypeFlag = 2,
    talRuleTypePattern1 = 3,
    talRuleTypePattern2 = 4,
    talRuleTypePattern3 = 5,
    talRuleTypeMac = 6,
    talRuleTypeIp = 7,
    talRuleTypeValue8 = 8,
    talRuleTypeUserPattern = 9,
};
enum rpc_tal_rule_type : int32_t {};  // the same numbers on the management side
enum talPatternFormat : uint32_t {
    talPatternFormatRaw = 0,   // `length` bytes
    talPatternFormatText = 1,  // up to the first NUL
    talPatternFormatMac = 2,   // 6 bytes
    talPatternFormatUnset = 0xFFFFFFFF,
};
enum talOperation : uint32_t {
    talOperationAdd = 0,  // add or modify; any other value deletes
    talOperationDelete = 0xFFFFFFFF,
};
enum talResultCode : uint32_t {
    talResOk = 0,
    talResError = 1,
    talResRuleInvalid = 2,  // not compatible with the interface's other rules
    talResIntfInvalid = 3,
    talResCode4 = 4,  // peer not notified
};
enum rpc_tal_res : uint32_t {};  // the same numbers on the management side
enum talRequestType : uint32_t {
    talRequestTypeAuthentication = 0,
    talRequestTypeAuthorization = 1,
};
enum talReplyResultCode : uint32_t {
    talReplyAccepted = 0,
    talReplyRejected = 1,
    talReplyRequestStateOn = 2,
};
enum talIntfFwdState : uint32_t {};        // 0 to 2, the engine's
enum talIntfAuthenFwdState : uint32_t {};  // 0 to 4, the engine's
enum talIntfAuthorFwdState : uint32_t {};  // 0 to 4, the engine's

constexpr uint32_t talUnset = 0xFFFFFFFF;  // an unset 32-bit slot of a rule

struct talRulePattern {
    talPatternFormat format;
    char data[256];
    uint32_t length;  // used with the raw format only
};

// A slot per rule type; a record holds at most one rule of each type.
struct talRule {
    uint32_t type0Value;       // type 0; talUnset when unset
    unsigned char macAddr[6];  // type 6; set when both halves are non-zero
    unsigned char macMask[6];
    uint32_t ipValue;  // type 7; set when both words are non-zero
    uint32_t ipMask;
    uint32_t ethType;                  // type 1; talUnset when unset
    uint32_t type8Value;               // type 8; talUnset when unset
    uint32_t type2Flag;                // type 2; talUnset when unset
    talRulePattern pattern[3];         // types 3, 4, 5; unset by their format
    uint32_t userPatternSequence[32];  // type 9; set when both halves are non-zero
    uint32_t userPatternMask[32];
    talRuleType type;  // which slot an operation addresses
};

static_assert(sizeof(talRulePattern) == 264);
static_assert(sizeof(talRule) == 1088);

class tal : public BLEntity, public singleton<tal> {
public:
    // One TAL-capable interface. A lookup of a missing key makes an all-zero entry.
    struct talIntf {
        uint32_t interface;
        bool adminState;
        bool authenAdminState;
        bool authorAdminState;
        bool autoReqAdminState;
        uint32_t timeout;
        uint32_t maxQueueSize;
        talRule rule;
        bool dslIntfDisabled;            // swallows the next state event
        rpcTalLoginBlockBll loginBlock;  // the login in flight
        bool loginPending;
        bool firstStateEventPending;  // swallows the first state event
        bool storedRequestPending;    // the engine was asked to resend the stored request
    };

    tal();

    // lifecycle: called by the manager. True = success.
    void applyConfiguration(boost::shared_ptr<Storage::Setting> setting) override;
    void saveConfiguration(boost::shared_ptr<Storage::Setting> setting) const override;
    bool start() override;
    bool applyDefaultSettings() override;
    bool stop() override;
    void getDependencies(std::list<std::string>& dependencies) override;
    ~tal() override;
    virtual void configurationApplyStart();
    virtual void configurationApplyStop();

    // Unless said otherwise, unsigned results are 0 for success and 1 for failure, a
    // talResultCode is 0, 1 or 3 (interface not valid), setters take the manager's lock
    // exclusively, getters and checks shared, and interface 0 means every interface.

    // lifecycle: global states
    unsigned talAdminStateSet(bool state);  // 4: ISA was not notified, state not stored
    unsigned talAdminStateGet(bool* state);
    unsigned talAdminStateDefaultSet();
    unsigned talAdminStateDefaultGet(bool* state);
    unsigned talRequestStateSet(bool state);
    unsigned talRequestStateDefaultSet();
    unsigned talGlobalDefaultSet();

    // interface_table
    unsigned talIntfInit(unsigned ifId);  // no lock; runs in start()
    unsigned talIntfDefaultSet(unsigned ifId);
    void talKernelNameSet(std::string& name, unsigned ifId);  // the engine's name: id - 1
    bool talIsValidIntf(unsigned ifId);                       // 0 is valid
    bool talIsAccessIntf(unsigned ifId);                      // asks the registry, not the table
    bool talIsDslInterface(unsigned ifId);
    unsigned talDslIntfDisabled(unsigned ifId);  // 0 or 3; swallows the next state event
    void talInterfaceStateChange(int ifId, Interfaces::interfaceEvent_t event);

    // login_event: called on the bridge's thread; holds no lock while it calls ISA
    void talEvent(const char* event);

    // login_identifiers
    unsigned talGenCircuitId(unsigned ifId, std::string& circuitId) const;
    std::string talMacToStr(unsigned char* mac);  // 6 bytes
    unsigned talAsciiToHex(std::string& in, std::string& out);

    // login_reply: talReply takes no lock of its own
    talResultCode talReply(unsigned interface, talRequestType type, talReplyResultCode code);
    talResultCode talIntfAuthenOperStateSet(unsigned interface, bool state);
    talResultCode talIntfAuthorOperStateSet(unsigned interface, bool state);

    // storage_file: both hold the manager's lock exclusively
    unsigned talReadStorageFile(const std::string& path, std::vector<std::string>& lines);
    unsigned talWriteStorageFile(const std::string& path, std::vector<std::string>& lines);
    bool talStorageFileValidityCheck(const std::vector<std::string>& lines);
    bool talFindStoredInterfaceEntry(const std::vector<std::string>& lines, unsigned interfaceId,
                                     unsigned* index);

    // stored_login: the lock is held across each read-change-write
    unsigned talStoreLoginData(unsigned ifId, rpcTalLoginBlockBll& block);
    unsigned talStoreLoginDataGet(unsigned ifId, rpcTalLoginBlockBll& block);  // overlays block
    unsigned talDeleteStoredLoginData(unsigned ifId);
    unsigned talDeleteStoredLoginDataAll();
    bool talIsLoginDataStored(unsigned ifId);
    unsigned talApplyStoredData();

    // rule_model: no lock but in the last three
    void setTalRuleDefault(talRule* rule);
    bool talRuleTypeSet(rpc_tal_rule_type in, talRuleType* out);     // false: not 0 to 9
    bool rpcTalRuleTypeSet(talRuleType in, rpc_tal_rule_type* out);  // false: not 0 to 9
    bool talResTypeSet(talResultCode in, rpc_tal_res* out);          // always true
    bool talIsMacNull(const unsigned char* mac);                     // 6 bytes
    bool talIsUserMaskNull(const uint32_t* words);                   // 32 words
    bool talArpEthTypeCompatCheck(unsigned intf, talRule* rule);     // true = compatible
    talResultCode talRuleIsValid(unsigned intf, talRule* rule);      // 0, 2 or 3
    talResultCode talRuleBundleIsValid(talRule* bundle);             // 0, 1 or 2

    // rule_translation: 0 translated, 1 not; no lock
    uint32_t talFeaRuleSet(talRule* rule, TalFea::feaTalRule* fea);

    // rule_table: results 0, 1, 2 or 3
    talResultCode talRuleGet(unsigned intf, talRule* out);  // leaves out->type alone
    bool talRuleExists(unsigned intf, talRule* rule);       // reads rule->type only
    bool talRuleExistsByType(unsigned intf, talRuleType type);
    bool talIsRuleModified(unsigned intf, talRule* rule);  // no lock
    talResultCode talRuleEntrySet(unsigned intf, talRule* rule, talOperation op);
    talResultCode talRuleIntfSet(unsigned intf, talRule* rule, talOperation op);
    talResultCode talRuleIntfAllSet(unsigned intf, talRule* rule, talOperation op);
    talResultCode talRuleSet(unsigned intf, talRule* rule, talOperation op);
    talResultCode talRuleBundleSet(unsigned intf, talRule* bundle);  // changes the bundle's data
    bool talRuleEmpty(unsigned intf);

    // interface_settings: timeout 1 to 300 in the engine's unit, queue size 1 to 100 frames;
    // the default getters take no lock
    talResultCode talIntfAdminStateSet(unsigned intf, bool state);
    talResultCode talIntfAdminStateGet(unsigned intf, bool* state);
    unsigned talIntfAdminStateDefaultSet(unsigned intf);
    talResultCode talIntfAdminStateDefaultGet(unsigned intf, bool* state);
    talResultCode talIntfAuthenAdminStateSet(unsigned intf, bool state);
    talResultCode talIntfAuthenAdminStateGet(unsigned intf, bool* state);
    unsigned talIntfAuthenAdminStateDefaultSet(unsigned intf);
    talResultCode talIntfAuthenAdminStateDefaultGet(unsigned intf, bool* state);
    talResultCode talIntfAuthorAdminStateSet(unsigned intf, bool state);
    talResultCode talIntfAuthorAdminStateGet(unsigned intf, bool* state);
    unsigned talIntfAuthorAdminStateDefaultSet(unsigned intf);
    talResultCode talIntfAuthorAdminStateDefaultGet(unsigned intf, bool* state);
    talResultCode talIntfAutoReqAdminStateSet(unsigned intf, bool state);
    talResultCode talIntfAutoReqAdminStateGet(unsigned intf, bool* state);
    unsigned talIntfAutoReqAdminStateDefaultSet(unsigned intf);
    talResultCode talIntfAutoReqAdminStateDefaultGet(unsigned intf, bool* state);
    talResultCode talIntfTimeoutSet(unsigned intf, uint32_t timeout);
    talResultCode talIntfTimeoutGet(unsigned intf, uint32_t* timeout);
    unsigned talIntfTimeoutDefaultSet(unsigned intf);
    talResultCode talIntfTimeoutDefaultGet(unsigned intf, uint32_t* timeout);
    talResultCode talIntfMaxQueueSizeSet(unsigned intf, uint32_t size);
    talResultCode talIntfMaxQueueSizeGet(unsigned intf, uint32_t* size);
    unsigned talIntfMaxQueueSizeDefaultSet(unsigned intf);
    talResultCode talIntfMaxQueueSizeDefaultGet(unsigned intf, uint32_t* size);

    // interface_status: read from the engine at each call
    talResultCode talIntfAuthenOperStateGet(unsigned intf, bool* state);
    talResultCode talIntfAuthorOperStateGet(unsigned intf, bool* state);
    talResultCode talIntfStatisticsGet(unsigned intf, uint32_t* c1, uint32_t* c2, uint32_t* c3,
                                       uint32_t* c4, uint32_t* c5, uint32_t* c6, uint32_t* c7,
                                       uint32_t* c8, uint32_t* c9, uint32_t* c10, uint32_t* c11,
                                       uint32_t* c12, uint32_t* c13);
    talResultCode talIntfStatesGet(unsigned intf, talIntfFwdState* forwarding,
                                   talIntfAuthenFwdState* authentication,
                                   talIntfAuthorFwdState* authorization);

    // dynamic_profiles: no lock; true = every profile was handled
    bool talConvertAllDynamicProfilesToStatic();
    bool convertAllServiceProfiles();
    bool convertAllVlanProfiles();
    bool convertAllFlowProfiles();
    bool convertAllMulticastProfiles();
    bool convertAllSecurityProfiles();
    bool convertAllL2CPProfiles();
    bool convertAllMacAclProfiles();
    bool convertAllDslProfiles();
    bool convertAllAlarmProfiles();
    unsigned talDynamicProfilesDelete(unsigned intf);  // always 0
    bool clearIsaConfiguration();                      // false: the defaults were refused

private:
    // Runs `use` on the entry of intf, made all-zero when missing, under the table's lock.
    // `use` must not call out of the module.
    template <class Use>
    auto withIntf(unsigned intf, Use use) {
        const std::lock_guard<std::mutex> lock(intfTableMutex_);
        return use(intfTable_[intf]);
    }
    // A step of a walk in ascending order: from none to the first entry, then to the next;
    // false at the end. Entries made during the walk are met when they lie ahead.
    bool nextIntf(std::optional<unsigned>& intf);

    // The interface check itself, without the manager's lock.
    bool intfKnown(unsigned ifId);
    void interfaceStateChange(unsigned intf, int event);
    void eventHandle(std::string_view line);
    bool takeStoredRequest(unsigned intf);
    talRule storedRule(unsigned intf);
    void storePendingLogin(unsigned intf);
    unsigned storeOrPutBack(unsigned intf, rpcTalLoginBlockBll& block);
    talResultCode operStateSet(unsigned intf, bool state, const char* operation,
                               unsigned (TalFea::*engineSet)(unsigned, unsigned),
                               const char* engineRefused);

    // interface_status: the frame that the four reads share
    template <class AskEngine>
    talResultCode statusGet(unsigned intf, bool outputsGiven, const char* operation,
                            const char* engineRefused, AskEngine askEngine);
    talResultCode operStateGet(unsigned intf, bool* state, const char* operation,
                               unsigned (TalFea::*engineGet)(unsigned, unsigned*),
                               const char* engineRefused);

    // interface_settings: the frame that the six settings share
    template <class Value>
    struct IntfSetting;
    struct IntfSettings;
    template <class Value>
    talResultCode settingSet(const IntfSetting<Value>& setting, unsigned intf, Value value);
    template <class Value>
    bool settingPush(const IntfSetting<Value>& setting, unsigned intf, Value value,
                     const char* engineRefused);
    template <class Value>
    talResultCode settingGet(const IntfSetting<Value>& setting, unsigned intf, Value* value);
    template <class Value>
    unsigned settingDefaultSet(const IntfSetting<Value>& setting, unsigned intf);
    template <class Value>
    talResultCode settingDefaultGet(const IntfSetting<Value>& setting, unsigned intf, Value* value);
    void purgeAfterAdminState(unsigned intf, bool state);
    void purgeAfterAuthenAdminState(unsigned intf, bool state);
    void purgeAfterAuthorAdminState(unsigned intf, bool state);
    void purgeAfterAutoReqAdminState(unsigned intf, bool state);

    static constexpr unsigned accessIntfType = 1;  // the registry's type that carries subscribers

    std::atomic<bool> adminState_{false};
    std::atomic<bool> requestState_{false};
    TalFea fea_;
    std::map<unsigned, talIntf> intfTable_;
    std::mutex intfTableMutex_;
};

template <>
tal& singleton<tal>::instance();
