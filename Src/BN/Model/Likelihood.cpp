// Products of likelihood findings with exponents of their own, and their scaling for inference.
#include "BN/Model/Likelihood.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace talora {

namespace {

constexpr int64_t kNoExponent = INT64_MIN;
// Products with exponents between these are floats as they are.
constexpr int kLeastExponent = -125, kMostExponent = 127;
// Likelihoods whose largest entry is above 1 or below 2^kSmallExponent are scaled for inference.
constexpr int kSmallExponent = -16;

WideWeight MakeWide(double weight)
{
    int exponent = 0;
    const double fraction = std::frexp(weight, &exponent);
    return {fraction, fraction == 0 ? 0 : exponent};
}

WideWeight operator*(const WideWeight& a, float b)
{
    WideWeight product = MakeWide(a.fraction * double(b));
    if (product.fraction != 0) product.exponent += a.exponent;
    return product;
}

// The weight divided by 2^shift.
float ToFloat(const WideWeight& weight, int64_t shift)
{
    const int64_t exponent = std::clamp<int64_t>(weight.exponent - shift, -1000, 1000);
    return float(std::ldexp(weight.fraction, int(exponent)));
}

int64_t LargestExponent(const TableVector<WideWeight>& product)
{
    int64_t largest = kNoExponent;
    for (const WideWeight& weight : product)
        if (weight.fraction != 0) largest = std::max(largest, weight.exponent);
    return largest;
}

// The exponent to take out of a likelihood for inference.
int64_t ScaleExponent(const NodeFinding& finding)
{
    if (finding.likelihood.empty()) return 0;
    if (!finding.product.empty()) {
        const int64_t largest = LargestExponent(finding.product);
        return largest == kNoExponent ? 0 : largest;
    }
    const float largest = *std::max_element(finding.likelihood.begin(), finding.likelihood.end());
    const WideWeight wide = MakeWide(double(largest));
    return largest > 1 || (largest > 0 && wide.exponent < kSmallExponent) ? wide.exponent : 0;
}

}  // namespace

bool IsRuledOut(const NodeFinding& finding, int state)
{
    const auto at = size_t(state);
    if (!finding.product.empty()) return finding.product[at].fraction == 0;
    return !finding.likelihood.empty() && finding.likelihood[at] == 0;
}

bool MultiplyIn(NodeFinding& finding, const float* likelihood, int num_states)
{
    const auto count = size_t(num_states);
    if (finding.likelihood.empty()) {
        finding.likelihood.assign(likelihood, likelihood + count);
        return std::any_of(likelihood, likelihood + count, [](float weight) { return weight > 0; });
    }
    // 1. The product, state by state.
    if (finding.product.empty())
        for (const float weight : finding.likelihood) finding.product.push_back(MakeWide(double(weight)));
    for (size_t state = 0; state < count; ++state)
        finding.product[state] = finding.product[state] * likelihood[state];
    // 2. As floats: the numbers themselves, or a multiple of them where they are out of range.
    const int64_t largest = LargestExponent(finding.product);
    if (largest == kNoExponent) return false;
    const int64_t shift = largest >= kLeastExponent && largest <= kMostExponent ? 0 : largest;
    bool is_exact = shift == 0;
    for (size_t state = 0; state < count; ++state) {
        finding.likelihood[state] = ToFloat(finding.product[state], shift);
        is_exact = is_exact && MakeWide(double(finding.likelihood[state])) == finding.product[state];
    }
    if (is_exact) finding.product = TableVector<WideWeight>();
    return true;
}

InferenceWeights WeightsForInference(const NodeFinding& finding)
{
    const int64_t exponent = ScaleExponent(finding);
    InferenceWeights scaled;
    scaled.log_scale = double(exponent) * std::numbers::ln2;
    if (!finding.product.empty()) {
        for (const WideWeight& weight : finding.product) scaled.weights.push_back(ToFloat(weight, exponent));
    } else {
        scaled.weights = finding.likelihood;
        if (exponent != 0)
            for (float& weight : scaled.weights) weight = std::ldexp(weight, -int(exponent));
    }
    return scaled;
}

double LogLikelihoodScale(const Net& net)
{
    double sum = 0;
    for (const Node* node : net.nodes.nodes)
        if (!node->finding.likelihood.empty())
            sum += double(ScaleExponent(node->finding)) * std::numbers::ln2;
    return sum;
}

}  // namespace talora
