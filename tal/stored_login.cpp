// Keeping, fetching and deleting the login data of single interfaces, and their replay.
//
// Each read-change-write holds the manager's exclusive lock from its read to its write, so two
// logins stored at once both survive. The read and the write take it again inside; when the outer
// lock is refused the operation ends exactly as its read would. A new login replaces the old one
// of its interface in one write, so no crash can leave the interface without either.
//
// The replay sends nothing to ISA itself: the engine answers each request with an event line of
// its header alone. The line cannot say that it is a replay, so the module remembers for which
// interfaces it has asked (storedRequestPending); see login_event.cpp. The mark goes with the block
// it stands for: once that is deleted, the next line of the header alone is a login like any other.
// A block that replaces another leaves the mark, the engine still has the request.
#include <syslog.h>

#include <algorithm>

#include "platform/bllmanager.h"
#include "tal/login_block_text.h"
#include "tal/report.h"
#include "tal/storage_format.h"
#include "tal/storage_path.h"
#include "tal/tal.h"

namespace {

void eraseBlock(std::vector<std::string>& lines, unsigned index) {
    const size_t end = std::min(lines.size(), index + tal_text::linesPerBlock);
    lines.erase(lines.begin() + index, lines.begin() + static_cast<std::ptrdiff_t>(end));
}

constexpr char sequenceReportsAs[] = "talReadStorageFile";

}  // namespace

unsigned tal::talStoreLoginData(unsigned ifId, rpcTalLoginBlockBll& block) {
    const BLLManager::exclusiveLock_t lock;
    std::vector<std::string> lines;
    if (tal_report::refused(lock, sequenceReportsAs) ||
        talReadStorageFile(talStorageFile, lines) != 0)
        return 1;
    unsigned index = 0;
    const bool hadBlock = talFindStoredInterfaceEntry(lines, ifId, &index);
    if (hadBlock)
        eraseBlock(lines, index);
    if (static_cast<int32_t>(block.interface) < 1) {
        // The old block goes all the same; the answer is a failure either way.
        if (hadBlock)
            (void)talWriteStorageFile(talStorageFile, lines);
        return 1;
    }
    lines.push_back(tal_text::composeLoginBlock(block));
    return talWriteStorageFile(talStorageFile, lines);
}

unsigned tal::talStoreLoginDataGet(unsigned ifId, rpcTalLoginBlockBll& block) {
    const BLLManager::exclusiveLock_t lock;
    std::vector<std::string> lines;
    unsigned index = 0;
    if (tal_report::refused(lock, sequenceReportsAs) ||
        talReadStorageFile(talStorageFile, lines) != 0 ||
        !talFindStoredInterfaceEntry(lines, ifId, &index))
        return 1;
    if (tal_text::overlayLoginBlock(lines, index, block))
        return 0;
    if (talDeleteStoredLoginDataAll() == 0)
        syslog(LOG_WARNING, "talStoreLoginDataGet Storage file is corrupt and has been deleted.");
    else
        syslog(LOG_WARNING,
               "talStoreLoginDataGet Error deleting all stored data. File is corrupt.");
    return 1;
}

unsigned tal::talDeleteStoredLoginData(unsigned ifId) {
    const BLLManager::exclusiveLock_t lock;
    std::vector<std::string> lines;
    if (tal_report::refused(lock, sequenceReportsAs) ||
        talReadStorageFile(talStorageFile, lines) != 0)
        return 1;
    unsigned index = 0;
    unsigned refused = 0;
    if (talFindStoredInterfaceEntry(lines, ifId, &index)) {
        eraseBlock(lines, index);
        refused = talWriteStorageFile(talStorageFile, lines);
    }
    if (refused == 0)
        (void)takeStoredRequest(ifId);  // whether it was waited for does not matter
    return refused;
}

unsigned tal::talDeleteStoredLoginDataAll() {
    std::vector<std::string> none;
    if (talWriteStorageFile(talStorageFile, none) != 0)
        return 1;
    const std::lock_guard<std::mutex> lock(intfTableMutex_);
    for (auto& [id, entry] : intfTable_)
        entry.storedRequestPending = false;
    return 0;
}

bool tal::talIsLoginDataStored(unsigned ifId) {
    std::vector<std::string> lines;
    unsigned index = 0;
    return talReadStorageFile(talStorageFile, lines) == 0 &&
           talFindStoredInterfaceEntry(lines, ifId, &index);
}

unsigned tal::talApplyStoredData() {
    if (!adminState_ && talDeleteStoredLoginDataAll() != 0) {
        syslog(LOG_WARNING, "talApplyStoredData Error deleting all stored data.");
        return 1;
    }
    for (std::optional<unsigned> id; nextIntf(id);) {
        if (!talIsLoginDataStored(*id))
            continue;
        const bool wanted = withIntf(*id, [](talIntf& entry) {
            return entry.adminState && (entry.authenAdminState || entry.authorAdminState);
        });
        if (!wanted) {
            if (talDeleteStoredLoginData(*id) != 0)
                syslog(LOG_WARNING,
                       "talApplyStoredData Error deleting stored data in interface %d.",
                       static_cast<int>(*id));
            continue;
        }
        withIntf(*id, [](talIntf& entry) { entry.storedRequestPending = true; });
        if (fea_.feaTalStoredReqSend(*id) != 0) {
            withIntf(*id, [](talIntf& entry) { entry.storedRequestPending = false; });
            syslog(LOG_WARNING,
                   "talApplyStoredData Error sending stored request signal to kernel for "
                   "interface %d.",
                   static_cast<int>(*id));
            return 1;
        }
    }
    return 0;
}
