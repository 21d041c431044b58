#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "sim/replay/TarArchive.h"
#include "sim/replay/Unpacking.h"
#include "tests/support/Files.h"
#include "tools/capture/Archive.h"

namespace {

namespace fs = std::filesystem;
using tav::capture::Archive;
using tav::sim::unpackCapture;
using tav::test::readFile;
using testing::HasSubstr;

const fs::path root = "/tmp/unpacked";
constexpr const char* manifest = R"({"format": "tav-capture", "version": 1})";
constexpr std::size_t block = 512;

std::string whyRefused(const std::string& compressed) {
    try {
        unpackCapture(compressed, root);
    } catch (const std::exception& fault) {
        return fault.what();
    }
    return "taken";
}

using Fill = std::function<void(Archive&)>;

std::string captureWith(const Fill& fill, const char* begin = manifest) {
    Archive archive(0);
    archive.addFile("manifest.json", begin);
    fill(archive);
    return *archive.compressed();
}

/// A capture whose second member's header, and what is behind it, has been changed.
std::string spoilt(const std::function<void(std::string&)>& change) {
    Archive archive(0);
    archive.addFile("root/sys/file", "text");
    std::string member = tav::sim::inflated(*archive.compressed(), 1U << 20U).substr(0, 2 * block);
    change(member);
    std::string sums = member.substr(0, block).replace(148, 8, "        ");
    unsigned sum = 0;
    for (const char byte : sums)
        sum += static_cast<unsigned char>(byte);
    char digits[8];
    std::snprintf(digits, sizeof digits, "%06o", sum);
    if (member.size() >= block) member.replace(148, 7, digits, 7);
    Archive whole(0);
    whole.addFile("manifest.json", manifest);
    whole.addFile("recorded/spoilt", member);
    // The content of the last file becomes a member of its own.
    std::string bytes = tav::sim::inflated(*whole.compressed(), 1U << 20U);
    bytes.erase(2 * block, block);
    return bytes;
}

std::string whyNotRead(const std::string& archive) {
    try {
        tav::sim::readTar(archive);
    } catch (const std::exception& fault) {
        return fault.what();
    }
    return "taken";
}

TEST(Unpacking, PutsEverythingInItsPlace) {
    const std::string longName(150, 'n');
    const std::string captured = captureWith([&](Archive& archive) {
        archive.addDirectory("root/sys");
        archive.addDirectory("root/sys/class/fc_host");
        archive.addFile("root/sys/devices/pci0/" + longName + "/state", "running\n");
        archive.addFile("root/sys/devices/pci0/speed", "", 0);
        archive.addLink("root/sys/class/" + longName, "../devices/pci0/" + longName);
        archive.addFile("root/etc/config/orn/tav/tav.conf", "{}");
        archive.addFile("recorded/devices/sg0", "scsi 12 status=0");
        archive.addFile("logs/var/log/tav.log", "log");
    });
    unpackCapture(captured, root);
    EXPECT_EQ(readFile(root / "sys/class" / longName / "state"), "running\n");
    EXPECT_TRUE(fs::is_directory(root / "sys/class/fc_host"));
    EXPECT_FALSE(std::ifstream(root / "sys/devices/pci0/speed").is_open());
    EXPECT_TRUE(fs::is_symlink(root / "sys/devices/pci0/speed"));
    EXPECT_EQ(readFile(root / "etc/config/orn/tav/tav.conf"), "{}");
    EXPECT_EQ(readFile(root / "run/sim/recorded/devices/sg0"), "scsi 12 status=0");
    EXPECT_EQ(readFile(root / "run/sim/recorded/manifest.json"), manifest);
    EXPECT_FALSE(fs::exists(root / "var/log/tav.log"));
}

TEST(Unpacking, WritesNothingOfWhatIsNoCapture) {
    const auto withFile = [](const std::string& path) {
        return captureWith([&](Archive& archive) { archive.addFile(path, "x"); });
    };
    const auto withLink = [](const std::string& path, const std::string& target) {
        return captureWith([&](Archive& archive) { archive.addLink(path, target); });
    };
    const std::string good = withFile("root/sys/file");
    struct Case {
        std::string capture;
        const char* why;
    };
    const std::vector<Case> cases = {
        {"", "cut short"},
        {"neither compressed nor an archive", "no gzip file"},
        {good.substr(0, good.size() / 2), "cut short"},
        {*Archive(0).compressed(), "does not begin with a manifest"},
        {captureWith([](Archive&) {}, "{}"), "manifest says something else"},
        {captureWith([](Archive&) {}, "[[[["), "manifest says something else"},
        {captureWith([](Archive&) {}, R"({"format": "tav-capture", "version": 2})"), "version 2"},
        {captureWith([](Archive&) {}, R"({"format": "tav-capture"})"), "of version"},
        {withFile("../file"), "leads outside"},
        {withFile("/etc/passwd"), "leads outside"},
        {withFile("root/sys/../../file"), "leads outside"},
        {withFile("root//sys/file"), "leads outside"},
        {withFile("root/sys/" + std::string(2000, 'n')), "leads outside"},
        {withFile("root/etc/passwd"), "no capture has"},
        {withFile("root/run/sim/bin/localcli"), "no capture has"},
        {withFile("else"), "no capture has"},
        {withLink("root/sys/link", "/etc/passwd"), "leads outside"},
        {withLink("root/sys/link", "../../../etc/passwd"), "leads outside"},
        {withLink("root/sys/link", "a/../../../.."), "leads outside"},
        {withLink("root/sys/link", ""), "leads outside"},
        {withLink("recorded/link", "uname"), "no capture has"},
        {captureWith([](Archive& archive) {
             archive.addLink("root/sys/link", "../etc");
             archive.addFile("root/sys/link/passwd", "x");
         }),
         "leads through a link"},
        {captureWith([](Archive& archive) {
             archive.addFile("root/sys/a/b", "x");
             archive.addLink("root/sys/a", "../etc");
         }),
         "comes twice"},
        {captureWith([](Archive& archive) {
             archive.addFile("root/sys/a", "x");
             archive.addFile("root/sys/a", "y");
         }),
         "comes twice"},
    };
    for (const Case& refused : cases) {
        EXPECT_THAT(whyRefused(refused.capture), HasSubstr(refused.why));
        EXPECT_FALSE(fs::exists(root)) << refused.why;
    }
    EXPECT_THROW(tav::sim::inflated(good, block), std::runtime_error);
}

TEST(Unpacking, RefusesWhatNoArchiveHas) {
    EXPECT_EQ(whyNotRead(spoilt([](std::string&) {})), "taken");
    const auto with = [](std::size_t at, const std::string& bytes) {
        return spoilt([&](std::string& member) { member.replace(at, bytes.size(), bytes); });
    };
    struct Case {
        std::string archive;
        const char* why;
    };
    const std::vector<Case> cases = {
        {with(156, "1"), "no file, directory or symbolic link"},
        {with(156, "3"), "no file, directory or symbolic link"},
        {with(156, "L"), "no file, directory or symbolic link"},
        {with(156, "x"), "extended header that cannot be read"},
        {with(124, "77777777777"), "cut short"},
        {with(124, "-0000000001"), "number that is none"},
        {with(124, std::string("\x80\0\0\0\0\0\0\0\0\0\0\1", 12)), "number that is none"},
        {with(257, "tsu"), "no tar archive"},
        {with(0, "a\nb\x1B[2J/../c"), "a?b?[2J"},
        {with(156, "0").substr(0, 3 * block), "cut short"},
        {std::string(100, '\0'), "cut short"},
    };
    for (const Case& refused : cases)
        EXPECT_THAT(whyNotRead(refused.archive), HasSubstr(refused.why));
}

/// The firmware's tables stand in the captured host's memory where it has them.
TEST(Unpacking, MakesTheMemoryThatTheTablesStandIn) {
    std::string entryPoint("_SM_\0\x1F\x02\x08", 8);
    entryPoint.resize(31);
    entryPoint.replace(22, 8, std::string("\x05\0\0\x30\x12\0\x01\0", 8));
    unpackCapture(captureWith([&](Archive& archive) {
                      archive.addFile("root/sys/firmware/efi/systab", "SMBIOS=0x2000\n");
                      archive.addFile("recorded/smbios_entry_point", entryPoint);
                      archive.addFile("recorded/DMI", "table");
                  }),
                  root);
    const std::string memory = readFile(root / "run/sim/recorded/memory");
    ASSERT_GE(memory.size(), 0x123005U);
    EXPECT_EQ(memory.substr(0x2000, 31), entryPoint);
    EXPECT_EQ(memory.substr(0x123000, 5), "table");
}

}  // namespace
