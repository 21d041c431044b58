/// What `tavctl show` of a thousand drives costs, beside jq that formats the same file. Needs a
/// root of its own, which it fills.
#include <string>

#include <json/value.h>

#include "base/JsonText.h"
#include "bench/Measure.h"
#include "rmc/StateFiles.h"
#include "tests/support/Files.h"

namespace {

constexpr int driveCount = 1000;
constexpr int rounds = 40;

Json::Value drive(int number) {
    Json::Value json;
    json["CapacityBytes"] = Json::UInt64{1'920'383'410'176};
    json["MediaType"] = number % 3 == 0 ? "HDD" : "SSD";
    json["Model"] = "MZILT1T9HBJR0D3";
    json["PartNumber"] = "MZILT1T9HBJR0D3";
    json["Protocol"] = "SAS";
    json["Revision"] = "GXA4";
    json["SerialNumber"] = "S6KXNE0" + std::to_string(100000 + number);
    json["Oem"]["PhysicalLocation"] = "FF00020106FFFF86";
    json["Oem"]["Slot"] = number;
    json["Status"]["Health"] = number % 50 == 0 ? "Critical" : "OK";
    json["Status"]["State"] = "Online";
    return json;
}

}  // namespace

int main() {
    Json::Value inventory;
    inventory["Built"]["StorageControllers"] = 1'795'509'233;
    for (int number = 0; number < driveCount; ++number)
        inventory["HostDataCollection"]["Drives"].append(drive(number));
    tav::test::writeFile(tav::inventoryFile, tav::compactJson(inventory));
    bench::Report report;
    for (const char* const form : {"", "--json"}) {
        std::vector<std::string> ours{TAVCTL, "show", "drives"};
        if (*form != '\0') ours.emplace_back(form);
        report.ratio(*form == '\0' ? "tavctl show drives, a thousand" : "the same with --json",
                     "jq . of the file",
                     bench::leastOf(
                         rounds, [&] { return bench::run(ours).cpu; },
                         [] {
                             return bench::run({"jq", ".", tav::inventoryFile}).cpu;
                         }),
                     1.0);
    }
    return report.exitStatus();
}
