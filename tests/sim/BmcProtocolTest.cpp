#include <gmock/gmock.h>

#include "sim/rmc/BmcProtocol.h"

namespace {

using tav::sim::BmcReader;
using tav::sim::Bytes;
using testing::ElementsAre;

TEST(BmcProtocol, EscapesItsMarksAndSumsToZero) {
    EXPECT_THAT(tav::sim::encode(tav::sim::BmcRequest{0xA0, 0x3A, 0, 0x80, {0xA1, 0xAA, 0x01}}),
                ElementsAre(0xAA, 0xB0, 0xE8, 0x80, 0xAA, 0xB1, 0xAA, 0xBA, 0x01, 0xAC, 0xA0));
    EXPECT_THAT(tav::sim::encode(tav::sim::BmcAnswer{0x01, 0x07, 0, 0x99, 0xC1, {}}),
                ElementsAre(0x01, 0x1C, 0x99, 0xC1, 0x89, 0xA0));
    EXPECT_THAT(tav::sim::encode(tav::sim::BmcControl::InterruptOn), ElementsAre(0x05, 0xA1));
}

TEST(BmcProtocol, ReadsEveryByteValueHoweverItArrives) {
    tav::sim::BmcAnswer answer{3, 0x3B, 2, 0x81, 0, {}};
    for (unsigned byte = 0; byte < 256; ++byte) {
        answer.data.push_back(static_cast<std::uint8_t>(byte));
    }
    BmcReader reader;
    std::vector<tav::sim::BmcUnit> units;
    for (const std::uint8_t byte : tav::sim::encode(answer)) {
        for (auto& unit : reader.take({&byte, 1}))
            units.push_back(std::move(unit));
    }
    ASSERT_EQ(units.size(), 1u);
    const auto read = tav::sim::decodeAnswer(units[0]);
    ASSERT_TRUE(read);
    EXPECT_EQ(read->data, answer.data);
    EXPECT_EQ(read->lun, 2);
    units[0].bytes[1] ^= 1;
    EXPECT_FALSE(tav::sim::decodeAnswer(units[0])) << "a wrong checksum";
    EXPECT_FALSE(tav::sim::decodeAnswer({false, {1, 2, 0xFD, 0}}));
    EXPECT_FALSE(tav::sim::decodeRequest({false, {1, 2, 0xFD}}));
    EXPECT_FALSE(tav::sim::decodeRequest({true, {1, 2, 3, 0xFA}}));

    EXPECT_TRUE(reader.take(Bytes(5000, 7)).empty());
    EXPECT_TRUE(reader.take(Bytes{0xA0}).empty()) << "longer than any message";
    EXPECT_EQ(reader.take(Bytes{1, 0xA1, 2, 0xA0}).size(), 2u);
}

}  // namespace
