#include "storage/model/sample_records.h"

#include <algorithm>
#include <array>

#include "storage/model/tavDiskInfo.h"
#include "storage/model/tavLogicalDiskInfo.h"
#include "storage/model/tavStorageControllerInfo.h"

namespace tav {
namespace {

using Record = std::unique_ptr<tavInventoryBase>;

constexpr const char* injected = "Injected Event";
constexpr const char* notAvailable = "NotAvailable";

Record sampleController(const std::string& location) {
    auto controller = std::make_unique<tavStorageControllerInfo>();
    controller->setModel("Intel C600/X79 series chipset SATA RAID Controller");
    controller->setSerialNumber(notAvailable);
    controller->setFirmwareVersion("5.0.0.1139");
    controller->setProtocol("SAS/SATA");
    controller->setPhysicalLocation(location);
    controller->setDescription("PCI 0000:00:17.0 r001i01s00");
    controller->setEventInfoString(injected);
    return controller;
}

Record sampleDisk(const std::string& /*location*/) {
    auto disk = std::make_unique<tavDiskInfo>();
    disk->setModel("ST91000640NS");
    disk->setSerialNumber("9XG3EKS5");
    disk->setPartNumber(notAvailable);
    disk->setRevision("SN03");
    disk->setProtocol(notAvailable);
    disk->setMediaType("HDD");
    disk->setPhysicalLocation(notAvailable);
    disk->setEventInfoString(injected);
    return disk;
}

Record sampleVolume(const std::string& /*location*/) {
    auto volume = std::make_unique<tavLogicalDiskInfo>();
    volume->setDurableName("600605B00C70BA40220AE7772BABEEB3");
    volume->setDeviceName("/dev/sde");
    volume->setRAIDLevel("RAID1");
    volume->setEventInfoString(injected);
    return volume;
}

struct Sample {
    int eventID;
    Record (*make)(const std::string& location);
};
constexpr std::array samples = {
    Sample{397, sampleController}, Sample{398, sampleController}, Sample{538, sampleDisk},
    Sample{539, sampleDisk},       Sample{540, sampleDisk},       Sample{681, sampleVolume},
    Sample{683, sampleVolume},
};

}  // namespace

Record sampleRecord(int eventID, const std::string& location) {
    const auto* const sample =
        std::find_if(samples.begin(), samples.end(),
                     [&](const Sample& candidate) { return candidate.eventID == eventID; });
    return sample == samples.end() ? nullptr : sample->make(location);
}

}  // namespace tav
