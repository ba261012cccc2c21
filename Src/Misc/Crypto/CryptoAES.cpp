// AES (FIPS 197): encryption of blocks, with the processor's instructions or as a circuit of bits.
#include "Misc/Crypto/CryptoAES.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <utility>

#include "Basic/Error.h"
#include "Basic/Secret.h"

#if defined(__x86_64__)
#include <immintrin.h>
#define TALORA_X86 1
#endif

namespace talora {

namespace {

constexpr uint8_t kReduction = 0x1B;  // x^8 = x^4 + x^3 + x + 1

// ---- The S-box as a circuit ----
//
// Bits of many bytes are computed at once: bit i of all of them is one word, so that a product of bits is an
// AND and a sum an XOR, and nothing is looked up.  The field of 256 elements is built as a tower, each storey
// of pairs over the one below (Satoh et al. 2001, A compact Rijndael hardware architecture with S-box
// optimization), where an inverse takes a few products only.

// high y + low, with y^2 = y + norm.  The norms are 1 for pairs of bits; w, the pair (1, 0), for pairs of
// those; and w z, z being the pair (1, 0) of them, for the topmost.
template <class T>
struct Pair {
    T high, low;
};

template <class T>
constexpr T Sum(T a, T b)
{
    return a ^ b;
}

template <class T>
constexpr T Product(T a, T b)
{
    return a & b;
}

template <class T>
constexpr T TimesNorm(T a)
{
    return a;
}

template <class T>
constexpr T Square(T a)
{
    return a;
}

template <class T>
constexpr Pair<T> Sum(Pair<T> a, Pair<T> b)
{
    return {Sum(a.high, b.high), Sum(a.low, b.low)};
}

template <class T>
constexpr Pair<T> TimesNorm(Pair<T> a)
{
    return {Sum(a.high, a.low), a.high};
}

template <class T>
constexpr Pair<Pair<T>> TimesNorm(Pair<Pair<T>> a)
{
    return {TimesNorm(Sum(a.high, a.low)), TimesNorm(TimesNorm(a.high))};
}

template <class T>
constexpr Pair<T> Product(Pair<T> a, Pair<T> b)
{
    const T low = Product(a.low, b.low);
    return {Sum(Product(Sum(a.high, a.low), Sum(b.high, b.low)), low),
            Sum(low, TimesNorm(Product(a.high, b.high)))};
}

template <class T>
constexpr Pair<T> Square(Pair<T> a)
{
    const T high = Square(a.high);
    return {high, Sum(Square(a.low), TimesNorm(high))};
}

// Zero is its own inverse here.  With four elements the square is the inverse.
template <class T>
constexpr Pair<T> Inverse(Pair<T> a)
{
    return Square(a);
}

template <class T>
constexpr Pair<Pair<T>> Inverse(Pair<Pair<T>> a)
{
    const Pair<T> sum = Sum(a.high, a.low);
    const Pair<T> inverse = Inverse(Sum(Product(a.low, sum), TimesNorm(Square(a.high))));
    return {Product(a.high, inverse), Product(sum, inverse)};
}

template <class T>
using Byte = std::array<T, 8>;  // the lowest bit first
template <class T>
using Tower = Pair<Pair<Pair<T>>>;

template <class T>
constexpr Tower<T> ToTower(const Byte<T>& x)
{
    return {{{x[7], x[6]}, {x[5], x[4]}}, {{x[3], x[2]}, {x[1], x[0]}}};
}

template <class T>
constexpr Byte<T> ToByte(const Tower<T>& x)
{
    return {x.low.low.low,  x.low.low.high,  x.low.high.low,  x.low.high.high,
            x.high.low.low, x.high.low.high, x.high.high.low, x.high.high.high};
}

constexpr Tower<bool> ToTower(unsigned value)
{
    Byte<bool> bits{};
    for (size_t i = 0; i < 8; ++i) bits[i] = value >> i & 1;
    return ToTower(bits);
}

constexpr uint8_t ToNumber(const Tower<bool>& x)
{
    unsigned value = 0;
    for (size_t i = 0; i < 8; ++i) value |= unsigned{ToByte(x)[i]} << i;
    return static_cast<uint8_t>(value);
}

// What becomes of each bit of a byte, the lowest first.
using LinearMap = std::array<uint8_t, 8>;

constexpr uint8_t Apply(const LinearMap& map, unsigned x)
{
    unsigned sum = 0;
    for (size_t i = 0; i < 8; ++i) sum ^= x >> i & 1 ? map[i] : 0u;
    return static_cast<uint8_t>(sum);
}

// The powers of an element of the tower that solves x^8 + x^4 + x^3 + x + 1 = 0, as the x of FIPS 197 does.
constexpr LinearMap kIntoTower = [] {
    for (unsigned candidate = 2;; ++candidate) {
        std::array<Tower<bool>, 9> power{ToTower(1u)};
        for (size_t i = 1; i < power.size(); ++i) power[i] = Product(power[i - 1], ToTower(candidate));
        if (ToNumber(Sum(power[8], Sum(Sum(power[4], power[3]), Sum(power[1], power[0])))) != 0) continue;
        LinearMap map{};
        for (size_t i = 0; i < map.size(); ++i) map[i] = ToNumber(power[i]);
        return map;
    }
}();

// Back again, followed by the affine map of FIPS 197, 5.1.1, without its constant.
constexpr uint8_t kAffineConstant = 0x63;
constexpr LinearMap kOutOfTower = [] {
    LinearMap map{};
    for (unsigned value = 0; value < 256; ++value)
        for (size_t bit = 0; bit < 8; ++bit)
            if (Apply(kIntoTower, value) == 1u << bit) {
                const auto x = static_cast<uint8_t>(value);
                map[bit] = static_cast<uint8_t>(x ^ std::rotl(x, 1) ^ std::rotl(x, 2) ^ std::rotl(x, 3) ^
                                                std::rotl(x, 4));
            }
    return map;
}();

template <const LinearMap& kMap, class T>
constexpr Byte<T> Apply(const Byte<T>& x)
{
    Byte<T> sum{};
    const auto add = [&]<size_t to, size_t from>() {
        if constexpr (kMap[from] >> to & 1) sum[to] ^= x[from];
    };
    [&]<size_t... i>(std::index_sequence<i...>)
    {
        (add.template operator()<i / 8, i % 8>(), ...);
    }
    (std::make_index_sequence<64>());
    return sum;
}

// FIPS 197, 5.1.1.
template <class T>
void Substitute(Byte<T>& x)
{
    x = Apply<kOutOfTower>(ToByte(Inverse(ToTower(Apply<kIntoTower>(x)))));
    for (size_t i = 0; i < 8; ++i)
        if (kAffineConstant >> i & 1) x[i] = ~x[i];
}

// ---- Portable: 32 blocks at once ----

// One bit of a row of the state.  Lane c has its column c, for 32 blocks.
using Plane [[gnu::vector_size(kAesBlock)]] = uint32_t;
using Row = Byte<Plane>;
using State = std::array<Row, 4>;
constexpr size_t kSlices = 32;
static_assert(std::endian::native == std::endian::little);

// Exchanges bit i of byte j with bit j of byte i in every eight bytes that stand at one place of the words.
void Transpose(Row& row)
{
    constexpr uint32_t kMasks[] = {0x55555555, 0x33333333, 0x0F0F0F0F};
    for (int level = 2; level >= 0; --level) {
        const int distance = 1 << level;
        for (size_t i = 0; i < 8; ++i) {
            if (i >> level & 1) continue;
            Plane& a = row[i];
            Plane& b = row[i + static_cast<size_t>(distance)];
            const Plane difference = ((a >> distance) ^ b) & kMasks[level];
            b ^= difference;
            a ^= difference << distance;
        }
    }
}

// Where byte i of word w of row r comes from among the bytes of the blocks.
constexpr size_t Place(size_t r, size_t w, size_t i)
{
    return (i % 4 * 8 + w) * kAesBlock + i / 4 * 4 + r;
}

// From bytes to planes of bits; Store is the way back.
void Load(const uint8_t* blocks, State& state)
{
    for (size_t r = 0; r < 4; ++r) {
        uint8_t bytes[8][kAesBlock];
        for (size_t w = 0; w < 8; ++w)
            for (size_t i = 0; i < kAesBlock; ++i) bytes[w][i] = blocks[Place(r, w, i)];
        std::memcpy(&state[r], bytes, sizeof bytes);
        Transpose(state[r]);
    }
}

void Store(State& state, uint8_t* blocks)
{
    for (size_t r = 0; r < 4; ++r) {
        uint8_t bytes[8][kAesBlock];
        Transpose(state[r]);
        std::memcpy(bytes, &state[r], sizeof bytes);
        for (size_t w = 0; w < 8; ++w)
            for (size_t i = 0; i < kAesBlock; ++i) blocks[Place(r, w, i)] = bytes[w][i];
    }
}

// 5.1.1 and 5.1.2: row r moves left by r columns.
void SubstituteAndShift(State& state)
{
    for (Row& row : state) Substitute(row);
    for (Plane& x : state[1]) x = Plane{x[1], x[2], x[3], x[0]};
    for (Plane& x : state[2]) x = Plane{x[2], x[3], x[0], x[1]};
    for (Plane& x : state[3]) x = Plane{x[3], x[0], x[1], x[2]};
}

// 5.1.3: 2 a + 3 b + c + d for each byte a and those below it, which is 2 (a + b) + a + all four.
void MixColumns(State& state)
{
    const State old = state;
    Row all;
    for (size_t i = 0; i < 8; ++i) all[i] = old[0][i] ^ old[1][i] ^ old[2][i] ^ old[3][i];
    for (size_t r = 0; r < 4; ++r) {
        const Row &a = old[r], &b = old[(r + 1) % 4];
        const Plane carry = a[7] ^ b[7];  // x^8 = x^4 + x^3 + x + 1
        for (size_t i = 0; i < 8; ++i) {
            state[r][i] ^= all[i];
            if (i > 0) state[r][i] ^= a[i - 1] ^ b[i - 1];
            if (kReduction >> i & 1) state[r][i] ^= carry;
        }
    }
}

// 5.1.4: a bit of the key, spread over all bits of a word, is XORed to the plane of that bit.
void AddKey(State& state, const uint8_t* key)
{
    for (size_t r = 0; r < 4; ++r) {
        const Plane bytes = {key[r], key[4 + r], key[8 + r], key[12 + r]};
        for (size_t i = 0; i < 8; ++i) state[r][i] ^= 0 - (bytes >> static_cast<int>(i) & 1);
    }
}

// 5.1, on 32 blocks at once; the last batch is filled up with blocks that are not used.
void EncryptPortably(const uint8_t* keys, size_t num_rounds, const uint8_t* in, uint8_t* out,
                     size_t num_blocks)
{
    uint8_t blocks[kSlices * kAesBlock] = {};
    State state;
    for (size_t bytes = num_blocks * kAesBlock; bytes > 0;) {
        const size_t taken = std::min(bytes, sizeof blocks);
        std::memcpy(blocks, in, taken);
        Load(blocks, state);
        AddKey(state, keys);
        for (size_t round = 1; round < num_rounds; ++round) {
            SubstituteAndShift(state);
            MixColumns(state);
            AddKey(state, keys + round * kAesBlock);
        }
        SubstituteAndShift(state);
        AddKey(state, keys + num_rounds * kAesBlock);
        Store(state, blocks);
        std::memcpy(out, blocks, taken);
        in += taken, out += taken, bytes -= taken;
    }
    Wipe(blocks, sizeof blocks);
    Wipe(&state, sizeof state);
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
    Byte<uint32_t> bits{};
    for (size_t i = 0; i < 8; ++i)
        for (size_t b = 0; b < 4; ++b) bits[i] |= uint32_t{word[b]} >> i << 31 >> (31 - b);
    Substitute(bits);
    for (size_t b = 0; b < 4; ++b) {
        word[b] = 0;
        for (size_t i = 0; i < 8; ++i) word[b] |= static_cast<uint8_t>((bits[i] >> b & 1) << i);
    }
}

}  // namespace

// All three or none, so that AES and the hash of GCM take the same way.
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
    : num_rounds_(key.size() / 4 + 6),
      has_instructions_(instructions == Instructions::BEST && HasCipherInstructions())
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
