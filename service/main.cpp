#include <iostream>

#include "service/CheckConfig.h"
#include "service/Options.h"
#include "service/Service.h"
#include "storage/kernel/tavStorageControllerFactory.h"

int main(int argc, char** argv) {
    const tavd::Options options = tavd::parseOptions(argc, argv);
    // Before any thread runs: the list of factories has no lock.
    if (options.genericStorage) tav::registerGenericStorageFactory();
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
            return tavd::serve(options.fibreChannel);
    }
    return 2;
}
