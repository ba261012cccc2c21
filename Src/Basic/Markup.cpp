// Terms of messages in the words of each front end, and the expansion of markup in formats.
#include "Basic/Markup.h"

#include <algorithm>
#include <atomic>
#include <cstring>

#include "Basic/Error.h"
#include "Basic/MultiThread.h"
#include "Basic/Text.h"

namespace talora {

namespace {

// A null entry: the flavour has no word of its own and the term stands as it is.
struct TermDef {
    const char* term;
    const char* words[3];  // INTERFACE_FLAVOR, PROGRAMMING_FLAVOR, AUTOMATION_FLAVOR
};

constexpr TermDef kTerms[] = {
    // clang-format off
    {"cr",                    {"\n", "", ""}},
    {"probtype",              {"probability", "prob_bn", "probability"}},
    {"int_state",             {"state", "state_bn", "state index"}},
    {"utiltype",              {"utility", "util_bn", "utility"}},
    {"detvtype",              {"value", "value", "value"}},
    {"leveltype",             {"level", "level_bn", "level"}},
    {"bool",                  {"boolean", "bool_vx", "Boolean"}},
    {"Enviro",                {"internal environment", "environ_vx", "Application"}},
    {"rept",                  {"error report", "report_vx", "error"}},
    {"FileSpec",              {"file", "stream_vx", "Streamer"}},
    {"RandGen",               {"randomization generator", "randgen_vx", "RandomGenerator"}},
    {"Bnet",                  {"Bayes net", "net_bn", "BNet"}},
    {"Bnode",                 {"node", "node_bn", "BNode"}},
    {"Bnodes",                {"nodes", "nodelist_bn", "BNodes"}},
    {"icase",                 {"condition", "setting_bn", "Condition"}},
    {"caseset_cs",            {"case set", "caseset_cs", "Caseset"}},
    {"learner_bn",            {"learner", "learner_bn", "Learner"}},
    {"NetTest",               {"net tester", "tester_bn", "NetTester"}},
    {"Sensv",                 {"sensitivity", "sensv_bn", "Sensitivity"}},
    {"DBmgr",                 {"database manager", "dbmgr_bn", "DatabaseManager"}},
    {"ErrCondEN",             {"condition resulting in an error", "errcond_vx", "errcond_vx"}},
    {"ErrSeverityEN",         {"severity of an error", "errseverity_vx", "errseverity_vx"}},
    {"APICheckingLevelEN",    {"degree of checking Talora API calls", "checking_vx", "CheckingLevel"}},
    {"VarDiscreteEN",         {"whether node is discrete or continuous", "nodetype_bn", "NodeType"}},
    {"NodeKindEN",            {"kind of node (nature, decision, etc.)", "nodekind_bn", "NodeKind"}},
    {"undef_state_int",       {"\"undefined state\" ID", "UNDEF_STATE", nullptr}},
    {"every_state_int",       {"\"every state\" ID", "EVERY_STATE", nullptr}},
    {"imposs_cond_int",       {"\"impossible condition\" ID", "IMPOSS_STATE", nullptr}},
    {"nature_node_int",       {"nature node ID", "NATURE_NODE", nullptr}},
    {"constant_node_int",     {"constant node ID", "CONSTANT_NODE", nullptr}},
    {"decision_node_int",     {"decision node ID", "DECISION_NODE", nullptr}},
    {"utility_node_int",      {"utility node ID", "UTILITY_NODE", nullptr}},
    {"disconnected_node_int", {"disconnected node ID", "DISCONNECTED_NODE", nullptr}},
    {"net",                   {"Bayes net", nullptr, nullptr}},
    {"node",                  {"node", nullptr, nullptr}},
    {"nature_node",           {"nature node", nullptr, nullptr}},
    {"constant_node",         {"constant node", nullptr, nullptr}},
    {"decision_node",         {"decision node", nullptr, nullptr}},
    {"utility_node",          {"utility node", nullptr, nullptr}},
    {"undef_state_indicator", {"\"undefined state\" indicator", nullptr, nullptr}},
    {"every_state_indicator", {"\"every state\" indicator", nullptr, nullptr}},
    {"imposs_cond_indicator", {"\"impossible condition\" indicator", nullptr, nullptr}},
    {"CPTable",               {"CPT table", nullptr, nullptr}},
    {"functable",             {"function table", nullptr, nullptr}},
    {"expertable",            {"experience table", nullptr, nullptr}},
    {"Nodeset",               {"node-set", nullptr, nullptr}},
    {"finding",               {"finding", nullptr, nullptr}},
    {"var",                   {"variable", nullptr, nullptr}},
    {"setter_menu",           {"selector", nullptr, nullptr}},
    {"exact_inference",       {"belief updating", nullptr, nullptr}},
    {"probab",                {"probability", nullptr, nullptr}},
    {"Talora",                {"Talora", "Talora", "Talora"}},
    {"Caseset",               {nullptr, nullptr, "Caseset"}},
    {"LearnControl",          {nullptr, nullptr, "Learner"}},
    // clang-format on
};

// Names of functions are in a higher room (Lexicon.cpp), which sets this when the library is loaded.
constinit std::atomic<FunctionTranslator> translator{nullptr};

// The binding for managed languages words types as programs do, but its booleans are "bool".
const char* WordsOf(const TermDef& def, Flavor flavor)
{
    if (flavor != MANAGED_FLAVOR) return def.words[flavor];
    return std::string_view(def.term) == "bool" ? "bool" : def.words[PROGRAMMING_FLAVOR];
}

// Gives the pieces of a text to `append`, terms in the words of the flavour.
template <class Append>
void Expand(Flavor flavor, std::string_view text, Append append)
{
    for (size_t at = 0; at < text.size();) {
        const size_t mark = std::min(text.find(">-", at), text.size());
        append(text.substr(at, mark - at));
        if (mark == text.size()) return;
        size_t end = mark + 2;
        while (end < text.size() && IsNameChar(text[end])) ++end;
        const std::string_view term = text.substr(mark + 2, end - mark - 2);
        if (!term.empty()) append(TermIn(flavor, term));
        at = !term.empty() && end < text.size() && text[end] == '-' ? end + 1 : end;
    }
}

}  // namespace

// A row of the table, else the name of a function, else the term itself.
std::string_view TermIn(Flavor flavor, std::string_view term)
{
    for (const TermDef& def : kTerms) {
        if (term != def.term) continue;
        const char* words = WordsOf(def, flavor);
        return words ? std::string_view(words) : term;
    }
    const FunctionTranslator translate = translator.load();
    const char* function = translate ? translate(flavor, term) : nullptr;
    return function ? std::string_view(function) : term;
}

std::string ExpandMarkupIn(Flavor flavor, std::string_view text)
{
    std::string expanded;
    Expand(flavor, text, [&](std::string_view piece) { expanded += piece; });
    return expanded;
}

// Allocates nothing: it also words the message that memory is out.
void ExpandMarkupInto(Flavor flavor, std::string_view text, char* buffer, size_t size)
{
    size_t length = 0;
    Expand(flavor, text, [&](std::string_view piece) {
        const size_t count = std::min(piece.size(), size - 1 - length);
        memcpy(buffer + length, piece.data(), count);
        length += count;
    });
    buffer[length] = '\0';
}

void SetFunctionTranslator(FunctionTranslator function)
{
    translator.store(function);
}

std::string FunctionNameIn(Flavor flavor, const char* function)
{
    return std::string(TermIn(flavor, function));
}

// Outside of any environment messages are for programmers.
Flavor CurrentFlavor()
{
    const environ_vx* env = ThisThread().env;
    return env ? env->flavor.load() : PROGRAMMING_FLAVOR;
}

std::string ExpandMarkup(const char* format)
{
    return ExpandMarkupIn(CurrentFlavor(), format);
}

}  // namespace talora
