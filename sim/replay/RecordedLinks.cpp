#include "sim/replay/RecordedLinks.h"

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <stdexcept>
#include <string>

#include <arpa/inet.h>

#include "sim/rmc/Json.h"

namespace tav::sim {
namespace {

/// A word of the recording that goes into a command.
std::string word(const Json::Value& object, const char* name, const char* characters) {
    std::string text = textOf(object, name);
    const bool isPlain = !text.empty() && text.size() < 64 && text[0] != '-' &&
                         text.find_first_not_of(characters) == std::string::npos;
    if (!isPlain) throw std::runtime_error("a link without a usable \"" + std::string(name) + '"');
    return text;
}

constexpr const char* nameCharacters =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789_.-";
constexpr const char* addressCharacters = "0123456789abcdefABCDEF:.";

void ip(const std::string& arguments) {
    const std::string command = "ip " + arguments;
    if (std::system(command.c_str()) != 0) throw std::runtime_error("failed: " + command);
}

/// One end of a pair, whose other end decides whether the link carries anything.
void makeLink(const Json::Value& link) {
    const std::string name = word(link, "name", nameCharacters);
    if (name == "lo") return;
    const std::string cable = "c" + std::to_string(numberOf(link, "index"));
    constexpr std::size_t macLength = 17;
    const std::string mac = textOf(link, "mac");
    const bool isEthernet = mac.size() == macLength;
    ip("link add " + name +
       (isEthernet ? " address " + word(link, "mac", addressCharacters) : std::string()) +
       " type veth peer name " + cable);
    if (textOf(link, "isRunning") == "true") ip("link set " + cable + " up");
    if (textOf(link, "isUp") == "true") ip("link set " + name + " up");
}

}  // namespace

void makeRecordedLinks(const Json::Value& recorded) {
    for (const Json::Value& link : member(recorded, "links"))
        makeLink(link);
    for (const Json::Value& address : member(recorded, "addresses")) {
        const std::string name = word(address, "link", nameCharacters);
        if (name == "lo") continue;
        ip("addr add " + word(address, "address", addressCharacters) + '/' +
           word(address, "prefix", "0123456789") + " dev " + name);
    }
}

}  // namespace tav::sim
