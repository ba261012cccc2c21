// Blowfish (Schneier 1993, Description of a new variable-length key, 64-bit block cipher), encryption only,
// as counter modes need it.
//
// For sites that ask for it: its blocks have 64 bits, so one key is good for some gigabytes, and its tables
// are looked up at places that depend on the key.
#pragma once

#include <array>
#include <cstdint>

#include "Misc/Crypto/CryptoHash.h"

namespace talora {

constexpr size_t kBlowfishBlock = 8;

class Blowfish {
public:
    explicit Blowfish(ByteSpan key);  // 1 to 56 bytes
    ~Blowfish();
    Blowfish(const Blowfish&) = delete;
    Blowfish& operator=(const Blowfish&) = delete;

    uint64_t Encrypt(uint64_t block) const;  // the first byte is the highest

    // XORs with the encryptions of first, first + 1, ...  out may be in.
    void Count(uint64_t first, ByteSpan in, uint8_t* out) const;

private:
    static constexpr size_t kRounds = 16;
    struct Tables {
        std::array<uint32_t, kRounds + 2> p;
        std::array<std::array<uint32_t, 256>, 4> s;
    };
    static const Tables& Digits();

    Tables tables_;
};

}  // namespace talora
