// Testing and scoring with 10,000 cases of alarm (TALORA_CORPUS): reading, propagating and counting.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <initializer_list>
#include <string>

#include "Talora.h"

namespace {

constexpr int64_t kCases = 10000;

class Fixture {
public:
    explicit Fixture(benchmark::State& state)
    {
        const char* corpus = std::getenv("TALORA_CORPUS");
        if (corpus == nullptr) {
            state.SkipWithError("TALORA_CORPUS is not set");
            return;
        }
        env_ = NewTaloraEnviron_vx(nullptr, nullptr);
        InitTalora2_bn(env_, nullptr);
        stream_vx* file = NewFileStream_vx((std::string(corpus) + "/nets/alarm.dne").c_str(), env_, nullptr);
        net_ = ReadNet_bn(file, NO_VISUAL_INFO);
        const std::string text = FirstCases(std::string(corpus) + "/cases/alarm_20k.cas");
        stream_vx* memory = NewMemoryStream_vx("cases", env_, nullptr);
        SetStreamContents_vx(memory, text.data(), int64_t(text.size()));
        cases = NewCaseset_cs("", env_);
        AddFileToCaseset_cs(cases, memory, 1, nullptr);
    }
    ~Fixture()
    {
        if (env_) CloseTalora_bn(env_, nullptr);
    }

    nodelist_bn* List(std::initializer_list<const char*> names)
    {
        nodelist_bn* list = NewNodeList2_bn(0, net_);
        for (const char* name : names) AddNodeToList_bn(GetNodeNamed_bn(name, net_), list, -1);
        return list;
    }
    stream_vx* Output() { return NewMemoryStream_vx("out", env_, nullptr); }
    bool IsReady() const { return net_ != nullptr; }

    caseset_cs* cases = nullptr;

private:
    static std::string FirstCases(const std::string& path)
    {
        std::string text;
        FILE* file = std::fopen(path.c_str(), "rb");
        char line[4096];
        for (int64_t lines = 0; file && lines < kCases + 3 && std::fgets(line, sizeof line, file); ++lines)
            text += line;
        if (file) std::fclose(file);
        return text;
    }

    environ_vx* env_ = nullptr;
    net_bn* net_ = nullptr;
};

void BM_TestAlarm(benchmark::State& state)
{
    Fixture fixture(state);
    if (!fixture.IsReady()) return;
    nodelist_bn* nodes = fixture.List({"HYPOVOLEMIA", "LVFAILURE", "INTUBATION", "CATECHOL"});
    tester_bn* tester = NewNetTester_bn(nodes, fixture.List({"LVEDVOLUME", "STROKEVOLUME"}), -1);
    for (auto _ : state) TestWithCaseset_bn(tester, fixture.cases);
    state.SetItemsProcessed(state.iterations() * kCases);
}
BENCHMARK(BM_TestAlarm)->Unit(benchmark::kMillisecond);

void BM_ScoreAlarm(benchmark::State& state)
{
    Fixture fixture(state);
    if (!fixture.IsReady()) return;
    nodelist_bn* nodes = fixture.List({"HYPOVOLEMIA", "LVFAILURE"});
    for (auto _ : state) {
        stream_vx* output = fixture.Output();
        WriteCaseBeliefs_bn(fixture.cases, nodes, output, state.range(0) ? "jsonl" : "");
        DeleteStream_vx(output);
    }
    state.SetItemsProcessed(state.iterations() * kCases);
}
BENCHMARK(BM_ScoreAlarm)->ArgName("json")->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);

}  // namespace
