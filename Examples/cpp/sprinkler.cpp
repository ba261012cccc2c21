// Builds a net in memory, asks it why the grass is wet, and saves it.
//
// The net is the lawn of Pearl (1988), Probabilistic reasoning in intelligent systems, with the
// numbers of Russell & Norvig (1995), Artificial intelligence: a modern approach.
#include <Talora.h>

#include <cstdio>
#include <cstdlib>
#include <initializer_list>
#include <vector>

namespace {

// Ends the program with the library's reason when a call has failed.
void CheckErrors(environ_vx* env)
{
    const report_vx* error = GetError_vx(env, ERROR_SEVERITY, 0, nullptr);
    if (!error) return;
    std::fprintf(stderr, "error %d: %s\n", ErrorNumber_vx(error), ErrorMessage_vx(error));
    std::exit(1);
}

// A node with states yes and no.  yes: the probability of yes, one for each row of the table, the
// last parent's state changing fastest.
node_bn* AddNode(net_bn* net, const char* name, std::initializer_list<node_bn*> parents,
                 std::initializer_list<float> yes)
{
    node_bn* node = NewNode_bn(name, 2, net);
    SetNodeStateNames_bn(node, "yes,no");
    for (node_bn* parent : parents) AddLink_bn(parent, node);
    std::vector<prob_bn> table;
    for (const float p : yes) table.insert(table.end(), {p, 1 - p});
    SetNodeTable_bn(node, table.data(), static_cast<int64_t>(table.size()));
    return node;
}

}  // namespace

int main(int argc, char** argv)
{
    char message[MESG_LEN_vx];
    environ_vx* env = NewTaloraEnviron_vx("sprinkler", nullptr);
    if (InitTalora2_bn(env, message) < 0) {
        std::fprintf(stderr, "%s\n", message);
        return 1;
    }

    net_bn* net = NewNet_bn("Lawn", env);
    node_bn* cloudy = AddNode(net, "Cloudy", {}, {0.5f});
    node_bn* sprinkler = AddNode(net, "Sprinkler", {cloudy}, {0.1f, 0.5f});
    node_bn* rain = AddNode(net, "Rain", {cloudy}, {0.8f, 0.2f});
    node_bn* wet = AddNode(net, "WetGrass", {sprinkler, rain}, {0.99f, 0.9f, 0.9f, 0.0f});
    CheckErrors(env);

    CompileNet_bn(net);
    EnterFinding_bn(wet, 0);
    CheckErrors(env);
    std::printf("The grass is wet: rain %.4f, sprinkler %.4f\n", GetNodeBeliefs_bn(rain)[0],
                GetNodeBeliefs_bn(sprinkler)[0]);
    EnterFinding_bn(rain, 0);
    CheckErrors(env);
    std::printf("It has rained, too: sprinkler %.4f\n", GetNodeBeliefs_bn(sprinkler)[0]);

    if (argc > 1) {
        stream_vx* file = NewFileStream_vx(argv[1], env, nullptr);
        WriteNet_bn(net, file);
        DeleteStream_vx(file);
        CheckErrors(env);
    }
    CloseTalora_bn(env, message);
    return 0;
}
