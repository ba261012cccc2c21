// The binary net file: the text of a net, compressed and perhaps encrypted, behind a readable head.
//
//   header line       // ~->[TALA=1]->~ READABLE-LENGTH TEXT-SIZE CR LF
//   readable section  comment lines: what the file is, stamp, comment of the net, letter of the cipher
//   block header      96 bytes, little-endian
//   cipher block      64 bytes, of encrypted files only (BN/Files/NetCipher.h)
//   payload           one gzip member, or its encrypted bytes and their tag
//
// Everything that a file says of itself is hostile: sizes are compared with what there is before memory is
// taken for them.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "BN/Files/GzipMember.h"
#include "BN/Files/NetCipher.h"
#include "BN/Model/Bnet.h"
#include "Basic/Error.h"
#include "Basic/Secret.h"
#include "Basic/Stream.h"

namespace talora {

// Whether bytes are to be read as a binary net file, going by what they begin with and by their file's name.
bool IsBinaryNet(std::string_view bytes, std::string_view name);

// The parts of a file.
struct NetContainer {
    int version = 0;  // of the format
    std::string_view readable;
    char cipher = 0;         // letter, see BN/Files/NetCipher.h
    uint64_t text_size = 0;  // as stated in the block header
    uint64_t text_crc = 0;   // check fields; 0 where the writer stored none
    uint64_t member_size = 0;
    std::string_view payload;  // all that follows the block header, a cipher block too
};
NetContainer ParseContainer(std::string_view bytes, const FilePlace& place);

struct UnpackedNet {
    ByteBuffer text;  // a zero byte follows it
    int version = 0;
    Secret password;  // that the file was encrypted with
};
// Takes the text of a net out of a binary file.  Asks for the password if the stream has none.
UnpackedNet UnpackNet(std::string_view bytes, const Stream& stream);

// Packs the text of a net, which comes in pieces, into a binary file.
class NetPacker {
public:
    // @param password    encrypts if set
    // @param iterations  of the key derivation
    NetPacker(const Net& net, const Secret& password, uint32_t iterations = kKeyIterations);
    void Add(std::string_view text) { gzip_.Add(text); }
    void WriteTo(ByteSink& sink);  // once, when all the text has been added

private:
    std::string Readable(char cipher, uint32_t stamp) const;
    std::string Head(char cipher, uint32_t stamp) const;

    const Net& net_;
    const Secret& password_;
    uint32_t iterations_;
    int64_t time_;  // of writing; 0 where times are not recorded
    GzipWriter gzip_;
};

}  // namespace talora
