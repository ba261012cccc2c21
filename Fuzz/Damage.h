// Damage as it happens to files: a bit or byte, an end cut off, lines that changed places, another number.
#pragma once

#include <random>
#include <string>

namespace fuzz {

std::string Damaged(std::string bytes, std::minstd_rand& random);

}  // namespace fuzz
