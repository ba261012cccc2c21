// Binary net files against their parts: zlib alone, and the text reader and writer alone.
//
// To be read as ratios: Container/Read against the sum of Inflate and ReadText, Container/Write against the
// sum of Deflate and PrintText.
#include <benchmark/benchmark.h>
#include <zlib.h>

#include <string>
#include <vector>

#include "BN/Files/BnParse.h"
#include "BN/Files/BnPrintFile.h"
#include "BN/Files/NetContainer.h"
#include "Talora.h"

namespace {

using namespace talora;

constexpr size_t kBytes = 18'000'000;  // as made here; three times that as the library writes it

environ_vx& Environ()
{
    static environ_vx* env = [] {
        environ_vx* made = NewTaloraEnviron_vx(nullptr, nullptr);
        InitTalora2_bn(made, nullptr);
        return made;
    }();
    return *env;
}

// A net of many nodes with tables of all sorts of numbers.
const std::string& Text()
{
    static const std::string text = [] {
        std::string out = "// ~->[DNET-1]->~\n\nbnet Large {\n";
        uint32_t random = 1;
        const auto draw = [&] { return (random = random * 1664525 + 1013904223) >> 8; };
        for (int node = 0; out.size() < kBytes; ++node) {
            const std::string name = "N" + std::to_string(node);
            out += "\tnode " + name + " {\n\t\tstates = (low, middle, high);\n\t\tprobs = (";
            if (node >= 8) {
                out.insert(out.size() - 9, "parents = (");
                for (int parent = 1; parent <= 8; ++parent)
                    out.insert(out.size() - 9, (parent > 1 ? ", N" : "N") + std::to_string(node - parent));
                out.insert(out.size() - 9, ");\n\t\t");
            }
            int rows = 1;
            for (int parent = 0; parent < 8 && node >= 8; ++parent) rows *= 3;
            for (int row = 0; row < rows; ++row) {
                const uint32_t a = draw() % 10000, b = draw() % (10000 - a + 1), c = 10000 - a - b;
                for (const uint32_t p : {a, b, c})
                    out += (out.back() == '(' ? "" : ",\n") + std::to_string(p / 10000.0);
            }
            out += ");\n\t};\n";
        }
        return out + "};\n";
    }();
    return text;
}

Stream* MemoryStream(const char* name, const std::string& contents)
{
    Stream* stream = NewMemoryStream(Environ(), name);
    SetContents(*stream, contents);
    return stream;
}

// The text as the library writes it, so that all benchmarks work on the same bytes.
const std::string& WrittenText()
{
    static const std::string text = [] {
        Stream* stream = MemoryStream("large.dne", Text());
        Net* net = ReadNet(*stream, {});
        std::string written = PrintNet(*net);
        DeleteNet(net);
        DeleteStream(stream);
        return written;
    }();
    return text;
}

std::vector<Bytef> Deflated()
{
    z_stream zlib = {};
    deflateInit2(&zlib, 6, Z_DEFLATED, MAX_WBITS + 16, 8, Z_DEFAULT_STRATEGY);
    const std::string& text = WrittenText();
    std::vector<Bytef> out(deflateBound(&zlib, text.size()));
    zlib.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(text.data()));
    zlib.avail_in = static_cast<uInt>(text.size());
    zlib.next_out = out.data();
    zlib.avail_out = static_cast<uInt>(out.size());
    deflate(&zlib, Z_FINISH);
    out.resize(zlib.total_out);
    deflateEnd(&zlib);
    return out;
}

void SetBytes(benchmark::State& state)
{
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * WrittenText().size()));
}

void Deflate(benchmark::State& state)
{
    WrittenText();
    for (auto _ : state) benchmark::DoNotOptimize(Deflated());
    SetBytes(state);
}

void Inflate(benchmark::State& state)
{
    std::vector<Bytef> member = Deflated();
    for (auto _ : state) {
        const std::unique_ptr<Bytef[]> text(new Bytef[WrittenText().size()]);
        z_stream zlib = {};
        inflateInit2(&zlib, MAX_WBITS + 16);
        zlib.next_in = member.data();
        zlib.avail_in = static_cast<uInt>(member.size());
        zlib.next_out = text.get();
        zlib.avail_out = static_cast<uInt>(WrittenText().size());
        if (inflate(&zlib, Z_FINISH) != Z_STREAM_END) state.SkipWithError("inflate failed");
        inflateEnd(&zlib);
    }
    SetBytes(state);
}

void ReadFrom(benchmark::State& state, const char* name, const char* password)
{
    Stream* text = MemoryStream("large.dne", WrittenText());
    Stream* stream = MemoryStream(name, "");
    if (password) stream->password = Secret(password);
    Net* net = ReadNet(*text, {});
    DeleteStream(text);
    WriteNet(*net, *stream);
    DeleteNet(net);
    for (auto _ : state) DeleteNet(ReadNet(*stream, {}));
    SetBytes(state);
    DeleteStream(stream);
}

void WriteTo(benchmark::State& state, const char* name, const char* password)
{
    Stream* text = MemoryStream("large.dne", WrittenText());
    Stream* stream = MemoryStream(name, "");
    if (password) stream->password = Secret(password);
    Net* net = ReadNet(*text, {});
    for (auto _ : state) WriteNet(*net, *stream);
    SetBytes(state);
    DeleteNet(net);
    DeleteStream(text);
    DeleteStream(stream);
}

void DeriveKey(benchmark::State& state)
{
    const CipherBlock block{.iterations = kKeyIterations};
    for (auto _ : state) {
        FileKeys keys;
        DeriveKeys(block, "password", keys);
    }
}

const auto kUnit = benchmark::kMillisecond;
BENCHMARK(Deflate)->Name("Container/zlib_deflate")->Unit(kUnit);
BENCHMARK(Inflate)->Name("Container/zlib_inflate")->Unit(kUnit);
BENCHMARK_CAPTURE(ReadFrom, read_text, "x.dne", nullptr)->Name("Container/read_text")->Unit(kUnit);
BENCHMARK_CAPTURE(ReadFrom, read, "x.tala", nullptr)->Name("Container/read")->Unit(kUnit);
BENCHMARK_CAPTURE(WriteTo, write_text, "x.dne", nullptr)->Name("Container/write_text")->Unit(kUnit);
BENCHMARK_CAPTURE(WriteTo, write, "x.tala", nullptr)->Name("Container/write")->Unit(kUnit);
BENCHMARK_CAPTURE(ReadFrom, read_simple, "x.tala", "simple")->Name("Container/read_encrypted")->Unit(kUnit);
BENCHMARK_CAPTURE(WriteTo, write_simple, "x.tala", "simple")->Name("Container/write_encrypted")->Unit(kUnit);
BENCHMARK(DeriveKey)->Name("Cipher/derive_key")->Unit(kUnit);

}  // namespace
