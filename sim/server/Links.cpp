#include "sim/server/Links.h"

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <stdexcept>
#include <string>

#include "sim/rmc/Json.h"

namespace tav::sim {
namespace {

/// A word of the description that goes into a command: letters, digits, ':' and '.' alone.
std::string word(const Json::Value& object, const char* name) {
    const Json::Value& value = member(object, name);
    std::string text = value.isString() ? value.asString() : "";
    const bool plain = !text.empty() && std::all_of(text.begin(), text.end(), [](unsigned char c) {
        return std::isalnum(c) != 0 || c == ':' || c == '.';
    });
    if (!plain)
        throw std::runtime_error("an adapter without a usable \"" + std::string(name) + '"');
    return text;
}

void ip(const std::string& arguments) {
    const std::string command = "ip " + arguments;
    if (std::system(command.c_str()) != 0) throw std::runtime_error("failed: " + command);
}

}  // namespace

void setLink(const Json::Value& adapter) {
    ip("link set " + word(adapter, "name") + ' ' + word(adapter, "link"));
}

void makeLinks(const Json::Value& adapters) {
    for (const Json::Value& adapter : adapters) {
        const std::string name = word(adapter, "name");
        const std::string cable = name + ".c";
        const std::string address = " address " + word(adapter, "mac");
        ip(std::string("link add ").append(name).append(address).append(" type veth peer name ") +
           cable);
        ip("link set " + cable + " up");
        setLink(adapter);
    }
}

}  // namespace tav::sim
