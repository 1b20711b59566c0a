// The usual fixture of the module's tests: a fresh platform and the module's one instance.
// Each case runs in a process of its own, so the module is as it was at load.
#pragma once

#include "tal/storage_path.h"
#include "tal/tal.h"
#include "tests/fake/fake_platform.h"
#include "tests/fake/fault_sweep.h"

#include <gtest/gtest.h>

#include <fstream>
#include <initializer_list>
#include <iterator>
#include <string>

class ModuleTest : public testing::Test {
protected:
    FakePlatform platform;
    tal& module = singleton<tal>::instance();

    // Interface <id> of type 1, named "1/<id>", Linux name "if<id>" padded to four characters.
    void addInterface(unsigned id) {
        std::string linuxName = "if" + std::to_string(id);
        linuxName.resize(4, '_');
        platform.interfaces.add(id, 1, "1/" + std::to_string(id), linuxName);
    }

    // Starts the module with these interfaces; the log then holds the calls of the start.
    void startWith(std::initializer_list<unsigned> ids) {
        for (const unsigned id : ids) {
            addInterface(id);
        }
        ASSERT_TRUE(module.start());
    }

    // The contents of the storage file; "(none)" when there is no file.
    static std::string storedFile() {
        std::ifstream file(talStorageFile, std::ios::binary);
        if (!file) {
            return "(none)";
        }
        return std::string(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
    }
    static void writeStoredFile(const std::string& contents) {
        std::ofstream(talStorageFile, std::ios::binary | std::ios::trunc) << contents;
    }
};
