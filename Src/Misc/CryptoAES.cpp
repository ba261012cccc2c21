#include "Misc/CryptoAES.h"

#include <algorithm>
#include <cstring>

#include "Basic/Error.h"
#include "Basic/Secret.h"

#if defined(__x86_64__)
#include <immintrin.h>
#define TALORA_X86 1
#endif

namespace talora {

namespace {

// ---- Portable: operations on all bytes of a block at once ----

using Wide [[gnu::vector_size(kAesBlock)]] = uint8_t;

constexpr uint8_t kReduction = 0x1B;  // x^8 = x^4 + x^3 + x + 1

// 0xFF where the highest bit is set, 0 elsewhere.
Wide HighBits(Wide x)
{
    return ~((x >> 7) - 1);
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

// FIPS 197, 5.1.1: the inverse, which is the 254th power, and an affine map.
Wide Substitute(Wide x)
{
    const Wide x2 = Product(x, x), x3 = Product(x2, x), x6 = Product(x3, x3), x12 = Product(x6, x6);
    const Wide x14 = Product(x12, x2), x15 = Product(x12, x3), x30 = Product(x15, x15);
    const Wide x60 = Product(x30, x30), x120 = Product(x60, x60), x240 = Product(x120, x120);
    const Wide inverse = Product(x240, x14);
    return inverse ^ RotateLeft(inverse, 1) ^ RotateLeft(inverse, 2) ^ RotateLeft(inverse, 3) ^
           RotateLeft(inverse, 4) ^ 0x63;
}

// 5.1.2, bytes by columns of four: row r moves left by r columns.
Wide ShiftRows(Wide x)
{
    Wide shifted = x;
    for (size_t i = 0; i < kAesBlock; ++i) shifted[i] = x[(i + 4 * (i % 4)) % kAesBlock];
    return shifted;
}

// Each byte becomes that of so many rows further down in its column.
Wide RowsBelow(Wide x, size_t count)
{
    Wide moved = x;
    for (size_t i = 0; i < kAesBlock; ++i) moved[i] = x[i / 4 * 4 + (i + count) % 4];
    return moved;
}

// 5.1.3: 2 a + 3 b + c + d for each byte a and those below it.
Wide MixColumns(Wide x)
{
    const Wide below = RowsBelow(x, 1);
    return TimesX(x ^ below) ^ below ^ RowsBelow(x, 2) ^ RowsBelow(x, 3);
}

Wide Load(const uint8_t* block)
{
    Wide wide;
    std::memcpy(&wide, block, sizeof wide);
    return wide;
}

void EncryptPortably(const uint8_t* keys, size_t num_rounds, const uint8_t* in, uint8_t* out,
                     size_t num_blocks)
{
    for (; num_blocks > 0; --num_blocks, in += kAesBlock, out += kAesBlock) {
        Wide state = Load(in) ^ Load(keys);
        for (size_t round = 1; round <= num_rounds; ++round) {
            state = ShiftRows(Substitute(state));
            if (round < num_rounds) state = MixColumns(state);
            state ^= Load(keys + round * kAesBlock);
        }
        std::memcpy(out, &state, sizeof state);
    }
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
            constant = static_cast<uint8_t>(constant << 1 ^ (constant & 0x80 ? kReduction : 0));
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
