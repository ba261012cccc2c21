// Encryption of binary net files with a password.
//
// One slow derivation (PBKDF2 with HMAC-SHA-256, RFC 8018) turns the password and a random salt into a
// 32-byte key, from which HMAC with a label makes the keys for cipher and MAC, and the key check: 16 bytes
// by which a wrong password is recognised before the contents are read, and which tie a file to its password.
// Everything in front of the encrypted bytes is authenticated with them, and nothing is decrypted before
// the tag has been found right.
//
//   G  AES-256 in Galois/Counter Mode (FIPS 197, SP 800-38D), a tag of 16 bytes
//   B  Blowfish in counter mode, then HMAC-SHA-256 over all (encrypt-then-MAC), a tag of 32 bytes
//   S  as G, but with a password that is no secret and one iteration: for the password "simple"
//
// The cipher block (64 bytes, integers little-endian): length of the block (4), iterations (4), salt (16),
// nonce (12; B uses the first 8), zeros (12), key check (16).
//
// Salt and nonce come from the operating system.  Keys are wiped when they go out of scope.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <string_view>

#include "Basic/Error.h"
#include "Basic/Memory.h"
#include "Basic/Secret.h"

namespace talora {

constexpr char kNotEncrypted = 'N', kSimpleCipher = 'S';
constexpr int kKeyIterations = 600000;  // for files that are written
constexpr size_t kCipherBlockSize = 64;
constexpr std::string_view kSimplePassword = "simple";

struct CipherDef {
    char letter;       // in files
    const char* name;  // null if it cannot be chosen
    size_t tag_size;
    bool needs_password;
};
const CipherDef* FindCipher(char letter);            // null if there is none
const CipherDef* FindCipher(std::string_view name);  // whatever its case; null if there is none

// The letter for a file to be written; letter is the one chosen for passwords in general.
char CipherFor(const Secret& password, char letter);

// What a file says of its encryption.
struct CipherBlock {
    uint32_t iterations = 0;
    std::array<uint8_t, 16> salt{};
    std::array<uint8_t, 12> nonce{};
    std::array<uint8_t, 16> key_check{};
};
CipherBlock ParseCipherBlock(std::string_view bytes, const FilePlace& place);
void AppendCipherBlock(std::string& out, const CipherBlock& block);

// The keys of one file.
struct FileKeys {
    FileKeys() = default;
    ~FileKeys() { Wipe(this, sizeof *this); }
    FileKeys(const FileKeys&) = delete;
    FileKeys& operator=(const FileKeys&) = delete;

    std::array<uint8_t, 32> cipher{};
    std::array<uint8_t, 32> mac{};
    std::array<uint8_t, 16> check{};
};
// Takes time: polls the halt flag.
void DeriveKeys(const CipherBlock& block, std::string_view password, FileKeys& keys);

// A block with fresh salt and nonce, and the keys that go with it.
CipherBlock NewCipherBlock(const CipherDef& cipher, std::string_view password, uint32_t iterations,
                           FileKeys& keys);

// The encrypted bytes followed by their tag.  front is every byte of the file before them.
ByteBuffer Seal(const CipherDef& cipher, const FileKeys& keys, const CipherBlock& block,
                std::string_view front, std::string_view bytes);
// The bytes that were sealed.  Fails if the keys, or a single bit of front or sealed, are not what they were.
ByteBuffer Unseal(const CipherDef& cipher, const FileKeys& keys, const CipherBlock& block,
                  std::string_view front, std::string_view sealed, const FilePlace& place);

}  // namespace talora
