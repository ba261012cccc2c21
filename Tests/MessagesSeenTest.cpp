// Writes the numbers of all messages that the tests raise, one a line, into the file named by
// TALORA_MESSAGES_SEEN.  Scripts/message-coverage compares them with those that the library can raise.
#include <gtest/gtest.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>

#include "Basic/Error.h"

namespace {

constexpr int kNumbers = 10000;
std::atomic<bool> seen[kNumbers];

class MessagesSeen : public testing::Environment {
public:
    void SetUp() override
    {
        talora::message_watcher = [](int number) {
            if (number >= 0 && number < kNumbers) seen[number].store(true, std::memory_order_relaxed);
        };
    }
    void TearDown() override
    {
        talora::message_watcher = nullptr;
        FILE* const file = fopen(getenv("TALORA_MESSAGES_SEEN"), "w");
        ASSERT_NE(file, nullptr) << getenv("TALORA_MESSAGES_SEEN");
        for (int number = 0; number < kNumbers; ++number)
            if (seen[number]) fprintf(file, "%d\n", number);
        EXPECT_EQ(fclose(file), 0);
    }
};

[[maybe_unused]] const testing::Environment* const kMessagesSeen =
    getenv("TALORA_MESSAGES_SEEN") ? testing::AddGlobalTestEnvironment(new MessagesSeen) : nullptr;

}  // namespace
