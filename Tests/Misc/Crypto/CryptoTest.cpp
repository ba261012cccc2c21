// Ciphers and hashes against published vectors, their ways of computing against each other, and all against
// the openssl command.
#include <gtest/gtest.h>

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <string>
#include <vector>

#include "Misc/Crypto/CryptoAES.h"
#include "Misc/Crypto/CryptoBlowfish.h"
#include "Misc/Crypto/CryptoGCM.h"
#include "Misc/Crypto/CryptoHash.h"

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

std::string FromHexText(const std::string& hex)
{
    const Bytes bytes = FromHex(hex);
    return {bytes.begin(), bytes.end()};
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

constexpr Instructions kWays[] = {Instructions::BEST, Instructions::PORTABLE};

// Bytes without a pattern, the same on every run.
Bytes Mixed(size_t size)
{
    Bytes bytes(size);
    uint32_t random = 1;
    for (uint8_t& byte : bytes) byte = static_cast<uint8_t>((random = random * 1664525 + 1013904223) >> 24);
    return bytes;
}

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
        {"abcdefghbcdefghicdefghijdefghijkefghijklfghijklmghijklmnhijklmnoijklmnopjklmnopqklmnopqrlmnopqrsmnopqrstn"
         "opqrstu",
         "cf5b16a778af8380036ce59e7b0492370b249b11e8f07a51afac45037afee9d1"},
        {std::string(1000000, 'a'), "cdc76e5c9914fb9281a1c7e284d73e67f1809a48a497200e046d39ccc7112cd0"},
    };
    for (const auto& row : rows) {
        for (const size_t piece : {1, 63, 64, 200, 1000000}) {
            for (const Instructions way : kWays) {
                Sha256 hash(way);
                for (size_t at = 0; at < row.text.size(); at += piece)
                    hash.Add(AsBytes(row.text).subspan(at, std::min(piece, row.text.size() - at)));
                EXPECT_EQ(ToHex(hash.Finish()), row.digest) << row.text.size() << " in pieces of " << piece;
            }
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
        {FromHexText("0102030405060708090a0b0c0d0e0f10111213141516171819"), std::string(50, '\xcd'),
         "82558a389a443c0ea4cc819899f2083a85f0faa3e578f8077a2e3ff46729665b"},
        {std::string(20, '\x0c'), "Test With Truncation", "a3b6167473100ee06e0c796c2955552b"},
        {std::string(131, '\xaa'), "Test Using Larger Than Block-Size Key - Hash Key First",
         "60e431591ee0b67f0d8a26aacbf5b77f8e0bc6213728c5140546040f0ee37f54"},
        {std::string(131, '\xaa'),
         "This is a test using a larger than block-size key and a larger than block-size data. The key needs to "
         "be hashed before being used by the HMAC algorithm.",
         "9b09ffa71b942fcb27635fbcd5b0e944bfdc63644f0713938a7f51535c3a35e2"},
    };
    for (const auto& row : rows) {
        for (const Instructions way : kWays) {
            HmacSha256 mac(AsBytes(row.key), way);
            mac.Add(AsBytes(row.text));
            EXPECT_EQ(ToHex(mac.Finish()).substr(0, std::string(row.mac).size()), row.mac);
        }
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
        for (const Instructions way : kWays) {
            Bytes key(std::string(row.key).size() / 2);
            EXPECT_TRUE(DerivePbkdf2(
                AsBytes(row.password), AsBytes(row.salt), row.iterations, key, [] { return true; }, way));
            EXPECT_EQ(ToHex(key), row.key);
        }
    }
    Bytes key(32, 0xEE);
    EXPECT_FALSE(DerivePbkdf2(AsBytes("x"), AsBytes("y"), UINT32_MAX, key, [] { return false; }));
    EXPECT_EQ(key, Bytes(32));
}

TEST(CryptoHashTest, ComparesAndDraws)
{
    const Bytes a = Mixed(40);
    EXPECT_TRUE(IsEqualSecretly({}, {}));
    for (size_t size = 1; size <= a.size(); ++size) {
        const ByteSpan first = ByteSpan(a).first(size);
        Bytes b(first.begin(), first.end());
        EXPECT_TRUE(IsEqualSecretly(first, b));
        EXPECT_FALSE(IsEqualSecretly(first, ByteSpan(b).first(size - 1)));
        b[size / 2] ^= 0x80;
        EXPECT_FALSE(IsEqualSecretly(first, b));
    }
    Bytes drawn(1000), again(1000);
    EXPECT_TRUE(FillRandom(drawn) && FillRandom(again));
    EXPECT_NE(drawn, again);
    EXPECT_LT(std::count(drawn.begin(), drawn.end(), 0), 40);  // filled to the end
    EXPECT_LT(std::count(drawn.end() - 100, drawn.end(), 0), 20);
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
        for (const Instructions way : kWays) {
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
    int number;  // of the test case
    size_t key_size, text_size;
    const char *nonce, *sealed, *tag;
};
// The cases with a text of 60 bytes have additional data, those up to 16 bytes a key and a text of zeros.
const char kGcmKey[] = "feffe9928665731c6d6a8f9467308308feffe9928665731c6d6a8f9467308308";
const char kGcmText[] =
    "d9313225f88406e5a55909c5aff5269a86a7a9531534f7da2e4c303d8a318a721c3c0c95956809532fcf0e2449a6b525b16aedf5aa0de657ba637b391aafd255";
const char kGcmData[] = "feedfacedeadbeeffeedfacedeadbeefabaddad2";
const char
    kZeroNonce[] = "000000000000000000000000",
    kNonce[] = "cafebabefacedbaddecaf888", kShortNonce[] = "cafebabefacedbad",
    kLongNonce[] =
        "9313225df88406e555909c5aff5269aa6a7a9538534f7da1e4c303d2a318a728c3c0c95156809539fcf0e2429a6b525416aedbf5a0de6a57a637b39b";
const GcmRow kGcmRows[] = {
    {1, 16, 0, kZeroNonce, "", "58e2fccefa7e3061367f1d57a4e7455a"},
    {2, 16, 16, kZeroNonce, "0388dace60b6a392f328c2b971b2fe78", "ab6e47d42cec13bdf53a67b21257bddf"},
    {3, 16, 64, kNonce,
     "42831ec2217774244b7221b784d0d49ce3aa212f2c02a4e035c17e2329aca12e21d514b25466931c7d8f6a5aac84aa051ba30b396a0aac973d58e091473f5985",
     "4d5c2af327cd64a62cf35abd2ba6fab4"},
    {4, 16, 60, kNonce,
     "42831ec2217774244b7221b784d0d49ce3aa212f2c02a4e035c17e2329aca12e21d514b25466931c7d8f6a5aac84aa051ba30b396a0aac973d58e091",
     "5bc94fbc3221a5db94fae95ae7121a47"},
    {5, 16, 60, kShortNonce,
     "61353b4c2806934a777ff51fa22a4755699b2a714fcdc6f83766e5f97b6c742373806900e49f24b22b097544d4896b424989b5e1ebac0f07c23f4598",
     "3612d2e79e3b0785561be14aaca2fccb"},
    {6, 16, 60, kLongNonce,
     "8ce24998625615b603a033aca13fb894be9112a5c3a211a8ba262a3cca7e2ca701e4a9a4fba43c90ccdcb281d48c7c6fd62875d2aca417034c34aee5",
     "619cc5aefffe0bfa462af43c1699d050"},
    {7, 24, 0, kZeroNonce, "", "cd33b28ac773f74ba00ed1f312572435"},
    {8, 24, 16, kZeroNonce, "98e7247c07f0fe411c267e4384b0f600", "2ff58d80033927ab8ef4d4587514f0fb"},
    {9, 24, 64, kNonce,
     "3980ca0b3c00e841eb06fac4872a2757859e1ceaa6efd984628593b40ca1e19c7d773d00c144c525ac619d18c84a3f4718e2448b2fe324d9ccda2710acade256",
     "9924a7c8587336bfb118024db8674a14"},
    {10, 24, 60, kNonce,
     "3980ca0b3c00e841eb06fac4872a2757859e1ceaa6efd984628593b40ca1e19c7d773d00c144c525ac619d18c84a3f4718e2448b2fe324d9ccda2710",
     "2519498e80f1478f37ba55bd6d27618c"},
    {11, 24, 60, kShortNonce,
     "0f10f599ae14a154ed24b36e25324db8c566632ef2bbb34f8347280fc4507057fddc29df9a471f75c66541d4d4dad1c9e93a19a58e8b473fa0f062f7",
     "65dcc57fcf623a24094fcca40d3533f8"},
    {12, 24, 60, kLongNonce,
     "d27e88681ce3243c4830165a8fdcf9ff1de9a1d8e6b447ef6ef7b79828666e4581e79012af34ddd9e2f037589b292db3e67c036745fa22e7e9b7373b",
     "dcf566ff291c25bbb8568fc3d376a6d9"},
    {13, 32, 0, kZeroNonce, "", "530f8afbc74536b9a963b4f1c4cb738b"},
    {14, 32, 16, kZeroNonce, "cea7403d4d606b6e074ec5d3baf39d18", "d0d1c8a799996bf0265b98b5d48ab919"},
    {15, 32, 64, kNonce,
     "522dc1f099567d07f47f37a32a84427d643a8cdcbfe5c0c97598a2bd2555d1aa8cb08e48590dbb3da7b08b1056828838c5f61e6393ba7a0abcc9f662898015ad",
     "b094dac5d93471bdec1a502270e3cc6c"},
    {16, 32, 60, kNonce,
     "522dc1f099567d07f47f37a32a84427d643a8cdcbfe5c0c97598a2bd2555d1aa8cb08e48590dbb3da7b08b1056828838c5f61e6393ba7a0abcc9f662",
     "76fc6ece0f4e1768cddf8853bb2d551b"},
    {17, 32, 60, kShortNonce,
     "c3762df1ca787d32ae47c13bf19844cbaf1ae14d0b976afac52ff7d79bba9de0feb582d33934a4f0954cc2363bc73f7862ac430e64abe499f47c9b1f",
     "3a337dbf46a792c45e454913fe2ea8f2"},
    {18, 32, 60, kLongNonce,
     "5a8def2f0c9e53f1f75d7853659e2a20eeb2b22aafde6419a058ab4f6f746bf40fc0c3b780f244452da3ebf1c5d82cdea2418997200ef82e44ae7e3f",
     "a44a8266ee1c8eb0c8b5d4cf5ae9f19a"},
};

TEST(CryptoGcmTest, PublishedMessages)
{
    for (const GcmRow& row : kGcmRows) {
        for (const Instructions way : kWays) {
            SCOPED_TRACE(row.number);
            const bool is_zero = row.text_size <= kAesBlock;
            const Bytes key = is_zero ? Bytes(row.key_size) : FromHex(std::string(kGcmKey, 2 * row.key_size));
            const Bytes text =
                is_zero ? Bytes(row.text_size) : FromHex(std::string(kGcmText, 2 * row.text_size));
            const Bytes nonce = FromHex(row.nonce), data = FromHex(row.text_size == 60 ? kGcmData : "");
            const AesGcm gcm(key, way);
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

// All lengths of texts and nonces, and both ways of computing, in place and not.
TEST(CryptoGcmTest, WaysAgree)
{
    const Bytes key = FromHex(kGcmKey), mixed = Mixed(1200);
    const AesGcm best(key), portable(key, Instructions::PORTABLE);
    for (size_t size = 0; size < mixed.size(); ++size) {
        const ByteSpan all = mixed, text = all.first(size), data = all.last(size % 97),
                       nonce = all.first(size % 40 + 1);
        Bytes a(text.begin(), text.end()), b(size);
        const GcmTag tag = best.Encrypt(nonce, data, a, a.data());
        ASSERT_EQ(tag, portable.Encrypt(nonce, data, text, b.data())) << size;
        ASSERT_EQ(a, b);
        ASSERT_TRUE(best.Decrypt(nonce, data, b, tag, b.data()));
        ASSERT_TRUE(std::equal(b.begin(), b.end(), text.begin()));
        ASSERT_TRUE(portable.Decrypt(nonce, data, a, tag, a.data()));
        ASSERT_EQ(a, b);
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
    };
    for (const auto& row : rows)
        EXPECT_EQ(Blowfish(FromHex(row.key)).Encrypt(row.text), row.encrypted) << row.key;
}

// The published keys of 1 to 24 bytes, for one text.
TEST(CryptoBlowfishTest, KeysOfAllLengths)
{
    const Bytes key = FromHex("F0E1D2C3B4A5968778695A4B3C2D1E0F0011223344556677");
    const uint64_t rows[] = {0xF9AD597C49DB005E, 0xE91D21C1D961A6D6, 0xE9C2B70A1BC65CF3, 0xBE1E639408640F05,
                             0xB39E44481BDB1E6E, 0x9457AA83B1928C0D, 0x8BB77032F960629D, 0xE87A244E2CC85E82,
                             0x15750E7A4F4EC577, 0x122BA70B3AB64AE0, 0x3A833C9AFFC537F6, 0x9409DA87A90F6BF2,
                             0x884F80625060B8B4, 0x1F85031C19E11968, 0x79D9373A714CA34F, 0x93142887EE3BE15C,
                             0x03429E838CE2D14B, 0xA4299E27469FF67B, 0xAFD5AED1C1BC96A8, 0x10851C0E3858DA9F,
                             0xE6F51ED79B9DB21F, 0x64A6E14AFD36B46F, 0x80C7D7D45A5479AD, 0x05044B62FA52D080};
    for (size_t i = 0; i < std::size(rows); ++i)
        EXPECT_EQ(Blowfish(ByteSpan(key).first(i + 1)).Encrypt(0xFEDCBA9876543210), rows[i]) << i + 1;
}

TEST(CryptoBlowfishTest, CountsBlocksPastTheEnd)
{
    const Blowfish blowfish(AsBytes("key"));
    const Bytes text(29, 0x5A);
    Bytes out(text.size());
    blowfish.Count(UINT64_MAX - 1, text, out.data());
    for (size_t i = 0; i < out.size(); ++i) {
        const uint64_t stream = blowfish.Encrypt(UINT64_MAX - 1 + i / 8);
        EXPECT_EQ(out[i], static_cast<uint8_t>(0x5A ^ stream >> (56 - i % 8 * 8))) << i;
    }
}

// ---- Against another implementation ----

// What the command prints, of contents in a file whose name stands in the command as %s.
std::string OutputOf(const std::string& command, const Bytes& contents)
{
    const std::string name = testing::TempDir() + "talora_crypto_" + std::to_string(getpid());
    std::ofstream(name, std::ios::binary)
        .write(reinterpret_cast<const char*>(contents.data()), static_cast<std::streamsize>(contents.size()));
    std::string line = "openssl " + command + " 2>/dev/null", output;
    if (const size_t at = line.find("%s"); at != line.npos) line.replace(at, 2, name);
    if (FILE* const pipe = popen(line.c_str(), "r")) {
        for (int c; (c = getc(pipe)) != EOF;) output += static_cast<char>(c);
        pclose(pipe);
    }
    unlink(name.c_str());
    return output;
}

TEST(CryptoOpensslTest, Agrees)
{
    if (OutputOf("version", {}).empty()) GTEST_SKIP() << "the openssl command is not here";
    const Bytes contents = Mixed(10000 / 16 * 16);
    const std::string key_hex = ToHex(Mixed(32));
    const auto raw = [](const Bytes& bytes) { return std::string(bytes.begin(), bytes.end()); };
    for (const size_t key_size : {16, 24, 32}) {
        Bytes out(contents.size());
        for (const Instructions way : kWays) {
            Aes(Mixed(key_size), way).Encrypt(contents.data(), out.data(), contents.size() / kAesBlock);
            EXPECT_TRUE(OutputOf("enc -aes-" + std::to_string(key_size * 8) + "-ecb -nopad -in %s -K " +
                                     key_hex.substr(0, 2 * key_size),
                                 contents) == raw(out))
                << "AES with a key of " << key_size;
        }
    }
    HmacSha256 mac(Mixed(32));
    mac.Add(contents);
    const Sha256Digest digest = mac.Finish();
    EXPECT_EQ(OutputOf("dgst -sha256 -mac HMAC -macopt hexkey:" + key_hex + " -binary %s", contents),
              std::string(digest.begin(), digest.end()));
    Bytes key(70);
    DerivePbkdf2(AsBytes("a password"), AsBytes("some salt"), 10000, key, [] { return true; });
    const std::string derived = OutputOf(
        "kdf -keylen 70 -binary -kdfopt digest:SHA256 -kdfopt pass:'a password' -kdfopt salt:'some salt' "
        "-kdfopt iter:10000 PBKDF2",
        {});
    EXPECT_TRUE(derived.empty() || derived == raw(key));  // openssl 3 has the command
}

TEST(CryptoOpensslTest, AgreesOnBlowfish)
{
    const Bytes contents = Mixed(8000);
    const std::string theirs = OutputOf(
        "enc -bf-ecb -provider legacy -provider default -nopad -in %s -K " + ToHex(Mixed(16)), contents);
    if (theirs.empty()) GTEST_SKIP() << "the openssl command is not here, or has no Blowfish";
    const Blowfish blowfish(Mixed(16));
    std::string ours;
    for (size_t at = 0; at < contents.size(); at += kBlowfishBlock) {
        uint64_t block = 0;
        for (size_t i = 0; i < kBlowfishBlock; ++i) block = block << 8 | contents[at + i];
        block = blowfish.Encrypt(block);
        for (size_t i = 0; i < kBlowfishBlock; ++i) ours += static_cast<char>(block >> (56 - 8 * i));
    }
    EXPECT_TRUE(ours == theirs);
}

}  // namespace
}  // namespace talora
