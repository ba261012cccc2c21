// AES (FIPS 197), the direction that counter modes need: encryption of blocks, with keys of 16, 24 or 32
// bytes.
//
// Where the processor has instructions for it they are used.  Elsewhere the S-box is computed as a circuit on
// the bits of 32 blocks at once: there are no look-ups at secret addresses, so the time shows nothing of key
// and contents.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "Misc/Crypto/CryptoHash.h"

namespace talora {

constexpr size_t kAesBlock = 16;

class Aes {
public:
    explicit Aes(ByteSpan key, Instructions instructions = Instructions::BEST);
    ~Aes();
    Aes(const Aes&) = delete;
    Aes& operator=(const Aes&) = delete;

    // Each block by itself.  in and out may be the same.
    void Encrypt(const uint8_t* in, uint8_t* out, size_t num_blocks) const;

private:
    alignas(16) std::array<uint8_t, 15 * kAesBlock> round_keys_{};
    size_t num_rounds_;
    bool has_instructions_;
};

// Whether this processor has instructions for AES and for products of polynomials (Misc/Crypto/CryptoGCM.h).
bool HasCipherInstructions();

}  // namespace talora
