// Members of the gzip format (RFC 1952): packing with zlib, and unpacking with every size checked.
#include "BN/Files/GzipMember.h"

#include <algorithm>
#include <climits>
#include <cstring>
#include <new>
#include <string>

#include "Basic/Environ.h"
#include "Basic/Error.h"
#include "Basic/LittleEndian.h"
#include "Basic/Progress.h"
#include "Basic/Steps.h"

namespace talora {

namespace {

constexpr unsigned char kId1 = 0x1F, kId2 = 0x8B;
constexpr unsigned char kDeflate = 8;
constexpr unsigned char kSystem = 11;
enum Flag : unsigned char {
    FTEXT = 1,
    FHCRC = 2,
    FEXTRA = 4,
    FNAME = 8,
    FCOMMENT = 16,
    UNKNOWN_FLAGS = 0xE0
};

constexpr int kLevel = 6;
constexpr int kRawDeflate = -MAX_WBITS;           // without a wrapper of zlib's own
constexpr int kDefaultMemory = 8;                 // zlib's own default
constexpr size_t kPiece = 64 * 1024;              // between two looks at the halt flag
constexpr size_t kLarge = size_t{1} << 24;        // text that takes its time
constexpr size_t kMaxCall = size_t{1} << 30;      // zlib counts in 32 bits
constexpr size_t kSizeBytes = 4;                  // of the checksum and the size at the end
constexpr uint64_t kMaxText = uint64_t{1} << 40;  // larger is surely an error
// Deflate makes at most 1032 bytes of one (a match of 258 in two bits); the slack is for tiny files.
constexpr uint64_t kMaxExpansion = 1032, kSlack = 64 * 1024;
// A file may expand so far without a question.  Only tables of a great many equal rows get beyond; what we
// write is stored in part instead, so that reading a small file never takes long without the user's consent.
constexpr uint64_t kFreeText = 16 << 20, kUsualExpansion = 32;
constexpr uint64_t kWrittenExpansion = 30;
constexpr size_t kDeflatePiece = 256 * 1024;
// Memory taken on the word of the stated size alone: text that expands as usual is inflated in place.
constexpr size_t kTrusted = 1 << 20, kTrustedPerByte = 16;

void* TakeZlibMemory(void*, unsigned count, unsigned size)
{
    return ::operator new (size_t{count} * size, std::nothrow);
}

void ReturnZlibMemory(void*, void* block)
{
    ::operator delete(block);
}

// Walks along a member; behind its end there are zeros.
struct Cursor {
    std::string_view bytes;
    size_t at = 0;

    unsigned char Byte() { return at < bytes.size() ? static_cast<unsigned char>(bytes[at++]) : 0; }
    uint32_t Number(size_t count)
    {
        const uint64_t value = LittleEndian(bytes.substr(at, count));
        Skip(count);
        return static_cast<uint32_t>(value);
    }
    void Skip(size_t count) { at += std::min(count, bytes.size() - at); }
    std::string_view Text()  // up to its zero byte
    {
        const size_t end = std::min(bytes.find('\0', at), bytes.size());
        const std::string_view text = bytes.substr(at, end - at);
        at = std::min(end + 1, bytes.size());
        return text;
    }
};

// Reads the fields up to the deflated data.  @return the stored name
std::string ReadHeader(Cursor& cursor, const FilePlace& place)
{
    const unsigned char id1 = cursor.Byte(), id2 = cursor.Byte();
    if (id1 != kId1 || id2 != kId2) FailAt<6842>(place, id1, id2, kId1, kId2);
    const bool has_method = cursor.at < cursor.bytes.size();
    const unsigned char method = cursor.Byte(), flags = cursor.Byte();
    if (has_method && method != kDeflate) FailAt<6843>(place, method);
    if (flags & UNKNOWN_FLAGS) WarnAt<6844>(place);
    cursor.Skip(6);  // time, extra flags, system
    if (flags & FEXTRA) cursor.Skip(cursor.Number(2));
    std::string name;
    if (flags & FNAME) name = cursor.Text();
    if (flags & FCOMMENT) cursor.Text();
    if (flags & FHCRC) cursor.Skip(2);
    return name;
}

// Inflates the text of one member.
class GzipReader {
public:
    GzipReader(std::string_view member, uint64_t stated_size, const FilePlace& place);
    ~GzipReader() { inflateEnd(&zlib_); }
    GzipReader(const GzipReader&) = delete;
    GzipReader& operator=(const GzipReader&) = delete;

    GzipText Read(const std::function<void(std::string_view)>& check_start);

private:
    size_t Inflate(char* room, size_t size);
    void InflateText(const std::function<void(std::string_view)>& check_start);
    void AskAboutExpansion() const;
    void CheckEnd();
    [[noreturn]] void FailTooSmall();
    [[noreturn]] void FailSize(unsigned stated);

    Cursor cursor_;
    uint64_t stated_size_;
    const FilePlace& place_;
    std::string name_;
    z_stream zlib_ = {};
    bool ended_ = false;
    GzipText result_;
};

GzipReader::GzipReader(std::string_view member, uint64_t stated_size, const FilePlace& place)
    : cursor_{member}, stated_size_(stated_size), place_(place), name_(ReadHeader(cursor_, place))
{
    CheckStatedSize(member.size(), stated_size, place);
    zlib_.zalloc = TakeZlibMemory;
    zlib_.zfree = ReturnZlibMemory;
    const int code = inflateInit2(&zlib_, kRawDeflate);
    if (code == Z_MEM_ERROR) FailOutOfMemory("for uncompressing file");
    TALORA_CHECK(code == Z_OK);
}

// Inflates into room of so many bytes.  @return how many came: fewer than there is room for only at the end
// of the data
size_t GzipReader::Inflate(char* room, size_t size)
{
    size_t done = 0;
    while (done < size && !ended_) {
        const size_t available = std::min(cursor_.bytes.size() - cursor_.at, kMaxCall);
        zlib_.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(cursor_.bytes.data() + cursor_.at));
        zlib_.avail_in = static_cast<uInt>(available);
        zlib_.next_out = reinterpret_cast<Bytef*>(room + done);
        zlib_.avail_out = static_cast<uInt>(size - done);
        const int code = inflate(&zlib_, Z_NO_FLUSH);
        cursor_.at += available - zlib_.avail_in;
        done = size - zlib_.avail_out;
        ended_ = code == Z_STREAM_END;
        if (code == Z_BUF_ERROR) break;  // nothing left to read
        if (code == Z_MEM_ERROR) FailOutOfMemory("for uncompressing file");
        if (code != Z_OK && !ended_) FailAt<6847>(place_, code);
    }
    return done;
}

// Inflates up to the stated size, in pieces whose checksum is taken while they are in the cache.
void GzipReader::InflateText(const std::function<void(std::string_view)>& check_start)
{
    const auto stated = static_cast<size_t>(stated_size_);
    ByteBuffer& text = result_.text;
    const size_t trusted = std::max(kTrusted, kTrustedPerByte * cursor_.bytes.size());
    text.Reserve(std::min(trusted, stated) + 1);
    result_.crc = static_cast<uint32_t>(crc32(0, nullptr, 0));
    while (text.Size() < stated && !ended_) {
        if (text.Size() + 1 == text.Capacity()) text.Reserve(std::min(2 * text.Capacity(), stated) + 1);
        char* const piece = text.Data() + text.Size();
        const size_t room = std::min(kPiece, text.Capacity() - 1 - text.Size());
        const size_t got = Inflate(piece, room);
        const auto* const bytes = reinterpret_cast<const Bytef*>(piece);
        result_.crc = static_cast<uint32_t>(crc32(result_.crc, bytes, static_cast<uInt>(got)));
        text.SetSize(text.Size() + got);
        CountSteps(got);
        if (piece == text.Data() && stated >= kLarge) {
            check_start(text.View());
            AskAboutExpansion();
        }
        if (IsHalted()) FailWith<3605>(ABORTED_CND);
        if (got < room) break;
    }
    text.Data()[text.Size()] = '\0';
}

void GzipReader::AskAboutExpansion() const
{
    const uint64_t size = cursor_.bytes.size();
    if (stated_size_ <= kFreeText + kUsualExpansion * size) return;
    if (AskQuestion("This file expands to an unusual size, as a damaged or malicious one may. Read it?",
                    "Read,Cancel", "Cancel") == 1)
        FailAt<7256>(place_, static_cast<long long>(stated_size_), static_cast<long long>(size));
}

void GzipReader::FailTooSmall()
{
    // The size that stands at the end, if it explains what was found.
    cursor_.at = std::max(cursor_.at, cursor_.bytes.size() - std::min(cursor_.bytes.size(), kSizeBytes));
    const uint64_t needed = std::max<uint64_t>(cursor_.Number(kSizeBytes), stated_size_ + 1);
    FailAt<6846>(place_, name_.c_str(), static_cast<int>(std::min<uint64_t>(stated_size_, INT_MAX)),
                 static_cast<int>(std::min<uint64_t>(needed, INT_MAX)));
}

void GzipReader::FailSize(unsigned stated)
{
    FailAt<6850>(place_, static_cast<unsigned>(result_.text.Size()), stated);
}

void GzipReader::CheckEnd()
{
    const uint64_t size = result_.text.Size();
    char more = 0;
    if (size == stated_size_ && !ended_ && Inflate(&more, 1) > 0) FailTooSmall();
    if (size != stated_size_ || !ended_) FailSize(static_cast<unsigned>(stated_size_));
    const bool is_whole = cursor_.bytes.size() - cursor_.at >= 2 * kSizeBytes;
    const uint32_t crc = cursor_.Number(kSizeBytes), stored_size = cursor_.Number(kSizeBytes);
    if (result_.crc != crc) FailAt<6851>(place_, result_.crc, crc);
    if (static_cast<uint32_t>(size) != stored_size || !is_whole) FailSize(stored_size);
    result_.bytes_read = cursor_.at;
}

GzipText GzipReader::Read(const std::function<void(std::string_view)>& check_start)
{
    InflateText(check_start);
    CheckEnd();
    return std::move(result_);
}

}  // namespace

// Once this constructor is done the destructor runs, also when the one that calls it fails.
GzipWriter::GzipWriter(const char* title) : title_(title)
{
    zlib_.zalloc = TakeZlibMemory;
    zlib_.zfree = ReturnZlibMemory;
    MakeRoom(kPiece);
    if (deflateInit2(&zlib_, kLevel, Z_DEFLATED, kRawDeflate, kDefaultMemory, Z_DEFAULT_STRATEGY) != Z_OK)
        FailWith<6849>(OUT_OF_MEMORY_CND);
}

GzipWriter::GzipWriter(std::string_view name, uint32_t mtime, const char* title) : GzipWriter(title)
{
    std::string header;
    header += static_cast<char>(kId1);
    header += static_cast<char>(kId2);
    header += static_cast<char>(kDeflate);
    header += static_cast<char>(name.empty() ? FTEXT : FTEXT | FNAME);
    AppendLittleEndian(header, mtime, 4);
    header += '\0';  // extra flags
    header += static_cast<char>(kSystem);
    if (!name.empty()) header.append(name).append(1, '\0');
    Append(header);
    crc_ = static_cast<uint32_t>(crc32(0, nullptr, 0));
}

GzipWriter::~GzipWriter()
{
    deflateEnd(&zlib_);
}

void GzipWriter::MakeRoom(size_t bytes)
{
    if (member_.Capacity() - member_.Size() >= bytes) return;
    const size_t wanted = std::max(2 * member_.Capacity(), member_.Size() + bytes);
    CheckMemory(static_cast<double>(wanted), "for output buffer to save net '%s'", title_);
    member_.Reserve(wanted);
}

void GzipWriter::Append(std::string_view bytes)
{
    MakeRoom(bytes.size());
    std::memcpy(member_.Data() + member_.Size(), bytes.data(), bytes.size());
    member_.SetSize(member_.Size() + bytes.size());
}

void GzipWriter::Deflate(int flush)
{
    int code = Z_OK;
    do {
        MakeRoom(kPiece);
        const size_t room = std::min(member_.Capacity() - member_.Size(), kMaxCall);
        zlib_.next_out = reinterpret_cast<Bytef*>(member_.Data() + member_.Size());
        zlib_.avail_out = static_cast<uInt>(room);
        code = deflate(&zlib_, flush);
        member_.SetSize(member_.Size() + room - zlib_.avail_out);
        if (code != Z_OK && code != Z_STREAM_END && code != Z_BUF_ERROR) Fail<6848>();
    } while (zlib_.avail_out == 0 || (flush == Z_FINISH && code != Z_STREAM_END));
}

// Stores text as it is where the member has become too small for what it holds.
void GzipWriter::ChooseLevel()
{
    const bool stores = text_size_ > kFreeText + kWrittenExpansion * member_.Size();
    if (stores == stores_) return;
    stores_ = stores;
    zlib_.avail_in = 0;
    Deflate(Z_BLOCK);  // what is pending, with the old level
    MakeRoom(kPiece);
    zlib_.next_out = reinterpret_cast<Bytef*>(member_.Data() + member_.Size());
    zlib_.avail_out = static_cast<uInt>(kPiece);
    const int code = deflateParams(&zlib_, stores ? Z_NO_COMPRESSION : kLevel, Z_DEFAULT_STRATEGY);
    if (code != Z_OK && code != Z_BUF_ERROR) Fail<6848>();
    member_.SetSize(member_.Size() + kPiece - zlib_.avail_out);
}

void GzipWriter::Add(std::string_view text)
{
    while (!text.empty()) {
        const std::string_view piece = text.substr(0, kDeflatePiece);
        ChooseLevel();
        const auto* const bytes = reinterpret_cast<const Bytef*>(piece.data());
        crc_ = static_cast<uint32_t>(crc32(crc_, bytes, static_cast<uInt>(piece.size())));
        text_size_ += piece.size();
        zlib_.next_in = const_cast<Bytef*>(bytes);
        zlib_.avail_in = static_cast<uInt>(piece.size());
        Deflate(Z_NO_FLUSH);
        text.remove_prefix(piece.size());
    }
}

void GzipWriter::Finish()
{
    zlib_.avail_in = 0;
    Deflate(Z_FINISH);
    std::string trailer;
    AppendLittleEndian(trailer, crc_, kSizeBytes);
    AppendLittleEndian(trailer, text_size_, kSizeBytes);
    Append(trailer);
}

void CheckStatedSize(size_t member_size, uint64_t stated_size, const FilePlace& place)
{
    if (stated_size >= kMaxText)
        FailAt<6845>(place, static_cast<long long>(std::min<uint64_t>(stated_size, INT64_MAX)));
    if (stated_size > kMaxExpansion * member_size + kSlack) FailAt<6841>(place);
    CheckMemory(static_cast<double>(stated_size), "for uncompressing file");
}

GzipText ReadGzipMember(std::string_view member, uint64_t stated_size, const FilePlace& place,
                        const std::function<void(std::string_view)>& check_start)
{
    return GzipReader(member, stated_size, place).Read(check_start);
}

}  // namespace talora
