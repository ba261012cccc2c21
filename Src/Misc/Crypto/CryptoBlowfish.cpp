// Blowfish in counter mode (Schneier 1994), for sites that ask for it.
#include "Misc/Crypto/CryptoBlowfish.h"

#include <algorithm>
#include <cstring>
#include <vector>

#include "Basic/Error.h"
#include "Basic/Secret.h"

namespace talora {

namespace {

// ---- The digits of pi, with which a key schedule starts: fixed-point numbers, most significant word first
// ----

using Fixed = std::vector<uint32_t>;  // one word of whole numbers, then the fraction

// number /= divisor; words before `first` are zero, and `first` moves on when more of them are.
void Divide(Fixed& number, uint32_t divisor, size_t& first)
{
    uint64_t rest = 0;
    for (size_t i = first; i < number.size(); ++i) {
        rest = rest << 32 | number[i];
        number[i] = static_cast<uint32_t>(rest / divisor);
        rest %= divisor;
    }
    while (first < number.size() && number[first] == 0) ++first;
}

void Add(Fixed& sum, const Fixed& number, bool negative)
{
    uint64_t carry = negative;
    for (size_t i = sum.size(); i-- > 0;) {
        carry += uint64_t{sum[i]} + (negative ? ~number[i] : number[i]);
        sum[i] = static_cast<uint32_t>(carry);
        carry >>= 32;
    }
}

// sum += factor * arctan (1 / x), by its power series.
void AddArctan(Fixed& sum, uint32_t factor, uint32_t x, bool negative)
{
    Fixed power(sum.size());
    power[0] = factor;
    size_t first = 0;
    Divide(power, x, first);
    for (uint32_t n = 1; first < power.size(); n += 2) {
        Fixed term = power;
        size_t term_first = first;
        Divide(term, n, term_first);
        Add(sum, term, negative);
        negative = !negative;
        Divide(power, x * x, first);
    }
}

}  // namespace

// pi = 16 arctan (1/5) - 4 arctan (1/239) (Machin 1706).
const Blowfish::Tables& Blowfish::Digits()
{
    static const Tables tables = [] {
        Tables digits;
        constexpr size_t kWords = sizeof(Tables) / sizeof(uint32_t), kGuard = 2;
        Fixed pi(1 + kWords + kGuard);
        AddArctan(pi, 16, 5, false);
        AddArctan(pi, 4, 239, true);
        std::memcpy(&digits, pi.data() + 1, sizeof digits);
        return digits;
    }();
    return tables;
}

// The key schedule: the key, repeated, is XORed into the round keys, and then all tables are replaced, pair
// by pair, by what encrypting a block of zeros again and again gives.
Blowfish::Blowfish(ByteSpan key) : tables_(Digits())
{
    static_assert(sizeof(Tables) == (kRounds + 2 + 4 * 256) * sizeof(uint32_t));
    TALORA_CHECK(!key.empty() && key.size() <= 56);
    size_t at = 0;
    for (uint32_t& p : tables_.p) {
        uint32_t word = 0;
        for (int i = 0; i < 4; ++i) word = word << 8 | key[at++ % key.size()];
        p ^= word;
    }
    uint64_t block = 0;
    const auto replace = [&](uint32_t& left, uint32_t& right) {
        block = Encrypt(block);
        left = static_cast<uint32_t>(block >> 32);
        right = static_cast<uint32_t>(block);
    };
    for (size_t i = 0; i < tables_.p.size(); i += 2) replace(tables_.p[i], tables_.p[i + 1]);
    for (auto& box : tables_.s)
        for (size_t i = 0; i < box.size(); i += 2) replace(box[i], box[i + 1]);
}

Blowfish::~Blowfish()
{
    Wipe(&tables_, sizeof tables_);
}

// Sixteen rounds of a Feistel network; the halves change places after each but the last.
uint64_t Blowfish::Encrypt(uint64_t block) const
{
    const auto& [p, s] = tables_;
    auto left = static_cast<uint32_t>(block >> 32), right = static_cast<uint32_t>(block);
    for (size_t round = 0; round < kRounds; ++round) {
        left ^= p[round];
        right ^= ((s[0][left >> 24] + s[1][left >> 16 & 0xFF]) ^ s[2][left >> 8 & 0xFF]) + s[3][left & 0xFF];
        std::swap(left, right);
    }
    return uint64_t{right ^ p[kRounds + 1]} << 32 | (left ^ p[kRounds]);
}

// XORs with the encrypted numbers from `first` on: encryption and decryption alike.
void Blowfish::Count(uint64_t first, ByteSpan in, uint8_t* out) const
{
    for (size_t at = 0; at < in.size(); at += kBlowfishBlock, ++first) {
        const uint64_t stream = Encrypt(first);
        for (size_t i = 0; i < std::min(kBlowfishBlock, in.size() - at); ++i)
            out[at + i] = in[at + i] ^ static_cast<uint8_t>(stream >> (56 - 8 * i));
    }
}

}  // namespace talora
