// Reports on sensitivity to findings, and the question about bounds.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "Golden.h"
#include "Talora/TestEnviron.h"

namespace {

constexpr int kEverything =
    BELIEF_SENSV | ENTROPY_SENSV | REAL_SENSV | NODEVAR_SENSV | RATIO_SENSV | VARIANCE_SENSV | RANGE_SENSV;

struct Asked {
    std::vector<std::string> questions, answers, defaults;
    int answer = -1;
};

int Note(environ_vx*, const char* question, const char* answers, const char* deflt, void* data)
{
    Asked& asked = *static_cast<Asked*>(data);
    asked.questions.push_back(question);
    asked.answers.push_back(answers);
    asked.defaults.push_back(deflt);
    return asked.answer;
}

// Rain -> Wet <- Sprinkler, Wet -> Depth, which has an open end; Cost is a utility node.
class SensitivityReportTest : public testing::Test {
protected:
    void SetUp() override
    {
        net_ = NewNet_bn("Garden", env_);
        rain_ = Add("Rain", {}, {0.2f, 0.8f});
        SetNodeTitle_bn(rain_, "Rain & hail, <wet> \"weather\"");
        node_bn* sprinkler = Add("Sprinkler", {}, {0.4f, 0.6f});
        wet_ = Add("Wet", {rain_, sprinkler}, {1, 0, 0.9f, 0.1f, 0.8f, 0.2f, 0, 1});
        depth_ = NewNode_bn("Depth_of_the_puddles_here", 0, net_);
        AddLink_bn(wet_, depth_);
        SetDepthLevels({0, 1, 3, GetInfinityDbl_vx()});
        const prob_bn probs[] = {0.2f, 0.5f, 0.3f, 0.9f, 0.1f, 0};
        SetNodeTable_bn(depth_, probs, 6);
        SetNodeKind_bn(NewNode_bn("Cost", 0, net_), UTILITY_NODE);
    }

    void SetDepthLevels(const std::vector<level_bn>& levels) { SetNodeLevels_bn(depth_, 3, levels.data()); }

    node_bn* Add(const char* name, std::vector<node_bn*> parents, std::vector<prob_bn> table)
    {
        node_bn* node = NewNode_bn(name, 2, net_);
        SetNodeStateNames_bn(node, "yes,no");
        for (node_bn* parent : parents) AddLink_bn(parent, node);
        SetNodeTable_bn(node, table.data(), int64_t(table.size()));
        return node;
    }

    sensv_bn* Measurer(const node_bn* query, int what_find = kEverything)
    {
        return NewSensvToFinding_bn(query, GetNetNodes2_bn(net_, nullptr), what_find);
    }

    TestEnviron env_;
    net_bn* net_ = nullptr;
    node_bn *rain_ = nullptr, *wet_ = nullptr, *depth_ = nullptr;
};

TEST_F(SensitivityReportTest, Texts)
{
    ExpectGolden("sensitivity-pair.txt", ReportSensvToNode_bn(Measurer(wet_), rain_));
    ExpectGolden("sensitivity-all.txt", ReportSensvToAll_bn(Measurer(wet_)));
    ExpectGolden("sensitivity-unbounded.txt", ReportSensvToAll_bn(Measurer(depth_)));
    sensv_bn* bounded = Measurer(depth_);
    SetSensvRealBounds_bn(bounded, GetUndefDbl_vx(), 9);
    ExpectGolden("sensitivity-real-pair.txt", ReportSensvToNode_bn(bounded, wet_));
    ExpectGolden("sensitivity-real-all.txt", ReportSensvToAll_bn(bounded));
    ExpectGolden("sensitivity-real.html", ReportSensvHtml_bn(bounded));
    ExpectGolden("sensitivity-entropy.txt", ReportSensvToAll_bn(Measurer(rain_, ENTROPY_SENSV)));
}

TEST_F(SensitivityReportTest, AsksForBoundsOfInfiniteEnds)
{
    const double undefined = GetUndefDbl_vx(), infinity = GetInfinityDbl_vx();
    const struct {
        const char* label;
        std::vector<level_bn> levels;
        std::vector<const char*> sides;
        std::vector<const char*> answers;
        double lower, upper;
    } kCases[] = {
        {"open above", {0, 1, 3, infinity}, {"upper"}, {"5,Leave Out"}, undefined, 5},
        {"open below", {-infinity, 1, 3, 4}, {"lower"}, {"-1,Leave Out"}, -1, undefined},
        {"open at both ends, falling",
         {infinity, 7, 4, -infinity},
         {"lower", "upper"},
         {"1,Leave Out", "10,Leave Out"},
         1,
         10},
        {"closed", {0, 1, 3, 4}, {}, {}, undefined, undefined},
    };
    for (const auto& c : kCases)
        for (const int answer : {0, 1, -1}) {
            SCOPED_TRACE(std::string(c.label) + ", answer " + std::to_string(answer));
            SetDepthLevels(c.levels);
            Asked asked;
            asked.answer = answer;
            SetQuestionHandler_vx(env_, Note, &asked);
            sensv_bn* sensv = Measurer(depth_);
            const std::string report = ReportSensvToAll_bn(sensv);
            SetQuestionHandler_vx(env_, nullptr, nullptr);
            ASSERT_EQ(asked.questions.size(), c.sides.size());
            for (size_t i = 0; i < c.sides.size(); ++i) {
                EXPECT_EQ(asked.questions[i], std::string("Enter a realistic ") + c.sides[i] +
                                                  " bound on the real value of Depth_of_the_puddles_here:");
                EXPECT_EQ(asked.answers[i], c.answers[i]);
                EXPECT_EQ(asked.defaults[i], "Leave Out");
            }
            double lower = 0, upper = 0;
            GetSensvRealBounds_bn(sensv, &lower, &upper);
            EXPECT_EQ(lower, answer == 0 ? c.lower : undefined);
            EXPECT_EQ(upper, answer == 0 ? c.upper : undefined);
            // The utility node alone has no figures, or nobody has any of the real value.
            EXPECT_EQ(report.find("Wet                      undef"),
                      answer == 0 || c.sides.empty() ? std::string::npos : report.find("\nWet") + 1);
        }
}

}  // namespace
