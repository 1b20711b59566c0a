#include "tests/fake/desk.h"

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

int Desk::ask(const Ask& question) {
    bool faulted = false;
    const int result = decide(question, &faulted);
    Call& call = record(question, result);
    if (result != 0) {
        call.text += " = " + std::to_string(result);
    }
    if (faulted) {
        struck_ = call;
    }
    return result;
}

int Desk::askValue(const Ask& question) {
    bool faulted = false;
    const int result = decide(question, &faulted);
    Call& call = record(question, result);
    call.text += " = " + std::to_string(result);
    if (faulted) {
        struck_ = call;
    }
    return result;
}

bool Desk::askTruth(const Ask& question) {
    bool faulted = false;
    const bool result = decide(question, &faulted) != 0;
    record(question, result).text += result ? " = true" : " = false";
    return result;
}

void Desk::output(const std::string& outputs) {
    log.latest().text += " -> " + outputs;
}

void Desk::armFault(unsigned n) {
    faultAt_ = n;
    faultCount_ = 0;
    struck_.reset();
}

void Desk::disarmFault() {
    faultAt_ = 0;
}

}  // namespace fake
