// Binary net files: the readable head, blocks with sizes and checks, the packed text.
#include "BN/Files/NetContainer.h"

#include <time.h>

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <cstring>

#include "Basic/FileType.h"
#include "Basic/LittleEndian.h"
#include "Basic/Parser.h"

namespace talora {

namespace {

// ---- The header line: its parts stand at fixed places ----

constexpr std::string_view kType = "TALA";
constexpr size_t kTypeAt = kFileMark.size();
constexpr size_t kEqualsAt = 11, kVersionAt = 12, kArrowAt = 13, kNumbersAt = 18;
constexpr std::string_view kArrow = "]->~ ";
static_assert(kTypeAt + kType.size() == kEqualsAt && kArrowAt + kArrow.size() == kNumbersAt);
constexpr int kFormatVersion = 1;

// ---- The readable section ----

constexpr std::string_view kEncryptLine = "// encrypt = ";
constexpr std::string_view kLineEnd = "\r\n";
constexpr std::string_view kFirstLines =
    "// This is a Talora Bayes net file in the binary .tala format (for a readable text file, save in .dne file format instead).\r\n"
    "// For further information see the page \"binary-format\" in the documentation of Talora.\r\n";

// ---- The block header ----

enum BlockField {
    BLOCK_VERSION,
    RESERVED,
    MAGIC,
    HEADER_LENGTH,
    TEXT_SIZE,
    TEXT_CRC,
    MEMBER_SIZE,
    RESERVED_END,
    NUM_BLOCK_FIELDS
};
constexpr struct {
    size_t at, width;
} kBlock[NUM_BLOCK_FIELDS] = {{0, 4}, {4, 4}, {8, 8}, {16, 8}, {24, 8}, {32, 8}, {40, 8}, {48, 48}};
constexpr size_t kBlockSize = 96;
constexpr uint64_t kBlockVersion = 10, kFirstErrorCode = 1000;
constexpr uint64_t kMagic = 0x70EACA50;

uint64_t ReadField(std::string_view block, BlockField field)
{
    return LittleEndian(block.substr(kBlock[field].at, kBlock[field].width));
}

void AppendBlockHeader(std::string& out, uint64_t text_size, uint64_t text_crc, uint64_t member_size)
{
    uint64_t values[NUM_BLOCK_FIELDS] = {};
    values[BLOCK_VERSION] = kBlockVersion;
    values[MAGIC] = kMagic;
    values[HEADER_LENGTH] = kBlockSize;
    values[TEXT_SIZE] = text_size;
    values[TEXT_CRC] = text_crc;
    values[MEMBER_SIZE] = member_size;
    for (int field = 0; field < RESERVED_END; ++field)
        AppendLittleEndian(out, values[field], kBlock[field].width);
    out.append(kBlock[RESERVED_END].width, '\0');
}

enum HeaderFault {
    NO_MARK = -4,
    NO_EQUALS = -5,
    NO_ARROW = -6,
    NO_NUMBERS = -7,
    NO_LINE_END = -8,
    NO_BLOCK = -11
};

[[noreturn]] void FailHeader(HeaderFault fault, const FilePlace& place)
{
    FailAt<6840>(place, int{fault});
}

[[noreturn]] void FailType(std::string_view expected, std::string_view contents, const FilePlace& place)
{
    FailAt<4109>(place, place.file, std::string(expected).c_str(), FileTypeByName(place.file).c_str(),
                 FileTypeByContents(contents).c_str());
}

// Whether a text may be that of a net: so that a gigabyte of anything else is not inflated.
bool IsTextNet(std::string_view start)
{
    return start.starts_with("\xFF\xFE") || start.starts_with("\xEF\xBB\xBF") ||
           FileTypeByContents(start) == "DNET";
}

// A decimal number at the start of the text, which it is taken off.
bool TakeNumber(std::string_view& text, uint64_t& number)
{
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc()) return false;
    text.remove_prefix(static_cast<size_t>(end - text.data()));
    return true;
}

// "\n", "\r" or "\r\n" at the start of the text.
bool TakeLineEnd(std::string_view& text)
{
    const size_t length = text.starts_with(kLineEnd) ? 2 : text.starts_with('\n') || text.starts_with('\r');
    text.remove_prefix(length);
    return length > 0;
}

// The letter behind "// encrypt = "; that of files which are not encrypted if there is no such line.
char CipherLetter(std::string_view readable)
{
    while (!readable.empty()) {
        const size_t length = std::min(readable.find_first_of(kLineEnd), readable.size());
        const std::string_view line = readable.substr(0, length);
        if (line.starts_with(kEncryptLine) && line.size() > kEncryptLine.size())
            return line[kEncryptLine.size()];
        readable.remove_prefix(std::min(length + 1, readable.size()));
    }
    return kNotEncrypted;
}

void ParseBlockHeader(std::string_view block, uint64_t line_text_size, const FilePlace& place,
                      NetContainer& file)
{
    if (block.size() < kBlockSize || ReadField(block, BLOCK_VERSION) >= kFirstErrorCode ||
        ReadField(block, MAGIC) != kMagic)
        FailHeader(NO_BLOCK, place);
    if (ReadField(block, HEADER_LENGTH) != kBlockSize) FailAt<6841>(place);
    file.text_size = ReadField(block, TEXT_SIZE);
    file.text_crc = ReadField(block, TEXT_CRC);
    file.member_size = ReadField(block, MEMBER_SIZE);
    if (file.text_size != line_text_size) WarnAt<2627>(place);
}

void CheckField(int number, uint64_t stored, uint64_t found, const FilePlace& place)
{
    if (stored != 0 && stored != found)
        WarnAt<6852>(place, number, static_cast<long long>(stored), static_cast<long long>(found));
}

// The password for a file: fixed, the stream's, or one that the user is asked for.
Secret PasswordFor(const CipherDef& cipher, const Stream& stream)
{
    if (!cipher.needs_password) return Secret(kSimplePassword);
    Secret password =
        stream.password.IsSet() ? stream.password : AskPassword("This file is encrypted.  Enter password:");
    if (!password.IsSet()) FailWith<6858>(FILE_CND, stream.name.c_str());
    return password;
}

// A file of the fixed password opens whatever password is given.  Whoever gives one relies on it, and expects
// that the net is saved with it again.
void MindSimple(const Stream& stream, Secret& password)
{
    if (!stream.password.IsSet() || stream.password.Text() == kSimplePassword) return;
    Warn<7255>(stream.name.c_str());
    password = stream.password;
}

// The gzip member of an encrypted file, and the password that opened it.
ByteBuffer Decrypt(const NetContainer& file, std::string_view bytes, const Stream& stream, Secret& password)
{
    const FilePlace place{.file = stream.name.c_str()};
    const CipherDef* const cipher = FindCipher(file.cipher);
    if (cipher == nullptr)
        FailWith<6853>(FILE_CND, file.cipher > ' ' && file.cipher <= '~' ? file.cipher : '?',
                       stream.name.c_str());
    const CipherBlock block = ParseCipherBlock(file.payload, place);
    const std::string_view sealed = file.payload.substr(kCipherBlockSize);
    CheckStatedSize(sealed.size(), file.text_size, place);
    const int most = stream.env->max_key_iterations;
    if (block.iterations > static_cast<uint32_t>(most))
        FailWith<6860>(FILE_CND, stream.name.c_str(), block.iterations, most);
    password = PasswordFor(*cipher, stream);
    CheckMemory(static_cast<double>(sealed.size()), "for decrypting file");
    FileKeys keys;
    DeriveKeys(block, password.Text(), keys);
    if (!cipher->needs_password) MindSimple(stream, password);
    return Unseal(*cipher, keys, block, bytes.substr(0, bytes.size() - sealed.size()), sealed, place);
}

}  // namespace

bool IsBinaryNet(std::string_view bytes, std::string_view name)
{
    const std::string by_contents = FileTypeByContents(bytes), by_name = FileTypeByName(name);
    if (by_contents == kType) return by_name != "DNET";
    return by_name == kType && by_contents != "DNET";
}

NetContainer ParseContainer(std::string_view bytes, const FilePlace& place)
{
    NetContainer file;
    if (!bytes.starts_with(kFileMark)) FailHeader(NO_MARK, place);
    if (bytes.size() <= kVersionAt || bytes[kEqualsAt] != '=' || bytes[kVersionAt] < '0' ||
        bytes[kVersionAt] > '9')
        FailHeader(NO_EQUALS, place);
    if (bytes.substr(kArrowAt, kArrow.size()) != kArrow) FailHeader(NO_ARROW, place);
    if (bytes.substr(kTypeAt, kType.size()) != kType) FailType(kType, bytes, place);
    file.version = bytes[kVersionAt] - '0';
    std::string_view rest = bytes.substr(kNumbersAt);
    uint64_t readable_length = 0, text_size = 0;
    if (!TakeNumber(rest, readable_length) || !rest.starts_with(' ')) FailHeader(NO_NUMBERS, place);
    rest.remove_prefix(1);
    if (!TakeNumber(rest, text_size)) FailHeader(NO_NUMBERS, place);
    if (!TakeLineEnd(rest)) FailHeader(NO_LINE_END, place);
    if (readable_length > rest.size()) FailHeader(NO_BLOCK, place);
    file.readable = rest.substr(0, static_cast<size_t>(readable_length));
    file.cipher = CipherLetter(file.readable);
    rest.remove_prefix(file.readable.size());
    ParseBlockHeader(rest, text_size, place, file);
    file.payload = rest.substr(kBlockSize);
    return file;
}

UnpackedNet UnpackNet(std::string_view bytes, const Stream& stream)
{
    const FilePlace place{.file = stream.name.c_str()};
    const NetContainer file = ParseContainer(bytes, place);
    UnpackedNet result;
    result.version = file.version;
    std::string_view member = file.payload;
    ByteBuffer decrypted;
    if (file.cipher != kNotEncrypted) {
        decrypted = Decrypt(file, bytes, stream, result.password);
        member = decrypted.View();
    }
    const auto check_start = [&](std::string_view start) {
        if (!IsTextNet(start)) FailType("DNET", start, place);
    };
    GzipText text = ReadGzipMember(member, file.text_size, place, check_start);
    CheckField(1, file.text_crc, text.crc, place);
    CheckField(2, file.member_size, member.size(), place);
    result.text = std::move(text.text);
    return result;
}

NetPacker::NetPacker(const Net& net, const Secret& password, uint32_t iterations)
    : net_(net),
      password_(password),
      iterations_(iterations),
      time_(net.env->reproducible ? 0 : static_cast<int64_t>(::time(nullptr))),
      gzip_("internal", static_cast<uint32_t>(time_), net.name.c_str())
{}

std::string NetPacker::Readable(char cipher, uint32_t stamp) const
{
    std::string text(kFirstLines);
    char line[80] = "// File created";
    if (time_ != 0) {
        const time_t seconds = time_;
        struct tm utc = {};
        ::gmtime_r(&seconds, &utc);
        std::snprintf(line, sizeof line, "// File created %04d-%02d-%02d %02d:%02d:%02d UTC",
                      utc.tm_year + 1900, utc.tm_mon + 1, utc.tm_mday, utc.tm_hour, utc.tm_min, utc.tm_sec);
    }
    text.append(line).append(kLineEnd);
    std::snprintf(line, sizeof line, "// stamp = \"%08llx-%08x\";", static_cast<unsigned long long>(time_),
                  stamp);
    text.append(line).append(kLineEnd).append("// comment = ");
    AppendQuoted(text, net_.text.comment);
    text.append(";").append(kLineEnd).append(kEncryptLine).append(1, cipher).append(kLineEnd);
    return text;
}

// Everything before the payload but the cipher block.
std::string NetPacker::Head(char cipher, uint32_t stamp) const
{
    const std::string readable = Readable(cipher, stamp);
    std::string head(kFileMark);
    head.append(kType).append("=").append(std::to_string(kFormatVersion)).append(kArrow);
    head.append(std::to_string(readable.size())).append(" ");
    head.append(std::to_string(gzip_.TextSize())).append(kLineEnd).append(readable);
    // A checksum of what is encrypted would confirm a guess of it.
    const uint32_t crc = cipher == kNotEncrypted ? gzip_.Crc() : 0;
    AppendBlockHeader(head, gzip_.TextSize(), crc, gzip_.Member().size());
    return head;
}

void NetPacker::WriteTo(ByteSink& sink)
{
    gzip_.Finish();
    const char letter = CipherFor(password_, net_.env->file_cipher);
    const CipherDef* const cipher = FindCipher(letter);
    if (cipher == nullptr) {
        sink.Write(Head(letter, gzip_.Crc()));
        sink.Write(gzip_.Member());
        return;
    }
    FileKeys keys;
    const CipherBlock block = NewCipherBlock(*cipher, password_.Text(), iterations_, keys);
    uint32_t stamp = 0;
    std::memcpy(&stamp, block.salt.data(), sizeof stamp);
    std::string front = Head(letter, stamp);
    AppendCipherBlock(front, block);
    CheckMemory(static_cast<double>(gzip_.Member().size()), "for output buffer to save net '%s'",
                net_.name.c_str());
    const ByteBuffer sealed = Seal(*cipher, keys, block, front, gzip_.Member());
    sink.Write(front);
    sink.Write(sealed.View());
}

}  // namespace talora
