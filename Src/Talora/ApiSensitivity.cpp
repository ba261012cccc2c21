// Interface functions: sensitivity to findings.
#include "BN/Sensitivity/BnSensitivity.h"
#include "BN/Sensitivity/SensitivityReport.h"
#include "Talora/APICheck.h"

using namespace talora;

namespace {

// Which parts of an effect are asked for, by where they are to go.
unsigned PartsFor(const double* variance, const double* least, const double* greatest)
{
    unsigned parts = AMOUNT_PART;
    if (variance) parts |= VARIANCE_PART;
    if (least || greatest) parts |= RANGE_PART;
    return parts;
}

double HandOut(const FindingEffect& effect, double* variance, double* least, double* greatest)
{
    if (variance) *variance = effect.variance;
    if (least) *least = effect.least;
    if (greatest) *greatest = effect.greatest;
    return effect.amount;
}

void Preset(double* variance, double* least, double* greatest)
{
    HandOut({UndefDbl(), UndefDbl(), UndefDbl(), UndefDbl()}, variance, least, greatest);
}

}  // namespace

sensv_bn* NewSensvToFinding_bn(const node_bn* query, const nodelist_bn* varying, int what_find)
{
    return CallApi2(__func__, With(query, EntriesOf(varying)), varying, static_cast<sensv_bn*>(nullptr),
                    [&] { return NewSensv(const_cast<node_bn&>(*query), varying->nodes, what_find); });
}

void DeleteSensvToFinding_bn(sensv_bn* sensv)
{
    if (sensv == nullptr) return;
    CallApi(__func__, sensv, [&] { DeleteSensv(sensv); });
}

node_bn* GetSensvQueryNode_bn(const sensv_bn* sensv)
{
    return CallApi(__func__, sensv, static_cast<node_bn*>(nullptr), [&] { return sensv->query; });
}

const nodelist_bn* GetSensvVaryingNodes_bn(const sensv_bn* sensv)
{
    return CallApi(__func__, sensv, static_cast<const nodelist_bn*>(nullptr),
                   [&] { return &sensv->varying; });
}

int GetSensvWhatFound_bn(const sensv_bn* sensv)
{
    return CallApi(__func__, sensv, -1, [&] { return sensv->what_find; });
}

double GetMutualInfo_bn(sensv_bn* sensv, const node_bn* varying)
{
    return CallApi2(__func__, sensv, varying, UndefDbl(), [&] { return MutualInfo(*sensv, *varying); });
}

double GetVarianceOfReal_bn(sensv_bn* sensv, const node_bn* varying)
{
    return CallApi2(__func__, sensv, varying, UndefDbl(),
                    [&] { return RealVarianceReduction(*sensv, *varying); });
}

double GetVarianceOfBeliefs_bn(sensv_bn* sensv, const node_bn* varying)
{
    return CallApi2(__func__, sensv, varying, UndefDbl(),
                    [&] { return BeliefVarianceReduction(*sensv, *varying); });
}

double GetSensitivityRatio_bn(sensv_bn* sensv, const node_bn* varying, state_bn query_state)
{
    return CallApi2(__func__, sensv, varying, UndefDbl(),
                    [&] { return SensitivityRatio(*sensv, *varying, query_state); });
}

double GetBeliefChange_bn(sensv_bn* sensv, const node_bn* varying, state_bn query_state, double* variance,
                          double* least, double* greatest)
{
    Preset(variance, least, greatest);
    return CallApi2(__func__, sensv, varying, UndefDbl(), [&] {
        const unsigned parts = PartsFor(variance, least, greatest);
        return HandOut(BeliefChange(*sensv, *varying, query_state, parts), variance, least, greatest);
    });
}

double GetMeanChange_bn(sensv_bn* sensv, const node_bn* varying, double* variance, double* least,
                        double* greatest)
{
    Preset(variance, least, greatest);
    return CallApi2(__func__, sensv, varying, UndefDbl(), [&] {
        const unsigned parts = PartsFor(variance, least, greatest);
        return HandOut(RealChange(*sensv, *varying, parts), variance, least, greatest);
    });
}

void SetSensvRealBounds_bn(sensv_bn* sensv, double lower, double upper)
{
    CallApi(__func__, sensv, [&] { SetRealBounds(*sensv, lower, upper); });
}

void GetSensvRealBounds_bn(const sensv_bn* sensv, double* lower, double* upper)
{
    if (lower) *lower = UndefDbl();
    if (upper) *upper = UndefDbl();
    CallApi(__func__, sensv, [&] {
        if (lower) *lower = sensv->lower_bound;
        if (upper) *upper = sensv->upper_bound;
    });
}

const char* ReportSensvToNode_bn(sensv_bn* sensv, const node_bn* varying)
{
    return CallApi2(__func__, sensv, varying, static_cast<const char*>(nullptr), [&] {
        sensv->report = PairReport(*sensv, *varying);
        return sensv->report.c_str();
    });
}

const char* ReportSensvToAll_bn(sensv_bn* sensv)
{
    return CallApi(__func__, sensv, static_cast<const char*>(nullptr), [&] {
        sensv->report = AllNodesReport(*sensv);
        return sensv->report.c_str();
    });
}

const char* ReportSensvHtml_bn(sensv_bn* sensv)
{
    return CallApi(__func__, sensv, static_cast<const char*>(nullptr), [&] {
        sensv->report = HtmlTable(*sensv);
        return sensv->report.c_str();
    });
}
