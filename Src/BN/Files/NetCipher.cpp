// Keys, ciphers and key checks of encrypted net files.
#include "BN/Files/NetCipher.h"

#include <strings.h>

#include <algorithm>
#include <cstring>

#include "Basic/LittleEndian.h"
#include "Basic/Progress.h"
#include "Misc/Crypto/CryptoBlowfish.h"
#include "Misc/Crypto/CryptoGCM.h"

namespace talora {

namespace {

constexpr size_t kMacTag = kSha256Size;
constexpr size_t kBlowfishNonce = 8;
constexpr uint32_t kSimpleIterations = 1;

constexpr CipherDef kCiphers[] = {
    // letter      name       tag      needs a password
    {'G', "AES", kGcmTagSize, true},
    {'B', "Blowfish", kMacTag, true},
    {kSimpleCipher, nullptr, kGcmTagSize, false},
};

enum BlockField { LENGTH, ITERATIONS, SALT, NONCE, RESERVED, KEY_CHECK, NUM_BLOCK_FIELDS };
constexpr struct {
    size_t at, width;
} kBlock[NUM_BLOCK_FIELDS] = {{0, 4}, {4, 4}, {8, 16}, {24, 12}, {36, 12}, {48, 16}};
static_assert(kBlock[KEY_CHECK].at + kBlock[KEY_CHECK].width == kCipherBlockSize);

constexpr std::string_view kCipherLabel = "Talora cipher", kMacLabel = "Talora MAC",
                           kCheckLabel = "Talora key check";

std::string_view Field(std::string_view block, BlockField field)
{
    return block.substr(kBlock[field].at, kBlock[field].width);
}

template <size_t N>
void CopyField(std::array<uint8_t, N>& to, std::string_view block, BlockField field)
{
    static_assert(N > 0);
    std::memcpy(to.data(), Field(block, field).data(), N);
}

template <size_t N>
void Append(std::string& out, const std::array<uint8_t, N>& bytes)
{
    out.append(reinterpret_cast<const char*>(bytes.data()), N);
}

}  // namespace

const CipherDef* FindCipher(char letter)
{
    for (const CipherDef& cipher : kCiphers)
        if (cipher.letter == letter) return &cipher;
    return nullptr;
}

const CipherDef* FindCipher(std::string_view name)
{
    for (const CipherDef& cipher : kCiphers)
        if (cipher.name != nullptr && strcasecmp(cipher.name, std::string(name).c_str()) == 0) return &cipher;
    return nullptr;
}

char CipherFor(const Secret& password, char letter)
{
    if (!password.IsSet()) return kNotEncrypted;
    return password.Text() == kSimplePassword ? kSimpleCipher : letter;
}

CipherBlock ParseCipherBlock(std::string_view bytes, const FilePlace& place)
{
    CipherBlock block;
    const bool is_there =
        bytes.size() >= kCipherBlockSize && LittleEndian(Field(bytes, LENGTH)) == kCipherBlockSize;
    if (is_there) block.iterations = static_cast<uint32_t>(LittleEndian(Field(bytes, ITERATIONS)));
    if (block.iterations == 0) FailAt<6841>(place);
    CopyField(block.salt, bytes, SALT);
    CopyField(block.nonce, bytes, NONCE);
    CopyField(block.key_check, bytes, KEY_CHECK);
    return block;
}

void AppendCipherBlock(std::string& out, const CipherBlock& block)
{
    AppendLittleEndian(out, kCipherBlockSize, kBlock[LENGTH].width);
    AppendLittleEndian(out, block.iterations, kBlock[ITERATIONS].width);
    Append(out, block.salt);
    Append(out, block.nonce);
    out.append(kBlock[RESERVED].width, '\0');
    Append(out, block.key_check);
}

void DeriveKeys(const CipherBlock& block, std::string_view password, FileKeys& keys)
{
    Sha256Digest master;
    const bool done =
        DerivePbkdf2(AsBytes(password), block.salt, block.iterations, master, [] { return !IsHalted(); });
    const HmacSha256 keyed(master);
    const auto derive = [&](std::string_view label, auto& key) {
        HmacSha256 hash(keyed);
        hash.Add(AsBytes(label));
        Sha256Digest digest = hash.Finish();
        std::copy_n(digest.begin(), key.size(), key.begin());
        Wipe(digest.data(), digest.size());
    };
    derive(kCipherLabel, keys.cipher);
    derive(kMacLabel, keys.mac);
    derive(kCheckLabel, keys.check);
    Wipe(master.data(), master.size());
    if (!done) FailWith<6862>(ABORTED_CND);
}

CipherBlock NewCipherBlock(const CipherDef& cipher, std::string_view password, uint32_t iterations,
                           FileKeys& keys)
{
    CipherBlock block;
    block.iterations = cipher.needs_password ? iterations : kSimpleIterations;
    const size_t nonce_size = cipher.tag_size == kMacTag ? kBlowfishNonce : block.nonce.size();
    if (!FillRandom(block.salt) || !FillRandom(std::span(block.nonce).first(nonce_size))) Fail<6861>();
    DeriveKeys(block, password, keys);
    block.key_check = keys.check;
    return block;
}

namespace {

// The tag of what Blowfish has encrypted.  The length keeps front and bytes apart.
Sha256Digest MacOf(const FileKeys& keys, std::string_view front, ByteSpan bytes)
{
    std::string length;
    AppendLittleEndian(length, front.size(), 8);
    HmacSha256 mac(keys.mac);
    mac.Add(AsBytes(length));
    mac.Add(AsBytes(front));
    mac.Add(bytes);
    return mac.Finish();
}

uint64_t FirstCount(const CipherBlock& block)
{
    uint64_t first = 0;
    for (size_t i = 0; i < kBlowfishNonce; ++i) first = first << 8 | block.nonce[i];
    return first;
}

}  // namespace

ByteBuffer Seal(const CipherDef& cipher, const FileKeys& keys, const CipherBlock& block,
                std::string_view front, std::string_view bytes)
{
    if (bytes.size() > kMaxGcmText) Fail<6863>();
    ByteBuffer sealed;
    sealed.Reserve(bytes.size() + cipher.tag_size);
    auto* const out = reinterpret_cast<uint8_t*>(sealed.Data());
    const auto append_tag = [&](const auto& tag) { std::copy(tag.begin(), tag.end(), out + bytes.size()); };
    if (cipher.tag_size == kMacTag) {
        Blowfish(keys.cipher).Count(FirstCount(block), AsBytes(bytes), out);
        append_tag(MacOf(keys, front, {out, bytes.size()}));
    } else {
        append_tag(AesGcm(keys.cipher).Encrypt(block.nonce, AsBytes(front), AsBytes(bytes), out));
    }
    sealed.SetSize(bytes.size() + cipher.tag_size);
    return sealed;
}

ByteBuffer Unseal(const CipherDef& cipher, const FileKeys& keys, const CipherBlock& block,
                  std::string_view front, std::string_view sealed, const FilePlace& place)
{
    ByteBuffer bytes;
    bool is_right = IsEqualSecretly(keys.check, block.key_check) && sealed.size() >= cipher.tag_size;
    if (is_right) {
        const size_t size = sealed.size() - cipher.tag_size;
        const ByteSpan in = AsBytes(sealed.substr(0, size)), tag = AsBytes(sealed.substr(size));
        bytes.Reserve(size + 1);  // a buffer even for nothing
        auto* const out = reinterpret_cast<uint8_t*>(bytes.Data());
        if (cipher.tag_size == kMacTag) {
            is_right = IsEqualSecretly(MacOf(keys, front, in), tag);
            if (is_right) Blowfish(keys.cipher).Count(FirstCount(block), in, out);
        } else {
            GcmTag expected;
            std::copy(tag.begin(), tag.end(), expected.begin());
            is_right = AesGcm(keys.cipher).Decrypt(block.nonce, AsBytes(front), in, expected, out);
        }
        bytes.SetSize(size);
    }
    if (!is_right) FailAt<6859>(place);
    return bytes;
}

}  // namespace talora
