// Where every call of the module arrives: decides the answer and writes the log. The services
// of the fake share one desk. Safe from any thread once answers and fault are set.
#pragma once

#include "tests/fake/answers.h"
#include "tests/fake/call_log.h"

#include <optional>
#include <string>

namespace fake {

enum class Refusal {
    never,     // a call that has no failure, or none that a fault may bring about
    one,       // answers 1
    negative,  // answers -1, as a C interface may
    six,       // answers 6, the access lists' way of failing
};

struct Ask {
    Service service;
    const char* name;
    std::string key;   // as in Call
    std::string args;  // between the parentheses
    Refusal refusal = Refusal::one;
    int normal = 0;                // the answer without a rule
    const char* bridge = nullptr;  // as in Call
    const void* record = nullptr;
    size_t recordSize = 0;
};

class Desk {
public:
    // Records the call and returns its answer.
    int ask(const Ask& question);
    // For calls that answer with a value or a truth: the log always shows it, and no fault
    // strikes them.
    int askValue(const Ask& question);
    bool askTruth(const Ask& question);
    // Adds what the calling thread's latest call handed out: " -> outputs".
    void output(const std::string& outputs);

    // Refuses the n-th call from now on that can be refused, whatever its name; or lets it
    // throw a std::runtime_error.
    void armFault(unsigned n);
    void armException(unsigned n);
    void disarmFault();
    // The call that was refused; empty while the fault has not struck.
    const std::optional<Call>& struck() const { return struck_; }

    Answers answers;
    CallLog log;

private:
    int decide(const Ask& question, bool* faulted);
    Call& record(const Ask& question, int result);
    void strike(Call& call);

    unsigned faultAt_ = 0;  // 0: no fault
    unsigned faultCount_ = 0;
    bool faultThrows_ = false;
    std::optional<Call> struck_;
};

}  // namespace fake
