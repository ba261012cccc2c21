// AES in Galois/Counter Mode (SP 800-38D), with nonces of 12 and tags of 16 bytes.
//
// A nonce is used once with a key.  Additional data is authenticated, not encrypted.
#pragma once

#include <array>
#include <cstdint>

#include "Misc/CryptoAES.h"

namespace talora {

constexpr size_t kGcmNonceSize = 12, kGcmTagSize = 16;
constexpr uint64_t kMaxGcmText = 0xFFFFFFFE0;              // bytes of a message, for the counter has 32 bits
constexpr uint64_t kMaxGcmData = (uint64_t{1} << 61) - 1;  // bytes of additional data

using GcmNonce = std::array<uint8_t, kGcmNonceSize>;
using GcmTag = std::array<uint8_t, kGcmTagSize>;

class AesGcm {
public:
    explicit AesGcm(ByteSpan key, Aes::Instructions instructions = Aes::BEST);
    ~AesGcm();
    AesGcm(const AesGcm&) = delete;
    AesGcm& operator=(const AesGcm&) = delete;

    // out has room for the text, and may be the text itself.  @return the tag
    GcmTag Encrypt(const GcmNonce& nonce, ByteSpan data, ByteSpan text, uint8_t* out) const;
    // @return false, with nothing written, unless the tag is the one that was made
    bool Decrypt(const GcmNonce& nonce, ByteSpan data, ByteSpan sealed, const GcmTag& tag,
                 uint8_t* out) const;

private:
    using Block = std::array<uint8_t, kAesBlock>;
    // A polynomial of degree below 128; the coefficient of 1 is the highest bit of the first word.
    struct Element {
        uint64_t high = 0, low = 0;
    };
    void Hash(Element& sum, ByteSpan bytes) const;  // the last block filled up with zeros
    GcmTag Tag(const GcmNonce& nonce, ByteSpan data, ByteSpan sealed) const;
    void Count(const GcmNonce& nonce, ByteSpan in, uint8_t* out) const;

    Aes aes_;
    bool has_instructions_;
    alignas(16) Block hash_key_{};
    std::array<Element, 128> multiples_;  // the hash key times x^i
};

}  // namespace talora
