// Reading and writing net files: bytes per second of text.
#include <benchmark/benchmark.h>

#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>

#include "BN/Files/BnParse.h"
#include "BN/Files/BnPrintFile.h"
#include "Talora.h"

namespace {

using namespace talora;

environ_vx& Environ()
{
    static environ_vx* env = [] {
        environ_vx* made = NewTaloraEnviron_vx(nullptr, nullptr);
        InitTalora2_bn(made, nullptr);
        return made;
    }();
    return *env;
}

// One node with a table of about so many bytes of text, behind binary parents.
std::string LargeTable(size_t bytes)
{
    std::string text = "// ~->[DNET-1]->~\n\nbnet Large {\n", parents;
    int num_parents = 0;
    for (size_t rows = 1; rows * 40 < bytes; rows *= 2, ++num_parents) {
        text += "\tnode P" + std::to_string(num_parents) + " {\n\t\tstates = (yes, no);\n\t};\n";
        parents += (num_parents ? ", P" : "P") + std::to_string(num_parents);
    }
    text += "\tnode A {\n\t\tstates = (a, b, c);\n\t\tparents = (" + parents + ");\n\t\tprobs = \n\t\t\t(";
    for (size_t row = 0; row < size_t{1} << num_parents; ++row)
        text +=
            std::string(row ? ",\n\t\t\t " : "") + (row % 2 ? "0.123456, 0.376544, 0.5" : "0.05, 0.7, 0.25");
    return text + ");\n\t};\n};\n";
}

std::string CorpusNet(const char* name)
{
    const char* corpus = std::getenv("TALORA_CORPUS");
    std::stringstream text;
    if (corpus) text << std::ifstream(std::string(corpus) + "/nets/" + name + ".dne").rdbuf();
    return text.str();
}

void ReadText(benchmark::State& state, const std::string& text)
{
    if (text.empty()) return state.SkipWithError("TALORA_CORPUS is not set");
    Stream* stream = NewMemoryStream(Environ(), "bench.dne");
    SetContents(*stream, text);
    for (auto _ : state) DeleteNet(ReadNet(*stream, {}));
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * text.size()));
    DeleteStream(stream);
}

void WriteText(benchmark::State& state, const std::string& text)
{
    if (text.empty()) return state.SkipWithError("TALORA_CORPUS is not set");
    Stream* stream = NewMemoryStream(Environ(), "bench.dne");
    SetContents(*stream, text);
    Net* net = ReadNet(*stream, {});
    size_t bytes = 0;
    for (auto _ : state) PrintNet(*net, [&](std::string_view piece) { bytes += piece.size(); });
    state.SetBytesProcessed(static_cast<int64_t>(bytes));
    DeleteNet(net);
    DeleteStream(stream);
}

const int registered = [] {
    for (const char* name : {"asia", "alarm", "pigs", "munin1", "pathfinder"}) {
        const std::string text = CorpusNet(name);
        benchmark::RegisterBenchmark((std::string("ReadNet/") + name).c_str(), ReadText, text);
        benchmark::RegisterBenchmark((std::string("WriteNet/") + name).c_str(), WriteText, text);
    }
    for (const size_t megabytes : {1, 100}) {
        const std::string label = "/table_of_" + std::to_string(megabytes) + "_MB";
        const auto lazily = [=](benchmark::State& state, void (*run)(benchmark::State&, const std::string&)) {
            run(state, LargeTable(megabytes << 20));
        };
        benchmark::RegisterBenchmark(("ReadNet" + label).c_str(),
                                     [=](benchmark::State& s) { lazily(s, ReadText); });
        benchmark::RegisterBenchmark(("WriteNet" + label).c_str(),
                                     [=](benchmark::State& s) { lazily(s, WriteText); });
    }
    return 0;
}();

}  // namespace
