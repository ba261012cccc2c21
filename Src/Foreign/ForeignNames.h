// Names of foreign files and the engine's rule for names; the user fields that keep what the engine's own
// records have no place for.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "BN/Model/Bnet.h"
#include "Foreign/ForeignNet.h"
#include "Foreign/Formats.h"

namespace talora {

constexpr std::string_view kOriginalName = "original_name";
constexpr std::string_view kOriginalFormat = "original_format";
constexpr std::string_view kObservationCost = "observation_cost";
constexpr std::string_view kNoisyMax = "noisy_max";

// A legal name from any text: each letter that is not allowed becomes "_", what would begin with none is
// prefixed with "x_", and it is cut to the greatest length.
std::string LegalName(std::string_view text);
// Legal names, each other than all others, for texts that may be anything.  Texts that are legal stay as they
// are, the first time they come.
std::vector<std::string> UniqueLegalNames(const std::vector<std::string>& texts);
// Whether a name was made from a text by the functions above.
bool IsMadeFrom(std::string_view name, std::string_view text);

// Whether a text can stand as a name in a format.
bool FitsRule(std::string_view text, NameRule rule);

// Contributions as text of a user field: "last; 0.9 0.1 ..."; false if a text is none.
std::string NoisyMaxText(const NoisyMax& noisy);
bool ParseNoisyMax(std::string_view text, NoisyMax& noisy);

}  // namespace talora
