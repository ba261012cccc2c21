// SHA-256 (FIPS 180-4), HMAC (FIPS 198-1, RFC 4231) and PBKDF2 (RFC 8018), and what ciphers need besides.
//
// Objects hold secrets and are wiped when they go out of scope.  Nothing here depends in time or addresses
// on the bytes that it works on, only on their number.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <span>
#include <string_view>

namespace talora {

using ByteSpan = std::span<const uint8_t>;

inline ByteSpan AsBytes(std::string_view text)
{
    return {reinterpret_cast<const uint8_t*>(text.data()), text.size()};
}

constexpr size_t kSha256Size = 32;
using Sha256Digest = std::array<uint8_t, kSha256Size>;

// Those that the processor has for a cipher or hash, or none of them; the results are the same.
enum class Instructions { BEST, PORTABLE };

class Sha256 {
public:
    explicit Sha256(Instructions instructions = Instructions::BEST);
    ~Sha256();
    void Add(ByteSpan bytes);
    Sha256Digest Finish();  // once

private:
    friend class HmacSha256;
    std::array<uint32_t, 8> state_;
    std::array<uint8_t, 64> block_;  // its first bytes_ % 64 bytes wait for the others
    uint64_t bytes_ = 0;
    bool has_instructions_;
};

class HmacSha256 {
public:
    explicit HmacSha256(ByteSpan key, Instructions instructions = Instructions::BEST);  // of any length
    void Add(ByteSpan bytes) { inner_.Add(bytes); }
    Sha256Digest Finish();  // once; a copy made before is a fresh start with the same key
    // Replaces a digest by its own, nothing having been added; twice the speed of the general way.
    void Rehash(Sha256Digest& digest) const;

private:
    Sha256 inner_, outer_;
};

// A key of key.size() bytes.  keep_on is asked a few hundred times a second.  @return false, with zeros for a
// key, if it said no
//
// With PORTABLE, 600,000 iterations take some tenths of a second wherever a file is opened; BEST is about
// seven times as fast where the processor has instructions.
bool DerivePbkdf2(ByteSpan password, ByteSpan salt, uint32_t iterations, std::span<uint8_t> key,
                  const std::function<bool()>& keep_on, Instructions instructions = Instructions::PORTABLE);

// Whether two texts of the same length are equal, in a time that does not depend on where they differ.
bool IsEqualSecretly(ByteSpan a, ByteSpan b);

// Random bytes from the operating system.  @return false if it has none; then bytes are not to be used
bool FillRandom(std::span<uint8_t> bytes);

}  // namespace talora
