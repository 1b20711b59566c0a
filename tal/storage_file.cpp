// The storage file as a whole: read, written and checked under the manager's exclusive lock.
// A file that fails the check is emptied, because a damaged block cannot be told from a good one;
// the caller then goes without stored data.
#include <syslog.h>

#include "platform/bllmanager.h"
#include "tal/replace_file.h"
#include "tal/report.h"
#include "tal/storage_format.h"
#include "tal/storage_lines.h"
#include "tal/tal.h"

unsigned tal::talReadStorageFile(const std::string& path, std::vector<std::string>& lines) {
    const BLLManager::exclusiveLock_t lock;
    if (tal_report::refused(lock, "talReadStorageFile"))
        return 1;
    const std::optional<std::string> contents =
        tal_file::readOrCreate(path, tal_text::longestLine + 1);
    if (!contents)
        return 1;
    tal_text::appendStorageLines(*contents, lines);
    if (talStorageFileValidityCheck(lines))
        return 0;
    if (talDeleteStoredLoginDataAll() == 0)
        syslog(LOG_WARNING, "talReadStorageFile Storage file is corrupt and has been deleted.");
    else
        syslog(LOG_WARNING, "talReadStorageFile Error deleting all stored data. File is corrupt.");
    return 1;
}

unsigned tal::talWriteStorageFile(const std::string& path, std::vector<std::string>& lines) {
    const BLLManager::exclusiveLock_t lock;
    if (tal_report::refused(lock, "talWriteStorageFile"))
        return 1;
    std::string contents;
    for (const std::string& line : lines) {
        contents += line;
        contents += '\n';
    }
    // Kept: a file that cannot be written is not reported; callers take 0 as written.
    (void)tal_file::replace(path, contents);
    return 0;
}

bool tal::talStorageFileValidityCheck(const std::vector<std::string>& lines) {
    return tal_text::storageLinesValid(lines);
}

bool tal::talFindStoredInterfaceEntry(const std::vector<std::string>& lines, unsigned interfaceId,
                                      unsigned* index) {
    const std::optional<unsigned> found = tal_text::findInterfaceLine(lines, interfaceId);
    if (found && index != nullptr)
        *index = *found;
    return found.has_value();
}
