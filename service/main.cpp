#include <cerrno>
#include <cstring>
#include <iostream>

#include <signal.h>

#include "base/StandardStreams.h"
#include "core/tavConfig.h"
#include "service/CheckConfig.h"
#include "service/Options.h"
#include "service/Service.h"
#include "storage/kernel/tavNVMeControllerFactory.h"
#include "storage/kernel/tavStorageControllerFactory.h"

namespace {

struct sigaction hangUpBefore;

/// A reload may be asked for before the service has come to its own handler, and while the
/// libraries are still being initialised; it must not end it. There is nothing to reload yet.
void ignoreHangUp(int /*argc*/, char** /*argv*/, char** /*environment*/) {
    struct sigaction ignore {};
    ignore.sa_handler = SIG_IGN;
    ::sigaction(SIGHUP, &ignore, &hangUpBefore);
}
[[gnu::section(".preinit_array"), gnu::used]] void (*const beforeAllElse)(int, char**,
                                                                          char**) = ignoreHangUp;

int run(const tavd::Options& options) {
    if (options.task != tavd::Task::Serve) ::sigaction(SIGHUP, &hangUpBefore, nullptr);
    // Before any thread runs: the list of factories has no lock.
    if (options.genericStorage) {
        tav::registerGenericStorageFactory(*options.genericStorage);
        if (tavConfig::getInstance()->isResourceNamed(NVME_CONTROLLERS)) tav::registerNVMeFactory();
    }
    switch (options.task) {
        case tavd::Task::Help:
            std::cout << tavd::helpText;
            return 0;
        case tavd::Task::Version:
            std::cout << "tavd " TAV_VERSION "\n";
            return 0;
        case tavd::Task::CheckConfig:
            return tavd::checkConfiguration(options.file, std::cout) ? 0 : 3;
        case tavd::Task::Print:
            return tavd::printInventory();
        case tavd::Task::Refuse:
            return 2;
        case tavd::Task::Serve:
            return tavd::serve(options.fibreChannel, options.metricsFile);
    }
    return 2;
}

}  // namespace

int main(int argc, char** argv) {
    tav::secureStandardStreams();
    const int status = run(tavd::parseOptions(argc, argv));
    if (std::cout.flush()) return status;
    std::cerr << "tavd: cannot write the result: " << std::strerror(errno) << '\n';
    return status == 0 ? 1 : status;
}
