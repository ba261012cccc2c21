/* Reads a net, enters what is known of a patient, and prints how probable each disease is.
 *
 *     make && ./chest_clinic ../chest-clinic.dne
 */
#include <Talora.h>
#include <stdio.h>
#include <stdlib.h>

/* Prints the errors of the library, if there are any, and ends the program. */
static void CheckErrors(environ_vx* env)
{
    const report_vx* error = GetError_vx(env, ERROR_SEVERITY, 0, NULL);
    if (error == NULL) return;
    fprintf(stderr, "error %d: %s\n", ErrorNumber_vx(error), ErrorMessage_vx(error));
    exit(1);
}

static void EnterByName(net_bn* net, const char* node_name, const char* state_name)
{
    node_bn* node = GetNodeNamed_bn(node_name, net);
    EnterFinding_bn(node, GetStateNamed_bn(state_name, node));
}

static void PrintBelief(net_bn* net, const char* node_name, const char* state_name)
{
    node_bn* node = GetNodeNamed_bn(node_name, net);
    const prob_bn* beliefs = GetNodeBeliefs_bn(node);
    if (beliefs != NULL)
        printf("  %-13s %.4f\n", node_name, (double)beliefs[GetStateNamed_bn(state_name, node)]);
}

static void PrintDiseases(net_bn* net, const char* heading)
{
    printf("%s\n", heading);
    PrintBelief(net, "Tuberculosis", "Yes");
    PrintBelief(net, "LungCancer", "Yes");
    PrintBelief(net, "Bronchitis", "Yes");
    CheckErrors(GetNetEnviron_bn(net));
}

int main(int argc, char** argv)
{
    char message[MESG_LEN_vx];
    environ_vx* env = NewTaloraEnviron_vx(NULL, NULL);
    if (InitTalora2_bn(env, message) < 0) {
        fprintf(stderr, "%s\n", message);
        return 1;
    }

    stream_vx* file = NewFileStream_vx(argc > 1 ? argv[1] : "chest-clinic.dne", env, NULL);
    net_bn* net = ReadNet_bn(file, NO_WINDOW);
    DeleteStream_vx(file);
    CheckErrors(env);
    CompileNet_bn(net);
    CheckErrors(env);

    PrintDiseases(net, "Before anything is known:");
    EnterByName(net, "Dyspnoea", "Yes");
    PrintDiseases(net, "Short of breath:");
    EnterByName(net, "VisitToAsia", "Yes");
    EnterByName(net, "XRay", "Abnormal");
    PrintDiseases(net, "Back from Asia, and the X-ray shows something:");
    printf("Probability of these findings: %.6f\n", FindingsProbability_bn(net));
    CheckErrors(env);

    CloseTalora_bn(env, message); /* deletes the net too */
    return 0;
}
