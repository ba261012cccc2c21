// Units that may stand behind a number, each with its factor.
#include "Misc/Equations/Units.h"

namespace talora {

namespace {

constexpr UnitDef kUnits[] = {
    {"deg", 0.017453292519943295, "degrees, in radians"},
    {"rad", 1, "radians"},
    {"percent", 0.01, "hundredths"},
    {"permille", 0.001, "thousandths"},
    {"ppm", 1e-6, "parts per million"},
    {"pico", 1e-12, "SI prefix"},
    {"nano", 1e-9, "SI prefix"},
    {"micro", 1e-6, "SI prefix"},
    {"milli", 1e-3, "SI prefix"},
    {"kilo", 1e3, "SI prefix"},
    {"mega", 1e6, "SI prefix"},
    {"giga", 1e9, "SI prefix"},
    {"tera", 1e12, "SI prefix"},
    {"k", 1e3, "kilo"},
    {"M", 1e6, "mega"},
    {"G", 1e9, "giga"},
    {"T", 1e12, "tera"},
    {"m", 1e-3, "milli"},
    {"u", 1e-6, "micro"},
    {"n", 1e-9, "nano"},
    {"p", 1e-12, "pico"},
};

}  // namespace

std::span<const UnitDef> UnitTable()
{
    return kUnits;
}

}  // namespace talora
