// Reading and writing net files of other programs: bytes per second of text.
#include <benchmark/benchmark.h>

#include <string>

#include "Foreign/ForeignCheck.h"
#include "Foreign/Formats.h"
#include "Talora.h"

namespace {

using namespace talora;

// Forty groups of a child with ten binary parents: some megabytes in every format.
ForeignNet LargeNet()
{
    constexpr int kGroups = 40, kParents = 10;
    ForeignNet net;
    net.name = "large";
    for (int group = 0; group < kGroups; ++group) {
        const int first = int(net.nodes.size());
        for (int i = 0; i <= kParents; ++i) {
            ForeignNode& node = net.nodes.emplace_back();
            node.name = "n" + std::to_string(group) + "_" + std::to_string(i);
            node.states = i < kParents ? std::vector<std::string>{"yes", "no"}
                                       : std::vector<std::string>{"a", "b", "c"};
            if (i < kParents) node.table = {0.25, 0.75};
        }
        ForeignNode& child = net.nodes.back();
        for (int i = 0; i < kParents; ++i) child.parents.push_back(first + i);
        for (int row = 0; row < 1 << kParents; ++row)
            for (const double p : {row % 2 ? 0.123456 : 0.05, row % 2 ? 0.376544 : 0.7, row % 2 ? 0.5 : 0.25})
                child.table.push_back(p);
    }
    return net;
}

void ReadFormat(benchmark::State& state, const Format& format)
{
    ForeignNet net = LargeNet();
    std::string text;
    format.write(net, text);
    const ForeignSource source{text, "bench"};
    for (auto _ : state) {
        ForeignNet read;
        format.read(source, read);
        CheckForeignNet(source, read);
        benchmark::DoNotOptimize(read.nodes.data());
    }
    state.SetBytesProcessed(int64_t(state.iterations() * text.size()));
}

void WriteFormat(benchmark::State& state, const Format& format)
{
    ForeignNet net = LargeNet();
    size_t size = 0;
    for (auto _ : state) {
        std::string text;
        format.write(net, text);
        size = text.size();
        benchmark::DoNotOptimize(text.data());
    }
    state.SetBytesProcessed(int64_t(state.iterations() * size));
}

const bool kRegistered = [] {
    for (const Format& format : Formats()) {
        const std::string name = format.name;
        if (format.read) benchmark::RegisterBenchmark(("ReadForeign/" + name).c_str(), ReadFormat, format);
        benchmark::RegisterBenchmark(("WriteForeign/" + name).c_str(), WriteFormat, format);
    }
    return true;
}();

}  // namespace
