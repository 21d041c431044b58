#include "tools/CommandLine.h"

#include <algorithm>
#include <iostream>

namespace tav::ctl {
namespace {

std::nullopt_t refuse(std::string_view command, std::string_view option, std::string_view why) {
    std::cerr << "tavctl " << command << ": option '" << option << "' " << why << "; see tavctl "
              << command << " --help\n";
    return std::nullopt;
}

}  // namespace

std::optional<CommandLine> sortArguments(std::string_view command, Arguments arguments,
                                         const std::vector<std::string_view>& names,
                                         const std::vector<std::string_view>& flags) {
    CommandLine line;
    bool onlyWords = false;
    for (std::size_t i = 0; i < arguments.size(); ++i) {
        const std::string_view argument = arguments[i];
        if (onlyWords || argument.size() < 2 || argument[0] != '-') {
            line.words.emplace_back(argument);
            continue;
        }
        onlyWords = argument == "--";
        if (onlyWords) continue;
        const std::size_t equals = argument.find('=');
        const std::string_view name = argument.substr(0, equals);
        const bool isInside = equals != std::string_view::npos;
        if (std::find(flags.begin(), flags.end(), name) != flags.end()) {
            if (isInside) return refuse(command, name, "takes no value");
            line.options[std::string(name)];
            continue;
        }
        if (std::find(names.begin(), names.end(), name) == names.end()) {
            return refuse(command, name, "is unknown");
        }
        if (!isInside && i + 1 == arguments.size()) {
            return refuse(command, name, "needs a value");
        }
        line.options[std::string(name)] = isInside ? argument.substr(equals + 1) : arguments[++i];
    }
    return line;
}

}  // namespace tav::ctl
