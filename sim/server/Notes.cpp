#include "sim/server/Notes.h"

#include <array>
#include <fstream>

#include "sim/rmc/Json.h"
#include "sim/server/OrderClient.h"

namespace tav::sim {
namespace {

constexpr const char* controllerOrders = "/run/sim/common/orders";

/// Under which a part is reported, as far as it has one of these.
constexpr std::array identities = {"identifier", "wwpn", "serial", "name", "address"};

std::string identityOf(const Json::Value& entry) {
    for (const char* identity : identities) {
        std::string text = textOf(entry, identity);
        if (!text.empty()) return text;
    }
    return {};
}

Json::Value listOf(std::span<const std::string> texts) {
    Json::Value list(Json::arrayValue);
    for (const std::string& text : texts)
        list.append(text);
    return list;
}

void note(const Json::Value& line) {
    giveOrder(controllerOrders, "note=" + oneLine(line));
}

}  // namespace

void noteChange(const std::string& change, const Json::Value& entry) {
    Json::Value line;
    line["change"] = change;
    const std::string part = identityOf(entry);
    if (!part.empty()) line["part"] = part;
    note(line);
}

void noteWords(const std::string& words) {
    Json::Value line;
    line["told"] = words;
    note(line);
}

void keepVerdict(const std::string& recordPath, std::span<const std::string> expected,
                 std::span<const std::string> faults) {
    Json::Value line;
    line["verdict"] = faults.empty() ? "passed" : "failed";
    line["expected"] = listOf(expected);
    line["faults"] = listOf(faults);
    std::ofstream(recordPath, std::ios::app) << oneLine(line) << '\n';
}

}  // namespace tav::sim
