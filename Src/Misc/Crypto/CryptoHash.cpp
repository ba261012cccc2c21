// SHA-256 (FIPS 180-4), HMAC (RFC 2104), PBKDF2 (RFC 8018), random bytes of the system.
#include "Misc/Crypto/CryptoHash.h"

#include <fcntl.h>
#include <sys/random.h>
#include <unistd.h>

#include <algorithm>
#include <bit>
#include <cerrno>
#include <cstring>

#include "Basic/Secret.h"

#if defined(__x86_64__)
#include <cpuid.h>
#include <immintrin.h>
#define TALORA_X86 1
#endif

namespace talora {

namespace {

constexpr size_t kBlock = 64;
constexpr uint8_t kInnerPad = 0x36, kOuterPad = 0x5C;
constexpr uint32_t kIterationsBetweenPolls = 4096;

// The first 32 bits of the fractional parts of the square roots of the first 8 primes.
constexpr std::array<uint32_t, 8> kStart = {0x6A09E667, 0xBB67AE85, 0x3C6EF372, 0xA54FF53A,
                                            0x510E527F, 0x9B05688C, 0x1F83D9AB, 0x5BE0CD19};

// Of the cube roots of the first 64 primes.
constexpr std::array<uint32_t, 64> kRound = [] {
    std::array<uint32_t, 64> words{};
    int prime = 1;
    for (uint32_t& word : words) {
        bool is_prime = false;
        while (!is_prime) {
            ++prime;
            is_prime = true;
            for (int d = 2; d * d <= prime; ++d) is_prime = is_prime && prime % d != 0;
        }
        // The largest r with r^3 <= prime * 2^96; its low 32 bits are the fraction.
        uint64_t root = 0;
        for (int bit = 35; bit >= 0; --bit) {
            const uint64_t wider = root | uint64_t{1} << bit;
            // wider^3 has up to 108 bits and is compared in two halves.
            const unsigned __int128 cube = static_cast<unsigned __int128>(wider) * wider * wider;
            if (cube <= static_cast<unsigned __int128>(prime) << 96) root = wider;
        }
        word = static_cast<uint32_t>(root);
    }
    return words;
}();
static_assert(kRound[0] == 0x428A2F98 && kRound[63] == 0xC67178F2);

uint32_t BigEndian(const uint8_t* bytes)
{
    return uint32_t{bytes[0]} << 24 | uint32_t{bytes[1]} << 16 | uint32_t{bytes[2]} << 8 | bytes[3];
}

void PutBigEndian(uint32_t value, uint8_t* bytes)
{
    for (int i = 0; i < 4; ++i) bytes[i] = static_cast<uint8_t>(value >> (24 - 8 * i));
}

using State = std::array<uint32_t, 8>;

// FIPS 180-4, 6.2.2, for one block after the other.
void CompressPortably(State& state, const uint8_t* blocks, size_t num_blocks)
{
    uint32_t w[16];  // the last of the schedule
    for (; num_blocks > 0; --num_blocks, blocks += kBlock) {
        for (size_t t = 0; t < 16; ++t) w[t] = BigEndian(blocks + 4 * t);
        auto [a, b, c, d, e, f, g, h] = state;
        for (size_t first = 0; first < kRound.size(); first += 16) {
            for (size_t t = 0; t < 16; ++t) {
                if (first > 0) {
                    const uint32_t w15 = w[(t + 1) % 16], w2 = w[(t + 14) % 16];
                    const uint32_t s0 = std::rotr(w15, 7) ^ std::rotr(w15, 18) ^ (w15 >> 3);
                    const uint32_t s1 = std::rotr(w2, 17) ^ std::rotr(w2, 19) ^ (w2 >> 10);
                    w[t] += s1 + w[(t + 9) % 16] + s0;
                }
                const uint32_t sum1 = std::rotr(e, 6) ^ std::rotr(e, 11) ^ std::rotr(e, 25);
                const uint32_t t1 = h + sum1 + (g ^ (e & (f ^ g))) + kRound[first + t] + w[t];
                const uint32_t sum0 = std::rotr(a, 2) ^ std::rotr(a, 13) ^ std::rotr(a, 22);
                const uint32_t t2 = sum0 + ((a & b) | (c & (a | b)));
                h = g, g = f, f = e, e = d + t1, d = c, c = b, b = a, a = t1 + t2;
            }
        }
        const State after = {a, b, c, d, e, f, g, h};
        for (size_t i = 0; i < state.size(); ++i) state[i] += after[i];
    }
    Wipe(w, sizeof w);
}

#ifdef TALORA_X86

bool HasHashInstructions()
{
    constexpr unsigned kFeatures = 7, kShaBit = 29;
    static const bool has = [] {
        unsigned eax = 0, ebx = 0, ecx = 0, edx = 0;
        return __builtin_cpu_supports("sse4.1") && __get_cpuid_count(kFeatures, 0, &eax, &ebx, &ecx, &edx) &&
               (ebx >> kShaBit & 1);
    }();
    return has;
}

// The instructions keep a, b, e, f in one register and c, d, g, h in the other.
[[gnu::target("sha,sse4.1")]] void CompressFast(State& state, const uint8_t* blocks, size_t num_blocks)
{
    auto* const words = reinterpret_cast<__m128i*>(state.data());
    const __m128i swap = _mm_set_epi8(12, 13, 14, 15, 8, 9, 10, 11, 4, 5, 6, 7, 0, 1, 2, 3);
    const __m128i cdab = _mm_shuffle_epi32(_mm_loadu_si128(words), 0xB1);
    const __m128i efgh = _mm_shuffle_epi32(_mm_loadu_si128(words + 1), 0x1B);
    __m128i abef = _mm_alignr_epi8(cdab, efgh, 8), cdgh = _mm_blend_epi16(efgh, cdab, 0xF0);
    for (; num_blocks > 0; --num_blocks, blocks += kBlock) {
        const __m128i old_abef = abef, old_cdgh = cdgh;
        __m128i w[4];
#pragma GCC unroll 16
        for (size_t t = 0; t < 16; ++t) {
            __m128i& now = w[t % 4];
            const __m128i w1 = w[(t + 1) % 4], w2 = w[(t + 2) % 4], w3 = w[(t + 3) % 4];
            if (t < 4)
                now = _mm_shuffle_epi8(_mm_loadu_si128(reinterpret_cast<const __m128i*>(blocks) + t), swap);
            else
                now = _mm_sha256msg2_epu32(
                    _mm_add_epi32(_mm_sha256msg1_epu32(now, w1), _mm_alignr_epi8(w3, w2, 4)), w3);
            const __m128i sum =
                _mm_add_epi32(now, _mm_loadu_si128(reinterpret_cast<const __m128i*>(&kRound[4 * t])));
            cdgh = _mm_sha256rnds2_epu32(cdgh, abef, sum);
            abef = _mm_sha256rnds2_epu32(abef, cdgh, _mm_shuffle_epi32(sum, 0x0E));
        }
        abef = _mm_add_epi32(abef, old_abef);
        cdgh = _mm_add_epi32(cdgh, old_cdgh);
    }
    const __m128i feba = _mm_shuffle_epi32(abef, 0x1B), dchg = _mm_shuffle_epi32(cdgh, 0xB1);
    _mm_storeu_si128(words, _mm_blend_epi16(feba, dchg, 0xF0));
    _mm_storeu_si128(words + 1, _mm_alignr_epi8(dchg, feba, 8));
}

#else

bool HasHashInstructions()
{
    return false;
}

#endif

void Compress(bool has_instructions, State& state, const uint8_t* blocks, size_t num_blocks)
{
#ifdef TALORA_X86
    if (has_instructions) return CompressFast(state, blocks, num_blocks);
#endif
    CompressPortably(state, blocks, num_blocks);
}

}  // namespace

Sha256::Sha256(Instructions instructions)
    : state_(kStart), block_{}, has_instructions_(instructions == Instructions::BEST && HasHashInstructions())
{}

Sha256::~Sha256()
{
    Wipe(this, sizeof *this);
}

void Sha256::Add(ByteSpan bytes)
{
    while (!bytes.empty()) {
        // Whole blocks are taken from where they are; what is left waits in a buffer.
        const size_t waiting = bytes_ % kBlock;
        if (waiting == 0 && bytes.size() >= kBlock) {
            const size_t num_blocks = bytes.size() / kBlock;
            Compress(has_instructions_, state_, bytes.data(), num_blocks);
            bytes_ += num_blocks * kBlock;
            bytes = bytes.subspan(num_blocks * kBlock);
            continue;
        }
        const size_t taken = std::min(kBlock - waiting, bytes.size());
        std::memcpy(block_.data() + waiting, bytes.data(), taken);
        bytes_ += taken;
        bytes = bytes.subspan(taken);
        if (bytes_ % kBlock == 0) Compress(has_instructions_, state_, block_.data(), 1);
    }
}

// 5.1.1: a bit 1, zeros up to 8 bytes before the end of a block, the length in bits.
Sha256Digest Sha256::Finish()
{
    constexpr size_t kLengthAt = kBlock - 8;
    const uint64_t bits = bytes_ * 8;
    uint8_t padding[kBlock + 8] = {0x80};
    const size_t waiting = bytes_ % kBlock;
    const size_t count = (waiting < kLengthAt ? kLengthAt : kBlock + kLengthAt) - waiting;
    PutBigEndian(static_cast<uint32_t>(bits >> 32), padding + count);
    PutBigEndian(static_cast<uint32_t>(bits), padding + count + 4);
    Add({padding, count + 8});
    Sha256Digest digest;
    for (size_t i = 0; i < 8; ++i) PutBigEndian(state_[i], digest.data() + 4 * i);
    return digest;
}

// Both hashes are begun with the padded key; a key longer than a block is hashed first.
HmacSha256::HmacSha256(ByteSpan key, Instructions instructions) : inner_(instructions), outer_(instructions)
{
    std::array<uint8_t, kBlock> padded{};
    if (key.size() > kBlock) {
        Sha256 hash(instructions);
        hash.Add(key);
        Sha256Digest digest = hash.Finish();
        std::copy(digest.begin(), digest.end(), padded.begin());
        Wipe(digest.data(), digest.size());
    } else {
        std::copy(key.begin(), key.end(), padded.begin());
    }
    for (uint8_t& byte : padded) byte ^= kInnerPad;
    inner_.Add(padded);
    for (uint8_t& byte : padded) byte ^= kInnerPad ^ kOuterPad;
    outer_.Add(padded);
    Wipe(padded.data(), padded.size());
}

Sha256Digest HmacSha256::Finish()
{
    Sha256Digest inner = inner_.Finish();
    outer_.Add(inner);
    Wipe(inner.data(), inner.size());
    return outer_.Finish();
}

// The inner loop of PBKDF2: the HMAC of a digest is two compressions, the padding being the same each time.
void HmacSha256::Rehash(Sha256Digest& digest) const
{
    // Behind the block of the padded key there is one with the digest, and the two have this many bits.
    constexpr uint32_t kBits = (kBlock + kSha256Size) * 8;
    uint8_t block[kBlock] = {};
    block[kSha256Size] = 0x80;
    PutBigEndian(kBits, block + kBlock - 4);
    for (const Sha256* hash : {&inner_, &outer_}) {
        std::copy(digest.begin(), digest.end(), block);
        State state = hash->state_;
        Compress(hash->has_instructions_, state, block, 1);
        for (size_t i = 0; i < 8; ++i) PutBigEndian(state[i], digest.data() + 4 * i);
        Wipe(state.data(), sizeof state);
    }
    Wipe(block, sizeof block);
}

// 5.2: each block of the key is the XOR of `iterations` HMACs, the first of salt and block number, each other
// of the one before.
bool DerivePbkdf2(ByteSpan password, ByteSpan salt, uint32_t iterations, std::span<uint8_t> key,
                  const std::function<bool()>& keep_on, Instructions instructions)
{
    const HmacSha256 keyed(password, instructions);  // the password is hashed once, whatever its length
    uint32_t block = 0;
    for (size_t done = 0; done < key.size(); done += kSha256Size) {
        uint8_t number[4];
        PutBigEndian(++block, number);
        HmacSha256 first(keyed);
        first.Add(salt);
        first.Add(number);
        Sha256Digest u = first.Finish(), sum = u;
        bool is_halted = false;
        for (uint32_t i = 1; i < iterations && !is_halted; ++i) {
            keyed.Rehash(u);
            for (size_t j = 0; j < kSha256Size; ++j) sum[j] ^= u[j];
            is_halted = i % kIterationsBetweenPolls == 0 && !keep_on();
        }
        std::copy_n(sum.begin(), std::min(kSha256Size, key.size() - done),
                    key.begin() + static_cast<ptrdiff_t>(done));
        Wipe(u.data(), u.size());
        Wipe(sum.data(), sum.size());
        if (is_halted) {
            std::fill(key.begin(), key.end(), 0);
            return false;
        }
    }
    return true;
}

// Looks at every byte whatever it finds; volatile, so that the compiler leaves it so.
bool IsEqualSecretly(ByteSpan a, ByteSpan b)
{
    if (a.size() != b.size()) return false;
    volatile uint8_t difference = 0;
    for (size_t i = 0; i < a.size(); ++i) difference = static_cast<uint8_t>(difference | (a[i] ^ b[i]));
    return difference == 0;
}

// False rather than weak numbers where the system gives none.
bool FillRandom(std::span<uint8_t> bytes)
{
    int device = -1;  // for a kernel, or a sandbox, without the call
    while (!bytes.empty()) {
        const ssize_t got = device < 0 ? ::getrandom(bytes.data(), bytes.size(), 0)
                                       : ::read(device, bytes.data(), bytes.size());
        if (got < 0 && errno == EINTR) continue;
        if (got < 0 && device < 0 && (errno == ENOSYS || errno == EPERM)) {
            device = ::open("/dev/urandom", O_RDONLY | O_CLOEXEC);
            if (device < 0) return false;
            continue;
        }
        if (got <= 0) break;
        bytes = bytes.subspan(static_cast<size_t>(got));
    }
    if (device >= 0) ::close(device);
    return bytes.empty();
}

}  // namespace talora
