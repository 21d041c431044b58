#pragma once

#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "tools/Command.h"

namespace tav::ctl {

/// A subcommand's arguments, told apart: options may stand before, between and behind the words.
struct CommandLine {
    std::vector<std::string> words;
    std::map<std::string, std::string, std::less<>> options;  ///< "--name" and its value, if any
};

/// Sorts the arguments of `command`, whose options with a value ("--name VALUE" or "--name=VALUE")
/// are `names`, and those without one `flags`; behind "--" there are only words. None when an
/// option is unknown, lacks its value or has one too many, which has been told on the standard
/// error then.
std::optional<CommandLine> sortArguments(std::string_view command, Arguments arguments,
                                         const std::vector<std::string_view>& names = {},
                                         const std::vector<std::string_view>& flags = {});

}  // namespace tav::ctl
