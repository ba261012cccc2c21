// Case files from bytes: whatever can be read can be written as one file, and gives the same cases again.
#include <cstdint>
#include <cstdlib>
#include <string>

#include "BN/BnBasicOps1.h"
#include "Basic/Error.h"
#include "Basic/Stream.h"
#include "VarVal/CaseFindings.h"
#include "VarVal/Caseset.h"

namespace {

using namespace talora;

Net& TheNet(environ_vx& env)
{
    Net& net = *NewNet(env, "Fuzz");
    SetStateNames(*AddNode(net, "A", 2), {"no", "yes"});
    AddNode(net, "B", 3);
    AddNode(net, "C", 0);
    const double thresholds[] = {0, 1, 2.5}, levels[] = {1, 2};
    SetLevels(*AddNode(net, "D", 0), 2, thresholds);
    SetLevels(*AddNode(net, "L", 2), 2, levels);
    return net;
}

// All cases as one list of numbers.
std::vector<double> ReadAll(const Caseset& cases, const Net& net)
{
    std::vector<double> all;
    CaseReader reader(cases, net.nodes.nodes);
    for (CaseBlock block; reader.Next(block);) {
        for (int row = 0; row < block.num_cases; ++row) {
            const auto at = static_cast<size_t>(row);
            all.push_back(block.weights[at]);
            all.push_back(static_cast<double>(block.ids[at]));
            for (size_t i = 0; i < block.states.size(); ++i) {
                all.push_back(block.states[i][at]);
                if (!block.values[i].empty()) all.push_back(block.values[i][at]);
            }
        }
        for (const CaseLikelihood& likelihood : block.likelihoods)
            all.insert(all.end(), likelihood.weights.begin(), likelihood.weights.end());
    }
    return all;
}

Caseset* SetOf(environ_vx& env, std::string_view bytes)
{
    Caseset* cases = NewCaseset(env, "");
    CaseSource source;
    source.name = "fuzz.cas";
    source.in_memory = true;
    source.contents = bytes;
    cases->sources.push_back(std::move(source));
    return cases;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    static environ_vx* const env = [] {
        environ_vx* made = NewTaloraEnviron_vx("fuzz", nullptr);
        InitTalora2_bn(made, nullptr);
        SetCaseFileDelimChar_vx(',', made);
        return made;
    }();
    static const Net& net = TheNet(*env);
    static Stream* const file = NewMemoryStream(*env, "out.cas");
    Caseset* cases = SetOf(*env, {reinterpret_cast<const char*>(data), size});
    Caseset* again = nullptr;
    try {
        const std::vector<double> read = ReadAll(*cases, net);
        WriteCaseset(*cases, *file);
        again = SetOf(*env, file->contents);
        if (ReadAll(*again, net) != read) abort();
    } catch (const Unwind&) {
        if (again != nullptr) abort();  // what was written must be readable
    }
    DeleteCaseset(cases);
    if (again != nullptr) DeleteCaseset(again);
    ClearErrors_vx(env, INTERNAL_SEVERITY);
    return 0;
}
