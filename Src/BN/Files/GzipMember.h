// One member of the gzip format (RFC 1952) around deflated text (RFC 1951, the zlib library).
//
// Header and trailer are written and read here, field by field; zlib sees the deflated data alone.
#pragma once

#include <zlib.h>

#include <cstdint>
#include <functional>
#include <string_view>

#include "Basic/Memory.h"

namespace talora {

// Deflates a text that comes in pieces into a growing buffer.
class GzipWriter {
public:
    // @param name   stored in the member, "" for none
    // @param mtime  seconds since 1970, 0 for none
    // @param title  of the net, for the message when memory is out
    GzipWriter(std::string_view name, uint32_t mtime, const char* title);
    ~GzipWriter();
    GzipWriter(const GzipWriter&) = delete;
    GzipWriter& operator=(const GzipWriter&) = delete;

    void Add(std::string_view text);
    void Finish();  // the last call but for those below

    std::string_view Member() const { return member_.View(); }
    uint64_t TextSize() const { return text_size_; }
    uint32_t Crc() const { return crc_; }

private:
    explicit GzipWriter(const char* title);
    void Deflate(int flush);
    void ChooseLevel();
    void Append(std::string_view bytes);
    void MakeRoom(size_t bytes);

    z_stream zlib_ = {};
    ByteBuffer member_;
    uint64_t text_size_ = 0;
    uint32_t crc_ = 0;
    bool stores_ = false;  // without compressing
    const char* title_;
};

struct GzipText {
    ByteBuffer text;  // a zero byte follows it
    uint32_t crc = 0;
    size_t bytes_read = 0;  // of the member; what follows is not its own
};

// Fails if a member of this size cannot hold a text of the stated one, or memory cannot.
void CheckStatedSize(size_t member_size, uint64_t stated_size, const FilePlace& place);

// The text of a member.  Fails if the member is damaged, or the text is not as large as stated; no memory is
// taken before the stated size has been found possible.  Polls the halt flag.  check_start gets the first
// bytes of a text of many megabytes, and may fail before the others are inflated.
GzipText ReadGzipMember(std::string_view member, uint64_t stated_size, const FilePlace& place,
                        const std::function<void(std::string_view)>& check_start);

}  // namespace talora
