#include "tests/control/c_stage.h"

#include <gtest/gtest.h>

#include <memory>

#include "tests/control/service_stage.h"

namespace {

std::unique_ptr<ServiceStage> stage;

}  // namespace

void stageBegin() {
    stage = std::make_unique<ServiceStage>(std::initializer_list<unsigned>{1, 2});
}

void stageEnd() {
    stage.reset();
}

void stageTrap(unsigned intf) {
    stage->trap(intf);
}

void stageEngineReports(const char* call, const uint32_t* values, size_t count) {
    stage->engineReports(call, {values, values + count});
}

void stageRefuse(const char* call) {
    stage->refuse(call);
}

void stageAddServiceProfile(const char* name) {
    stage->addServiceProfile(name);
}

int stageStoresALogin() {
    return stage->storedFile().empty() ? 0 : 1;
}

TEST(ManagementInC, GetsTheExpectedAnswers) {
    EXPECT_EQ(0, manageInC()) << "each is told on the standard output";
}
