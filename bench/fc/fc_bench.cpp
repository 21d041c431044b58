// What building the inventory of many Fibre Channel ports costs, beside the same reads of the same
// files. Run it in a private root without the live /sys (see main).

#include <array>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "base/DirectoryListing.h"
#include "bench/Measure.h"
#include "fc/FCResourceManager.h"

namespace {

namespace fs = std::filesystem;

constexpr int portCount = 64;
constexpr int rounds = 40;

void write(const fs::path& path, const std::string& text) {
    fs::create_directories(path.parent_path());
    std::ofstream(path) << text << '\n';
}

void makePort(int number) {
    const std::string name = "host" + std::to_string(number);
    const std::string function =
        "/sys/devices/pci0000:80/0000:86:" + std::to_string(10 + number / 8) + '.' +
        std::to_string(number % 8);
    const std::string host = function + '/' + name;
    write(function + "/subsystem_vendor", "0x10df");
    write(function + "/subsystem_device", "0xe300");
    write(host + "/scsi_host/" + name + "/serialnum", "FC90000001");
    write(host + "/scsi_host/" + name + "/fw_version", "14.0.499.29");
    write(host + "/scsi_host/" + name + "/option_rom_version", "14.0.499.0");
    write(host + "/fc_host/" + name + "/node_name",
          "0x20000010" + std::to_string(10000000 + number));
    write(host + "/fc_host/" + name + "/port_name",
          "0x10000010" + std::to_string(10000000 + number));
    write(host + "/fc_host/" + name + "/port_state", "Online");
    fs::create_symlink(host, host + "/scsi_host/" + name + "/device");
    for (const std::string type : {"scsi_host", "fc_host"}) {
        fs::create_directories("/sys/class/" + type);
        fs::create_symlink(host + '/' + type + '/' + name, "/sys/class/" + type + '/' + name);
    }
}

void readLink(const std::string& path) {
    std::array<char, 4096> target;
    if (::readlink(path.c_str(), target.data(), target.size()) < 0) ::_exit(2);
}

void readFile(const std::string& path) {
    std::array<char, 4096> text;
    const int file = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (file < 0 || ::read(file, text.data(), text.size()) <= 0) ::_exit(2);
    ::close(file);
}

struct PortPaths {
    std::vector<std::string> links;
    std::vector<std::string> files;
    std::string entry;
};

/// The reads of a build and nothing else: the two listings, then per port two looks at its link,
/// its eight attributes, and the look whether it is still there.
class Floor {
 public:
    Floor() {
        for (int number = 0; number < portCount; ++number) {
            const std::string scsi = "/sys/class/scsi_host/host" + std::to_string(number);
            const std::string fc = "/sys/class/fc_host/host" + std::to_string(number);
            ports_.push_back(
                {{scsi, scsi},
                 {scsi + "/serialnum", scsi + "/fw_version", scsi + "/option_rom_version",
                  scsi + "/device/../subsystem_device", scsi + "/device/../subsystem_vendor",
                  fc + "/node_name", fc + "/port_name", fc + "/port_state"},
                 fc});
        }
    }

    void operator()() const {
        for (const char* directory : {"/sys/class/fc_host/", "/sys/class/scsi_host/"})
            tav::forEachEntry(directory, 0, [](const tav::DirectoryEntry&) {});
        for (const PortPaths& port : ports_) {
            for (const std::string& link : port.links)
                readLink(link);
            for (const std::string& file : port.files)
                readFile(file);
            if (::access(port.entry.c_str(), F_OK) != 0) ::_exit(2);
        }
    }

 private:
    std::vector<PortPaths> ports_;
};

}  // namespace

int main() {
    if (fs::exists("/sys/class")) {
        std::puts("needs a private root with an empty /sys: sim/enter PROGRAM");
        return 0;
    }
    for (int number = 0; number < portCount; ++number)
        makePort(number);
    FCResourceManager* const manager = FCResourceManager::getInstance();
    manager->cacheBuild();
    if (manager->getFCInventory().size() != portCount) return 2;

    bench::Report report;
    const Floor floor;
    const bench::Pair least = bench::leastOf(
        rounds, [&] { return bench::secondsPerCall(10, [&] { manager->cacheBuild(); }); },
        [&] { return bench::secondsPerCall(10, floor); });
    report.ratio("a build of 64 Fibre Channel ports", "the same reads", least, 1.4);
    return report.exitStatus();
}
