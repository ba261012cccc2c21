#include "Misc/CryptoAES.h"

#include <algorithm>
#include <bit>
#include <cstring>

#include "Basic/Error.h"
#include "Basic/Secret.h"

#if defined(__x86_64__)
#include <immintrin.h>
#define TALORA_X86 1
#endif

namespace talora {

namespace {

constexpr size_t kMaxRounds = 14;

// ---- Portable: operations on 16 bytes at once ----

using Wide [[gnu::vector_size(kAesBlock)]] = uint8_t;
using SignedWide [[gnu::vector_size(kAesBlock)]] = int8_t;

constexpr uint8_t kReduction = 0x1B;  // x^8 = x^4 + x^3 + x + 1

// 0xFF where the highest bit is set, 0 elsewhere.
Wide HighBits(Wide x)
{
    return reinterpret_cast<Wide>(reinterpret_cast<SignedWide>(x) < 0);
}

Wide TimesX(Wide x)
{
    return (x + x) ^ (HighBits(x) & kReduction);
}

Wide Product(Wide a, Wide b)
{
    Wide sum = a & HighBits(b);
    for (int bit = 1; bit < 8; ++bit) {
        b += b;
        sum = TimesX(sum) ^ (a & HighBits(b));
    }
    return sum;
}

Wide RotateLeft(Wide x, int count)
{
    return (x << count) | (x >> (8 - count));
}

constexpr uint8_t TimesX(uint8_t x)
{
    return static_cast<uint8_t>(x << 1 ^ (x & 0x80 ? kReduction : 0));
}

constexpr uint8_t Product(uint8_t a, uint8_t b)
{
    uint8_t sum = 0;
    for (int bit = 7; bit >= 0; --bit) sum = static_cast<uint8_t>(TimesX(sum) ^ (b >> bit & 1 ? a : 0));
    return sum;
}

// Squaring is linear over the bits of a byte, so any number of squarings is one linear map: what becomes of
// each of its bits, the highest first.
using LinearMap = std::array<uint8_t, 8>;
constexpr LinearMap Squarings(int count)
{
    LinearMap map{};
    for (int bit = 0; bit < 8; ++bit) {
        auto image = static_cast<uint8_t>(0x80 >> bit);
        for (int i = 0; i < count; ++i) image = Product(image, image);
        map[static_cast<size_t>(bit)] = image;
    }
    return map;
}
constexpr LinearMap kPower2 = Squarings(1), kPower4 = Squarings(2), kPower16 = Squarings(4);

Wide Apply(const LinearMap& map, Wide x)
{
    Wide sum = {};
    for (const uint8_t image : map) {
        sum ^= HighBits(x) & image;
        x += x;
    }
    return sum;
}

// FIPS 197, 5.1.1: the inverse, which is the 254th power, and an affine map.
Wide Substitute(Wide x)
{
    const Wide x2 = Apply(kPower2, x), x3 = Product(x2, x), x12 = Apply(kPower4, x3);
    const Wide x240 = Apply(kPower16, Product(x12, x3));
    const Wide inverse = Product(Product(x240, x12), x2);
    return inverse ^ RotateLeft(inverse, 1) ^ RotateLeft(inverse, 2) ^ RotateLeft(inverse, 3) ^
           RotateLeft(inverse, 4) ^ 0x63;
}

// Four blocks, by rows: a row has four columns of each, so that neither shifting rows nor mixing columns
// moves bytes about singly.
using Rows = std::array<Wide, 4>;
constexpr size_t kColumns = 4;
static_assert(std::endian::native == std::endian::little);

Rows Load(const uint8_t* blocks)
{
    uint8_t bytes[4][kAesBlock];
    for (size_t i = 0; i < sizeof bytes; ++i) bytes[i % 4][i / 4] = blocks[i];
    Rows rows;
    std::memcpy(&rows, bytes, sizeof rows);
    return rows;
}

void Store(const Rows& rows, uint8_t* blocks)
{
    uint8_t bytes[4][kAesBlock];
    std::memcpy(bytes, &rows, sizeof bytes);
    for (size_t i = 0; i < sizeof bytes; ++i) blocks[i] = bytes[i % 4][i / 4];
}

// 5.1.1 and 5.1.2: row r moves left by r columns.
void SubstituteAndShift(Rows& rows)
{
    using Columns [[gnu::vector_size(kAesBlock)]] = uint32_t;
    for (Wide& row : rows) row = Substitute(row);
    for (int r = 1; r < 4; ++r) {
        const auto columns = reinterpret_cast<Columns>(rows[static_cast<size_t>(r)]);
        rows[static_cast<size_t>(r)] = reinterpret_cast<Wide>(columns >> 8 * r | columns << (32 - 8 * r));
    }
}

// 5.1.3: 2 a + 3 b + c + d for each byte a and those below it, which is 2 (a + b) + a + all four.
void MixColumns(Rows& rows)
{
    const Wide all = rows[0] ^ rows[1] ^ rows[2] ^ rows[3], first = rows[0];
    for (size_t r = 0; r < 4; ++r) rows[r] ^= all ^ TimesX(rows[r] ^ (r < 3 ? rows[r + 1] : first));
}

void AddKey(Rows& rows, const Rows& key)
{
    for (size_t r = 0; r < 4; ++r) rows[r] ^= key[r];
}

void EncryptPortably(const uint8_t* keys, size_t num_rounds, const uint8_t* in, uint8_t* out,
                     size_t num_blocks)
{
    uint8_t wide[kColumns * kAesBlock];
    std::array<Rows, kMaxRounds + 1> round_keys;
    for (size_t round = 0; round <= num_rounds; ++round) {
        for (size_t i = 0; i < kColumns; ++i)
            std::memcpy(wide + i * kAesBlock, keys + round * kAesBlock, kAesBlock);
        round_keys[round] = Load(wide);
    }
    for (size_t bytes = num_blocks * kAesBlock; bytes > 0;) {
        const size_t taken = std::min(bytes, sizeof wide);
        std::memcpy(wide, in, taken);
        Rows state = Load(wide);
        AddKey(state, round_keys[0]);
        for (size_t round = 1; round < num_rounds; ++round) {
            SubstituteAndShift(state);
            MixColumns(state);
            AddKey(state, round_keys[round]);
        }
        SubstituteAndShift(state);
        AddKey(state, round_keys[num_rounds]);
        Store(state, wide);
        std::memcpy(out, wide, taken);
        in += taken, out += taken, bytes -= taken;
    }
    Wipe(wide, sizeof wide);
    Wipe(&round_keys, sizeof round_keys);
}

// ---- With the processor's instructions: eight blocks at a time keep its pipeline full ----

#ifdef TALORA_X86

constexpr size_t kLanes = 8;

[[gnu::target("aes,sse2")]] void EncryptFast(const uint8_t* keys, size_t num_rounds, const uint8_t* in,
                                             uint8_t* out, size_t num_blocks)
{
    const auto* const round_keys = reinterpret_cast<const __m128i*>(keys);
    while (num_blocks > 0) {
        const size_t lanes = std::min(num_blocks, kLanes);
        __m128i state[kLanes];
        for (size_t i = 0; i < kLanes; ++i) {
            const size_t block = i < lanes ? i : 0;
            state[i] =
                _mm_xor_si128(_mm_loadu_si128(reinterpret_cast<const __m128i*>(in) + block), round_keys[0]);
        }
        for (size_t round = 1; round < num_rounds; ++round)
            for (__m128i& lane : state) lane = _mm_aesenc_si128(lane, round_keys[round]);
        for (__m128i& lane : state) lane = _mm_aesenclast_si128(lane, round_keys[num_rounds]);
        for (size_t i = 0; i < lanes; ++i) _mm_storeu_si128(reinterpret_cast<__m128i*>(out) + i, state[i]);
        in += lanes * kAesBlock, out += lanes * kAesBlock, num_blocks -= lanes;
    }
}

#endif

// The S-box on the four bytes of a word of the key.
void SubstituteWord(uint8_t* word)
{
    Wide wide = {};
    std::memcpy(&wide, word, 4);
    wide = Substitute(wide);
    std::memcpy(word, &wide, 4);
}

}  // namespace

bool HasCipherInstructions()
{
#ifdef TALORA_X86
    static const bool has =
        __builtin_cpu_supports("aes") && __builtin_cpu_supports("pclmul") && __builtin_cpu_supports("ssse3");
    return has;
#else
    return false;
#endif
}

// FIPS 197, 5.2.
Aes::Aes(ByteSpan key, Instructions instructions)
    : num_rounds_(key.size() / 4 + 6), has_instructions_(instructions == BEST && HasCipherInstructions())
{
    TALORA_CHECK(key.size() == 16 || key.size() == 24 || key.size() == 32);
    uint8_t* const keys = round_keys_.data();
    std::copy(key.begin(), key.end(), keys);
    const size_t period = key.size(), size = (num_rounds_ + 1) * kAesBlock;
    uint8_t constant = 1;
    for (size_t at = period; at < size; at += 4) {
        uint8_t word[4];
        std::memcpy(word, keys + at - 4, 4);
        if (at % period == 0) {
            std::rotate(word, word + 1, word + 4);
            SubstituteWord(word);
            word[0] ^= constant;
            constant = TimesX(constant);
        } else if (period == 32 && at % period == 16) {
            SubstituteWord(word);
        }
        for (size_t i = 0; i < 4; ++i) keys[at + i] = keys[at + i - period] ^ word[i];
    }
}

Aes::~Aes()
{
    Wipe(round_keys_.data(), round_keys_.size());
}

void Aes::Encrypt(const uint8_t* in, uint8_t* out, size_t num_blocks) const
{
#ifdef TALORA_X86
    if (has_instructions_) return EncryptFast(round_keys_.data(), num_rounds_, in, out, num_blocks);
#endif
    EncryptPortably(round_keys_.data(), num_rounds_, in, out, num_blocks);
}

}  // namespace talora
