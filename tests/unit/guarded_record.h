// A record between two pages that nobody may touch, so that a read or write outside of it ends
// the process. For tests of functions that take records of callers. One thread.
#pragma once

#include <sys/mman.h>
#include <unistd.h>

#include <stdlib.h>

template <class Record>
class GuardedRecord {
public:
    enum class At { endOfPage, startOfPage };

    explicit GuardedRecord(const Record& contents, At place = At::endOfPage) {
        const auto page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
        static_assert(sizeof(Record) <= 4096);
        size_ = 3 * page;
        void* mapped = mmap(nullptr, size_, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        if (mapped == MAP_FAILED) {
            abort();
        }
        pages_ = static_cast<char*>(mapped);
        if (mprotect(pages_ + page, page, PROT_READ | PROT_WRITE) != 0) {
            abort();
        }
        const size_t offset = place == At::endOfPage ? 2 * page - sizeof(Record) : page;
        record_ = reinterpret_cast<Record*>(pages_ + offset);
        *record_ = contents;
    }
    ~GuardedRecord() { munmap(pages_, size_); }
    GuardedRecord(const GuardedRecord&) = delete;
    GuardedRecord& operator=(const GuardedRecord&) = delete;

    Record* get() { return record_; }
    Record* operator->() { return record_; }
    Record& operator*() { return *record_; }

private:
    char* pages_;
    size_t size_;
    Record* record_;
};
