/// Any bytes as the answer to any query. A value has to be within its range, and a text or page
/// within the bytes.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "storage/scsi/scsi_info.h"
#include "storage/scsi/scsi_replies.h"

namespace {

using namespace tav::scsi;

void require(bool condition) {
    if (!condition) std::abort();
}

void requireWithin(std::optional<std::int64_t> value, std::int64_t highest) {
    if (value) require(*value >= 0 && *value <= highest);
}

void checkTemperature(std::optional<int> value) {
    if (value) require(*value >= -128 && *value <= 127);
}

void checkText(std::optional<std::string_view> text, Bytes reply) {
    if (!text) return;
    require(text->size() <= reply.size());
    const std::string_view shorter = trimmed(*text);
    require(shorter.empty() || (shorter.front() != ' ' && shorter.back() != ' '));
}

/// A page as get_sas_temp() hands it out: exactly as long as it says.
void checkTemperaturePage(Bytes reply) {
    const auto size = temperaturePageSize(reply);
    if (!size || *size > reply.size()) return;
    const auto page = std::make_unique_for_overwrite<unsigned char[]>(*size);
    std::memcpy(page.get(), reply.data(), *size);
    requireWithin(sas_parse_current(page.get()), 255);
    requireWithin(sas_parse_mcot(page.get()), 255);
}

void checkIdentity(Bytes reply) {
    const auto identity = ataIdentity(reply);
    if (!identity) return;
    require(reply.size() >= 512);
    require(identity->serialNumber.size() <= 20 && identity->firmwareRevision.size() <= 8 &&
            identity->model.size() <= 40);
    for (const int word :
         {identity->capabilities, identity->majorVersion, identity->rotationRate}) {
        requireWithin(word, 0xFFFF);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    constexpr std::int64_t any = INT64_MAX;
    const Bytes reply = std::as_bytes(std::span(data, size));
    requireWithin(unitTemperature(reply), 254);
    requireWithin(informationalException(reply), 0xFFFF);
    requireWithin(solidStateMediaWear(reply), 255);
    requireWithin(backgroundScanHours(reply), 0xFFFFFFFF / 60);
    checkTemperature(ataCurrentTemperature(reply));
    checkTemperature(ataMaximumTemperature(reply));
    requireWithin(ataWear(reply), 255);
    requireWithin(ataPowerOnHours(reply), 0xFFFFFFFF);
    requireWithin(ataErrorCount(reply), 0xFFFF);
    requireWithin(protocolIdentifier(reply), 15);
    requireWithin(informationalExceptionsEnabled(reply), 1);
    requireWithin(geometryRotationRate(reply), 0xFFFF);
    requireWithin(mediumRotationRate(reply), 0xFFFF);
    requireWithin(inquiryDeviceType(reply), 31);
    requireWithin(blockCount10(reply), 0xFFFFFFFF);
    requireWithin(blockCount16(reply), any);
    requireWithin(defectListLength(reply), 0xFFFF);
    for (const auto& text : {unitSerialNumber(reply), inquirySerialNumber(reply),
                             inquiryVendor(reply), inquiryProduct(reply), inquiryRevision(reply)}) {
        checkText(text, reply);
    }
    if (const auto revision = ataFirmwareRevision(reply)) require(revision->size() <= 8);
    if (const auto name = durableName(reply)) require(name->size() <= 2 * reply.size());
    require(senseText(reply).size() <= 255);
    checkTemperaturePage(reply);
    checkIdentity(reply);
    requireWithin(senseKey(reply), 15);
    for (const std::uint8_t log : std::array<std::uint8_t, 4>{0, 3, 4, 255})
        require(!directoryLists(reply, log) || reply.size() >= 2U * log + 2U);
    require(!statisticsList(reply, 7) || reply.size() > 9);
    return 0;
}
