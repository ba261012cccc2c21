#include "Scenarios.h"

#include <fstream>
#include <iterator>
#include <sstream>

namespace faults {

const char* const kGardenText = R"(// ~->[DNET-1]->~

bnet Garden {
	autoupdate = FALSE;
	comment = "water in a garden, with\nsome text that does not fit into a short string";
	author = "somebody with a long name";

	node Rain {
		discrete = TRUE;
		states = (yes, no);
		kind = NATURE;
		probs =
			(0.2, 0.8);
		title = "rain during the last night, in the garden";
	};

	node Sprinkler {
		discrete = TRUE;
		states = (yes, no);
		kind = NATURE;
		probs =
			(0.4, 0.6);
	};

	node Wet {
		discrete = TRUE;
		states = (yes, no);
		kind = NATURE;
		parents = (Rain, Sprinkler);
		probs =
			(1, 0,
			 0.9, 0.1,
			 0.8, 0.2,
			 0, 1);
		numcases =
			(10, 20, 30, 40);
	};

	node Depth {
		discrete = FALSE;
		levels = (0, 1, 3, 10);
		kind = NATURE;
		parents = (Wet);
		probs =
			(0.2, 0.5, 0.3,
			 0.8, 0.1, 0.1);
		units = "inches";
	};

	node Mud {
		discrete = TRUE;
		states = (none, some, much);
		kind = NATURE;
		parents = (Wet, Depth);
		equation = "Mud (Wet, Depth) = Wet == no ? none : Depth < 2 ? some : much";
		probs =
			(0, 1, 0,
			 0, 0.5, 0.5,
			 0, 0, 1,
			 1, 0, 0,
			 1, 0, 0,
			 1, 0, 0);
	};

	node Shoes {
		discrete = TRUE;
		states = (clean, dirty);
		kind = NATURE;
		parents = (Mud);
		probs =
			(0.9, 0.1,
			 0.5, 0.5,
			 0.1, 0.9);
	};
};
)";

const char* const kGardenCases =
    "// ~->[CASE-1]->~\n\n"
    "IDnum NumCases Rain Sprinkler Wet Depth Mud Shoes\n"
    "1 1 yes no yes 0.5 some clean\n2 1 no no no 0.1 none clean\n3 2 no yes yes 2 much dirty\n"
    "4 1 yes yes yes 5 much dirty\n5 1 no no no 0.2 none clean\n6 1 * no yes 0.5 some dirty\n"
    "7 1 yes no yes * some clean\n8 3 no no no 0.1 none *\n9 1 no yes * 2 much dirty\n"
    "10 1 yes no yes 0.5 some clean\n";

bool NoErrors(environ_vx* env)
{
    return GetError_vx(env, ERROR_SEVERITY, 0, nullptr) == nullptr;
}

std::string FileText(const std::filesystem::path& path)
{
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

void PutFile(const std::filesystem::path& path, const std::string& text)
{
    std::ofstream(path, std::ios::binary) << text;
}

std::string LargeNetText(int num_nodes)
{
    std::ostringstream text;
    text << "// ~->[DNET-1]->~\n\nbnet Large {\n";
    for (int i = 0; i < num_nodes; ++i) {
        text << "node N" << i << " {\n kind = NATURE;\n discrete = TRUE;\n states = (first, second);\n";
        text << " title = \"node number " << i << " of a net that is only there to be long enough\";\n";
        if (i > 0) text << " parents = (N" << i - 1 << ");\n probs = ((0.25, 0.75), (0.5, 0.5));\n};\n";
        if (i == 0) text << " probs = (0.25, 0.75);\n};\n";
    }
    text << "};\n";
    return text.str();
}

namespace {

net_bn* ReadText(environ_vx* env, const char* text)
{
    stream_vx* stream = NewStreamOf(env, "garden.dne", text);
    net_bn* net = ReadNet_bn(stream, NO_WINDOW);
    DeleteStream_vx(stream);
    return net;
}

// The garden net in a container, made once.
std::string PackedGarden(World& w, const char* password)
{
    stream_vx* stream = NewMemoryStream_vx("garden.tala", w.env, nullptr);
    if (password) SetStreamPassword_vx(stream, password);
    WriteNet_bn(w.net, stream);
    std::string packed = ContentsOf(stream);
    DeleteStream_vx(stream);
    return packed;
}

void Compiled(World& w)
{
    CompileNet_bn(w.net);
}
void Updated(World& w)
{
    CompileNet_bn(w.net);
    EnterFinding_bn(w.Node("Rain"), 0);
    UpdateNetBeliefs_bn(w.net);
}
void WithCases(World& w)
{
    w.stream = NewStreamOf(w.env, "garden.cas", kGardenCases);
    w.cases = NewCaseset_cs("garden", w.env);
    AddFileToCaseset_cs(w.cases, w.stream, 1, nullptr);
}
void WithCaseFile(World& w)
{
    PutFile(w.Path("garden.cas"), kGardenCases);
    w.stream = NewFileStream_vx(w.Path("garden.cas").c_str(), w.env, nullptr);
    w.cases = NewCaseset_cs("garden", w.env);
    AddFileToCaseset_cs(w.cases, w.stream, 1, nullptr);
}
void WithLearner(World& w, int method)
{
    WithCases(w);
    w.learner = NewLearner_bn(method, w.env);
    SetLearnerMaxIters_bn(w.learner, 3);
}
void WithTarget(World& w, const char* old_text, const char* name = "target.dne")
{
    PutFile(w.Path(name), old_text);
    w.stream = NewFileStream_vx(w.Path(name).c_str(), w.env, nullptr);
}

// Whether the target holds the net whole.
bool TargetReads(World& w)
{
    net_bn* net = ReadNet_bn(w.stream, NO_WINDOW);
    return net != nullptr && TextOf(net) == TextOf(w.net);
}

// ---- Edits ----

void NoPreparation(World&) {}

bool SetProbs(World& w)
{
    const prob_bn table[] = {0.3f, 0.7f, 0.4f, 0.6f, 0.5f, 0.5f, 0.6f, 0.4f};
    SetNodeTable_bn(w.Node("Wet"), table, 8);
    return NoErrors(w.env);
}
bool SetOneRow(World& w)
{
    const state_bn row[] = {0, 1};
    const prob_bn probs[] = {0.25f, 0.75f};
    SetNodeProbs_bn(w.Node("Wet"), row, probs);
    return NoErrors(w.env);
}
bool AddLink(World& w)
{
    return AddLink_bn(w.Node("Rain"), w.Node("Shoes")) >= 0 && NoErrors(w.env);
}
bool DeleteLink(World& w)
{
    DeleteLink_bn(0, w.Node("Mud"));
    return NoErrors(w.env);
}
bool SwitchParent(World& w)
{
    SwitchNodeParent_bn(0, w.Node("Shoes"), w.Node("Wet"));
    return NoErrors(w.env);
}
bool NewNode(World& w)
{
    return NewNode_bn("A_node_with_a_long_name", 3, w.net) != nullptr && NoErrors(w.env);
}
bool DeleteNode(World& w)
{
    DeleteNode_bn(w.Node("Mud"));
    return NoErrors(w.env);
}
bool RenameNode(World& w)
{
    SetNodeName_bn(w.Node("Wet"), "A_name_too_long_for_in_place");
    return NoErrors(w.env);
}
bool TitleNode(World& w)
{
    SetNodeTitle_bn(w.Node("Wet"), "a title too long for a short string");
    return NoErrors(w.env);
}
bool NameStates(World& w)
{
    SetNodeStateNames_bn(w.Node("Mud"), "nothing, a_little_bit_of_mud, ankle_deep_everywhere");
    return NoErrors(w.env);
}
bool AddStates(World& w)
{
    AddNodeStates_bn(w.Node("Wet"), 1, "damp, moist", 2, -1);
    return NoErrors(w.env);
}
bool RemoveState(World& w)
{
    RemoveNodeState_bn(w.Node("Mud"), 1);
    return NoErrors(w.env);
}
bool ReorderStates(World& w)
{
    const state_bn order[] = {2, 0, 1};
    ReorderNodeStates_bn(w.Node("Mud"), order);
    return NoErrors(w.env);
}
bool SetLevels(World& w)
{
    const level_bn levels[] = {0, 2, 4, 6, 8};
    SetNodeLevels_bn(w.Node("Depth"), 4, levels);
    return NoErrors(w.env);
}
bool SetEquation(World& w)
{
    SetNodeEquation_bn(w.Node("Mud"), "Mud (Wet, Depth) = Depth < 1 ? none : Depth < 2 ? some : much");
    return NoErrors(w.env);
}
bool TabulateEquation(World& w)
{
    EquationToTable_bn(w.Node("Mud"), 5, 0, 0);
    return NoErrors(w.env);
}
bool SetUserField(World& w)
{
    SetNodeUserField_bn(w.Node("Mud"), "wiper", "some bytes of the caller's own", 30, 0);
    return NoErrors(w.env);
}
bool AddToSet(World& w)
{
    AddNodeToNodeset_bn(w.Node("Mud"), "things_people_complain_about");
    return NoErrors(w.env);
}
bool CopyNodes(World& w)
{
    nodelist_bn* copies = CopyNodes_bn(w.All(), w.net, nullptr);
    return copies != nullptr && NoErrors(w.env);
}
bool EnterOneFinding(World& w)
{
    const prob_bn likelihood[] = {0.5f, 0.25f, 1};
    EnterNodeLikelihood_bn(w.Node("Mud"), likelihood);
    return NoErrors(w.env);
}
bool EnterValue(World& w)
{
    EnterNodeValue_bn(w.Node("Depth"), 2.5);
    return NoErrors(w.env);
}
bool SetOrder(World& w)
{
    SetNetElimOrder_bn(w.net, w.nodes);
    return NoErrors(w.env);
}
void WithOrder(World& w)
{
    w.nodes = DupNodeList_bn(w.All());
}
bool EditInGroup(World& w)
{
    OpenNetUndoGroup_bn(w.net, "several edits at once, in a group");
    if (!NoErrors(w.env)) return false;
    const bool done = AddStates(w) && AddLink(w) && SetLevels(w) && DeleteNode(w);
    if (!done) AbortNetUndoGroup_bn(w.net);
    CloseNetUndoGroup_bn(w.net);
    return done && NoErrors(w.env);
}
void WithHistory(World& w)
{
    SetNetNumUndos_bn(w.net, 10, 0, nullptr);
    AddLink(w);
    DeleteNode(w);
    AddStates(w);
}
bool UndoOne(World& w)
{
    return UndoNetLastOper_vx(w.net, -1) && NoErrors(w.env);
}
bool RedoOne(World& w)
{
    return RedoNetOper_vx(w.net, -1) && NoErrors(w.env);
}
void WithUndone(World& w)
{
    WithHistory(w);
    UndoOne(w);
}
bool LearnAct(World& w)
{
    LearnCPTs_bn(w.learner, w.All(), w.cases, 1);
    return NoErrors(w.env);
}

// ---- Everything else ----

bool OpenAndClose(World& w)
{
    char message[MESG_LEN_vx];
    w.env = NewTaloraEnviron_vx("an environment of a long name", nullptr);
    if (w.env == nullptr || InitTalora2_bn(w.env, message) < 0) return false;
    if (NewNet_bn("Empty", w.env) == nullptr || CloseTalora_bn(w.env, message) < 0) return false;
    w.env = nullptr;
    return true;
}
bool ReadStream(World& w)
{
    return ReadNet_bn(w.stream, NO_WINDOW) != nullptr && NoErrors(w.env);
}
bool CopyNet(World& w)
{
    w.other = CopyNet_bn(w.net, "Copy_of_the_garden", w.env, nullptr);
    return w.other != nullptr && NoErrors(w.env);
}
bool SaveTarget(World& w)
{
    WriteNet_bn(w.net, w.stream);
    return NoErrors(w.env);
}
bool CompileAct(World& w)
{
    CompileNet_bn(w.net);
    return NoErrors(w.env);
}
bool BeliefsAct(World& w)
{
    return GetNodeBeliefs_bn(w.Node("Shoes")) != nullptr && NoErrors(w.env);
}
void WithOneMoreFinding(World& w)
{
    Updated(w);
    EnterFinding_bn(w.Node("Mud"), 1);
}
bool ErrorItself(World& w)
{
    EnterFinding_bn(w.Node("Wet"), 7);  // there is no such state
    return false;
}
bool AppendCase(World& w)
{
    return WriteNetFindings_bn(w.All(), w.stream, 7, 1) >= 0 && NoErrors(w.env);
}
const std::vector<Scenario> kScenarios = {
    {"environment", nullptr, OpenAndClose, nullptr, NO_WORLD},
    {"read text", [](World& w) { w.stream = NewStreamOf(w.env, "g.dne", kGardenText); }, ReadStream, nullptr,
     0},
    {"read text file", [](World& w) { WithTarget(w, kGardenText); }, ReadStream, nullptr, FILES},
    {"read container", [](World& w) { w.stream = NewStreamOf(w.env, "g.tala", PackedGarden(w, nullptr)); },
     ReadStream, nullptr, 0},
    {"read container file",
     [](World& w) {
         PutFile(w.Path("target.tala"), PackedGarden(w, nullptr));
         w.stream = NewFileStream_vx(w.Path("target.tala").c_str(), w.env, nullptr);
     },
     ReadStream, nullptr, FILES},
    {"read sealed",
     [](World& w) {
         w.stream = NewStreamOf(w.env, "g.tala", PackedGarden(w, "simple"));
         SetStreamPassword_vx(w.stream, "simple");
     },
     ReadStream, nullptr, 0},

    {"set table", NoPreparation, SetProbs, nullptr, CHANGES},
    {"set row", NoPreparation, SetOneRow, nullptr, CHANGES},
    {"add link", NoPreparation, AddLink, nullptr, CHANGES},
    {"delete link", NoPreparation, DeleteLink, nullptr, CHANGES},
    {"switch parent", NoPreparation, SwitchParent, nullptr, CHANGES},
    {"disconnect link", NoPreparation,
     [](World& w) {
         SwitchNodeParent_bn(0, w.Node("Wet"), nullptr);
         return NoErrors(w.env);
     },
     nullptr, CHANGES},
    {"revise by findings",
     [](World& w) {
         for (int i = 0; i < LengthNodeList_bn(w.All()); ++i) EnterFinding_bn(NthNode_bn(w.All(), i), 0);
         ReviseCPTsByFindings_bn(w.All(), 1);
     },
     [](World& w) {
         ReviseCPTsByFindings_bn(w.All(), 0.3);
         return NoErrors(w.env);
     },
     nullptr, CHANGES},
    {"new node", NoPreparation, NewNode, nullptr, CHANGES},
    {"delete node", NoPreparation, DeleteNode, nullptr, CHANGES},
    {"rename node", NoPreparation, RenameNode, nullptr, CHANGES},
    {"title of node", NoPreparation, TitleNode, nullptr, CHANGES},
    {"state names", NoPreparation, NameStates, nullptr, CHANGES},
    {"add states", NoPreparation, AddStates, nullptr, CHANGES},
    {"remove state", NoPreparation, RemoveState, nullptr, CHANGES},
    {"reorder states", NoPreparation, ReorderStates, nullptr, CHANGES},
    {"set levels", NoPreparation, SetLevels, nullptr, CHANGES},
    {"set equation", NoPreparation, SetEquation, nullptr, CHANGES},
    {"equation to table", NoPreparation, TabulateEquation, nullptr, CHANGES},
    {"user field", NoPreparation, SetUserField, nullptr, CHANGES},
    {"node set", NoPreparation, AddToSet, nullptr, CHANGES},
    {"copy nodes", NoPreparation, CopyNodes, nullptr, CHANGES},
    {"likelihood", NoPreparation, EnterOneFinding, nullptr, CHANGES},
    {"value", NoPreparation, EnterValue, nullptr, CHANGES},
    {"elimination order", WithOrder, SetOrder, nullptr, CHANGES},
    {"add states, compiled", Updated, AddStates, nullptr, CHANGES},
    {"delete node in sets",
     [](World& w) {
         for (const char* set : {"one", "other"}) AddNodeToNodeset_bn(w.Node("Mud"), set);
     },
     DeleteNode, nullptr, CHANGES},
    {"delete node, compiled", Updated, DeleteNode, nullptr, CHANGES},
    {"learn by counting", [](World& w) { WithLearner(w, 1); }, LearnAct, nullptr, CHANGES},
    {"learn by EM", [](World& w) { WithLearner(w, 3); }, LearnAct, nullptr, CHANGES},
    {"learn by gradient", [](World& w) { WithLearner(w, 4); }, LearnAct, nullptr, CHANGES},
    {"learn from file",
     [](World& w) {
         WithCaseFile(w);
         w.learner = NewLearner_bn(1, w.env);
     },
     LearnAct, nullptr, CHANGES | FILES},
    {"edit with undo", [](World& w) { SetNetNumUndos_bn(w.net, 10, 0, nullptr); }, EditInGroup, nullptr, 0},
    {"undo", WithHistory, UndoOne, nullptr, 0},
    {"redo", WithUndone, RedoOne, nullptr, 0},

    {"copy net", NoPreparation, CopyNet, [](World& w) { return TextOf(w.other).size() > 500; }, 0},
    {"compile", NoPreparation, CompileAct, nullptr, 0},
    {"first update", Compiled, BeliefsAct, nullptr, 0},
    {"one more finding", Updated,
     [](World& w) {
         EnterFinding_bn(w.Node("Mud"), 1);
         return NoErrors(w.env);
     },
     BeliefsAct, 0},
    {"update after a finding", WithOneMoreFinding, BeliefsAct, nullptr, 0},
    {"query", NoPreparation,
     [](World& w) { return QueryBeliefs_bn(w.All(), nullptr) != nullptr && NoErrors(w.env); }, nullptr, 0},
    {"most probable", Compiled,
     [](World& w) {
         state_bn setting[6];
         return MostProbableConfig_bn(w.net, setting, 3) <= 0 && NoErrors(w.env);
     },
     nullptr, 0},
    {"random case", Compiled,
     [](World& w) { return GenerateRandomCase_bn(w.All(), 0, 100) == 0 && NoErrors(w.env); }, nullptr, 0},
    {"test",
     [](World& w) {
         WithCases(w);
         CompileNet_bn(w.net);
         w.nodes = NewNodeList2_bn(0, w.net);
     },
     [](World& w) {
         nodelist_bn* tested = NewNodeList2_bn(0, w.net);
         if (tested) AddNodeToList_bn(w.Node("Shoes"), tested, -1);
         tester_bn* tester = tested && NoErrors(w.env) ? NewNetTester_bn(tested, w.nodes, -1) : nullptr;
         if (tester) TestWithCaseset_bn(tester, w.cases);
         const bool done = tester != nullptr && NoErrors(w.env) &&
                           ReportNetTest_bn(tester, w.Node("Shoes")) != nullptr && NoErrors(w.env);
         DeleteNetTester_bn(tester);
         return done;
     },
     nullptr, 0},
    {"sensitivity", Compiled,
     [](World& w) {
         sensv_bn* sensv = NewSensvToFinding_bn(w.Node("Shoes"), w.All(), ENTROPY_SENSV | VARIANCE_SENSV);
         const bool done = sensv != nullptr && GetMutualInfo_bn(sensv, w.Node("Rain")) >= 0 &&
                           ReportSensvToAll_bn(sensv) != nullptr;
         DeleteSensvToFinding_bn(sensv);
         return done && NoErrors(w.env);
     },
     nullptr, 0},
    {"formula", NoPreparation,
     [](World& w) {
         const double value =
             CalcFormula_bn(w.env, "2 + sqrt (16) * max (1, 2, 3)", nullptr, nullptr, 0, nullptr);
         return value == 14 && NoErrors(w.env);
     },
     nullptr, 0},
    {"report of the tree", Compiled,
     [](World& w) { return ReportJunctionTree_bn(w.net) != nullptr && NoErrors(w.env); }, nullptr, 0},
    {"errors themselves", NoPreparation, ErrorItself, nullptr, FAILS},
    {"list of errors",
     [](World& w) {
         for (int i = 0; i < 5; ++i) NewError_vx(w.env, 100 + i, WARNING_SEVERITY, "something of the caller");
     },
     [](World& w) { return ListErrors_vx(w.env, 4, 10) != nullptr && NoErrors(w.env); }, nullptr, 0},

    {"save text", [](World& w) { WithTarget(w, "the old file"); }, SaveTarget, TargetReads, FILES | WRITES},
    {"save new file",
     [](World& w) { w.stream = NewFileStream_vx(w.Path("target.dne").c_str(), w.env, nullptr); }, SaveTarget,
     TargetReads, FILES | WRITES},
    {"save container", [](World& w) { WithTarget(w, "the old file", "target.tala"); }, SaveTarget,
     TargetReads, FILES | WRITES},
    {"save sealed",
     [](World& w) {
         WithTarget(w, "the old file", "target.tala");
         SetStreamPassword_vx(w.stream, "simple");
     },
     SaveTarget, TargetReads, FILES | WRITES},
    {"random cases",
     [](World& w) {
         WithTarget(w, "the old file", "target.cas");
         CompileNet_bn(w.net);
     },
     [](World& w) { return WriteRandomCases_bn(w.All(), w.stream, 20, 0, 100, 10) == 20 && NoErrors(w.env); },
     nullptr, FILES | WRITES},
    {"copy case set",
     [](World& w) {
         WithCaseFile(w);
         WithTarget(w, "the old file", "target.cas");
     },
     [](World& w) {
         WriteCaseset_cs(w.cases, w.stream, nullptr);
         return NoErrors(w.env);
     },
     nullptr, FILES | WRITES},
    {"beliefs of cases",
     [](World& w) {
         WithCaseFile(w);
         WithTarget(w, "the old file", "target.cas");
         w.nodes = NewNodeList2_bn(0, w.net);
         AddNodeToList_bn(w.Node("Shoes"), w.nodes, -1);
         CompileNet_bn(w.net);
     },
     [](World& w) {
         return WriteCaseBeliefs_bn(w.cases, w.nodes, w.stream, nullptr) >= 0 && NoErrors(w.env);
     },
     nullptr, FILES | WRITES},
    {"first case of a file",
     [](World& w) {
         w.stream = NewFileStream_vx(w.Path("target.cas").c_str(), w.env, nullptr);
         EnterFinding_bn(w.Node("Rain"), 0);
     },
     AppendCase, nullptr, FILES | WRITES},
    {"one more case",
     [](World& w) {
         WithTarget(w, kGardenCases, "target.cas");
         EnterFinding_bn(w.Node("Rain"), 0);
     },
     AppendCase, nullptr, FILES | APPENDS},
    {"one more case behind a torn one",
     [](World& w) {
         WithTarget(w, (std::string(kGardenCases) + "11 1 yes n").c_str(), "target.cas");
         EnterFinding_bn(w.Node("Rain"), 0);
     },
     AppendCase, nullptr, FILES | APPENDS},
    {"read a case", WithCaseFile,
     [](World& w) {
         double position = FIRST_CASE_POSN;
         return ReadNetFindings2_bn(&position, w.stream, DONT_ADD_NEW, w.All(), nullptr, nullptr) != 0 &&
                NoErrors(w.env);
     },
     nullptr, FILES | CHANGES},
};

}  // namespace

const std::vector<Scenario>& AllScenarios()
{
    return kScenarios;
}

void OpenWorld(World& world, const std::filesystem::path& folder)
{
    world = World();
    world.folder = folder;
    world.env = NewTaloraEnviron_vx("faults", nullptr);
    ClearErrors_vx(nullptr, INTERNAL_SEVERITY);
    InitTalora2_bn(world.env, nullptr);
    world.net = ReadText(world.env, kGardenText);
}

void CloseWorld(World& world)
{
    ClearErrors_vx(nullptr, INTERNAL_SEVERITY);
    if (world.env) CloseTalora_bn(world.env, nullptr);
    ClearErrors_vx(nullptr, INTERNAL_SEVERITY);
    world = World();
}

}  // namespace faults
