// AES in Galois/Counter Mode (NIST SP 800-38D), with the processor's instructions or without tables.
#include "Misc/Crypto/CryptoGCM.h"

#include <algorithm>
#include <cstring>
#include <span>

#include "Basic/Error.h"
#include "Basic/Secret.h"

#if defined(__x86_64__)
#include <immintrin.h>
#define TALORA_X86 1
#endif

namespace talora {

namespace {

using Wide = unsigned __int128;

constexpr size_t kBatch = 32;      // blocks of the key stream made at once
constexpr size_t kCounterAt = 12;  // of the last four bytes of a block, which count

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

// A block as one number, its first byte highest: the order in which the standard writes polynomials.
Wide GetBlock(const uint8_t* bytes)
{
    return Wide{BigEndian(bytes)} << 64 | BigEndian(bytes + 8);
}

void PutBlock(Wide value, uint8_t* bytes)
{
    PutBigEndian(static_cast<uint64_t>(value >> 64), bytes);
    PutBigEndian(static_cast<uint64_t>(value), bytes + 8);
}

// ---- Portable ----

constexpr size_t kStride = 5;

// Every fifth bit, from bit i on.
constexpr std::array<Wide, kStride> kEveryFifth = [] {
    std::array<Wide, kStride> masks{};
    for (size_t bit = 0; bit < 128; ++bit) masks[bit % kStride] |= Wide{1} << bit;
    return masks;
}();

// The product of two polynomials with bits as coefficients.  With four zeros between any two bits, a product
// of integers has room for the up to 13 ones that meet at a place: the lowest bit there is their sum modulo
// 2, and no carry reaches the next place.  So nothing is looked up, and no time depends on a bit.
Wide PolynomialProduct(uint64_t a, uint64_t b)
{
    uint64_t a_bits[kStride], b_bits[kStride];
    for (size_t i = 0; i < kStride; ++i) {
        a_bits[i] = a & static_cast<uint64_t>(kEveryFifth[i]);
        b_bits[i] = b & static_cast<uint64_t>(kEveryFifth[i]);
    }
    Wide product = 0;
    for (size_t place = 0; place < kStride; ++place) {
        Wide sum = 0;
        for (size_t i = 0; i < kStride; ++i) sum ^= Wide{a_bits[i]} * b_bits[(place + kStride - i) % kStride];
        product |= sum & kEveryFifth[place];
    }
    return product;
}

// Modulo x^128 + x^7 + x^2 + x + 1.  Bits stand in reverse, so a power of x moves them down.
// Karatsuba: three products of 64 bits for one of 128, then the reduction.
Wide Multiply(Wide a, Wide b)
{
    const auto a_high = static_cast<uint64_t>(a >> 64), a_low = static_cast<uint64_t>(a);
    const auto b_high = static_cast<uint64_t>(b >> 64), b_low = static_cast<uint64_t>(b);
    Wide high = PolynomialProduct(a_high, b_high), low = PolynomialProduct(a_low, b_low);
    const Wide middle = PolynomialProduct(a_high ^ a_low, b_high ^ b_low) ^ high ^ low;
    high ^= middle >> 64;
    low ^= middle << 64;
    high = high << 1 | low >> 127;  // the product has 255 bits; its highest is that of 256
    low <<= 1;
    low ^= low << 127 ^ low << 126 ^ low << 121;
    return high ^ low ^ low >> 1 ^ low >> 2 ^ low >> 7;
}

// ---- With the processor's instructions ----

#ifdef TALORA_X86

// A product of 256 bits, the middle of which is not yet added to the rest.
// Products are added before they are reduced, so several blocks share one reduction.
struct Product {
    __m128i low, middle, high;
};

[[gnu::target("pclmul,ssse3")]] inline void AddProduct(Product& sum, __m128i a, __m128i b)
{
    const __m128i a_sum = _mm_xor_si128(a, _mm_shuffle_epi32(a, 0x4E));
    const __m128i b_sum = _mm_xor_si128(b, _mm_shuffle_epi32(b, 0x4E));
    sum.low = _mm_xor_si128(sum.low, _mm_clmulepi64_si128(a, b, 0x00));
    sum.high = _mm_xor_si128(sum.high, _mm_clmulepi64_si128(a, b, 0x11));
    sum.middle = _mm_xor_si128(sum.middle, _mm_clmulepi64_si128(a_sum, b_sum, 0x00));
}

// As Multiply does: the product of polynomials with reversed bits is one bit too low and is moved up, then
// reduced by shifting (Gueron & Kounavis 2010, Carry-less multiplication and its usage for computing the GCM
// mode).
[[gnu::target("pclmul,ssse3")]] inline __m128i Reduce(const Product& product)
{
    const __m128i middle = _mm_xor_si128(product.middle, _mm_xor_si128(product.low, product.high));
    __m128i low = _mm_xor_si128(product.low, _mm_slli_si128(middle, 8));
    __m128i high = _mm_xor_si128(product.high, _mm_srli_si128(middle, 8));
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

[[gnu::target("pclmul,ssse3")]] inline __m128i LoadBlock(const uint8_t* bytes)
{
    const __m128i reverse = _mm_set_epi8(0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15);
    return _mm_shuffle_epi8(_mm_loadu_si128(reinterpret_cast<const __m128i*>(bytes)), reverse);
}

// sum = (sum + block) * key for each block; as many blocks as there are powers of the key are reduced at
// once.
[[gnu::target("pclmul,ssse3")]] Wide HashFast(std::span<const Wide> powers, Wide sum, const uint8_t* in,
                                              size_t num_blocks)
{
    __m128i total;
    std::memcpy(&total, &sum, sizeof total);
    while (num_blocks > 0) {
        const size_t count = num_blocks < powers.size() ? 1 : powers.size();
        Product product = {};
        for (size_t i = 0; i < count; ++i) {
            __m128i block = LoadBlock(in + i * kAesBlock);
            if (i == 0) block = _mm_xor_si128(block, total);
            AddProduct(product, block,
                       _mm_loadu_si128(reinterpret_cast<const __m128i*>(&powers[count - 1 - i])));
        }
        total = Reduce(product);
        in += count * kAesBlock, num_blocks -= count;
    }
    std::memcpy(&sum, &total, sizeof sum);
    return sum;
}

#endif

}  // namespace

// The hash key is the encrypted block of zeros; its powers let as many blocks be reduced at once.
AesGcm::AesGcm(ByteSpan key, Instructions instructions)
    : aes_(key, instructions),
      has_instructions_(instructions == Instructions::BEST && HasCipherInstructions())
{
    Block zeros{};
    aes_.Encrypt(zeros.data(), zeros.data(), 1);
    hash_keys_[0] = GetBlock(zeros.data());
    for (size_t i = 1; i < kPowers; ++i) hash_keys_[i] = Multiply(hash_keys_[i - 1], hash_keys_[0]);
    Wipe(zeros.data(), zeros.size());
}

AesGcm::~AesGcm()
{
    Wipe(hash_keys_.data(), sizeof hash_keys_);
}

// GHASH (6.4): a last block that is not whole is filled up with zeros.
void AesGcm::Hash(Element& sum, ByteSpan bytes) const
{
    const auto add = [&](const uint8_t* blocks, size_t num_blocks) {
#ifdef TALORA_X86
        if (has_instructions_) {
            sum = HashFast(hash_keys_, sum, blocks, num_blocks);
            return;
        }
#endif
        for (size_t i = 0; i < num_blocks; ++i)
            sum = Multiply(sum ^ GetBlock(blocks + i * kAesBlock), hash_keys_[0]);
    };
    const size_t num_whole = bytes.size() / kAesBlock, num_rest = bytes.size() % kAesBlock;
    add(bytes.data(), num_whole);
    if (num_rest == 0) return;
    Block last{};
    std::copy_n(bytes.end() - static_cast<ptrdiff_t>(num_rest), num_rest, last.begin());
    add(last.data(), 1);
}

// SP 800-38D, 7.1, step 2.
AesGcm::Block AesGcm::FirstCounter(ByteSpan nonce) const
{
    TALORA_CHECK(!nonce.empty());
    Block counter{};
    if (nonce.size() == kCounterAt) {
        std::copy(nonce.begin(), nonce.end(), counter.begin());
        counter.back() = 1;
        return counter;
    }
    Element sum = 0;
    Hash(sum, nonce);
    PutBigEndian(uint64_t{nonce.size()} * 8, counter.data() + 8);
    Hash(sum, counter);
    PutBlock(sum, counter.data());
    return counter;
}

// 7.1, steps 5 and 6: the hash of both texts and their lengths, XORed with the encrypted first counter.
GcmTag AesGcm::Tag(const Block& counter, ByteSpan data, ByteSpan sealed) const
{
    Element sum = 0;
    Hash(sum, data);
    Hash(sum, sealed);
    Block lengths;
    PutBigEndian(uint64_t{data.size()} * 8, lengths.data());
    PutBigEndian(uint64_t{sealed.size()} * 8, lengths.data() + 8);
    Hash(sum, lengths);
    GcmTag tag;
    aes_.Encrypt(counter.data(), tag.data(), 1);
    PutBlock(sum ^ GetBlock(tag.data()), tag.data());
    return tag;
}

// XORs with the key stream: the encrypted blocks after counter, whose last 32 bits count and wrap.
void AesGcm::Count(Block counter, ByteSpan in, uint8_t* out) const
{
    std::array<uint8_t, kBatch * kAesBlock> stream;
    auto number = static_cast<uint32_t>(BigEndian(counter.data() + 8));
    for (size_t at = 0; at < in.size(); at += stream.size()) {
        const size_t size = std::min(stream.size(), in.size() - at);
        const size_t num_blocks = (size + kAesBlock - 1) / kAesBlock;
        for (size_t i = 0; i < num_blocks; ++i) {
            ++number;
            for (size_t b = 0; b < 4; ++b)
                counter[kCounterAt + b] = static_cast<uint8_t>(number >> (24 - 8 * b));
            std::memcpy(stream.data() + i * kAesBlock, counter.data(), kAesBlock);
        }
        aes_.Encrypt(stream.data(), stream.data(), num_blocks);
        for (size_t i = 0; i < size; ++i) out[at + i] = in[at + i] ^ stream[i];
    }
    Wipe(stream.data(), stream.size());
}

GcmTag AesGcm::Encrypt(ByteSpan nonce, ByteSpan data, ByteSpan text, uint8_t* out) const
{
    TALORA_CHECK(text.size() <= kMaxGcmText && data.size() <= kMaxGcmData);
    const Block counter = FirstCounter(nonce);
    Count(counter, text, out);
    return Tag(counter, data, {out, text.size()});
}

// The tag comes first: nothing is decrypted that is not authentic.
bool AesGcm::Decrypt(ByteSpan nonce, ByteSpan data, ByteSpan sealed, const GcmTag& tag, uint8_t* out) const
{
    if (sealed.size() > kMaxGcmText || data.size() > kMaxGcmData) return false;
    const Block counter = FirstCounter(nonce);
    if (!IsEqualSecretly(Tag(counter, data, sealed), tag)) return false;
    Count(counter, sealed, out);
    return true;
}

}  // namespace talora
