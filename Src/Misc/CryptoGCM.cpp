#include "Misc/CryptoGCM.h"

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

constexpr uint64_t kReduction = UINT64_C(0xE1) << 56;  // 1 + x + x^2 + x^7
constexpr size_t kBatch = 32;                          // blocks of the key stream made at once

uint64_t BigEndian(const uint8_t* bytes)
{
    uint64_t value = 0;
    for (int i = 0; i < 8; ++i) value = value << 8 | bytes[i];
    return value;
}

void PutBigEndian(uint64_t value, uint8_t* bytes)
{
    for (int i = 0; i < 8; ++i) bytes[i] = static_cast<uint8_t>(value >> (56 - 8 * i));
}

#ifdef TALORA_X86

// The product of two polynomials whose bits stand in reverse: their 256-bit product is one bit too low
// and is moved up, then reduced by shifting (Gueron & Kounavis 2010, Carry-less multiplication and its
// usage for computing the GCM mode).
[[gnu::target("pclmul,sse2")]] inline __m128i Multiply(__m128i a, __m128i b)
{
    const __m128i middle = _mm_xor_si128(_mm_clmulepi64_si128(a, b, 0x01), _mm_clmulepi64_si128(a, b, 0x10));
    __m128i low = _mm_xor_si128(_mm_clmulepi64_si128(a, b, 0x00), _mm_slli_si128(middle, 8));
    __m128i high = _mm_xor_si128(_mm_clmulepi64_si128(a, b, 0x11), _mm_srli_si128(middle, 8));
    const __m128i low_carry = _mm_srli_epi32(low, 31), high_carry = _mm_srli_epi32(high, 31);
    low = _mm_or_si128(_mm_slli_epi32(low, 1), _mm_slli_si128(low_carry, 4));
    high = _mm_or_si128(_mm_slli_epi32(high, 1), _mm_slli_si128(high_carry, 4));
    high = _mm_or_si128(high, _mm_srli_si128(low_carry, 12));
    const __m128i folded = _mm_xor_si128(_mm_slli_epi32(low, 31),
                                         _mm_xor_si128(_mm_slli_epi32(low, 30), _mm_slli_epi32(low, 25)));
    low = _mm_xor_si128(low, _mm_slli_si128(folded, 12));
    const __m128i shifted =
        _mm_xor_si128(_mm_srli_epi32(low, 1), _mm_xor_si128(_mm_srli_epi32(low, 2), _mm_srli_epi32(low, 7)));
    return _mm_xor_si128(_mm_xor_si128(high, low), _mm_xor_si128(shifted, _mm_srli_si128(folded, 4)));
}

// sum = (sum + block) * key for each block.
[[gnu::target("pclmul,ssse3")]] void HashFast(const uint8_t* key, uint8_t* sum, const uint8_t* in,
                                              size_t num_blocks)
{
    const __m128i reverse = _mm_set_epi8(0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15);
    const auto load = [&](const uint8_t* bytes) __attribute__((target("pclmul,ssse3")))
    {
        return _mm_shuffle_epi8(_mm_loadu_si128(reinterpret_cast<const __m128i*>(bytes)), reverse);
    };
    const __m128i h = load(key);
    __m128i total = load(sum);
    for (size_t i = 0; i < num_blocks; ++i)
        total = Multiply(_mm_xor_si128(total, load(in + i * kAesBlock)), h);
    _mm_storeu_si128(reinterpret_cast<__m128i*>(sum), _mm_shuffle_epi8(total, reverse));
}

#endif

}  // namespace

AesGcm::AesGcm(ByteSpan key, Aes::Instructions instructions)
    : aes_(key, instructions), has_instructions_(instructions == Aes::BEST && HasCipherInstructions())
{
    aes_.Encrypt(hash_key_.data(), hash_key_.data(), 1);
    Element power{BigEndian(hash_key_.data()), BigEndian(hash_key_.data() + 8)};
    for (Element& multiple : multiples_) {
        multiple = power;
        const uint64_t carry = 0 - (power.low & 1);
        power.low = power.low >> 1 | power.high << 63;
        power.high = power.high >> 1 ^ (carry & kReduction);
    }
}

AesGcm::~AesGcm()
{
    Wipe(hash_key_.data(), hash_key_.size());
    Wipe(multiples_.data(), sizeof multiples_);
}

void AesGcm::Hash(Element& sum, ByteSpan bytes) const
{
    const size_t num_blocks = bytes.size() / kAesBlock;
    Block last{};
    std::copy(bytes.begin() + static_cast<ptrdiff_t>(num_blocks * kAesBlock), bytes.end(), last.begin());
    const size_t num_last = bytes.size() % kAesBlock != 0;
#ifdef TALORA_X86
    if (has_instructions_) {
        Block state;
        PutBigEndian(sum.high, state.data());
        PutBigEndian(sum.low, state.data() + 8);
        HashFast(hash_key_.data(), state.data(), bytes.data(), num_blocks);
        HashFast(hash_key_.data(), state.data(), last.data(), num_last);
        sum = {BigEndian(state.data()), BigEndian(state.data() + 8)};
        return;
    }
#endif
    for (size_t i = 0; i < num_blocks + num_last; ++i) {
        const uint8_t* const block = i < num_blocks ? bytes.data() + i * kAesBlock : last.data();
        const uint64_t words[2] = {sum.high ^ BigEndian(block), sum.low ^ BigEndian(block + 8)};
        sum = {};
        for (size_t bit = 0; bit < multiples_.size(); ++bit) {
            const uint64_t mask = 0 - (words[bit / 64] >> (63 - bit % 64) & 1);
            sum.high ^= multiples_[bit].high & mask;
            sum.low ^= multiples_[bit].low & mask;
        }
    }
}

GcmTag AesGcm::Tag(const GcmNonce& nonce, ByteSpan data, ByteSpan sealed) const
{
    Element sum;
    Hash(sum, data);
    Hash(sum, sealed);
    Block lengths;
    PutBigEndian(uint64_t{data.size()} * 8, lengths.data());
    PutBigEndian(uint64_t{sealed.size()} * 8, lengths.data() + 8);
    Hash(sum, lengths);
    Block first{};
    std::copy(nonce.begin(), nonce.end(), first.begin());
    first.back() = 1;
    aes_.Encrypt(first.data(), first.data(), 1);
    GcmTag tag;
    PutBigEndian(sum.high, tag.data());
    PutBigEndian(sum.low, tag.data() + 8);
    for (size_t i = 0; i < tag.size(); ++i) tag[i] ^= first[i];
    return tag;
}

// XORs with the key stream, whose counter starts at 2.
void AesGcm::Count(const GcmNonce& nonce, ByteSpan in, uint8_t* out) const
{
    std::array<uint8_t, kBatch * kAesBlock> stream;
    uint32_t counter = 2;
    for (size_t at = 0; at < in.size(); at += stream.size()) {
        const size_t size = std::min(stream.size(), in.size() - at);
        const size_t num_blocks = (size + kAesBlock - 1) / kAesBlock;
        for (size_t i = 0; i < num_blocks; ++i, ++counter) {
            uint8_t* const block = stream.data() + i * kAesBlock;
            std::copy(nonce.begin(), nonce.end(), block);
            for (size_t b = 0; b < 4; ++b)
                block[kGcmNonceSize + b] = static_cast<uint8_t>(counter >> (24 - 8 * b));
        }
        aes_.Encrypt(stream.data(), stream.data(), num_blocks);
        for (size_t i = 0; i < size; ++i) out[at + i] = in[at + i] ^ stream[i];
    }
    Wipe(stream.data(), stream.size());
}

GcmTag AesGcm::Encrypt(const GcmNonce& nonce, ByteSpan data, ByteSpan text, uint8_t* out) const
{
    TALORA_CHECK(text.size() <= kMaxGcmText && data.size() <= kMaxGcmData);
    Count(nonce, text, out);
    return Tag(nonce, data, {out, text.size()});
}

bool AesGcm::Decrypt(const GcmNonce& nonce, ByteSpan data, ByteSpan sealed, const GcmTag& tag,
                     uint8_t* out) const
{
    if (sealed.size() > kMaxGcmText || data.size() > kMaxGcmData) return false;
    if (!IsEqualSecretly(Tag(nonce, data, sealed), tag)) return false;
    Count(nonce, sealed, out);
    return true;
}

}  // namespace talora
