// The statements of the text net format: one row per keyword, in the order of their numbers.
//
// Reader, writer, messages and documentation use the same rows.  The number of a field is its row.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "BN/Model/Bnet.h"
#include "BN/Model/EnumWords.h"

namespace talora {

class NetReader;
struct NodeReader;
struct ValuePrinter;

enum NetField : int {
    NET_NAME,
    NET_NODES,
    NET_NUMDIMENSIONS,
    NET_EQNCONTEXT,
    NET_AUTOCOMPILE,
    NET_AUTOUPDATE,
    NET_MOSTPROBABLE,
    NET_NODESET,
    NET_ELIMORDER,
    NET_TITLE,
    NET_COMMENT,
    NET_AUTHOR,
    NET_WHOCHANGED,
    NET_WHENCHANGED,
    NUM_NET_FIELDS
};

enum NodeField : int {
    NODE_NAME,
    NODE_DISCRETE,
    NODE_MEASURE,
    NODE_NUMSTATES,
    NODE_STATES,
    NODE_STATETITLES,
    NODE_STATECOMMENTS,
    NODE_LEVELS,
    NODE_UNITS,
    NODE_KIND,
    NODE_CHANCE,
    NODE_PARENTS,
    NODE_INPUTS,
    NODE_FUNCTABLE,
    NODE_PROBS,
    NODE_NUMCASES,
    NODE_EXPERBASE,
    NODE_EQUATION,
    NODE_EQNDIRTY,
    NODE_DELAYS,
    NODE_PERSIST,
    NODE_POSITION,
    NODE_TITLE,
    NODE_COMMENT,
    NODE_AUTHOR,
    NODE_WHOCHANGED,
    NODE_WHENCHANGED,
    NODE_EVIDENCE,
    NODE_VALUE,
    NODE_LIKELIHOOD,
    NODE_FINDING,
    NODE_BELIEF,
    NODE_DUMMY,
    NODE_CHILDREN,
    NODE_NET,
    NODE_VISUAL,
    NODE_DEFINENODES,
    NODE_ISDEFINE,
    NODE_FIELDS,
    NUM_NODE_FIELDS
};

// What must be known before a node's statement can be read, in the order in which put-off statements
// are taken up again.
enum class Needs : uint8_t { NOTHING, TYPE, NAMES, PARENTS, TABLE, STATES };

struct NetFieldDef {
    const char* keyword;
    void (*read)(NetReader&);                  // the value; null: not implemented
    bool (*write)(ValuePrinter&, const Net&);  // the value; false when it is the default
};

struct NodeFieldDef {
    const char* keyword;
    Needs needs;
    bool (*read)(NodeReader&);  // false: put off until more nodes are known
    bool (*write)(ValuePrinter&, const Node&);
};

// The user field in which a file keeps the original parent that a disconnected node stands for.
constexpr char kOriginalParentField[] = "Talora_original_parent";

extern const NetFieldDef kNetFields[NUM_NET_FIELDS];
extern const NodeFieldDef kNodeFields[NUM_NODE_FIELDS];

// The number of a keyword, -1 if it is none.  Internal entries of the node table ("visual", "children",
// ...) are found too: used as fields they are not implemented.
int FindNetField(std::string_view keyword);
int FindNodeField(std::string_view keyword);

// ---- The functions of the rows ----

namespace netread {
void Name(NetReader&);
void NumDimensions(NetReader&);
void AutoCompile(NetReader&);
void AutoUpdate(NetReader&);
void MostProbable(NetReader&);
void ElimOrder(NetReader&);
void Title(NetReader&);
void Comment(NetReader&);
void Author(NetReader&);
void WhoChanged(NetReader&);
void WhenChanged(NetReader&);
}  // namespace netread

namespace netwrite {
bool NumDimensions(ValuePrinter&, const Net&);
bool AutoCompile(ValuePrinter&, const Net&);
bool AutoUpdate(ValuePrinter&, const Net&);
bool MostProbable(ValuePrinter&, const Net&);
bool ElimOrder(ValuePrinter&, const Net&);
bool Title(ValuePrinter&, const Net&);
bool Comment(ValuePrinter&, const Net&);
bool Author(ValuePrinter&, const Net&);
bool WhoChanged(ValuePrinter&, const Net&);
bool WhenChanged(ValuePrinter&, const Net&);
}  // namespace netwrite

namespace noderead {
bool Name(NodeReader&);
bool Discrete(NodeReader&);
bool MeasureLevel(NodeReader&);
bool NumStates(NodeReader&);
bool States(NodeReader&);
bool StateTitles(NodeReader&);
bool StateComments(NodeReader&);
bool Levels(NodeReader&);
bool Units(NodeReader&);
bool Kind(NodeReader&);
bool Chance(NodeReader&);
bool Parents(NodeReader&);
bool Inputs(NodeReader&);
bool FuncTable(NodeReader&);
bool Probs(NodeReader&);
bool NumCases(NodeReader&);
bool ExperBase(NodeReader&);
bool Equation(NodeReader&);
bool Dirty(NodeReader&);
bool Delays(NodeReader&);
bool Persist(NodeReader&);
bool Position(NodeReader&);
bool Title(NodeReader&);
bool Comment(NodeReader&);
bool Author(NodeReader&);
bool WhoChanged(NodeReader&);
bool WhenChanged(NodeReader&);
bool Evidence(NodeReader&);
bool Value(NodeReader&);
bool Likelihood(NodeReader&);
bool Finding(NodeReader&);
bool Belief(NodeReader&);
}  // namespace noderead

namespace nodewrite {
bool Discrete(ValuePrinter&, const Node&);
bool MeasureLevel(ValuePrinter&, const Node&);
bool NumStates(ValuePrinter&, const Node&);
bool States(ValuePrinter&, const Node&);
bool StateTitles(ValuePrinter&, const Node&);
bool StateComments(ValuePrinter&, const Node&);
bool Levels(ValuePrinter&, const Node&);
bool Units(ValuePrinter&, const Node&);
bool Kind(ValuePrinter&, const Node&);
bool Chance(ValuePrinter&, const Node&);
bool Parents(ValuePrinter&, const Node&);
bool Inputs(ValuePrinter&, const Node&);
bool FuncTable(ValuePrinter&, const Node&);
bool Probs(ValuePrinter&, const Node&);
bool NumCases(ValuePrinter&, const Node&);
bool ExperBase(ValuePrinter&, const Node&);
bool Equation(ValuePrinter&, const Node&);
bool Dirty(ValuePrinter&, const Node&);
bool Delays(ValuePrinter&, const Node&);
bool Persist(ValuePrinter&, const Node&);
bool Position(ValuePrinter&, const Node&);
bool Title(ValuePrinter&, const Node&);
bool Comment(ValuePrinter&, const Node&);
bool Author(ValuePrinter&, const Node&);
bool WhoChanged(ValuePrinter&, const Node&);
bool WhenChanged(ValuePrinter&, const Node&);
bool Evidence(ValuePrinter&, const Node&);
bool Value(ValuePrinter&, const Node&);
bool Likelihood(ValuePrinter&, const Node&);
bool Belief(ValuePrinter&, const Node&);
}  // namespace nodewrite

}  // namespace talora
