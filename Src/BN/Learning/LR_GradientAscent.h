// Learning tables by gradient ascent, from cases that need not be complete.
//
// Conjugate gradients (Polak-Ribiere) climb the log likelihood of the cases, to which experience adds cases
// seen before.  The parameters are logarithms of the probabilities up to a constant for each row, so every
// step leaves the rows sums of 1 with positive entries; an entry that is 0 stays 0.  Each iteration
// searches along one direction: a maximum is bracketed, then found by Brent's method.
//
// Limits: 60 points for the bracket, 100 for Brent's method, which stops when the place is known to one
// hundredth of itself.  When one is exceeded, a warning says so and learning ends with the tables of the
// last iteration.
//
// The net is changed at the end as in LR_EMAlgo.h.
//
// Polak & Ribiere (1969), Note sur la convergence de methodes de directions conjuguees; Brent (1973),
// Algorithms for minimization without derivatives; Binder, Koller, Russell & Kanazawa (1997), Adaptive
// probabilistic networks with hidden variables.
#pragma once

#include <functional>
#include <span>

#include "BN/Learning/Learner.h"
#include "BN/Model/Bnet.h"
#include "VarVal/Caseset.h"

namespace talora {

void LearnByGradient(Learner& learner, std::span<Node* const> nodes, const Caseset& cases, double degree);

// ---- Search along a line ----

enum class LineStatus { FOUND, FLAT, BRACKET_LIMIT, BRENT_LIMIT, HALTED };

struct LinePoint {
    double place = 0, value = 0;
};

// The value at a place; false if halted.
using LineFunction = std::function<bool(double place, double* value)>;

// A minimum for places above 0 of a function that goes down at 0.  FLAT: no lower place within rounding.
// @param value  at 0
// @param step   where to look first
LineStatus MinimizeAlongLine(const LineFunction& function, double value, double step, LinePoint* lowest);

}  // namespace talora
