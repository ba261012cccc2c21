// Binary net files put together by hand, so that damage reaches what lies behind sizes, checks and tags.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace fuzz {

// One gzip member.
std::string Gzipped(std::string_view text);

// What a gzip member holds, as far as it can be inflated, up to `most` bytes.
struct Inflated {
    std::string text;
    size_t deflated_size = 0;  // of the member without header and trailer
    bool complete = false;
};
Inflated Inflate(std::string_view member, size_t most = 1 << 20);

// Header line, readable section and block header of a file; the letter is that of the cipher.
std::string Head(char letter, uint64_t text_size, uint64_t text_crc, uint64_t member_size);

// A whole file around a gzip member, in the clear.
std::string PlainFile(std::string_view text, std::string_view member);
// The same encrypted with the password "p" (of the letter 'S': "simple") and one iteration.
std::string SealedFile(char letter, uint64_t text_size, std::string_view member);

// A file after mutation with its sizes and checks made right again, as far as its parts can be found.
std::string Repaired(std::string_view bytes);

// Where the payload begins, and 0 if that cannot be found.
size_t PayloadAt(std::string_view bytes);

}  // namespace fuzz
