#include "sim/server/Changes.h"

#include <algorithm>
#include <array>
#include <sstream>
#include <vector>

#include "sim/rmc/Json.h"

namespace tav::sim {
namespace {

constexpr std::array identities = {"name", "address", "host", "id"};

bool isNamed(const Json::Value& entry, const std::string& key) {
    return std::any_of(identities.begin(), identities.end(), [&](const char* identity) {
        const Json::Value& value = member(entry, identity);
        return (value.isString() || value.isIntegral()) && value.asString() == key;
    });
}

Json::Value* findEntry(Json::Value& list, const std::string& key) {
    if (!list.isArray()) return nullptr;
    for (Json::Value& entry : list) {
        if (isNamed(entry, key)) return &entry;
    }
    return nullptr;
}

/// Digits become a number, what is in brackets a list; all else is text.
Json::Value valueOf(const std::string& text) {
    std::string fault;
    if (text.starts_with('[')) return parseJson(text, fault).value_or(text);
    const bool isNumber = !text.empty() && text.size() < 19 &&
                          text.find_first_not_of("0123456789") == std::string::npos;
    return isNumber ? Json::Value(Json::Int64(std::stoll(text))) : Json::Value(text);
}

bool assign(Json::Value& entry, std::span<const std::string> assignments, std::string& fault) {
    for (const std::string& assignment : assignments) {
        const std::size_t equals = assignment.find('=');
        if (equals == std::string::npos || equals == 0) {
            fault = "not of the form member=value: " + assignment;
            return false;
        }
        entry[assignment.substr(0, equals)] = valueOf(assignment.substr(equals + 1));
    }
    return true;
}

}  // namespace

const Json::Value* changeEntry(Json::Value& server, const std::string& section,
                               const std::string& key, std::span<const std::string> assignments,
                               std::string& fault) {
    Json::Value* const entry = findEntry(server[section], key);
    if (entry == nullptr) {
        fault = "no \"" + key + "\" in \"" + section + '"';
        return nullptr;
    }
    return assign(*entry, assignments, fault) ? entry : nullptr;
}

const Json::Value* changeRaid(Json::Value& server, const std::string& order, std::string& fault) {
    std::istringstream words(order);
    std::string kind;
    std::string controllerId;
    std::string id;
    words >> kind >> controllerId;
    const bool isPart = kind == "drive" || kind == "volume";
    if (!isPart && kind != "controller") return &Json::Value::nullSingleton();
    if (isPart) words >> id;
    Json::Value* entry = findEntry(server["raid"]["controllers"], controllerId);
    if (entry != nullptr && isPart) entry = findEntry((*entry)[kind + 's'], id);
    if (entry == nullptr) {
        fault = "no such " + kind + ": " + order;
        return nullptr;
    }
    std::vector<std::string> assignments;
    for (std::string word; words >> word;)
        assignments.push_back(word);
    return assign(*entry, assignments, fault) ? entry : nullptr;
}

}  // namespace tav::sim
