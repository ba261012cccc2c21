// Reports on sensitivity to findings: text for a pair of nodes, text for all varying nodes, and a table in
// HTML.
//
// Each shows the measures that the measurer was asked for when it was made.  What does not exist is shown as
// "undef".  Where the query node's real value has an infinite end and no bound has been set, the front end is
// asked for one; without an answer the figures of the real value are "undef".
#pragma once

#include <string>

#include "BN/Sensitivity/BnSensitivity.h"

namespace talora {

// How findings at one node change each belief and the mean of the query node, and the summary measures.
std::string PairReport(Sensv& sensv, const Node& varying);
// A row for each varying node, the most informative first.
std::string AllNodesReport(Sensv& sensv);
// The same rows as a <table class="sensitivity">; cells have the class "text" or "number", the row of the
// query node "query".
std::string HtmlTable(Sensv& sensv);

}  // namespace talora
