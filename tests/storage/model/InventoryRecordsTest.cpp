#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <json/json.h>

#include "base/JsonText.h"
#include "storage/model/tavDiskInfo.h"
#include "storage/model/tavLogicalDiskInfo.h"
#include "storage/model/tavStorageControllerInfo.h"

namespace {

std::string compact(const Json::Value& value) {
    Json::StreamWriterBuilder builder;
    builder["indentation"] = "";
    return Json::writeString(builder, value);
}

tavDiskInfo sampleDisk() {
    tavDiskInfo disk;
    disk.setSerialNumber("9XG3EKS5");
    disk.setPartNumber("P1");
    disk.setModel("ST91000640NS");
    disk.setCapacityBytes(18'446'744'073'709'551'615U);
    disk.setProtocol("SATA");
    disk.setMediaType("HDD");
    disk.setRevision("SN03");
    disk.setSlot(2);
    disk.setPhysicalLocation("FF00020106FFFF86");
    disk.setState(TAV_STATE_PREDICTIVE_FAILURE);
    disk.setHealth(TAV_HEALTH_WARNING);
    disk.setEventState(TAV_STATE_FAILED);
    disk.setSASStatus(SAS_STATUS_DEGRADED);
    disk.setATAPort(5);
    disk.setEventInfoString("why");
    return disk;
}

tavLogicalDiskInfo sampleVolume() {
    tavLogicalDiskInfo volume;
    volume.setDurableName("600605B0");
    volume.setRAIDLevel("RAID1");
    volume.setCapacityBytes(5'000'000'000);
    volume.setDeviceName("/dev/sde");
    volume.setEventInfoString("Injected Event");
    return volume;
}

constexpr const char* sampleDrive =
    R"("CapacityBytes":18446744073709551615,"MediaType":"HDD","Model":"ST91000640NS",)"
    R"("Oem":{"PhysicalLocation":"FF00020106FFFF86","Slot":2},"PartNumber":"P1",)"
    R"("Protocol":"SATA","Revision":"SN03","SerialNumber":"9XG3EKS5")";

TEST(InventoryRecords, RenderExactlyTheirKeys) {
    tavStorageControllerInfo controller;
    controller.setModel("M");
    controller.setSerialNumber("S");
    controller.setFirmwareVersion("5.0.0.1139");
    controller.setProtocol("SAS/SATA");
    controller.setPhysicalLocation("0003000106010005");
    controller.setDescription("PCI 0000:00:17.0 r001i01s00");
    controller.setEventInfoString("E");
    EXPECT_EQ(compact(controller.getVariableData()),
              R"({"Data":{"FirmwareVersion":"5.0.0.1139","Model":"M",)"
              R"("Oem":{"Description":"PCI 0000:00:17.0 r001i01s00",)"
              R"("PhysicalLocation":"0003000106010005"},)"
              R"("Protocol":"SAS/SATA","SerialNumber":"S"},"EventInfo":"E","Type":"Controller"})");
    EXPECT_EQ(compact(controller.tavIOControllerPhyLoc::getVariableData()),
              R"({"PhysicalLocation":"0003000106010005"})");
    EXPECT_TRUE(tavStorageControllerPortInfo().getVariableData().isNull());

    const tavDiskInfo disk = sampleDisk();
    EXPECT_EQ(compact(disk.getVariableData()),
              std::string(R"({"Data":{)") + sampleDrive + R"(},"EventInfo":"why","Type":"Drive"})");
    EXPECT_EQ(compact(disk.tavDiskStatusInfo::getVariableData()),
              R"({"Health":"Warning","State":"Predictive failure"})");
    EXPECT_EQ(compact(disk.tavDiskPhyLoc::getVariableData()),
              R"({"PhysicalLocation":"FF00020106FFFF86","Slot":2})");

    const std::string ofVolume = R"("Oem":{"DeviceName":"/dev/sde"},"VolumeType":"RAID1"},)"
                                 R"("EventInfo":"Injected Event","Type":"Volume"})";
    const std::string beforeDrives = R"({"Data":{"CapacityBytes":5000000000,)";
    const std::string name = R"("DurableName":"600605B0",)";
    tavLogicalDiskInfo volume = sampleVolume();
    EXPECT_EQ(compact(volume.getVariableData()), beforeDrives + name + ofVolume);
    volume.addPhysicalDisk("A");
    volume.addPhysicalDisk("B");
    EXPECT_EQ(compact(volume.getVariableData()),
              R"({"Data":{"CapacityBytes":5000000000,"Drives":["A","B"],)" + name + ofVolume);

    EXPECT_EQ(compact(tavLogicalDiskExtInfo(volume, {}).getVariableData()),
              beforeDrives + name + ofVolume);
    EXPECT_EQ(compact(tavLogicalDiskExtInfo(volume, {disk, disk}).getVariableData()),
              R"({"Data":{"CapacityBytes":5000000000,"Drives":[{)" + std::string(sampleDrive) +
                  "},{" + sampleDrive + "}]," + name + ofVolume);
}

TEST(InventoryRecords, ConditionsHaveTheirTexts) {
    tavStatusInfo status;
    const auto texts = [&](unsigned state, unsigned health) {
        status.setState(static_cast<TAV_RESOURCE_STATE>(state));
        status.setHealth(static_cast<TAV_RESOURCE_HEALTH>(health));
        return compact(status.getVariableData());
    };
    EXPECT_EQ(texts(15, 2), R"({"Health":"OK","State":"Online"})");
    EXPECT_EQ(texts(14, 1), R"({"Health":"Critical","State":"Offline"})");
    EXPECT_EQ(texts(24, 3), R"({"Health":"Warning","State":"Unconfigured bad"})");
    EXPECT_EQ(texts(23, 0), R"({"Health":"Unknown","State":"Running"})");
    EXPECT_EQ(texts(25, 4), R"({"Health":"Unknown","State":"Unknown"})");
    EXPECT_EQ(texts(255, 255), R"({"Health":"Unknown","State":"Unknown"})");
}

TEST(InventoryRecords, ACopyHasAllPartsOfItsOriginal) {
    const tavDiskInfo original = sampleDisk();
    std::vector<tavDiskInfo> disks(2);
    disks[1] = original;
    disks.insert(disks.begin(), original);
    for (const tavDiskInfo* const copy : {&disks[0], &disks[2]}) {
        EXPECT_EQ(copy->getVariableData(), original.getVariableData());
        EXPECT_EQ(copy->getState(), TAV_STATE_PREDICTIVE_FAILURE);
        EXPECT_EQ(copy->getEventState(), TAV_STATE_FAILED);
        EXPECT_EQ(copy->getSASStatus(), SAS_STATUS_DEGRADED);
        EXPECT_EQ(copy->getATAPort(), 5);
    }
    EXPECT_EQ(disks[1].getSlot(), -1) << "nothing known is not slot 0";
    const std::unique_ptr<tavInventoryBase> base = std::make_unique<tavDiskInfo>(original);
    EXPECT_EQ(base->getVariableData(), original.getVariableData());
}

TEST(InventoryRecords, ListsCloseTheGapWhenAnElementGoes) {
    tavStorageControllerInfo controller;
    tavStorageControllerPortInfo port;
    for (const char* const name : {"host0", "host1", "host2"}) {
        port.setOSInstanceName(name);
        controller.addControllerPort(port);
    }
    controller.deleteControllerPort(0);
    ASSERT_EQ(controller.getControllerPortListSize(), 2U);
    EXPECT_EQ(controller.getControllerPort(0).getOSInstanceName(), "host1");
    EXPECT_EQ(controller.getControllerPort(1).getOSInstanceName(), "host2");
    controller.getControllerPortVector().clear();
    port.setLastRecoveryTimestamp(60);
    controller.setControllerPort(1, port);
    EXPECT_EQ(controller.getControllerPortVector().at(1).getLastRecoveryTimestamp(), 60);
    controller.clearControllerPortList();
    EXPECT_EQ(controller.getControllerPortListSize(), 0U);

    tavLogicalDiskInfo volume;
    for (const char* const name : {"a", "b", "c"})
        volume.addPhysicalDisk(name);
    volume.deletePhysicalDisk(1);
    volume.setPhysicalDisk(0, "z");
    EXPECT_EQ(volume.getPhysicalDiskVector(), (std::vector<std::string>{"z", "c"}));
}

TEST(InventoryRecords, AnyBytesFromADeviceGiveValidJson) {
    struct Case {
        std::string bytes, shown;
    };
    const std::string bad = "\uFFFD";
    const std::vector<Case> cases{
        {"plain \"quoted\" \\ \n\x01", "plain \"quoted\" \\ \n\x01"},
        {std::string("A\0B", 3), std::string("A\0B", 3)},
        {"\u00E9\u20AC\U0001F600\U0010FFFF", "\u00E9\u20AC\U0001F600\U0010FFFF"},
        {"\x80X", bad + "X"},
        {"\xC3\"", bad + "\""},
        {"\xC3", bad},
        {"\xE2\x82", bad + bad},
        {"\xC0\xAF", bad + bad},
        {"\xE0\x80\xAF", bad + bad + bad},
        {"\xED\xA0\x80", bad + bad + bad},
        {"\xF4\x90\x80\x80", bad + bad + bad + bad},
        {"\xF0\x9F\x98", bad + bad + bad},
        {"\xFF\xFE", bad + bad},
    };
    for (const Case& given : cases) {
        EXPECT_EQ(tav::jsonText(given.bytes).asString(), given.shown);
    }

    std::string everyByte;
    for (int byte = 0; byte < 256; ++byte)
        everyByte += static_cast<char>(byte);
    tavDiskInfo disk = sampleDisk();
    disk.setSerialNumber(everyByte);
    disk.setEventInfoString(everyByte);
    tavLogicalDiskInfo volume = sampleVolume();
    volume.addPhysicalDisk(everyByte);
    volume.setDeviceName(everyByte);
    tavStorageControllerInfo controller;
    controller.setDescription(everyByte);
    for (const Json::Value& record :
         {disk.getVariableData(), volume.getVariableData(), controller.getVariableData(),
          tavLogicalDiskExtInfo(volume, {disk}).getVariableData()}) {
        Json::StreamWriterBuilder builder;
        builder["emitUTF8"] = true;
        Json::Value parsed;
        ASSERT_TRUE(Json::Reader().parse(Json::writeString(builder, record), parsed));
        EXPECT_EQ(parsed, record);
        ASSERT_TRUE(Json::Reader().parse(compact(record), parsed));
        EXPECT_EQ(parsed, record);
    }
}

}  // namespace
