// A character buffer between two guards, so that a write beside it aborts the program.
// Why: the twins copy text the old way and must not be wrong in silence. One thread.
#pragma once

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

namespace oracle {

template <size_t size>
class Guarded {
public:
    Guarded() {
        memset(before_, guard, sizeof(before_));
        memset(data_, filler, sizeof(data_));
        memset(after_, guard, sizeof(after_));
    }
    ~Guarded() { check(); }
    Guarded(const Guarded&) = delete;
    Guarded& operator=(const Guarded&) = delete;

    char* data() { return data_; }
    const char* text() const {
        check();
        return data_;
    }

private:
    static constexpr unsigned char guard = 0xA5;
    static constexpr unsigned char filler = 0x5A;  // neither a digit nor a blank

    void check() const {
        for (size_t i = 0; i < sizeof(before_); i++) {
            if (before_[i] != guard || after_[i] != guard) {
                fputs("oracle: a copy wrote beside its buffer\n", stderr);
                abort();
            }
        }
    }

    unsigned char before_[8];
    char data_[size];
    unsigned char after_[8];
};

}  // namespace oracle
