#include <string>

#include <gtest/gtest.h>

#include "host/HostMemory.h"

namespace {

TEST(HostMemory, IsFoundByTheNamesOfItsColumns) {
    const std::string names =
        "\"(PDH-CSV 4.0) (UTC)(0)\",\"\\\\h\\Group Cpu(1,a)\\% Used\",\"\\\\h\\Memory\\Free "
        "MBytes\","
        "\"\\\\h\\Memory\\Machine MBytes\",";
    const struct {
        const char* name;
        std::string sample;
        long total, free;
    } rows[] = {
        {"as printed", names + "\n\"11/22/2026\",\"1.5\",\"1024\",\"65536\",\n", 65536, 1024},
        {"no line end", names + "\n\"t\",\"1\",\"7\",\"9\"", 9, 7},
        {"a short row", names + "\n\"t\",\"1\",\"7\"\n", 0, 7},
        {"names alone", names, 0, 0},
        {"numbers without quotes", names + "\n\"t\",\"1\",7,9,\n", 0, 0},
        {"no numbers", names + "\n\"t\",\"1\",\"x\",\"\",\n", 0, 0},
        {"negative", names + "\n\"t\",\"1\",\"-7\",\"-9\",\n", 0, 0},
        {"too large", names + "\n\"t\",\"1\",\"99999999999999999999\",\"12.7\",\n", 12, 0},
        {"a quote that never ends", names + "\n\"t\",\"1,\"7\",\"9\",\n", 0, 0},
        {"nothing", "", 0, 0},
        {"binary", std::string("\0\xff,\n,\"1\"", 8), 0, 0}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        const tav::HostMemory memory = tav::parseMemorySample(row.sample);
        EXPECT_EQ(memory.totalMBytes, row.total);
        EXPECT_EQ(memory.freeMBytes, row.free);
    }
}

}  // namespace
