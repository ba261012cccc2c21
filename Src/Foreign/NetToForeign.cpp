// From a net of the engine to what a format can hold of it, with the account of the rest.
#include <algorithm>
#include <map>
#include <set>
#include <unordered_set>

#include "BN/Model/BnProbs.h"
#include "Basic/Names.h"
#include "Foreign/ForeignConvert.h"
#include "Foreign/ForeignNames.h"

namespace talora {

namespace {

constexpr LossSeverity kLooks = LossSeverity::LOOKS;
constexpr LossSeverity kInformation = LossSeverity::INFORMATION;
constexpr LossSeverity kAnswers = LossSeverity::ANSWERS;

bool HasDuplicates(const std::vector<std::string>& texts)
{
    std::unordered_set<std::string_view> seen;
    return !std::all_of(texts.begin(), texts.end(),
                        [&](const auto& text) { return seen.insert(text).second; });
}

// A user field under a name that means something else to some format gets another.
std::string FieldName(const std::string& name)
{
    constexpr std::string_view kTaken[] = {"title",    "label", "comment", "description",
                                           "position", "fast",  "states",  "state_values",
                                           "subtype",  "name",  "type",    "function"};
    const std::string lower = LowerText(name);
    const bool is_taken = std::find(std::begin(kTaken), std::end(kTaken), lower) != std::end(kTaken) ||
                          lower.starts_with("hr_desc") || lower.starts_with("hr_state_");
    return is_taken ? "field_" + name : name;
}

std::string FieldOf(const Description& text, std::string_view name)
{
    for (const UserField& field : text.user_fields)
        if (field.name == name) return field.value;
    return "";
}

class Describer {
public:
    Describer(const Net& net, const FileFormat& format) : net_(net), format_(format)
    {
        // Back in the format that a net came from, its names are as they were there.
        const bool is_back = FieldOf(net.text, kOriginalFormat) == format.name;
        node_rule_ =
            is_back && format.node_names == NameRule::IDENTIFIERS ? NameRule::WORDS : format.node_names;
        state_rule_ =
            is_back && format.state_names == NameRule::IDENTIFIERS ? NameRule::WORDS : format.state_names;
    }

    ForeignNet Run()
    {
        DescribeNet();
        ChooseNodes();
        NameNodes();
        for (size_t i = 0; i < nodes_.size(); ++i) Describe(*nodes_[i], result_.nodes[i]);
        for (const Node* node : nodes_)
            if (renamed_.count(node))
                Lose(kInformation, "names of nodes and states", node->name, "other names");
        for (size_t i = 0; i < nodes_.size(); ++i) DescribeLinks(*nodes_[i], result_.nodes[i]);
        DescribeGroups();
        return std::move(result_);
    }

private:
    bool Holds(uint32_t what) const { return (format_.holds & what) != 0; }
    void Lose(LossSeverity severity, std::string_view what, std::string_view node,
              std::string_view instead = "left out")
    {
        AddLoss(result_.losses, severity, what, node, instead);
    }

    // Name, texts and fields of the net, and what no other format knows.
    void DescribeNet()
    {
        const Description& text = net_.text;
        const std::string original = FieldOf(text, kOriginalName);
        result_.name = IsMadeFrom(net_.name, original)     ? original
                       : IsMadeFrom(net_.name, text.title) ? text.title
                                                           : net_.name;
        // What can name a node can name the net; where nothing can, the net has no name either.
        const NameRule rule = format_.state_names == NameRule::IDENTIFIERS ? node_rule_ : format_.state_names;
        if (!FitsRule(result_.name, rule)) result_.name = net_.name;
        const bool has_title = !text.title.empty() && text.title != result_.name;
        if (Holds(HOLDS_NET_TEXTS)) {
            if (has_title) result_.title = text.title;
            result_.comment = text.comment;
        } else if (has_title || !text.comment.empty()) {
            Lose(kInformation, "title and comment of the net", "");
        }
        for (const UserField& field : text.user_fields) {
            if (field.name == kOriginalFormat || field.name == kOriginalName) continue;
            if (Holds(HOLDS_NET_FIELDS))
                result_.fields.emplace_back(FieldName(field.name), field.value);
            else
                Lose(kInformation, "user fields of the net", "");
        }
        if (net_.has_elim_order) Lose(kLooks, "elimination order", "");
        if (!text.author.empty() || !text.who_changed.empty())
            Lose(kInformation, "author and last change", "");
        if (!text.user_section.empty() || !text.visual_section.empty())
            Lose(kLooks, "sections of other programs", "");
    }

    // Every node that can stand in a table, and utility nodes where the format has them.
    void ChooseNodes()
    {
        for (const Node* node : net_.nodes.nodes) {
            const bool is_utility = node->kind == UTILITY_NODE;
            if (is_utility || node->kind == DECISION_NODE) {
                if (!Holds(HOLDS_DECISIONS))
                    Lose(kAnswers, "decision and utility nodes", node->name,
                         "decisions are chance nodes with equal probabilities, utilities are left out");
                if (is_utility && !Holds(HOLDS_DECISIONS)) continue;
            } else if (IsDocumentation(*node)) {
                Lose(kLooks, "notes", node->name);
                continue;
            } else if (!HasStates(*node)) {
                Lose(kAnswers, "continuous nodes without intervals", node->name);
                continue;
            } else if (node->kind == DISCONNECTED_NODE) {
                Lose(kAnswers, "disconnected links", node->name, "parents with equal probabilities");
            } else if (node->kind == CONSTANT_NODE) {
                Lose(kInformation, "constant nodes", node->name, "chance nodes");
            }
            index_of_[node] = static_cast<int>(nodes_.size());
            nodes_.push_back(node);
        }
        result_.nodes.resize(nodes_.size());
    }

    // ---- Names ----

    // What a node was called in the file that it came from; its name if it came from none.
    static std::string OriginalName(const Node& node)
    {
        const std::string original = FieldOf(node.text, kOriginalName);
        if (IsMadeFrom(node.name, original)) return original;
        return node.text.title != node.name && IsMadeFrom(node.name, node.text.title) ? node.text.title
                                                                                      : node.name;
    }

    // The original where the format takes it, else the legal name, with the original as title.
    void NameNodes()
    {
        std::vector<std::string> names;
        for (size_t i = 0; i < nodes_.size(); ++i) {
            const std::string original = OriginalName(*nodes_[i]);
            names.push_back(node_rule_ == NameRule::NONE     ? "v" + std::to_string(i)
                            : FitsRule(original, node_rule_) ? original
                                                             : nodes_[i]->name);
        }
        const bool is_doubled = HasDuplicates(names);
        for (size_t i = 0; i < nodes_.size(); ++i) {
            const Node& node = *nodes_[i];
            ForeignNode& to = result_.nodes[i];
            to.name = is_doubled ? node.name : names[i];
            const bool has_title = !node.text.title.empty() && node.text.title != to.name;
            if (has_title && Holds(HOLDS_TITLES)) to.title = node.text.title;
            const bool is_lost = to.name != OriginalName(node) && to.title != OriginalName(node);
            if (is_lost)
                renamed_.insert(&node);
            else if (has_title && to.title.empty() && node.text.title != OriginalName(node))
                Lose(kInformation, "titles", node.name);
        }
    }

    // The title of a state is its original name where the name was made from it, and a title else.
    void NameStates(const Node& node, ForeignNode& to)
    {
        const int num_states = NumStates(node);
        bool is_lost = false, has_titles = false;
        for (int i = 0; i < num_states; ++i) {
            const std::string &name = StateName(node, i), &title = StateTitle(node, i);
            const bool is_original = IsMadeFrom(name, title) && title != name;
            const std::string plain = name.empty() ? "state" + std::to_string(i) : name;
            std::string written = is_original && FitsRule(title, state_rule_) ? title : plain;
            if (state_rule_ == NameRule::NONE) written = "s" + std::to_string(i);
            is_lost = is_lost || written != (is_original ? title : plain);
            to.states.push_back(written);
            to.state_titles.push_back(title == written || is_original ? "" : title);
            has_titles = has_titles || !to.state_titles.back().empty();
        }
        if (HasDuplicates(to.states)) {
            for (int i = 0; i < num_states; ++i)
                to.states[size_t(i)] =
                    StateName(node, i).empty() ? "state" + std::to_string(i) : StateName(node, i);
            is_lost = true;
        }
        if (is_lost) renamed_.insert(&node);
        if (has_titles && Holds(HOLDS_STATE_TITLES)) return;
        if (has_titles) Lose(kInformation, "titles of states", node.name);
        to.state_titles.clear();
    }

    // ---- Nodes ----

    void Describe(const Node& node, ForeignNode& to)
    {
        const bool is_utility = node.kind == UTILITY_NODE;
        to.kind = is_utility                                             ? ForeignKind::UTILITY
                  : node.kind == DECISION_NODE && Holds(HOLDS_DECISIONS) ? ForeignKind::DECISION
                                                                         : ForeignKind::CHANCE;
        if (!is_utility) NameStates(node, to);
        DescribeTexts(node, to);
        DescribeLevels(node, to);
        if (!node.finding.IsEmpty()) {
            if (Holds(HOLDS_FINDINGS) && node.finding.state >= 0)
                to.finding = node.finding.state;
            else
                Lose(kAnswers, "findings", node.name);
        }
        if (!node.equation.empty())
            Lose(kInformation, "equations", node.name, "the table stays, where there is one");
        if (!node.units.empty()) Lose(kInformation, "units", node.name);
        if (!node.persist.empty() || !node.position.empty()) Lose(kAnswers, "persistence", node.name);
    }

    // Comments, position and user fields.
    void DescribeTexts(const Node& node, ForeignNode& to)
    {
        const Description& text = node.text;
        if (Holds(HOLDS_COMMENTS))
            to.comment = text.comment;
        else if (!text.comment.empty())
            Lose(kInformation, "comments", node.name);
        bool has_comments = false;
        for (int i = 0; i < NumStates(node); ++i)
            has_comments = has_comments || !StateComment(node, i).empty();
        if (has_comments && Holds(HOLDS_STATE_COMMENTS))
            for (int i = 0; i < NumStates(node); ++i) to.state_comments.push_back(StateComment(node, i));
        else if (has_comments)
            Lose(kInformation, "comments of states", node.name);
        const size_t center = text.visual_section.find("center = ");
        if (center != std::string::npos &&
            TakePosition(to, std::string_view(text.visual_section).substr(center + 9))) {
            if (!Holds(HOLDS_POSITIONS)) {
                to.x = to.y = kNoNumber;
                Lose(kLooks, "positions", node.name);
            }
        } else if (!text.visual_section.empty()) {
            Lose(kLooks, "sections of other programs", node.name);
        }
        for (const UserField& field : text.user_fields) {
            if (field.name == kOriginalName || field.name == kNoisyMax) continue;
            if (field.name == kObservationCost) {
                if (Holds(HOLDS_COSTS))
                    to.cost = field.value;
                else
                    Lose(kInformation, "observation costs", node.name);
            } else if (Holds(HOLDS_FIELDS)) {
                to.fields.emplace_back(FieldName(field.name), field.value);
            } else {
                Lose(kInformation, "user fields", node.name);
            }
        }
    }

    // Limits of intervals and values of states, with the engine's infinities as those of the hardware.
    void DescribeLevels(const Node& node, ForeignNode& to)
    {
        const std::vector<double>& levels = node.states.levels;
        if (levels.empty() || node.kind == UTILITY_NODE) return;
        if (!Holds(HOLDS_LEVELS)) return Lose(kInformation, "levels", node.name);
        for (const double level : levels)
            to.levels.push_back(std::abs(level) == InfinityDbl() ? std::copysign(INFINITY, level)
                                : IsUndef(level)                 ? kNoNumber
                                                                 : level);
        if (std::none_of(to.levels.begin(), to.levels.end(), [](double level) { return std::isnan(level); }))
            return;
        to.levels.clear();
        Lose(kInformation, "levels", node.name);
    }

    // ---- Links and tables ----

    // Parents that the format can hold; tables lose the dimensions of the others.
    void DescribeLinks(const Node& node, ForeignNode& to)
    {
        std::vector<char> is_kept;
        for (const Link& link : node.links) {
            const auto found = index_of_.find(link.parent);
            const bool is_delayed = IsDelayed(link);
            const bool is_utility = link.parent->kind == UTILITY_NODE;
            bool is_here = found != index_of_.end() && !is_utility;
            if (is_delayed && !Holds(HOLDS_DELAYS)) {
                Lose(kAnswers, "delay", node.name, "delayed links are cut, their parents' states averaged");
                is_here = false;
            }
            if (is_utility && found != index_of_.end()) Lose(kAnswers, "links from utility nodes", node.name);
            if (!link.input_name.empty()) Lose(kInformation, "names of links", node.name);
            is_kept.push_back(is_here);
            if (!is_here) continue;
            to.parents.push_back(found->second);
            if (is_delayed) to.delays.resize(to.parents.size() - 1), to.delays.push_back(link.delay);
        }
        if (!to.delays.empty()) to.delays.resize(to.parents.size());
        DescribeTables(node, to, is_kept);
    }

    // Utilities and probabilities in doubles; a decision has none.
    void DescribeTables(const Node& node, ForeignNode& to, const std::vector<char>& is_kept)
    {
        const NodeTables& tables = node.tables;
        if (!Holds(HOLDS_TABLES)) return Lose(kAnswers, "tables", node.name);
        if (node.kind == DECISION_NODE && (!tables.probs.empty() || !tables.func_states.empty()))
            Lose(kInformation, "policy", node.name);
        if (to.kind == ForeignKind::DECISION) return;
        const auto num_rows = static_cast<size_t>(::talora::NumRows(node));
        if (to.kind == ForeignKind::UTILITY) {
            to.table = tables.func_reals;
            if (to.table.empty()) to.table.assign(num_rows, UndefDbl());
        } else if (node.kind == NATURE_NODE || node.kind == CONSTANT_NODE) {
            TableVector<float> scratch;
            if (const float* probs = EffectiveProbs(node, scratch))
                to.table.assign(probs, probs + num_rows * to.Width());
        }
        if (std::count(is_kept.begin(), is_kept.end(), 0) > 0) AverageOut(node, to, is_kept);
        FillRows(node, to);
        DescribeExtras(node, to, num_rows);
    }

    // Rows that are not given, or cannot be, get equal probabilities.
    void FillRows(const Node& node, ForeignNode& to)
    {
        const size_t width = to.Width();
        if (to.table.empty() && to.kind == ForeignKind::CHANCE) {
            if (node.kind == NATURE_NODE || node.kind == CONSTANT_NODE)
                Lose(kAnswers, "tables that are not there", node.name, "equal probabilities, utilities of 0");
            to.table.assign(static_cast<size_t>(NumRows(result_, to)) * width, 1.0 / double(width));
            return;
        }
        for (size_t at = 0; at < to.table.size(); at += width) {
            double* const row = to.table.data() + at;
            double sum = 0;
            bool is_missing = false, is_impossible = false;
            for (size_t i = 0; i < width; ++i) {
                is_missing =
                    is_missing || std::isnan(row[i]) || IsUndef(row[i]) || row[i] == double(MissingProb());
                is_impossible = is_impossible || row[i] == double(ImpossibleProb());
                sum += row[i];
            }
            if (to.kind == ForeignKind::UTILITY) {
                if (is_missing) row[0] = 0;
                if (is_missing)
                    Lose(kAnswers, "rows that are not given", node.name,
                         "equal probabilities, utilities of 0");
                continue;
            }
            if (!is_missing && !is_impossible && sum > 0) continue;
            if (is_missing)
                Lose(kAnswers, "rows that are not given", node.name, "equal probabilities, utilities of 0");
            else
                Lose(kInformation, "marks of impossible rows", node.name, "equal probabilities");
            std::fill(row, row + width, 1.0 / double(width));
        }
    }

    // What stands behind a table: experience, certainty, contributions.
    void DescribeExtras(const Node& node, ForeignNode& to, size_t num_rows)
    {
        const NodeTables& tables = node.tables;
        if (!tables.experience.empty() && to.kind == ForeignKind::CHANCE) {
            if (Holds(HOLDS_EXPERIENCE) && tables.experience.size() == num_rows &&
                double(num_rows) == NumRows(result_, to)) {
                for (const double count : tables.experience)
                    to.experience.push_back(IsUndef(count) ? 0 : count);
            } else {
                Lose(kInformation, "experience", node.name);
            }
        }
        const bool is_certain =
            std::all_of(to.table.begin(), to.table.end(), [](double p) { return p == 0 || p == 1; });
        if (to.kind == ForeignKind::CHANCE && node.relation == Relation::DETERMIN && is_certain) {
            if (Holds(HOLDS_DETERMINISTIC))
                to.is_deterministic = true;
            else
                Lose(kInformation, "marks of deterministic nodes", node.name, "tables of zeros and ones");
        }
        DescribeNoisyMax(node, to);
    }

    // The contributions stand for the table only as long as nobody has changed it.
    void DescribeNoisyMax(const Node& node, ForeignNode& to)
    {
        const std::string field = FieldOf(node.text, kNoisyMax);
        if (field.empty() || to.kind != ForeignKind::CHANCE) return;
        if (!ParseNoisyMax(field, to.noisy) || to.noisy.rows.size() != NoisyMaxSize(result_, to)) {
            to.noisy = {};
        } else {
            constexpr double kSame = 1e-6;
            const TableVector<double> table = ExpandNoisyMax(result_, to);
            const bool is_same = table.size() == to.table.size() &&
                                 std::equal(table.begin(), table.end(), to.table.begin(),
                                            [](double a, double b) { return std::abs(a - b) <= kSame; });
            if (!is_same) to.noisy = {};
        }
        if (to.noisy.rows.empty() || Holds(HOLDS_NOISY_MAX)) return;
        to.noisy = {};
        Lose(kInformation, "noisy-MAX parameters", node.name, "the whole table");
    }

    // Leaves out parents: the rows of their states are averaged.
    void AverageOut(const Node& node, ForeignNode& to, const std::vector<char>& is_kept)
    {
        if (to.table.empty()) return;
        const size_t width = to.Width(), num_rows = to.table.size() / width;
        TableVector<double> sums(static_cast<size_t>(NumRows(result_, to)) * width, 0.0);
        std::vector<size_t> count;
        for (const Link& link : node.links) count.push_back(size_t(NumStates(*link.parent)));
        for (size_t row = 0; row < num_rows; ++row) {
            size_t rest = row, stride = 1, target = 0;
            for (size_t i = count.size(); i-- > 0; rest /= count[i]) {
                if (!is_kept[i]) continue;
                target += (rest % count[i]) * stride;
                stride *= count[i];
            }
            for (size_t k = 0; k < width; ++k) sums[target * width + k] += to.table[row * width + k];
        }
        const double times = double(num_rows) * double(width) / double(sums.size());
        for (double& sum : sums) sum /= times;
        to.table = std::move(sums);
    }

    // ---- Node sets ----

    // Sets that lie in one another become submodels; those that overlap otherwise cannot.
    void DescribeGroups()
    {
        std::vector<const NodeSet*> sets;
        for (const NodeSet& set : net_.node_sets)
            if (!set.nodes.empty()) sets.push_back(&set);
        std::stable_sort(sets.begin(), sets.end(), [](const NodeSet* a, const NodeSet* b) {
            return a->nodes.size() > b->nodes.size();
        });
        for (const NodeSet* set : sets) {
            if (!Holds(HOLDS_GROUPS)) {
                LoseSet("submodel", *set);
                continue;
            }
            std::set<int> groups_of_members;
            for (const Node* node : set->nodes)
                if (const auto found = index_of_.find(node); found != index_of_.end())
                    groups_of_members.insert(result_.nodes[size_t(found->second)].group);
            if (groups_of_members.size() != 1) {
                LoseSet("node sets that overlap", *set);
                continue;
            }
            const int group = static_cast<int>(result_.groups.size());
            result_.groups.push_back({set->name, set->name, *groups_of_members.begin()});
            for (const Node* node : set->nodes)
                if (const auto found = index_of_.find(node); found != index_of_.end())
                    result_.nodes[size_t(found->second)].group = group;
        }
    }
    void LoseSet(std::string_view what, const NodeSet& set)
    {
        for (const Node* node : set.nodes) Lose(kInformation, what, node->name);
    }

    const Net& net_;
    const FileFormat& format_;
    NameRule node_rule_, state_rule_;
    ForeignNet result_;
    std::vector<const Node*> nodes_;
    std::map<const Node*, int> index_of_;
    std::unordered_set<const Node*> renamed_;  // those whose own name or states' names are others
};

}  // namespace

ForeignNet FromNet(const Net& net, const FileFormat& format)
{
    return Describer(net, format).Run();
}

}  // namespace talora
