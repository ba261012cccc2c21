// UAI: numbers of variables, states and tables; and the files of evidence that go with it.
#include <algorithm>

#include "Foreign/ForeignCheck.h"
#include "Foreign/Formats.h"

namespace talora {

namespace {

constexpr ScanRules kRules{.line_comment = '#'};

class UaiReader {
public:
    UaiReader(const ForeignSource& source, ForeignNet& net)
        : source_(source), net_(net), text_(source, kRules)
    {}

    void Read()
    {
        net_.format = "UAI";
        // Lines that begin with c before the first word are commentary in one dialect.
        while (text_.PeekWord() == "c") {
            const size_t end = std::min(source_.text.find_first_of("\r\n", text_.At()), source_.text.size());
            text_.GoTo(end);
        }
        const std::string kind = LowerText(text_.Word());
        if (kind != "bayes" && kind != "markov") text_.FailExpected("BAYES or MARKOV");
        ReadVariables();
        ReadScopes(kind == "markov");
        ReadTables();
    }

private:
    int64_t Count()
    {
        if (text_.AtEnd()) FailAt<7003>(text_.Here(), "the preamble");
        return text_.Integer();
    }

    // Their number, and the number of states of each.  Names there are none.
    void ReadVariables()
    {
        const int64_t count = Count();
        NodeNames names(source_, net_);
        for (int64_t i = 0; i < count; ++i) {
            const int64_t states = Count();
            ForeignNode& node = names.Add("v" + std::to_string(i), text_.Token());
            NumberStates(source_, net_, node, "s", double(states), 0, node.at);
        }
    }

    // The last variable of a scope is the child of the others, each variable of exactly one.
    void ReadScopes(bool is_markov)
    {
        const int64_t count = Count();
        if (count != int64_t(net_.nodes.size())) FailAt<7044>(text_.LastPlace());
        for (int64_t i = 0; i < count; ++i) {
            const int64_t size = Count();
            const size_t at = text_.Token();
            if (size < 1 || size > int64_t(net_.nodes.size())) FailAt<7044>(text_.LastPlace());
            std::vector<int> scope;
            for (int64_t k = 0; k < size; ++k) {
                const int64_t variable = Count();
                if (variable < 0 || variable >= int64_t(net_.nodes.size()))
                    FailAt<7010>(text_.LastPlace(), ("v" + std::to_string(variable)).c_str());
                scope.push_back(static_cast<int>(variable));
            }
            ForeignNode& child = net_.nodes[size_t(scope.back())];
            if (is_markov && child.table_at != std::string_view::npos) FailAt<7044>(source_.PlaceAt(at));
            NeedNoTable(source_, child, at);
            child.table_at = at;
            scope.pop_back();
            child.parents = scope;
            order_.push_back(&child);
        }
        is_markov_ = is_markov;
    }

    // In the order of the scopes.
    void ReadTables()
    {
        for (ForeignNode* node : order_) {
            const int64_t count = Count();
            const size_t at = text_.Token();
            CheckTableSize(source_, net_, *node, size_t(std::max<int64_t>(count, 0)), at);
            text_.Skip();
            node->table_at = text_.At();
            // Memory is taken as the numbers come: the count alone may be anything.
            for (int64_t i = 0; i < count; ++i) node->table.push_back(text_.Number());
            if (is_markov_ && !HasUnitRows(*node)) FailAt<7044>(source_.PlaceAt(at));
        }
    }

    // Whether a factor of a Markov net is the table of its last variable given the others.
    static bool HasUnitRows(const ForeignNode& node)
    {
        constexpr double kPrinted = 1e-4;
        const size_t width = node.Width();
        for (size_t at = 0; at < node.table.size(); at += width) {
            double sum = 0;
            for (size_t i = 0; i < width; ++i) sum += node.table[at + i];
            if (!(std::abs(sum - 1) <= kPrinted)) return false;
        }
        return true;
    }

    const ForeignSource& source_;
    ForeignNet& net_;
    Scanner text_;
    std::vector<ForeignNode*> order_;
    bool is_markov_ = false;
};

}  // namespace

void ReadUai(const ForeignSource& source, ForeignNet& net)
{
    net.find_entry = [](std::string_view text, size_t at, size_t entry) {
        return FindEntry(text, kRules, at, entry);
    };
    UaiReader(source, net).Read();
}

void WriteUai(ForeignNet& net, std::string& out)
{
    out += "BAYES\n" + std::to_string(net.nodes.size()) + "\n";
    for (size_t i = 0; i < net.nodes.size(); ++i)
        out += (i ? " " : "") + std::to_string(net.nodes[i].states.size());
    out += "\n" + std::to_string(net.nodes.size()) + "\n";
    for (size_t i = 0; i < net.nodes.size(); ++i) {
        out += std::to_string(net.nodes[i].parents.size() + 1);
        for (const int parent : net.nodes[i].parents) out += " " + std::to_string(parent);
        out += " " + std::to_string(i) + "\n";
    }
    for (const ForeignNode& node : net.nodes) {
        out += "\n" + std::to_string(node.table.size()) + "\n";
        for (size_t at = 0; at < node.table.size(); ++at) {
            out += ' ';
            AppendEntry(out, node.table[at], node);
            if ((at + 1) % node.Width() == 0) out += '\n';
        }
    }
}

}  // namespace talora
