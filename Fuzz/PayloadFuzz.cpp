// What lies behind the tag of an encrypted net file: the plaintext is damaged and sealed again, with a key
// derivation of one iteration.  Damage from before the sealing is found by gzip or the reader; after the
// sealing, any changed bit of the file is refused, and reading it with another password too.
//
//   byte 0   letter of the cipher, whether the rest is a text or a gzip member, and what is done to the
//   sealed
//            file: a bit flipped, its end cut off, a byte put in
//   byte 1   which bit or byte
//   2 bytes  where
//   rest     text or gzip member
#include "Fuzz/Harness.h"
#include "Fuzz/TalaFile.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const fuzz::Input input;
    fuzz::Bytes bytes(data, size);
    const uint8_t kind = bytes.Byte();
    const uint8_t change = bytes.Byte();
    const uint32_t place = bytes.Number(65536);
    const char letter = "GBS"[kind % 3];
    const bool is_text = kind / 3 % 2 == 0;
    const std::string_view rest = bytes.Rest();
    const std::string member = is_text ? fuzz::Gzipped(rest) : std::string(rest);
    const uint64_t text_size = is_text ? rest.size() : fuzz::Inflate(member).text.size();
    std::string file = fuzz::SealedFile(letter, text_size, member);
    const bool accepted = fuzz::CheckNetBytes(file, "x.tala", "p");
    if (is_text) {
        const bool accepted_as_text = fuzz::CheckNetBytes(rest, "x.dne");
        fuzz::Check(accepted == accepted_as_text || fuzz::Input::WasHalted(),
                    "a text is accepted sealed exactly when it is in the clear");
    }
    fuzz::Check(letter == 'S' || !fuzz::CheckNetBytes(file, "x.tala", "q"), "another password opens nothing");
    const size_t at = place % file.size();
    switch (kind / 6 % 3) {
        case 0:
            file[at] = static_cast<char>(file[at] ^ 1 << change % 8);
            break;
        case 1:
            file.resize(at);
            break;
        default:
            file.insert(at, 1, static_cast<char>(change));
            break;
    }
    fuzz::Check(!fuzz::CheckNetBytes(file, "x.tala", "p"), "no changed file opens");
    return 0;
}
