#include "tests/fake/desk.h"

#include <stdexcept>
#include <utility>

namespace fake {

namespace {

int refusalValue(Refusal refusal) {
    switch (refusal) {
        case Refusal::negative:
            return -1;
        case Refusal::six:
            return 6;
        case Refusal::one:
        case Refusal::never:
            break;
    }
    return 1;
}

}  // namespace

int Desk::decide(const Ask& question, bool* faulted) {
    const bool canRefuse = question.refusal != Refusal::never;
    const std::optional<int> ruled = answers.find(question.name, question.key, canRefuse);
    if (faultAt_ != 0 && canRefuse && ++faultCount_ == faultAt_) {
        *faulted = true;
        return refusalValue(question.refusal);
    }
    return ruled.value_or(question.normal);
}

Call& Desk::record(const Ask& question, int result) {
    Call call;
    call.service = question.service;
    call.name = question.name;
    call.key = question.key;
    call.text = std::string(question.name) + "(" + question.args + ")";
    call.result = result;
    call.bridge = question.bridge == nullptr ? "" : question.bridge;
    if (question.record != nullptr) {
        const auto* bytes = static_cast<const unsigned char*>(question.record);
        call.record.assign(bytes, bytes + question.recordSize);
    }
    return log.add(std::move(call));
}

void Desk::strike(Call& call) {
    if (faultThrows_) {
        call.text += " threw";
        struck_ = call;
        throw std::runtime_error("the platform failed in " + call.name);
    }
    call.text += " = " + std::to_string(call.result);
    struck_ = call;
}

int Desk::ask(const Ask& question) {
    bool faulted = false;
    const int result = decide(question, &faulted);
    Call& call = record(question, result);
    if (faulted) {
        strike(call);
    } else if (result != 0) {
        call.text += " = " + std::to_string(result);
    }
    return result;
}

int Desk::askValue(const Ask& question) {
    const int result = answers.find(question.name, question.key, false).value_or(question.normal);
    record(question, result).text += " = " + std::to_string(result);
    return result;
}

bool Desk::askTruth(const Ask& question) {
    const bool result =
        answers.find(question.name, question.key, false).value_or(question.normal) != 0;
    record(question, result).text += result ? " = true" : " = false";
    return result;
}

void Desk::output(const std::string& outputs) {
    log.latest().text += " -> " + outputs;
}

void Desk::armFault(unsigned n) {
    faultAt_ = n;
    faultCount_ = 0;
    faultThrows_ = false;
    struck_.reset();
}

void Desk::armException(unsigned n) {
    armFault(n);
    faultThrows_ = true;
}

void Desk::disarmFault() {
    faultAt_ = 0;
}

}  // namespace fake
