// AES in Galois/Counter Mode (SP 800-38D), with tags of 16 bytes.
//
// A nonce is used once with a key.  It has 12 bytes; others of any length but 0 are taken too, for what other
// programs have encrypted.  Additional data is authenticated, not encrypted.
#pragma once

#include <array>
#include <cstdint>

#include "Misc/Crypto/CryptoAES.h"

namespace talora {

constexpr size_t kGcmNonceSize = 12, kGcmTagSize = 16;
constexpr uint64_t kMaxGcmText = 0xFFFFFFFE0;              // bytes of a message, for the counter has 32 bits
constexpr uint64_t kMaxGcmData = (uint64_t{1} << 61) - 1;  // bytes of additional data

using GcmNonce = std::array<uint8_t, kGcmNonceSize>;
using GcmTag = std::array<uint8_t, kGcmTagSize>;

class AesGcm {
public:
    explicit AesGcm(ByteSpan key, Instructions instructions = Instructions::BEST);
    ~AesGcm();
    AesGcm(const AesGcm&) = delete;
    AesGcm& operator=(const AesGcm&) = delete;

    // out has room for the text, and may be the text itself.  @return the tag
    GcmTag Encrypt(ByteSpan nonce, ByteSpan data, ByteSpan text, uint8_t* out) const;
    // @return false, with nothing written, unless the tag is the one that was made
    bool Decrypt(ByteSpan nonce, ByteSpan data, ByteSpan sealed, const GcmTag& tag, uint8_t* out) const;

private:
    using Block = std::array<uint8_t, kAesBlock>;
    // A polynomial of degree below 128; the coefficient of 1 is the highest bit.
    using Element = unsigned __int128;
    static constexpr size_t kPowers = 4;

    void Hash(Element& sum, ByteSpan bytes) const;  // the last block filled up with zeros
    Block FirstCounter(ByteSpan nonce) const;
    GcmTag Tag(const Block& counter, ByteSpan data, ByteSpan sealed) const;
    void Count(Block counter, ByteSpan in, uint8_t* out) const;

    Aes aes_;
    bool has_instructions_;
    std::array<Element, kPowers> hash_keys_;  // the hash key and its powers, from the first on
};

}  // namespace talora
