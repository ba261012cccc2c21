// An initialised environment for a test.  Errors that the test does not take (with Taken) fail it.
#pragma once

#include <gtest/gtest.h>

#include <string>

#include "Basic/FloatMode.h"
#include "Support/Texts.h"
#include "Talora.h"

class TestEnviron {
public:
    TestEnviron() : env_(NewTaloraEnviron_vx("test", nullptr))
    {
        ClearErrors_vx(nullptr, INTERNAL_SEVERITY);
        EXPECT_GE(InitTalora2_bn(env_, nullptr), 0);
    }
    ~TestEnviron()
    {
        for (const report_vx* error = GetError_vx(env_, ERROR_SEVERITY, 0, nullptr); error;
             error = GetError_vx(env_, ERROR_SEVERITY, 0, error))
            ADD_FAILURE() << "unexpected error " << ErrorNumber_vx(error) << ": " << ErrorMessage_vx(error);
        EXPECT_GE(CloseTalora_bn(env_, nullptr), 0);
        EXPECT_FALSE(talora::DenormalsOff::IsOn()) << "a call has not left the floating-point mode";
    }
    TestEnviron(const TestEnviron&) = delete;
    TestEnviron& operator=(const TestEnviron&) = delete;

    operator environ_vx*() const { return env_; }

    // Number of the newest record of at least this severity, 0 for none; all records are then cleared.
    int Taken(errseverity_vx severity = ERROR_SEVERITY)
    {
        const report_vx* error = GetError_vx(env_, severity, 0, nullptr);
        const int number = error ? -ErrorNumber_vx(error) : 0;
        message_ = error ? ErrorMessage_vx(error) : "";
        ClearErrors_vx(env_, INTERNAL_SEVERITY);
        return number;
    }
    const std::string& Message() const { return message_; }  // of the record taken last

private:
    environ_vx* env_;
    std::string message_;
};
