// Ciphers and hashes against published vectors.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "Misc/CryptoAES.h"
#include "Misc/CryptoBlowfish.h"
#include "Misc/CryptoGCM.h"
#include "Misc/CryptoHash.h"

namespace talora {
namespace {

using Bytes = std::vector<uint8_t>;

Bytes FromHex(const std::string& hex)
{
    Bytes bytes;
    for (size_t i = 0; i + 1 < hex.size(); i += 2)
        bytes.push_back(static_cast<uint8_t>(std::stoi(hex.substr(i, 2), nullptr, 16)));
    return bytes;
}

std::string ToHex(ByteSpan bytes)
{
    std::string hex;
    for (const uint8_t byte : bytes) {
        char digits[3];
        snprintf(digits, sizeof digits, "%02x", byte);
        hex += digits;
    }
    return hex;
}

constexpr Aes::Instructions kWays[] = {Aes::BEST, Aes::PORTABLE};

TEST(CryptoHashTest, Sha256OfPublishedTexts)
{
    const struct {
        std::string text;
        const char* digest;
    } rows[] = {
        {"", "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855"},
        {"abc", "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad"},
        {"abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq",
         "248d6a61d20638b8e5c026930c3e6039a33ce45964ff2167f6ecedd419db06c1"},
        {std::string(1000000, 'a'), "cdc76e5c9914fb9281a1c7e284d73e67f1809a48a497200e046d39ccc7112cd0"},
    };
    for (const auto& row : rows) {
        for (const size_t piece : {1, 63, 64, 1000000}) {
            Sha256 hash;
            for (size_t at = 0; at < row.text.size(); at += piece)
                hash.Add(AsBytes(row.text).subspan(at, std::min(piece, row.text.size() - at)));
            EXPECT_EQ(ToHex(hash.Finish()), row.digest) << row.text.size() << " in pieces of " << piece;
        }
    }
}

TEST(CryptoHashTest, HmacOfRfc4231)
{
    const struct {
        std::string key, text;
        const char* mac;
    } rows[] = {
        {std::string(20, '\x0b'), "Hi There",
         "b0344c61d8db38535ca8afceaf0bf12b881dc200c9833da726e9376c2e32cff7"},
        {"Jefe", "what do ya want for nothing?",
         "5bdcc146bf60754e6a042426089575c75a003f089d2739839dec58b964ec3843"},
        {std::string(20, '\xaa'), std::string(50, '\xdd'),
         "773ea91e36800e46854db8ebd09181a72959098b3ef8c122d9635514ced565fe"},
        {std::string(131, '\xaa'), "Test Using Larger Than Block-Size Key - Hash Key First",
         "60e431591ee0b67f0d8a26aacbf5b77f8e0bc6213728c5140546040f0ee37f54"},
    };
    for (const auto& row : rows) {
        HmacSha256 mac(AsBytes(row.key));
        mac.Add(AsBytes(row.text));
        EXPECT_EQ(ToHex(mac.Finish()), row.mac);
    }
}

TEST(CryptoHashTest, Pbkdf2WithHmacSha256)
{
    const struct {
        const char *password, *salt;
        uint32_t iterations;
        const char* key;
    } rows[] = {
        {"password", "salt", 1, "120fb6cffcf8b32c43e7225256c4f837a86548c92ccc35480805987cb70be17b"},
        {"password", "salt", 2, "ae4d0c95af6b46d32d0adff928f06dd02a303f8ef3c251dfd6e2d85a95474c43"},
        {"password", "salt", 4096, "c5e478d59288c841aa530db6845c4c8d962893a001ce4e11a4963873aa98134a"},
        {"passwordPASSWORDpassword", "saltSALTsaltSALTsaltSALTsaltSALTsalt", 4096,
         "348c89dbcbd32b2f32d814b8116e84cf2b17347ebc1800181c4e2a1fb8dd53e1c635518c7dac47e9"},
        {"passwd", "salt", 1,
         "55ac046e56e3089fec1691c22544b605f94185216dde0465e68b9d57c20dacbc49ca9cccf179b645991664b39d77ef317c71b845b1e30bd509112041d3a19783"},
    };
    for (const auto& row : rows) {
        Bytes key(std::string(row.key).size() / 2);
        EXPECT_TRUE(
            DerivePbkdf2(AsBytes(row.password), AsBytes(row.salt), row.iterations, key, [] { return true; }));
        EXPECT_EQ(ToHex(key), row.key);
    }
    Bytes key(32);
    EXPECT_FALSE(DerivePbkdf2(AsBytes("x"), AsBytes("y"), UINT32_MAX, key, [] { return false; }));
}

TEST(CryptoAesTest, BlocksOfFips197)
{
    const Bytes text = FromHex("00112233445566778899aabbccddeeff");
    const std::string key = "000102030405060708090a0b0c0d0e0f101112131415161718191a1b1c1d1e1f";
    const struct {
        size_t key_size;
        const char* encrypted;
    } rows[] = {
        {16, "69c4e0d86a7b0430d8cdb78070b4c55a"},
        {24, "dda97ca4864cdfe06eaf70a0ec0d7191"},
        {32, "8ea2b7ca516745bfeafc49904b496089"},
    };
    for (const auto& row : rows) {
        for (const Aes::Instructions way : kWays) {
            const Aes aes(ByteSpan(FromHex(key)).first(row.key_size), way);
            for (size_t count = 1; count < 20; ++count) {
                Bytes blocks;
                std::string expected;
                for (size_t i = 0; i < count; ++i) {
                    blocks.insert(blocks.end(), text.begin(), text.end());
                    expected += row.encrypted;
                }
                aes.Encrypt(blocks.data(), blocks.data(), count);
                EXPECT_EQ(ToHex(blocks), expected);
            }
        }
    }
}

struct GcmRow {
    const char *key, *nonce, *data, *text, *sealed, *tag;
};
const GcmRow kGcmRows[] = {
    {"00000000000000000000000000000000", "000000000000000000000000", "", "", "",
     "58e2fccefa7e3061367f1d57a4e7455a"},
    {"00000000000000000000000000000000", "000000000000000000000000", "", "00000000000000000000000000000000",
     "0388dace60b6a392f328c2b971b2fe78", "ab6e47d42cec13bdf53a67b21257bddf"},
    {"0000000000000000000000000000000000000000000000000000000000000000", "000000000000000000000000", "", "",
     "", "530f8afbc74536b9a963b4f1c4cb738b"},
    {"0000000000000000000000000000000000000000000000000000000000000000", "000000000000000000000000", "",
     "00000000000000000000000000000000", "cea7403d4d606b6e074ec5d3baf39d18",
     "d0d1c8a799996bf0265b98b5d48ab919"},
    {"feffe9928665731c6d6a8f9467308308feffe9928665731c6d6a8f9467308308", "cafebabefacedbaddecaf888",
     "feedfacedeadbeeffeedfacedeadbeefabaddad2",
     "d9313225f88406e5a55909c5aff5269a86a7a9531534f7da2e4c303d8a318a721c3c0c95956809532fcf0e2449a6b525b16aedf5aa0de657ba637b39",
     "522dc1f099567d07f47f37a32a84427d643a8cdcbfe5c0c97598a2bd2555d1aa8cb08e48590dbb3da7b08b1056828838c5f61e6393ba7a0abcc9f662",
     "76fc6ece0f4e1768cddf8853bb2d551b"},
};

TEST(CryptoGcmTest, PublishedMessages)
{
    for (const GcmRow& row : kGcmRows) {
        for (const Aes::Instructions way : kWays) {
            SCOPED_TRACE(row.tag);
            const AesGcm gcm(FromHex(row.key), way);
            const Bytes nonce_bytes = FromHex(row.nonce), data = FromHex(row.data), text = FromHex(row.text);
            GcmNonce nonce;
            std::copy(nonce_bytes.begin(), nonce_bytes.end(), nonce.begin());
            Bytes out(text.size());
            const GcmTag tag = gcm.Encrypt(nonce, data, text, out.data());
            EXPECT_EQ(ToHex(out), row.sealed);
            EXPECT_EQ(ToHex(tag), row.tag);
            Bytes back(text.size());
            EXPECT_TRUE(gcm.Decrypt(nonce, data, out, tag, back.data()));
            EXPECT_EQ(back, text);
            for (size_t bit = 0; bit < 128; ++bit) {
                GcmTag wrong = tag;
                wrong[bit / 8] = static_cast<uint8_t>(wrong[bit / 8] ^ 1 << bit % 8);
                Bytes untouched(text.size(), 0xEE);
                EXPECT_FALSE(gcm.Decrypt(nonce, data, out, wrong, untouched.data()));
                EXPECT_EQ(untouched, Bytes(text.size(), 0xEE));
            }
        }
    }
}

// All lengths, and both ways of computing.
TEST(CryptoGcmTest, WaysAgree)
{
    const Bytes key = FromHex(kGcmRows[4].key);
    const AesGcm best(key), portable(key, Aes::PORTABLE);
    const GcmNonce nonce = {1, 2, 3};
    Bytes text, data(37, 9);
    for (size_t size = 0; size < 700; ++size, text.push_back(static_cast<uint8_t>(size * 7))) {
        Bytes a(size), b(size);
        EXPECT_EQ(best.Encrypt(nonce, data, text, a.data()), portable.Encrypt(nonce, data, text, b.data()));
        EXPECT_EQ(a, b);
    }
}

TEST(CryptoBlowfishTest, PublishedBlocks)
{
    const struct {
        const char* key;
        uint64_t text, encrypted;
    } rows[] = {
        {"0000000000000000", 0, 0x4EF997456198DD78},
        {"FFFFFFFFFFFFFFFF", UINT64_MAX, 0x51866FD5B85ECB8A},
        {"3000000000000000", 0x1000000000000001, 0x7D856F9A613063F2},
        {"0123456789ABCDEF", 0x1111111111111111, 0x61F9C3802281B096},
        {"FEDCBA9876543210", 0x0123456789ABCDEF, 0x0ACEAB0FC6A0A28D},
        {"F0E1D2C3B4A5968778695A4B3C2D1E0F0011223344556677", 0xFEDCBA9876543210, 0x05044B62FA52D080},
    };
    for (const auto& row : rows)
        EXPECT_EQ(Blowfish(FromHex(row.key)).Encrypt(row.text), row.encrypted) << row.key;
}

}  // namespace
}  // namespace talora
