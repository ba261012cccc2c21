#include "Basic/Handle.h"

#include <gtest/gtest.h>

#include <set>
#include <string>

#include "Basic/MultiThread.h"

using namespace talora;

namespace {

struct Thing {
    HandleHeader header;
    std::string text = "long enough to be allocated outside of the record";
};

TEST(HandleTest, ADeletedObjectIsRecognisedForLong)
{
    HandlePool<Thing, LEARNER_TYPE> pool;
    Thing* thing = pool.New(nullptr);
    EXPECT_TRUE(IsLive(thing, LEARNER_TYPE));
    EXPECT_FALSE(IsLive(thing, TESTER_TYPE));
    pool.Release(thing);
    EXPECT_FALSE(IsLive(thing, LEARNER_TYPE));

    std::set<Thing*> reused;
    for (size_t i = 0; i + 1 < pool.kMinReuse; ++i) {
        Thing* other = pool.New(nullptr);
        EXPECT_NE(other, thing);
        pool.Release(other);
        reused.insert(other);
    }
    EXPECT_FALSE(IsLive(thing, LEARNER_TYPE));
    for (size_t i = 0; i < 2 * pool.kMinReuse; ++i) {
        Thing* other = pool.New(nullptr);
        pool.Release(other);
        reused.insert(other);
    }
    EXPECT_LE(reused.size(), pool.kMinReuse + pool.kSlabRecords) << "slots are not used again";
}

TEST(HandleTest, ForeignPointersAreRefused)
{
    alignas(16) const char bytes[64] = "this is not a handle at all, whatever its first bytes may be";
    EXPECT_FALSE(IsLive(reinterpret_cast<const Thing*>(bytes), LEARNER_TYPE));
    EXPECT_FALSE(IsLive(reinterpret_cast<const Thing*>(bytes + 1), LEARNER_TYPE));
    EXPECT_FALSE(IsLive(static_cast<const Thing*>(nullptr), LEARNER_TYPE));
}

TEST(HandleTest, AThrowingConstructorLeavesNothing)
{
    struct Refusing {
        HandleHeader header;
        explicit Refusing(bool refuse)
        {
            if (refuse) throw std::bad_alloc();
        }
    };
    HandlePool<Refusing, SENSV_TYPE> pool;
    EXPECT_THROW(pool.New(nullptr, true), std::bad_alloc);
    EXPECT_TRUE(IsLive(pool.New(nullptr, false), SENSV_TYPE));
}

}  // namespace
