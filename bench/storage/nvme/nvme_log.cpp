/// Reads one controller's SMART / health information log as the service does, prints it and ends:
/// what is measured beside `nvme smart-log`, in a virtual machine that has a controller.
#include <cstdio>
#include <string>

#include "storage/nvme/nvme_device.h"
#include "storage/nvme/nvme_replies.h"

int main(int argc, char** argv) {
    if (argc != 2) return 2;
    const std::string name = argv[1];
    tav::nvme::Completion completion;
    const tav::FileDescriptor controller = tav::nvme::openController(name, completion);
    tav::nvme::HealthLogData data{};
    if (controller.isOpen()) completion = tav::nvme::readHealthLog(controller.get(), data);
    const auto log = tav::nvme::healthLog(data);
    if (completion.outcome != tav::nvme::Outcome::Answered || !log) {
        std::fprintf(stderr, "%s: %s\n", name.c_str(), tav::nvme::textOf(completion).c_str());
        return 1;
    }
    std::printf(
        "critical warning 0x%02x\ntemperature %d K\navailable spare %d %%\nthreshold %d %%\n"
        "percentage used %d %%\n",
        log->warnings, log->kelvins, log->spare, log->spareThreshold, log->used);
    return 0;
}
