// Reports on sensitivity to findings, and the question about bounds.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "Support/GardenNet.h"
#include "Support/Golden.h"

namespace {

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

// With a utility node, Cost, and a title that HTML must not take for markup.
class SensitivityReportTest : public GardenTest {
protected:
    void SetUp() override
    {
        GardenTest::SetUp();
        SetNodeTitle_bn(rain_, "Rain & hail, <wet> \"weather\"");
        SetNodeKind_bn(NewNode_bn("Cost", 0, net_), UTILITY_NODE);
    }
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
