// Equations as flat code for a small stack machine, for tables that need many evaluations.
//
// Constant parts are computed beforehand.  The top of the stack stays in a register, and an operator
// whose right operand is a variable or a constant takes it from there.  Instructions and routines
// are those of the tree, so the results have the same bits.  A program stands for itself.
#pragma once

#include <cstdint>
#include <vector>

#include "Misc/Equations/EqnEval.h"

namespace talora {

struct EqnInstruction {
    uint16_t op = 0;
    int32_t index = 0;  // variable, place in the code, or number of arguments
    union {
        double constant;
        const FunctionDef* function;
        int64_t target;
    };
};

struct EqnProgram {
    std::vector<EqnInstruction> code;
    std::vector<std::vector<double>> maps;        // by state: levels and so on
    std::vector<std::vector<double>> thresholds;  // by variable
    size_t stack_size = 0;
};

EqnProgram CompileEquation(const Equation& eqn);

// The value for one assignment, as Evaluate gives it; all values are defined.
// @param stack    program.stack_size places
// @param failure  set as by Evaluate; to be cleared by the caller
double Run(const EqnProgram& program, const double* values, double* stack, EqnReason& failure);

}  // namespace talora
