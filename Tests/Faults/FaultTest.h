// What the tests of faults have in common: a folder that goes with the test, and how long they may take.
#pragma once

#include <gtest/gtest.h>
#include <stdlib.h>
#include <unistd.h>

#include <filesystem>

#include "Faults/Scenarios.h"

namespace faults {

// Whether the hours-long variants are wanted rather than those for every day.
inline bool IsLong()
{
    const char* wanted = getenv("TALORA_LONG");
    return wanted != nullptr && *wanted != '\0' && *wanted != '0';
}

class FaultTest : public testing::Test {
protected:
    FaultTest()
        : folder_(std::filesystem::temp_directory_path() / ("talora-faults-" + std::to_string(getpid())))
    {
        Empty();
    }
    ~FaultTest() override { std::filesystem::remove_all(folder_); }

    void Empty()
    {
        std::filesystem::remove_all(folder_);
        std::filesystem::create_directories(folder_);
    }

    std::filesystem::path folder_;
};

}  // namespace faults
