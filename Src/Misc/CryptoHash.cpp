#include "Misc/CryptoHash.h"

#include <sys/random.h>

#include <algorithm>
#include <bit>
#include <cerrno>
#include <cstring>

#include "Basic/Secret.h"

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

// FIPS 180-4, 6.2.2, for one block.
void Compress(std::array<uint32_t, 8>& state, const uint8_t* block)
{
    uint32_t w[64];
    for (int t = 0; t < 16; ++t) w[t] = BigEndian(block + 4 * t);
    for (int t = 16; t < 64; ++t) {
        const uint32_t s0 = std::rotr(w[t - 15], 7) ^ std::rotr(w[t - 15], 18) ^ (w[t - 15] >> 3);
        const uint32_t s1 = std::rotr(w[t - 2], 17) ^ std::rotr(w[t - 2], 19) ^ (w[t - 2] >> 10);
        w[t] = s1 + w[t - 7] + s0 + w[t - 16];
    }
    auto [a, b, c, d, e, f, g, h] = state;
    for (int t = 0; t < 64; ++t) {
        const uint32_t sum1 = std::rotr(e, 6) ^ std::rotr(e, 11) ^ std::rotr(e, 25);
        const uint32_t t1 = h + sum1 + (g ^ (e & (f ^ g))) + kRound[static_cast<size_t>(t)] + w[t];
        const uint32_t sum0 = std::rotr(a, 2) ^ std::rotr(a, 13) ^ std::rotr(a, 22);
        const uint32_t t2 = sum0 + ((a & b) | (c & (a | b)));
        h = g, g = f, f = e, e = d + t1, d = c, c = b, b = a, a = t1 + t2;
    }
    const uint32_t after[8] = {a, b, c, d, e, f, g, h};
    for (size_t i = 0; i < 8; ++i) state[i] += after[i];
}

}  // namespace

Sha256::Sha256() : state_(kStart), block_{} {}

Sha256::~Sha256()
{
    Wipe(this, sizeof *this);
}

void Sha256::Add(ByteSpan bytes)
{
    while (!bytes.empty()) {
        const size_t waiting = bytes_ % kBlock;
        if (waiting == 0 && bytes.size() >= kBlock) {
            Compress(state_, bytes.data());
            bytes_ += kBlock;
            bytes = bytes.subspan(kBlock);
            continue;
        }
        const size_t taken = std::min(kBlock - waiting, bytes.size());
        std::memcpy(block_.data() + waiting, bytes.data(), taken);
        bytes_ += taken;
        bytes = bytes.subspan(taken);
        if (bytes_ % kBlock == 0) Compress(state_, block_.data());
    }
}

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

HmacSha256::HmacSha256(ByteSpan key)
{
    std::array<uint8_t, kBlock> padded{};
    if (key.size() > kBlock) {
        Sha256 hash;
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

void HmacSha256::Rehash(Sha256Digest& digest) const
{
    // Behind the block of the padded key there is one with the digest, and the two have this many bits.
    constexpr uint32_t kBits = (kBlock + kSha256Size) * 8;
    uint8_t block[kBlock] = {};
    block[kSha256Size] = 0x80;
    PutBigEndian(kBits, block + kBlock - 4);
    for (const Sha256* hash : {&inner_, &outer_}) {
        std::copy(digest.begin(), digest.end(), block);
        std::array<uint32_t, 8> state = hash->state_;
        Compress(state, block);
        for (size_t i = 0; i < 8; ++i) PutBigEndian(state[i], digest.data() + 4 * i);
    }
}

bool DerivePbkdf2(ByteSpan password, ByteSpan salt, uint32_t iterations, std::span<uint8_t> key,
                  const std::function<bool()>& keep_on)
{
    const HmacSha256 keyed(password);  // the password is hashed once, whatever its length
    uint32_t block = 0;
    for (size_t done = 0; done < key.size(); done += kSha256Size) {
        uint8_t number[4];
        PutBigEndian(++block, number);
        HmacSha256 first(keyed);
        first.Add(salt);
        first.Add(number);
        Sha256Digest u = first.Finish(), sum = u;
        for (uint32_t i = 1; i < iterations; ++i) {
            keyed.Rehash(u);
            for (size_t j = 0; j < kSha256Size; ++j) sum[j] ^= u[j];
            if (i % kIterationsBetweenPolls == 0 && !keep_on()) return false;
        }
        std::copy_n(sum.begin(), std::min(kSha256Size, key.size() - done),
                    key.begin() + static_cast<ptrdiff_t>(done));
        Wipe(u.data(), u.size());
        Wipe(sum.data(), sum.size());
    }
    return true;
}

bool IsEqualSecretly(ByteSpan a, ByteSpan b)
{
    if (a.size() != b.size()) return false;
    volatile uint8_t difference = 0;
    for (size_t i = 0; i < a.size(); ++i) difference = static_cast<uint8_t>(difference | (a[i] ^ b[i]));
    return difference == 0;
}

bool FillRandom(std::span<uint8_t> bytes)
{
    while (!bytes.empty()) {
        const ssize_t got = ::getrandom(bytes.data(), bytes.size(), 0);
        if (got < 0 && errno == EINTR) continue;
        if (got <= 0) return false;
        bytes = bytes.subspan(static_cast<size_t>(got));
    }
    return true;
}

}  // namespace talora
