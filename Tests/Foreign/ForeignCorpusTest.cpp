// A collection of net files of other programs: each is read and gives the beliefs or utilities known for it,
// the damaged ones are refused where they are damaged, and every format gives back what every other wrote.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <map>
#include <nlohmann/json.hpp>
#include <set>
#include <string>
#include <vector>

#include "Talora.h"

namespace {

using nlohmann::json;

class ForeignCorpusTest : public testing::Test {
protected:
    void SetUp() override
    {
        const char* folder = std::getenv("TALORA_FORMATS");
        if (!folder) GTEST_SKIP() << "TALORA_FORMATS is not set: no files of other programs are read";
        folder_ = std::string(folder) + "/";
        manifest_ = json::parse(std::ifstream(folder_ + "manifest.json"));
        env_ = NewTaloraEnviron_vx(nullptr, nullptr);
        ASSERT_GE(InitTalora2_bn(env_, nullptr), 0);
    }
    void TearDown() override
    {
        ClearErrors_vx(nullptr, INTERNAL_SEVERITY);
        if (env_) CloseTalora_bn(env_, nullptr);
    }

    struct Loss {
        int severity;
        std::string what, nodes;
    };
    struct Read {
        net_bn* net;
        std::vector<Loss> losses;
    };

    static std::vector<Loss> LossesOf(stream_vx* stream)
    {
        std::vector<Loss> losses;
        int severity = 0;
        const char *what = nullptr, *nodes = nullptr;
        for (int i = 0; GetNthStreamLoss_vx(stream, i, &severity, &what, &nodes, nullptr); ++i)
            losses.push_back({severity, what, nodes});
        return losses;
    }
    Read ReadFile(const std::string& file)
    {
        stream_vx* stream = NewFileStream_vx((folder_ + file).c_str(), env_, nullptr);
        net_bn* net = ReadNet_bn(stream, REGULAR_WINDOW);
        Read read{net, LossesOf(stream)};
        DeleteStream_vx(stream);
        return read;
    }
    // Writes a net to memory in a format; the losses say what is not in the text.
    std::string Write(net_bn* net, const std::string& format, std::vector<Loss>& losses)
    {
        stream_vx* stream = NewMemoryStream_vx("net", env_, nullptr);
        WriteNetAs_bn(net, stream, format.c_str(), nullptr);
        losses = LossesOf(stream);
        int64_t length = 0;
        const char* text = GetStreamContents_vx(stream, &length);
        std::string written(text ? text : "", size_t(length));
        DeleteStream_vx(stream);
        return written;
    }
    net_bn* ReadText(const std::string& text, const std::string& name)
    {
        stream_vx* stream = NewMemoryStream_vx(name.c_str(), env_, nullptr);
        SetStreamContents_vx(stream, text.data(), int64_t(text.size()));
        net_bn* net = ReadNet_bn(stream, REGULAR_WINDOW);
        DeleteStream_vx(stream);
        return net;
    }

    std::string folder_;
    json manifest_;
    environ_vx* env_ = nullptr;
};

std::vector<node_bn*> NodesOf(const net_bn* net)
{
    std::vector<node_bn*> nodes;
    const nodelist_bn* list = GetNetNodes2_bn(net, nullptr);
    for (int i = 0; i < LengthNodeList_bn(list); ++i) nodes.push_back(NthNode_bn(list, i));
    return nodes;
}

std::vector<node_bn*> ParentsOf(const node_bn* node)
{
    std::vector<node_bn*> parents;
    const nodelist_bn* list = GetNodeParents_bn(node);
    for (int i = 0; i < LengthNodeList_bn(list); ++i) parents.push_back(NthNode_bn(list, i));
    return parents;
}

// A name that was repaired stands in the title, or in a field where there is a title besides.
std::string OriginalName(const node_bn* node, const std::string& expected)
{
    if (GetNodeName_bn(node) == expected) return expected;
    const char* kept = GetNodeUserField_bn(node, "original_name", nullptr, 0);
    return kept && *kept ? kept : GetNodeTitle_bn(node);
}

void ExpectStructure(const json& oracle, const std::vector<node_bn*>& nodes)
{
    ASSERT_EQ(nodes.size(), oracle["nodes"].size());
    const std::map<std::string, int> kinds = {
        {"chance", NATURE_NODE}, {"decision", DECISION_NODE}, {"utility", UTILITY_NODE}};
    std::map<std::string, size_t> place;
    for (size_t i = 0; i < nodes.size(); ++i) place[oracle["nodes"][i]["name"]] = i;
    for (size_t i = 0; i < nodes.size(); ++i) {
        const json& node = oracle["nodes"][i];
        SCOPED_TRACE(node["name"].get<std::string>());
        EXPECT_EQ(OriginalName(nodes[i], node["name"]), node["name"]);
        EXPECT_EQ(GetNodeKind_bn(nodes[i]), kinds.at(node["kind"]));
        if (node["kind"] != "utility") {
            ASSERT_EQ(size_t(GetNodeNumberStates_bn(nodes[i])), node["states"].size());
            for (int s = 0; s < int(node["states"].size()); ++s) {
                const std::string name = GetNodeStateName_bn(nodes[i], s),
                                  title = GetNodeStateTitle_bn(nodes[i], s);
                const std::string expected = node["states"][size_t(s)];
                EXPECT_TRUE(name == expected || title == expected)
                    << name << ", " << title << ", " << expected;
            }
        }
        const std::vector<node_bn*> parents = ParentsOf(nodes[i]);
        ASSERT_EQ(parents.size(), node["parents"].size());
        for (size_t p = 0; p < parents.size(); ++p)
            EXPECT_EQ(parents[p], nodes[place.at(node["parents"][p])]);
        if (!node.contains("levels") || !node["levels"].is_array()) continue;
        const level_bn* levels = GetNodeLevels_bn(nodes[i]);
        ASSERT_NE(levels, nullptr);
        for (size_t l = 0; l < node["levels"].size(); ++l)
            EXPECT_EQ(levels[l], node["levels"][l].get<double>());
    }
}

void ExpectBeliefs(const json& beliefs, const json& oracle, const std::vector<node_bn*>& nodes)
{
    for (size_t i = 0; i < nodes.size(); ++i) {
        const json& expected = beliefs[oracle["nodes"][i]["name"].get<std::string>()];
        const prob_bn* found = GetNodeBeliefs_bn(nodes[i]);
        ASSERT_NE(found, nullptr) << ListErrors_vx(nullptr, 0, 5);
        for (size_t s = 0; s < expected.size(); ++s)
            EXPECT_NEAR(found[s], expected[s].get<double>(), 1e-6) << oracle["nodes"][i]["name"] << " " << s;
    }
}

// Greatest expected utility with perfect memory, by going through everything: chance nodes are summed over
// once they cannot be known any more, decisions taken in the given order.
double BestUtility(const std::vector<node_bn*>& nodes, const json& order)
{
    std::map<const node_bn*, int> state;
    std::vector<node_bn*> sequence, utilities;
    std::set<const node_bn*> placed;
    const auto add = [&](node_bn* node) {
        if (placed.insert(node).second) sequence.push_back(node);
    };
    for (const json& name : order)
        for (node_bn* node : nodes)
            if (OriginalName(node, name) == name.get<std::string>()) {
                for (node_bn* parent : ParentsOf(node)) add(parent);
                add(node);
            }
    for (node_bn* node : nodes)
        if (GetNodeKind_bn(node) == UTILITY_NODE)
            utilities.push_back(node);
        else
            add(node);
    const auto row = [&](const node_bn* node) {
        std::vector<int> states;
        for (const node_bn* parent : ParentsOf(node)) states.push_back(state[parent]);
        states.push_back(0);
        return states;
    };
    const std::function<double(size_t)> best = [&](size_t depth) -> double {
        if (depth == sequence.size()) {
            double weight = 1, total = 0;
            for (node_bn* node : sequence)
                if (GetNodeKind_bn(node) == NATURE_NODE) {
                    const bool has_probs = GetNodeProbs_bn(node, row(node).data()) != nullptr;
                    weight *= has_probs ? double(GetNodeProbs_bn(node, row(node).data())[state[node]])
                                        : double(GetNodeFuncState_bn(node, row(node).data()) == state[node]);
                }
            if (weight == 0) return 0;
            for (node_bn* node : utilities) total += GetNodeFuncReal_bn(node, row(node).data());
            return weight * total;
        }
        node_bn* node = sequence[depth];
        const bool decides = GetNodeKind_bn(node) == DECISION_NODE;
        double result = decides ? -1e300 : 0;
        for (int s = 0; s < GetNodeNumberStates_bn(node); ++s) {
            state[node] = s;
            const double value = best(depth + 1);
            result = decides ? std::max(result, value) : result + value;
        }
        return result;
    };
    return best(0);
}

TEST_F(ForeignCorpusTest, GivesTheKnownAnswers)
{
    for (const json& entry : manifest_["files"]) {
        const std::string file = entry["file"];
        SCOPED_TRACE(file);
        ClearErrors_vx(nullptr, INTERNAL_SEVERITY);
        net_bn* net = ReadFile(file).net;
        if (entry["readable"] == false) {
            EXPECT_EQ(net, nullptr);
            EXPECT_NE(GetError_vx(nullptr, ERROR_SEVERITY, 0, nullptr), nullptr);
            continue;
        }
        if (net == nullptr) {
            ADD_FAILURE() << ListErrors_vx(nullptr, 0, 5);
            continue;
        }
        const json oracle = json::parse(std::ifstream(folder_ + entry["oracle"].get<std::string>()));
        const std::vector<node_bn*> nodes = NodesOf(net);
        ExpectStructure(oracle, nodes);
        if (nodes.size() != oracle["nodes"].size()) continue;
        if (oracle.contains("expected_utility")) {
            const json& known = oracle["expected_utility"];
            const double value = known["no_forgetting"];
            EXPECT_NEAR(BestUtility(nodes, known["order"]), value, 1e-6 * std::max(1.0, std::abs(value)));
            continue;
        }
        CompileNet_bn(net);
        ExpectBeliefs(oracle["prior"], oracle, nodes);
        for (const auto& [name, state] : oracle["findings"].items())
            for (size_t i = 0; i < nodes.size(); ++i)
                if (oracle["nodes"][i]["name"] == name) EnterFinding_bn(nodes[i], state[0].get<int>());
        ExpectBeliefs(oracle["posterior"], oracle, nodes);
        EXPECT_NEAR(std::log(FindingsProbability_bn(net)), oracle["ln_p_findings"].get<double>(), 1e-5);
        DeleteNet_bn(net);
    }
}

TEST_F(ForeignCorpusTest, RefusesWhatIsDamagedAtItsPlace)
{
    for (const json& entry : manifest_["faulty"]) {
        const std::string file = entry["file"];
        SCOPED_TRACE(file);
        ClearErrors_vx(nullptr, INTERNAL_SEVERITY);
        EXPECT_EQ(ReadFile(file).net, nullptr);
        const report_vx* error = GetError_vx(nullptr, ERROR_SEVERITY, 0, nullptr);
        if (error == nullptr) {
            ADD_FAILURE() << "no error";
            continue;
        }
        int64_t line = 0;
        ErrorFile_vx(error, &line);
        bool is_right = line == entry["line"].get<int64_t>() || entry.value("also_right", json()).is_string();
        if (entry.contains("also_right") && entry["also_right"].is_array())
            for (const json& other : entry["also_right"]) is_right = is_right || line == other.get<int64_t>();
        EXPECT_TRUE(is_right) << "line " << line << " for " << entry.dump() << ": " << ErrorMessage_vx(error);
        if (entry.contains("node")) {
            EXPECT_NE(std::string(ErrorMessage_vx(error)).find(entry["node"].get<std::string>()),
                      std::string::npos)
                << ErrorMessage_vx(error);
        }
    }
}

TEST_F(ForeignCorpusTest, NamesWhatIsLost)
{
    constexpr const char* kSeverities[] = {"", "only looks", "loses information", "changes answers"};
    for (const json& entry : manifest_["losses"]) {
        const std::string file = entry["file"], to = entry["to"];
        SCOPED_TRACE(file + " to " + to);
        ClearErrors_vx(nullptr, INTERNAL_SEVERITY);
        Read read = ReadFile(file);
        ASSERT_NE(read.net, nullptr);
        std::vector<Loss> losses;
        Write(read.net, to, losses);
        losses.insert(losses.end(), read.losses.begin(), read.losses.end());
        for (const json& wanted : entry["must_name"]) {
            const std::string what = wanted["what"];
            // What was carried in another way is no loss.
            if (what.find("unless") != std::string::npos ||
                what.find("where it was read") != std::string::npos)
                continue;
            const auto found = std::find_if(losses.begin(), losses.end(), [&](const Loss& loss) {
                return loss.what == what &&
                       kSeverities[loss.severity] == wanted["severity"].get<std::string>();
            });
            if (found == losses.end()) {
                ADD_FAILURE() << what << " is not named";
                continue;
            }
            if (!wanted["nodes"].is_array()) continue;
            for (const json& node : wanted["nodes"])
                EXPECT_NE((", " + found->nodes + ",").find(", " + node.get<std::string>() + ","),
                          std::string::npos)
                    << found->nodes;
        }
        if (entry["must_name"].empty()) {
            EXPECT_TRUE(std::none_of(losses.begin(), losses.end(), [](const Loss& l) {
                return l.severity > LOOKS_LOSS;
            })) << (losses.empty() ? "" : losses[0].what);
        }
        if (!entry["strict_fails"].is_boolean()) continue;
        stream_vx* stream = NewMemoryStream_vx("net", env_, nullptr);
        WriteNetAs_bn(read.net, stream, to.c_str(), "strict");
        EXPECT_EQ(GetError_vx(nullptr, ERROR_SEVERITY, 7039, nullptr) != nullptr,
                  entry["strict_fails"].get<bool>());
        DeleteStream_vx(stream);
    }
}

// Everything of a net that a format may hold, as text to be compared; parts that a loss names are left out.
// Nodes come by name, as some formats sort them by kind; levels are those that the net had at first.
std::string Portrait(const net_bn* net, const std::set<std::string>& lost, const net_bn* first,
                     const std::string& format)
{
    // Where names are lost, the legal ones stay; but one format has none, and one numbers its states.
    const bool has_names = format != "UAI", has_all = !lost.count("names of nodes and states");
    const bool has_states = has_names && (has_all || format != "JGUM");
    std::string text;
    std::map<const node_bn*, size_t> place;
    char number[40];
    std::vector<node_bn*> nodes = NodesOf(net);
    if (has_names)
        std::sort(nodes.begin(), nodes.end(), [](const node_bn* a, const node_bn* b) {
            return std::string(GetNodeName_bn(a)) < GetNodeName_bn(b);
        });
    for (node_bn* node : nodes) place.emplace(node, place.size());
    for (node_bn* node : nodes) {
        const int num_states = GetNodeNumberStates_bn(node);
        text += has_names ? GetNodeName_bn(node) : "node";
        text += " " + std::to_string(GetNodeKind_bn(node)) + " " + std::to_string(num_states);
        if (has_states)
            for (int s = 0; s < num_states; ++s) text += std::string(" ") + GetNodeStateName_bn(node, s);
        if (!lost.count("titles") && has_all) text += std::string("\n title ") + GetNodeTitle_bn(node);
        if (!lost.count("comments") && !lost.count("signs in properties"))
            text += std::string("\n comment ") + GetNodeComment_bn(node);
        const node_bn* before = has_names ? GetNodeNamed_bn(GetNodeName_bn(node), first) : nullptr;
        const bool had_levels = before && GetNodeLevels_bn(before) && !lost.count("levels");
        const level_bn* levels = had_levels ? GetNodeLevels_bn(node) : nullptr;
        text += "\n levels";
        for (int s = 0; levels && s < num_states + (GetNodeType_bn(node) == CONTINUOUS_TYPE); ++s) {
            snprintf(number, sizeof number, " %.15g", levels[s]);
            text += number;
        }
        text += "\n table";
        size_t rows = 1;
        std::vector<int> states;
        for (node_bn* parent : ParentsOf(node)) {
            text += " " + std::to_string(place[parent]);
            rows *= size_t(GetNodeNumberStates_bn(parent));
            states.push_back(0);
        }
        const std::vector<node_bn*> parents = ParentsOf(node);
        for (size_t row = 0; row < rows && GetNodeKind_bn(node) != DECISION_NODE; ++row) {
            size_t rest = row;
            for (size_t i = parents.size(); i-- > 0; rest /= size_t(GetNodeNumberStates_bn(parents[i])))
                states[i] = int(rest % size_t(GetNodeNumberStates_bn(parents[i])));
            const prob_bn* probs = GetNodeProbs_bn(node, states.data());
            for (int s = 0; s < num_states; ++s) {
                const double p =
                    probs ? double(probs[s]) : double(GetNodeFuncState_bn(node, states.data()) == s);
                snprintf(number, sizeof number, " %.6f", p);
                text += number;
            }
            if (GetNodeKind_bn(node) == UTILITY_NODE) {
                snprintf(number, sizeof number, " %.15g", GetNodeFuncReal_bn(node, states.data()));
                text += number;
            }
            if (!lost.count("experience") && GetNodeKind_bn(node) == NATURE_NODE) {
                snprintf(number, sizeof number, " (%.15g)", GetNodeExperience_bn(node, states.data()));
                text += number;
            }
        }
        text += "\n";
    }
    return text;
}

// Every net of the collection through every format that has a reader and a writer: the first text may lose
// what it says; read again, the net is what remained, and a second text is the same.
TEST_F(ForeignCorpusTest, EveryPairOfFormatsGivesBackWhatItWasGiven)
{
    std::vector<std::string> formats;
    const char* name = nullptr;
    bool_vx can_read = 0, can_write = 0;
    for (int i = 2; GetNthFileFormat_vx(i, &name, nullptr, nullptr, &can_read, &can_write); ++i)
        if (can_read && can_write) formats.push_back(name);
    int num_pairs = 0;
    for (const json& entry : manifest_["files"]) {
        if (entry["readable"] == false) continue;
        ClearErrors_vx(nullptr, INTERNAL_SEVERITY);
        Read read = ReadFile(entry["file"]);
        if (read.net == nullptr) continue;
        for (const std::string& format : formats) {
            SCOPED_TRACE(entry["file"].get<std::string>() + " to " + format);
            std::vector<Loss> losses;
            const std::string text = Write(read.net, format, losses);
            net_bn* again = ReadText(text, "net." + format);
            if (again == nullptr) {
                ADD_FAILURE() << ListErrors_vx(nullptr, 0, 5) << text.substr(0, 2000);
                ClearErrors_vx(nullptr, INTERNAL_SEVERITY);
                continue;
            }
            std::set<std::string> lost;
            for (const Loss& loss : losses) lost.insert(loss.what);
            if (!lost.count("decision and utility nodes") && !lost.count("delay")) {
                EXPECT_EQ(Portrait(again, lost, read.net, format),
                          Portrait(read.net, lost, read.net, format));
            }
            // From here on nothing changes any more.
            std::vector<Loss> more;
            const std::string second = Write(again, format, more);
            net_bn* third = ReadText(second, "net." + format);
            EXPECT_EQ(third ? Write(third, format, more) : "unreadable", second);
            ++num_pairs;
            DeleteNet_bn(third);
            DeleteNet_bn(again);
        }
        DeleteNet_bn(read.net);
    }
    EXPECT_GT(num_pairs, 200);
}

}  // namespace
