// Binary net files from bytes: header line, readable section, block header, gzip member, text.
//
// The mutator changes the file or the text that is packed in it, and half of the time makes sizes and checks
// right again, so that what lies behind them is reached.
#include <algorithm>
#include <cstring>
#include <random>

#include "Fuzz/Harness.h"
#include "Fuzz/TalaFile.h"

extern "C" size_t LLVMFuzzerMutate(uint8_t* data, size_t size, size_t max_size);
extern "C" size_t LLVMFuzzerCustomMutator(uint8_t* data, size_t size, size_t max_size, unsigned seed);

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const fuzz::Input input;
    fuzz::CheckNetBytes({reinterpret_cast<const char*>(data), size}, "x.tala");
    return 0;
}

namespace {

// The file with its text mutated and packed again; "" if it holds none.
std::string WithMutatedText(std::string_view file)
{
    const size_t payload_at = fuzz::PayloadAt(file);
    if (payload_at == 0) return "";
    std::string text = fuzz::Inflate(file.substr(payload_at)).text;
    if (text.empty()) return "";
    const size_t size = text.size();
    text.resize(size + size / 2 + 64);
    text.resize(LLVMFuzzerMutate(reinterpret_cast<uint8_t*>(text.data()), size, text.size()));
    return std::string(file.substr(0, payload_at)) + fuzz::Gzipped(text);
}

}  // namespace

extern "C" size_t LLVMFuzzerCustomMutator(uint8_t* data, size_t size, size_t max_size, unsigned seed)
{
    std::minstd_rand random(seed);
    const bool repair = random() % 2 == 0;
    std::string file;
    if (random() % 3 == 0) file = WithMutatedText({reinterpret_cast<const char*>(data), size});
    if (file.empty()) {
        size = LLVMFuzzerMutate(data, size, max_size);
        file.assign(reinterpret_cast<const char*>(data), size);
    }
    if (repair) file = fuzz::Repaired(file);
    size = std::min(file.size(), max_size);
    memcpy(data, file.data(), size);
    return size;
}
