// talora calc: the value of a formula, and the page of functions.
#include <charconv>
#include <nlohmann/json.hpp>

#include "talora/Command.h"
#include "talora/Formula.h"
#include "talora/Text.h"
#include "talora/Values.h"

namespace command {

namespace {

class Calc : public Command {
public:
    void DefineOptions(CLI::App& app) override
    {
        app.add_option("EXPRESSION", expression_, "Formula in the language of equations")->type_name("");
        app.add_option("NAME=VALUE", assignments_, "Variables of the formula")->type_name("");
        app.add_flag("--functions", functions_,
                     "List operators, functions, distributions, constants and units");
    }

    void Run(Session& session) override
    {
        if (functions_) {
            session.Field("functions") = GetEquationReference_bn(session.env);
            return session.Print(GetEquationReference_bn(session.env));
        }
        if (expression_.empty()) throw WrongUsage("a formula is required");
        for (const std::string& assignment : assignments_) AddVariable(assignment);
        std::vector<const char*> names;
        for (const std::string& name : names_) names.push_back(name.c_str());
        int place = -1;
        const double value = CalcFormula_bn(session.env, expression_.c_str(), names.data(), values_.data(),
                                            static_cast<int>(names.size()), &place);
        if (GetError_vx(session.env, ERROR_SEVERITY, 0, nullptr))
            throw CommandFailed(ExplainMistake(session, expression_, place));
        session.Field("value") = RealOrNull(value);
        session.Print(ValueText(value) + "\n");
    }

private:
    // NAME=VALUE; whether the name is a legal one shows when the formula is read.
    void AddVariable(const std::string& assignment)
    {
        const size_t equals = assignment.find('=');
        double value = 0;
        const char* const end = assignment.data() + assignment.size();
        const char* const first = equals == std::string::npos ? end : assignment.data() + equals + 1;
        const auto [stop, problem] = std::from_chars(first, end, value);
        if (first == end || problem != std::errc() || stop != end)
            throw WrongUsage("'" + assignment + "' should be a name, '=' and a number");
        names_.push_back(assignment.substr(0, equals));
        values_.push_back(value);
    }

    // All the digits that a number of double precision has.
    static std::string ValueText(double value)
    {
        if (value == GetUndefDbl_vx()) return "undefined";
        if (value == GetInfinityDbl_vx()) return "infinity";
        if (value == -GetInfinityDbl_vx()) return "-infinity";
        char text[32];
        const auto [end, problem] =
            std::to_chars(text, text + sizeof text, value, std::chars_format::general, 15);
        return problem == std::errc() ? std::string(text, end) : "undefined";
    }

    std::string expression_;
    std::vector<std::string> assignments_, names_;
    std::vector<double> values_;
    bool functions_ = false;
};

}  // namespace

std::unique_ptr<Command> MakeCalc()
{
    return std::make_unique<Calc>();
}

}  // namespace command
