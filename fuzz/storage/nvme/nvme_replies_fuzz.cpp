/// Any bytes as what a controller answers to any question, and as a name in its directory. A value
/// has to be within its range, a text within its field, and every judgement has a reason.
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "storage/nvme/nvme_conditions.h"
#include "storage/nvme/nvme_device.h"
#include "storage/nvme/nvme_replies.h"
#include "storage/nvme/nvme_sysfs.h"

namespace {

using namespace tav::nvme;

void require(bool condition) {
    if (!condition) std::abort();
}

bool isThreshold(int kelvins) {
    return kelvins == 0 || (kelvins > 273 && kelvins < 0xFFFF);
}

bool isPercentage(int value) {
    return value >= -1 && value <= 100;
}

void checkIdentity(Bytes reply) {
    const auto identity = controllerIdentity(reply);
    if (!identity) return;
    require(reply.size() >= 4096);
    require(identity->serialNumber.size() <= 20 && identity->model.size() <= 40 &&
            identity->firmwareRevision.size() <= 8);
    require(isThreshold(identity->warningKelvins) && isThreshold(identity->criticalKelvins));
}

void checkHealth(Bytes reply) {
    const auto log = healthLog(reply);
    if (!log) return;
    require(reply.size() >= 512);
    require(log->warnings < 0x40 && isPercentage(log->spare) && isPercentage(log->spareThreshold));
    require(log->used >= 0 && log->used <= 255);
    require(log->kelvins == -1 || (log->kelvins > 0 && log->kelvins < 0xFFFF));
    for (const int threshold : {0, 300, 0xFFFE}) {
        const tav::DiskJudgement judgement = judgeDrive({*log, threshold, threshold});
        require((judgement.condition == tav::running) == judgement.eventInfo.empty());
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const Bytes reply = std::as_bytes(std::span(data, size));
    checkIdentity(reply);
    checkHealth(reply);
    if (const auto bytes = namespaceBytes(reply))
        require(reply.size() >= 4096 && *bytes % 512 == 0);
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    if (const auto name = parseNamespaceName(text)) {
        require(name->blockDevice.size() <= size && name->blockDevice.starts_with("nvme"));
        require(name->isPath || name->blockDevice.size() > 5);
    }
    require(hostState(controllerState(std::string(text))) != nullptr);
    if (size >= 4) {
        int result = 0;
        __builtin_memcpy(&result, data, sizeof result);
        const Completion completion = completionOf(result, result & 0xFF);
        require((completion.outcome == Outcome::Answered) == (result == 0));
        require(!textOf(completion).empty());
    }
    return 0;
}
