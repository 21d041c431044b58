#include <array>
#include <cstdint>
#include <iomanip>
#include <iostream>
#include <optional>
#include <string_view>

#include "hwlib/location/physloc.h"
#include "tools/Command.h"
#include "tools/CommandLine.h"
#include "tools/LocationCode.h"

namespace tav::ctl {
namespace {

struct Form {
    PHYSLOC_FORM form;
    const char* name;
};
constexpr std::array<Form, 4> forms{{
    {PHYSLOC_FORM_LONG, "long"},
    {PHYSLOC_FORM_NUMERIC, "numeric"},
    {PHYSLOC_FORM_PREFIX, "prefix"},
    {PHYSLOC_FORM_SHORT, "short"},
}};

constexpr std::string_view help =
    R"(Tells where the component sits that a location code names. Events and the
inventory carry such a code as "PhysicalLocation".

CODE is 16 hexadecimal digits, as the event shows them. Four forms are printed:

  long     the way to the component, from the rack inwards
           rack1/chassis_u6/cpu0/pcie_slot3: in rack 1 the chassis at position
           6, there the PCIe slot 3, which belongs to CPU 0
  numeric  the same numbers without the names
           1/6/0/3
  prefix   the kind of the component, then the numbers
           pcie_slot-1/6/0/3
  short    for labels; few kinds have it, the others print "none"
           r001i06s03: rack 1, position 6, slot 3

CPUs, slots, drives and ports count from 0; chassis positions in a rack from 1.
Two codes name no place: FFFFFFFFFFFFFFFF (location not known)
and FFFFFFFFFFFFFF00 (not expressible as a code).

Exit status: 0 printed, 1 the code names no place, 2 not a code.
)";

const char* whyNowhere(std::uint64_t code) {
    switch (code) {
        case 0xFFFFFFFFFFFFFFFF:
            return "stands for a location that is not known";
        case 0xFFFFFFFFFFFFFF00:
            return "stands for a location that cannot be expressed as a code";
        default:
            return "has the form of a location code, but no component has this one";
    }
}

ExitStatus printForms(std::uint64_t code) {
    const auto word0 = static_cast<std::uint32_t>(code);
    const auto word1 = static_cast<std::uint32_t>(code >> 32);
    for (const Form& form : forms) {
        char text[PHYSLOC_TEXT_SIZE] = "none";
        const int result = physloc_get_string(form.form, word0, word1, text);
        if (result != PHYSLOC_SUCCESS && form.form != PHYSLOC_FORM_SHORT) return Failed;
        std::cout << std::left << std::setw(9) << form.name << text << '\n';
    }
    return Done;
}

ExitStatus run(Arguments arguments) {
    const auto line = sortArguments("location", arguments);
    if (!line) return Misused;
    if (line->words.size() != 1) {
        std::cerr << "tavctl location: exactly one CODE is needed; see tavctl location --help\n";
        return Misused;
    }
    const std::optional<std::uint64_t> code = parseLocationCode(line->words[0]);
    if (!code) {
        std::cerr << "tavctl location: " << notALocationCode(line->words[0]) << '\n';
        return Misused;
    }
    if (printForms(*code) == Done) return Done;
    std::cerr << "tavctl location: " << line->words[0] << ' ' << whyNowhere(*code) << '\n';
    return Failed;
}

}  // namespace

const Command locationCommand{"location", "CODE", "tell where the component of a code sits", help,
                              run};

}  // namespace tav::ctl
