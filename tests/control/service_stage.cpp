#include "tests/control/service_stage.h"

#include <fstream>
#include <iterator>
#include <stdexcept>

#include "tal/storage_path.h"
#include "tests/fake/fake_platform.h"

struct ServiceStage::Parts {
    FakePlatform platform;
};

ServiceStage::ServiceStage(std::initializer_list<unsigned> interfaces)
    : parts_(std::make_unique<Parts>()) {
    for (const unsigned id : interfaces) {
        parts_->platform.interfaces.add(id, 1, "1/" + std::to_string(id),
                                        "if" + std::to_string(id) + "_");
    }
    for (BLEntity* entity : fake::Manager::entities()) {
        if (!entity->start()) {
            throw std::runtime_error("the module does not start");
        }
    }
    forget();
}

ServiceStage::~ServiceStage() = default;

void ServiceStage::refuse(const std::string& call) {
    parts_->platform.answers.always(call);
}

void ServiceStage::engineReports(const std::string& call, std::vector<unsigned> values) {
    parts_->platform.engine.outputs(call, std::move(values));
}

void ServiceStage::boardType(int type) {
    parts_->platform.board.type = type;
}

void ServiceStage::addServiceProfile(const std::string& name) {
    parts_->platform.profiles.services.push_back({name, true});
}

void ServiceStage::trap(unsigned interface) {
    parts_->platform.engine.raise(("talif" + std::to_string(interface) + "_ 00").c_str());
}

std::vector<std::string> ServiceStage::engineCalls() const {
    return parts_->platform.calls({fake::Service::engine});
}

size_t ServiceStage::count(const std::string& call) const {
    return parts_->platform.count(call);
}

void ServiceStage::forget() {
    parts_->platform.forget();
}

std::string ServiceStage::storedFile() const {
    std::ifstream file(talStorageFile, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
}
