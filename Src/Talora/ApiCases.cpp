// Interface functions: case files and case sets.
#include <cmath>
#include <utility>

#include "Basic/Stream.h"
#include "Talora/APICheck.h"
#include "VarVal/CaseFindings.h"
#include "VarVal/CaseWrite.h"
#include "VarVal/Caseset.h"

using namespace talora;

namespace {

// A character as messages name it.
const char* CharWord(int c)
{
    switch (c) {
        case 0:
            return "absent (0)";
        case ' ':
            return "a space";
        case '\t':
            return "a tab";
        case ',':
            return "a comma";
        case '*':
            return "'*'";
        case '?':
            return "'?'";
        case '-':
            return "'-'";
        default:
            return "another character";
    }
}

// The nodes of a list, which are of one net and not repeated.
std::vector<Node*> OneNet(const nodelist_bn& list)
{
    if (list.nodes.empty()) Fail<6541>();
    std::vector<char> seen(list.nodes[0]->net->nodes.nodes.size());
    std::vector<Node*> nodes;
    for (Node* node : list.nodes) {
        if (node->net != list.nodes[0]->net) Fail<6542>(list.nodes[0]->name.c_str(), node->name.c_str());
        if (!std::exchange(seen[static_cast<size_t>(node->index)], 1)) nodes.push_back(node);
    }
    return nodes;
}

// A position that was passed, as bytes.
int64_t PositionArgument(double position)
{
    if (position == NEXT_CASE_POSN) return kNextCase;
    if (position < 0) Fail<6543>(position);
    if (!(position < NEXT_CASE_POSN) || position != std::floor(position)) Fail<6544>(position);
    return static_cast<int64_t>(position);
}

const CaseSource& SourceArgument(const Caseset& cases, int index)
{
    const int count = static_cast<int>(cases.sources.size());
    if (index < 0 || index >= count) Fail<6545>(index, cases.name.c_str(), count);
    return cases.sources[static_cast<size_t>(index)];
}

}  // namespace

caseset_cs* NewCaseset_cs(const char* name, environ_vx* env)
{
    return CallEnviron(__func__, env, static_cast<caseset_cs*>(nullptr),
                       [&](environ_vx& owner) { return NewCaseset(owner, TextArgument(name)); });
}

void DeleteCaseset_cs(caseset_cs* cases)
{
    if (cases == nullptr) return;
    CallApi(__func__, cases, [&] { DeleteCaseset(cases); });
}

void AddFileToCaseset_cs(caseset_cs* cases, const stream_vx* file, double degree, const char* options)
{
    CallApi(__func__, With(cases, file), [&] {
        CheckHandle(file);
        const bool skips_misfits = OptionsArgument(options, {"SkipMisfits"}) != 0;
        if (!std::isfinite(degree) || IsUndef(degree) || degree < 0) Fail<6528>(degree);
        AddFileToCaseset(*cases, *file, degree, skips_misfits);
    });
}

void WriteCaseset_cs(const caseset_cs* cases, stream_vx* file, const char* options)
{
    CallApi(__func__, With(cases, file), [&] {
        CheckHandle(file);
        CheckNoOptions(options);
        WriteCaseset(*cases, *file);
    });
}

int64_t CountCasesetCases_cs(const caseset_cs* cases, double* total_weight)
{
    if (total_weight != nullptr) *total_weight = UndefDbl();
    return CallApi(__func__, cases, int64_t{-1}, [&] {
        const CasesetSize size = MeasureCaseset(*cases);
        if (total_weight != nullptr) *total_weight = size.total_weight;
        return size.num_cases;
    });
}

const char* GetCasesetName_cs(const caseset_cs* cases)
{
    return CallApi(__func__, cases, static_cast<const char*>(nullptr), [&] { return cases->name.c_str(); });
}

int CountCasesetSources_cs(const caseset_cs* cases)
{
    return CallApi(__func__, cases, -1, [&] { return static_cast<int>(cases->sources.size()); });
}

const char* GetCasesetSourceName_cs(const caseset_cs* cases, int index)
{
    return CallApi(__func__, cases, static_cast<const char*>(nullptr),
                   [&] { return SourceArgument(*cases, index).name.c_str(); });
}

double GetCasesetSourceDegree_cs(const caseset_cs* cases, int index)
{
    return CallApi(__func__, cases, UndefDbl(), [&] { return SourceArgument(*cases, index).degree; });
}

int SetCaseFileDelimChar_vx(int newchar, environ_vx* env)
{
    return CallEnviron(__func__, env, -1, [&](environ_vx& the_env) {
        const int old = static_cast<unsigned char>(the_env.case_delimiter);
        if (newchar == QUERY_CASE_CHAR) return old;
        if (newchar != ',' && newchar != ' ' && newchar != '\t') Fail<6546>(newchar);
        const bool needs_comma = the_env.missing_char == 0 || the_env.missing_char == ' ';
        if (newchar != ',' && needs_comma) Fail<6547>(CharWord(newchar), CharWord(the_env.missing_char));
        the_env.case_delimiter = static_cast<char>(newchar);
        return old;
    });
}

int SetMissingDataChar_vx(int newchar, environ_vx* env)
{
    return CallEnviron(__func__, env, -1, [&](environ_vx& the_env) {
        const int old = static_cast<unsigned char>(the_env.missing_char);
        if (newchar == QUERY_CASE_CHAR) return old;
        if (newchar != 0 && newchar != ' ' && newchar != '*' && newchar != '?' && newchar != '-')
            Fail<6548>(newchar);
        if ((newchar == 0 || newchar == ' ') && the_env.case_delimiter != ',')
            Fail<6549>(CharWord(newchar), CharWord(the_env.case_delimiter));
        the_env.missing_char = static_cast<char>(newchar);
        return old;
    });
}

double WriteNetFindings_bn(const nodelist_bn* nodes, stream_vx* file, int64_t ID_num, double freq)
{
    return CallApi(__func__, With(nodes, EntriesOf(nodes), file), NO_CASE_POSN, [&] {
        CheckHandle(file);
        if (ID_num < -1) Fail<6550>(static_cast<long long>(ID_num));
        if (!(freq >= 0) && freq != kNoFreq) Fail<6551>(freq);
        if (!std::isfinite(freq)) Fail<6552>(freq);
        return static_cast<double>(AppendFindings(*file, OneNet(*nodes), ID_num, freq));
    });
}

double FindCasePosition_cs(const stream_vx* file, int64_t case_number)
{
    return CallApi(__func__, file, NO_CASE_POSN, [&] {
        if (case_number < 1) Fail<6555>(static_cast<long long>(case_number));
        return static_cast<double>(FindCase(*file, case_number));
    });
}

bool_vx ReadNetFindings2_bn(double* case_posn, stream_vx* file, int add, const nodelist_bn* nodes,
                            int64_t* ID_num, double* freq)
{
    if (ID_num != nullptr) *ID_num = -1;
    if (freq != nullptr) *freq = UndefDbl();
    return CallApi(__func__, With(nodes, EntriesOf(nodes), file), bool_vx{0}, [&]() -> bool_vx {
        CheckHandle(file);
        if (case_posn == nullptr) Fail<6553>();
        const int64_t position = PositionArgument(*case_posn);
        if (add < DONT_ADD_NEW || add > QUIETLY_ADD_NEW) Fail<6554>(add);
        const std::vector<Node*> wanted = OneNet(*nodes);
        const FoundCase found =
            ReadFindings(*file, *wanted[0]->net, wanted, position, static_cast<AddMode>(add));
        *case_posn = static_cast<double>(found.position);
        if (found.position < 0) return 0;
        if (ID_num != nullptr) *ID_num = found.id;
        if (freq != nullptr) *freq = found.freq;
        return 1;
    });
}
