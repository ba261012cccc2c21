#include "Basic/RandomNum.h"

#include <gtest/gtest.h>

#include "Basic/Error.h"

namespace talora {
namespace {

// The published recurrences, computed with a separate program in unbounded integers.
TEST(RandomNum, FollowsThePublishedSequence)
{
    const struct {
        uint64_t seed;
        uint64_t first_words[3];  // of the state
        uint64_t output[20];
    } cases[] = {
        {0u,
         {0xE220A8397B1DCDAFu, 0x6E789E6AA1B965F4u, 0x06C45D188009454Fu},
         {0x281F841BF3783C3Au, 0xF1C8574B59B60D52u, 0x4B4D0E3C0B4DC0F3u, 0xE43D5007BA7B9D3Bu,
          0x592EADA0BEAFD2FBu, 0x5BFF462C0DC8437Au, 0x9354928BA2D74B42u, 0x1404EF20E7524E77u,
          0xB7E0C91ECBADB67Du, 0x6D51588A7DDC0378u, 0x1E163A69023FD1FAu, 0xCE79B9E83AC90FD9u,
          0x1B02EC67A9DAA51Fu, 0x929FF275CDCC6134u, 0x8350B3102A726465u, 0x82A31A21C4157ABAu,
          0x17C03AEF9EEDED5Eu, 0xCFA6F470DEBC3677u, 0x7A23729CAF0FB2C3u, 0x0B8F781AD2123B1Eu}},
        {1u,
         {0x910A2DEC89025CC1u, 0xBEEB8DA1658EEC67u, 0xF893A2EEFB32555Eu},
         {0xE38934C8E30CE11Du, 0xD2354A43B0381A90u, 0xA27D38B29846DC49u, 0xD8EDB9E7C83DDCC8u,
          0xC113EF12F13D9EA1u, 0xD72C208479E059C5u, 0x8EB560B4F9ADB622u, 0x9861741CBA3F106Du,
          0xA691329936923E1Cu, 0xFBC5979CB2141D74u, 0xF4EE34230B866772u, 0xEC468660590017DCu,
          0x1A3EA8CDB2BE6807u, 0xA76E8FFBE10F4956u, 0x05130E04642A7E79u, 0x0460CCA1A0373A02u,
          0x6166EA1B3AD97EABu, 0xD3879C7E74B812C4u, 0xF9E92A02F90FDB4Bu, 0x10929862A7195594u}},
        {42u,
         {0xBDD732262FEB6E95u, 0x28EFE333B266F103u, 0x47526757130F9F52u},
         {0xB526143AB5033A10u, 0x208B9224C41664D3u, 0x6962371A9388F185u, 0x4203D3038438B471u,
          0x56181D839D5B4403u, 0x73C1E9FF77C20086u, 0x276B36976486BC51u, 0x28FD772BAA7E962Bu,
          0xB87E2490AAED2CFFu, 0x669A72BA36E5C849u, 0xBAA05B0C29BD11D3u, 0xCCD347E23B1ECA9Bu,
          0xABD78DCEBC20008Cu, 0xC8F2E5D2B99BA85Du, 0x05A61A7E26B2D62Bu, 0x556F1CDFD3879A57u,
          0xB4B1BD78828059D3u, 0xB84E5853A71311B2u, 0xA34A1CCDC12E1686u, 0x85A90DF08D1FCBC6u}},
        {9223372036854775807u,
         {0x2A67D7552E039EA7u, 0xF20C01408082F947u, 0xEC159351AF424190u},
         {0x9DF94BBF2D3B9727u, 0x4986BB79DD46D383u, 0xD345CB580A7D4299u, 0x3D9E6A990F6BBFCAu,
          0x2E8544B5C267BD28u, 0x6EB9F7F7B085F878u, 0x2ECB3AA32C42F7BFu, 0x0A899E48BEB45772u,
          0xC3D8439FB079DCC5u, 0xB4BC3D96CFD80556u, 0x61373D0CED21875Au, 0xE5E35B0D60FCADA1u,
          0x21D22F1EDC27146Fu, 0x48AA796792AEB41Bu, 0xA3CDD3B829732E65u, 0xD7A0485A8FCB3052u,
          0x857C4764DD51C36Fu, 0x49342052C0AA5CD6u, 0x8F9110A5FA799D3Au, 0x8588DA9F335F0560u}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.seed);
        RandomState state = SeededState(c.seed);
        EXPECT_EQ(state.index, 0);
        for (int i = 0; i < 3; ++i) EXPECT_EQ(state.words[i], c.first_words[i]);
        RandomState uniform = state, integer = state;
        for (const uint64_t word : c.output) {
            EXPECT_EQ(NextWord(state), word);
            EXPECT_EQ(NextInteger(integer), word >> 32);
            EXPECT_EQ(NextUniform(uniform), static_cast<double>(word >> 12) / 4503599627370496.0);
        }
    }
}

TEST(RandomNum, DrawsAreUniform)
{
    RandomState state = SeededState(7);
    constexpr int kDraws = 1000000, kBins = 100;
    int bins[kBins] = {};
    double low = 1, high = 0;
    for (int i = 0; i < kDraws; ++i) {
        const double u = NextUniform(state);
        low = std::min(low, u);
        high = std::max(high, u);
        ++bins[static_cast<int>(u * kBins)];
    }
    EXPECT_GE(low, 0.0);
    EXPECT_LT(high, 1.0);
    double chi_square = 0;
    for (const int n : bins)
        chi_square += (n - kDraws / kBins) * (n - kDraws / kBins) / (1.0 * kDraws / kBins);
    EXPECT_LT(chi_square, 160) << "99 degrees of freedom";
    EXPECT_GT(chi_square, 50);
}

TEST(RandomNum, ReadsSeeds)
{
    const struct {
        const char* text;
        int64_t seed;
        int error;
    } cases[] = {
        {"0", 0, 0},
        {"9223372036854775807", INT64_MAX, 0},
        {"-1", kClockSeed, 0},
        {"9223372036854775808", 0, 6404},
        {"-9223372036854775809", 0, 6404},
        {"", 0, 6404},
        {"12x", 0, 6404},
        {" 12", 0, 6404},
        {"+5", 0, 6404},
        {"-2", 0, 6405},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.text);
        int error = 0;
        int64_t seed = 0;
        try {
            seed = ParseSeed(c.text);
        } catch (const Unwind& failure) {
            error = -failure.record->number;
        }
        EXPECT_EQ(error, c.error);
        if (error == 0) {
            EXPECT_EQ(seed, c.seed);
        }
    }
    EXPECT_NE(NewState(kClockSeed, true).words[0], NewState(kClockSeed, true).words[0]);
    EXPECT_NE(NewState(kClockSeed, false).words[0], NewState(kClockSeed, false).words[0]);
}

}  // namespace
}  // namespace talora
