// Reading a net from the text net format.
//
// A read works on the whole text in one buffer and makes one net, node by node as their declarations
// come.  The first pass reads every statement whose needs are met and notes the place of the others:
// parents that are declared further on, tables over them, node sets, the elimination order.  They are
// taken up at the end of their node's block or, in the second pass, at the end of the net.  So each
// statement is applied once and tables are hardly ever gone through twice.  Each field of a node keeps
// its state meanwhile: not given, given (put off), inherited, read.
//
// A fault in what inference uses (structure, states, levels, parents, tables, findings, elimination
// order) fails, and the net made so far is deleted.  A fault elsewhere is a warning, and the statement
// is skipped.
#pragma once

#include <array>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "BN/Files/NetFields.h"
#include "BN/Model/Bnet.h"
#include "Basic/Parser.h"
#include "Basic/Progress.h"
#include "Basic/Stream.h"

namespace talora {

struct ReadNetOptions {
    bool keep_visual = true;
    // Everything is read where it stands: what a statement refers to must come before it.
    bool single_pass = false;
    // Statements of define nodes are applied at the head of the block, not at its end, where a node's own
    // statements have precedence.
    bool inherit_in_first_pass = false;
    // The text is only looked at: its net joins no list that others see.
    bool is_check = false;
};

// The net that the stream holds; its caller owns it.  Polls the halt flag every megabyte or so.
Net* ReadNet(const Stream& stream, const ReadNetOptions& options);
// From the bytes of the stream, read before: a pipe can be read only once.
Net* ReadNet(std::string_view bytes, const Stream& stream, const ReadNetOptions& options);

// Fails (7253) if the text, which is what the net is to be saved as, could not be read again.
void CheckNetReads(const Net& net, std::string_view text, const Stream& stream);

// The format version in the header line of a text; 0 if it gives none.  kNoVersion: it is no text net file.
constexpr int kNoVersion = INT32_MIN;
int NetFileVersion(std::string_view text);

// ---- The reader, for the functions of the field tables ----

struct Statement {
    int field;
    size_t value_at;  // where its value begins
};

enum class FieldState : uint8_t { NOT_GIVEN, GIVEN, INHERITED, READ };

// A node whose block is being read, or that has statements put off to the second pass.
struct NodeReader {
    NetReader& reader;
    Node& node;
    std::array<FieldState, NUM_NODE_FIELDS> state{};
    std::array<bool, NUM_NODE_FIELDS> inherited{};
    std::vector<Statement> put_off = {};
    std::vector<const struct DefineNode*> defines = {};
    bool block_ended = false;  // all its own and inherited statements are known
    bool visual_seen = false;
    bool states_are_known = false;  // a statement gave their number
    int num_delays = -1;            // link vectors read, or input names, while there is no parents statement
    int num_inputs = -1;
    size_t parents_at = 0;  // the list of its parents

    Tokenizer& Text();
    const char* Name() const { return node.name.c_str(); }
    bool IsRead(int field) const { return state[static_cast<size_t>(field)] == FieldState::READ; }
};

// A template for nodes: where its statements stand.
struct DefineNode {
    std::string name;
    std::vector<Statement> statements;  // at most one per field
    std::vector<size_t> user_sections;  // where their names begin
};

class NetReader {
public:
    NetReader(std::string_view text, const Stream& stream, const ReadNetOptions& options);
    ~NetReader();  // deletes the net unless it was taken
    Net* Read();

    // ---- For the field readers ----
    Tokenizer text;
    Net& TheNet() { return *net_; }
    bool InSecondPass() const { return second_pass_ || options_.single_pass; }
    bool IsSinglePass() const { return options_.single_pass; }
    bool IsBlockRead(const Node& node) const { return blocks_read_[static_cast<size_t>(node.index)]; }
    const DefineNode* FindDefine(std::string_view name) const;
    void Poll();  // now and then in long statements
    size_t BytesLeft() const { return size_ - text.At(); }
    // Counts what a few bytes of the file call for; false when it gets far more than the file is large.
    bool CountMade(size_t count);
    std::vector<int> mark_by_node;  // scratch of list readers; all zero between uses

    // A name that must be legal; what is "node", "state", ... for the message.
    std::string ReadName(const char* what);
    // "( NODE, NODE, ... )".  With defer, null in place of the list when a name is not declared yet.
    std::optional<std::vector<Node*>> ReadNodeList(bool defer, int define_error);
    bool ReadBool();
    std::string ReadText();  // quoted

private:
    void CheckHeader();
    void ReadBnet();
    void ReadStatement(std::string_view word, size_t word_at);
    void ReadObject(std::string_view word, size_t word_at);
    void ReadNode(const char* what, int kind);
    void ReadDefine();
    void ReadDefineList(const char* what, const char* name, std::vector<const DefineNode*>& defines);
    void ReadNodeBlock(NodeReader& node);
    void ReadNodeStatement(NodeReader& node, std::string_view word, size_t word_at);
    bool IsRepeated(NodeReader& node, int field);
    bool IsReady(const NodeReader& node, int field) const;
    void ReadNodeField(NodeReader& node, int field);
    void Inherit(NodeReader& node);
    void InheritUserFields(NodeReader& node);
    void TakeOriginalParent(Node& node);
    void EndNode(NodeReader& node);
    void TakeUp(NodeReader& node);  // statements put off
    void ReadSection(Description& text, bool visual);
    void ReadNodeSet();
    void SkipUnknown(std::string_view word, size_t word_at, const char* what, const std::string& name);
    void SecondPass();
    void CheckNoCycle();
    void NeedSemicolonAfter(const char* keyword);                        // of a statement
    void NeedSemicolonAtEnd(const char* what, const std::string& name);  // of an object

    const Stream& stream_;
    ReadNetOptions options_;
    size_t size_;
    size_t next_poll_;
    Progress progress_;
    Net* net_ = nullptr;
    bool second_pass_ = false;
    std::array<bool, NUM_NET_FIELDS> net_fields_read_{};
    std::vector<Statement> net_put_off_;  // ElimOrder and node sets
    std::vector<NodeReader> put_off_;
    std::vector<char> blocks_read_;  // by node index
    std::unordered_map<std::string, DefineNode> defines_;
    std::unordered_set<std::string> node_set_names_;
    size_t num_made_ = 0;  // bytes inherited, entries of tables by condition
};

inline Tokenizer& NodeReader::Text()
{
    return reader.text;
}

}  // namespace talora
