#include "Fuzz/TalaFile.h"

#include <zlib.h>

#include <algorithm>

#include "BN/Files/NetCipher.h"
#include "Basic/LittleEndian.h"

namespace fuzz {

namespace {

constexpr std::string_view kLineStart = "// ~->[TALA=1]->~ ";
constexpr uint64_t kMagic = 0x70EACA50;
constexpr size_t kMagicAt = 8, kTextSizeAt = 24, kBlockSize = 96;
constexpr size_t kGzipHeader = 10, kGzipTrailer = 8;

Bytef* Bytes(std::string_view text)
{
    return reinterpret_cast<Bytef*>(const_cast<char*>(text.data()));
}

uint64_t Crc(std::string_view text)
{
    return crc32(0, Bytes(text), static_cast<uInt>(text.size()));
}

std::string LittleEndianBytes(uint64_t value, size_t width)
{
    std::string bytes;
    talora::AppendLittleEndian(bytes, value, width);
    return bytes;
}

}  // namespace

std::string Gzipped(std::string_view text)
{
    z_stream zlib = {};
    deflateInit2(&zlib, 6, Z_DEFLATED, MAX_WBITS + 16, 8, Z_DEFAULT_STRATEGY);
    std::string out(deflateBound(&zlib, text.size()) + 64, '\0');
    zlib.next_in = Bytes(text);
    zlib.avail_in = static_cast<uInt>(text.size());
    zlib.next_out = Bytes(out);
    zlib.avail_out = static_cast<uInt>(out.size());
    deflate(&zlib, Z_FINISH);
    out.resize(zlib.total_out);
    deflateEnd(&zlib);
    return out;
}

Inflated Inflate(std::string_view member, size_t most)
{
    Inflated result;
    if (member.size() < kGzipHeader) return result;
    z_stream zlib = {};
    inflateInit2(&zlib, -MAX_WBITS);
    result.text.resize(most);
    zlib.next_in = Bytes(member.substr(kGzipHeader));
    zlib.avail_in = static_cast<uInt>(member.size() - kGzipHeader);
    zlib.next_out = Bytes(result.text);
    zlib.avail_out = static_cast<uInt>(most);
    result.complete = inflate(&zlib, Z_FINISH) == Z_STREAM_END;
    result.text.resize(zlib.total_out);
    result.deflated_size = zlib.total_in;
    inflateEnd(&zlib);
    return result;
}

std::string Head(char letter, uint64_t text_size, uint64_t text_crc, uint64_t member_size)
{
    const std::string readable = std::string("// encrypt = ") + letter + "\r\n";
    std::string head(kLineStart);
    head += std::to_string(readable.size()) + " " + std::to_string(text_size) + "\r\n" + readable;
    for (const uint64_t field :
         {uint64_t{10}, kMagic, uint64_t{kBlockSize}, text_size, text_crc, member_size})
        talora::AppendLittleEndian(head, field, 8);
    return head + std::string(48, '\0');
}

std::string PlainFile(std::string_view text, std::string_view member)
{
    return Head('N', text.size(), Crc(text), member.size()).append(member);
}

std::string SealedFile(char letter, uint64_t text_size, std::string_view member)
{
    const talora::CipherDef& cipher = *talora::FindCipher(letter);
    talora::FileKeys keys;
    const std::string_view password = letter == talora::kSimpleCipher ? talora::kSimplePassword : "p";
    const talora::CipherBlock block = talora::NewCipherBlock(cipher, password, 1, keys);
    std::string front = Head(letter, text_size, 0, member.size());
    talora::AppendCipherBlock(front, block);
    return front + std::string(talora::Seal(cipher, keys, block, front, member).View());
}

size_t PayloadAt(std::string_view bytes)
{
    const size_t magic = bytes.find(LittleEndianBytes(kMagic, 8));
    if (magic == std::string_view::npos || magic < kMagicAt) return 0;
    const size_t payload = magic - kMagicAt + kBlockSize;
    return payload <= bytes.size() ? payload : 0;
}

std::string Repaired(std::string_view bytes)
{
    const size_t payload_at = PayloadAt(bytes);
    const size_t line_end = bytes.find("\r\n");
    if (payload_at == 0 || line_end == std::string_view::npos || line_end + 2 + kBlockSize > payload_at)
        return std::string(bytes);
    std::string member(bytes.substr(payload_at));
    const Inflated inflated = Inflate(member);
    const size_t trailer = kGzipHeader + inflated.deflated_size;
    if (inflated.complete && trailer + kGzipTrailer <= member.size())
        member.replace(trailer, kGzipTrailer,
                       LittleEndianBytes(Crc(inflated.text), 4) + LittleEndianBytes(inflated.text.size(), 4));
    const std::string_view readable = bytes.substr(line_end + 2, payload_at - kBlockSize - line_end - 2);
    std::string fields;
    for (const uint64_t field : {uint64_t{inflated.text.size()}, Crc(inflated.text), uint64_t{member.size()}})
        fields += LittleEndianBytes(field, 8);
    std::string block(bytes.substr(payload_at - kBlockSize, kBlockSize));
    block.replace(kTextSizeAt, fields.size(), fields);
    std::string file(kLineStart);
    file += std::to_string(readable.size()) + " " + std::to_string(inflated.text.size()) + "\r\n";
    return file.append(readable).append(block).append(member);
}

}  // namespace fuzz
