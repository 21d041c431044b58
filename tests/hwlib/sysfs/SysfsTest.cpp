#include <cstdint>
#include <limits>
#include <string>

#include <unistd.h>

#include <gmock/gmock.h>
#include <sys/stat.h>

#include "hwlib/sysfs/SysFs.h"
#include "hwlib/sysfs/SysfsNumbers.h"
#include "hwlib/sysfs/sysfs_readers.h"
#include "tests/support/MadeUpSysfs.h"

namespace {

using namespace std::string_literals;
using tav::test::makeLink;
using tav::test::writeFile;
using testing::ElementsAre;
using testing::UnorderedElementsAre;

constexpr const char* file = "/sys/value";

TEST(SysfsReaders, TextIsTheFirstLineOfAtMostOnePage) {
    const struct {
        std::string content;
        const char* text;
    } cases[] = {
        {"512\nmore\n", "512"},
        {"512", "512"},
        {"", nullptr},
        {"\n512", ""},
        {"a\0b\n"s, "a"},
        {"\0b\n"s, nullptr},
        {std::string(5000, 'x'), nullptr},
    };
    for (const auto& [content, text] : cases) {
        writeFile(file, content);
        const tav::OwnedText read(get_sysfs_str(file));
        if (content.size() == 5000) {
            EXPECT_EQ(std::string(read.get()), content.substr(0, 4096));
        } else {
            EXPECT_STREQ(read.get(), text) << content;
        }
    }
}

TEST(SysfsReaders, BytesAreTheWholeFileOfAtMostOnePage) {
    std::size_t size = 77;
    writeFile(file, "");
    EXPECT_EQ(get_sysfs_buf(file, &size), nullptr);
    EXPECT_EQ(size, 77U);
    for (const std::string& content : {"a\0b\n"s, std::string(4096, '\n')}) {
        writeFile(file, content);
        const tav::OwnedBytes bytes(get_sysfs_buf(file, &size));
        ASSERT_NE(bytes, nullptr);
        EXPECT_EQ(std::string(bytes.get(), bytes.get() + size), content);
    }
}

TEST(SysfsReaders, WhatIsNoReadableFileFailsAtOnce) {
    ASSERT_EQ(::mkfifo("/sys/fifo", 0600), 0);
    for (const char* path : {"/sys/missing", "/sys", "/sys/fifo"}) {
        std::size_t size = 0;
        EXPECT_EQ(get_sysfs_str(path), nullptr) << path;
        EXPECT_EQ(get_sysfs_buf(path, &size), nullptr) << path;
        EXPECT_EQ(get_sysfs_int(path), -1) << path;
        EXPECT_EQ(get_sysfs_shex(path), 0xFFFF) << path;
        int number = 7;
        EXPECT_EQ(tav::_get_sysfs_numeric(path, tav::SysfsFormat::Decimal, &number), -1) << path;
        EXPECT_EQ(number, 7) << path;
    }
    writeFile(file, "letters");
    int number = 7;
    EXPECT_EQ(tav::_get_sysfs_numeric(file, tav::SysfsFormat::Decimal, &number), 0);
    EXPECT_EQ(number, -1) << "read, but no number";
}

TEST(SysfsReaders, NumbersThatDoNotFitAreNotReportedAsOthers) {
    constexpr auto none64 = std::numeric_limits<std::uint64_t>::max();
    struct Read {
        std::uint64_t llhex = none64;
        std::uint32_t lhex = 0xFFFFFFFF;
        std::uint16_t shex = 0xFFFF;
        std::uint8_t chex = 0xFF;
        std::uint32_t uint = 0xFFFFFFFF;
        std::uint64_t ullong = none64;
        std::int32_t sint = -1;
        std::int64_t llong = -1;
        bool operator==(const Read&) const = default;
    };
    const struct {
        const char* content;
        Read expected;
    } cases[] = {
        {"0x8086\n", {0x8086, 0x8086, 0x8086, 0xFF, 0, 0, 0, 0}},
        {" \t10 units", {0x10, 0x10, 0x10, 0x10, 10, 10, 10, 10}},
        {"letters", {}},
        {"", {}},
        {"\n10", {}},
        {"0x", {none64, 0xFFFFFFFF, 0xFFFF, 0xFF, 0, 0, 0, 0}},
        {"-7", {.sint = -7, .llong = -7}},
        {"+7", {7, 7, 7, 7, 7, 7, 7, 7}},
        {"-0", {0, 0, 0, 0, 0, 0, 0, 0}},
        {"2147483648",
         {.llhex = 0x2147483648, .uint = 2147483648U, .ullong = 2147483648U, .llong = 2147483648}},
        {"-2147483648", {.sint = -2147483647 - 1, .llong = -2147483648LL}},
        {"9223372036854775808", {.ullong = 9223372036854775808U}},
        {"-9223372036854775809", {}},
        {"18446744073709551616", {}},
        {"0x1ffffffff", {0x1FFFFFFFF, 0xFFFFFFFF, 0xFFFF, 0xFF, 0, 0, 0, 0}},
    };
    for (const auto& [content, expected] : cases) {
        writeFile(file, content);
        EXPECT_EQ(get_sysfs_ihex(file), get_sysfs_lhex(file));
        const Read read{get_sysfs_llhex(file), get_sysfs_lhex(file), get_sysfs_shex(file),
                        get_sysfs_chex(file),  get_sysfs_uint(file), get_sysfs_ullong(file),
                        get_sysfs_int(file),   get_sysfs_llong(file)};
        EXPECT_TRUE(read == expected) << content;
    }
}

class SysFsMirror : public testing::Test {
 protected:
    void SetUp() override {
        writeFile("/sys/devices/pci0000:00/0000:00:1f.2/class", "0x010400\n");
        writeFile("/sys/devices/pci0000:00/0000:00:1f.2/host3/port_state", "Online\n");
        writeFile("/sys/devices/pci0000:00/0000:00:1f.2/host4/port_state", "Linkdown \n\n");
        writeFile("/sys/devices/pci0000:00/0000:00:1f.2/text", "  a \t b\n\nc\n \n");
        makeLink("/sys/devices/pci0000:00/0000:00:1f.2/subsystem", "../../../bus/pci");
        makeLink("/sys/devices/pci0000:00/loop", ".");
        mirror.synchronize("/sys/devices/");
    }

    const std::string function = "/sys/devices/pci0000:00/0000:00:1f.2";
    SysFs mirror;
};

TEST_F(SysFsMirror, AnswersByPathNameAndValue) {
    EXPECT_EQ(mirror.getValue(function + "/class"), "0x010400");
    EXPECT_EQ(mirror.getValue(function + "/text"), "a b c");
    EXPECT_EQ(mirror.getValue(function + "/subsystem"), "../../../bus/pci");
    EXPECT_EQ(mirror.getValue(function), "");
    EXPECT_TRUE(mirror.existsPath("/sys/devices"));
    EXPECT_TRUE(mirror.existsPath(function + "/host3/"));
    for (const char* path : {"", "/", "/sys", "/sys/devices/pci0000:00/loop/loop",
                             "/sys/devices/pci0000:0", "/sys/devices/class", "class"})
        EXPECT_FALSE(mirror.existsPath(path)) << path;
    EXPECT_TRUE(mirror.existsDeviceClass(0x0104));
    EXPECT_FALSE(mirror.existsDeviceClass(0x0106));
    EXPECT_TRUE(mirror.exists("host4"));
    EXPECT_FALSE(mirror.exists("host"));
    EXPECT_FALSE(mirror.exists("port_state", "Offline"));
    EXPECT_THAT(mirror.getPaths("port_state", "Linkdown"),
                ElementsAre(function + "/host4/port_state"));
    std::list<std::string> names;
    EXPECT_TRUE(mirror.dirList(function, names));
    EXPECT_THAT(names, UnorderedElementsAre("class", "host3", "host4", "text", "subsystem"));
    EXPECT_FALSE(mirror.dirList(function + "/class", names));
    EXPECT_FALSE(mirror.dirList("/nowhere", names));
}

TEST_F(SysFsMirror, ReadsValuesWhenTheyAreAskedFor) {
    writeFile(function + "/host3/port_state", "Offline\n");
    EXPECT_EQ(mirror.getPaths("port_state", "Offline").size(), 1U);
    std::filesystem::remove_all(function + "/host3");
    EXPECT_EQ(mirror.getValue(function + "/host3/port_state"), "");
    EXPECT_TRUE(mirror.existsPath(function + "/host3/port_state"));
    mirror.synchronize("/sys/devices");
    EXPECT_FALSE(mirror.existsPath(function + "/host3/port_state"));
    mirror.deleteAll();
    EXPECT_FALSE(mirror.exists("class"));
    EXPECT_EQ(mirror.root(), nullptr);
}

TEST_F(SysFsMirror, KeepsOutOfWhatIsNotAPlainTree) {
    writeFile("/sys/kernel/debug/trap", "1");
    writeFile("/sys/kernel/debugging/fine", "1");
    ASSERT_EQ(::mkfifo("/sys/kernel/fifo", 0600), 0);
    mirror.synchronize("/sys/kernel");
    EXPECT_TRUE(mirror.existsPath("/sys/kernel/debug"));
    EXPECT_FALSE(mirror.exists("trap"));
    EXPECT_TRUE(mirror.exists("fine"));
    EXPECT_EQ(mirror.getValue("/sys/kernel/fifo"), "");
    mirror.synchronize("/sys/./kernel/debug/");
    EXPECT_FALSE(mirror.exists("trap"));
    mirror.synchronize("/sys/kernel/debugging/fine");
    EXPECT_EQ(mirror.root(), nullptr) << "a file is no tree";
    mirror.synchronize("/sys/devices/pci0000:00/loop");
    EXPECT_EQ(mirror.getValue("/sys/devices/pci0000:00/loop/0000:00:1f.2/class"), "0x010400")
        << "the root alone may be a link";
}

TEST_F(SysFsMirror, AnswersInTheWordsOfTheGivenPath) {
    writeFile("/sys/kernel/debug/trap", "1");
    makeLink("/sys/to-devices", "devices");
    makeLink("/sys/devices/here", "pci0000:00/0000:00:1f.2");
    const std::string below = "pci0000:00/0000:00:1f.2/class";
    ASSERT_EQ(::chdir("/sys/devices"), 0);
    const struct {
        std::string given, entry, alsoAskedFor;
    } cases[] = {
        {"/", "/sys/devices/" + below, "//sys/./devices/" + below},
        {"/sys", "/sys/devices/" + below, "/sys//devices/" + below},
        {"/sys/", "/sys/devices/" + below, "/./sys/devices/" + below},
        {"/sys//./devices/", "/sys//./devices/" + below, "/sys/devices/" + below + "/"},
        {"/sys/to-devices", "/sys/to-devices/" + below, "/sys/to-devices/./" + below},
        {"/sys/devices/here/../..", "/sys/devices/here/../../" + below,
         "/sys/devices/here//../../" + below},
        {".", "./" + below, below},
        {"pci0000:00", below, "./" + below},
        {"../devices", "../devices/" + below, ".././devices/" + below},
    };
    for (const auto& [given, entry, alsoAskedFor] : cases) {
        mirror.synchronize(given);
        ASSERT_NE(mirror.root(), nullptr) << given;
        EXPECT_TRUE(mirror.existsPath(given)) << given;
        const std::string rootPath = mirror.root()->getElement()->getPath();
        EXPECT_TRUE(rootPath == given || rootPath + '/' == given) << rootPath << " for " << given;
        EXPECT_THAT(mirror.getPaths("class", "0x010400"), ElementsAre(entry)) << given;
        EXPECT_EQ(mirror.getValue(entry), "0x010400") << given;
        EXPECT_EQ(mirror.getValue(alsoAskedFor), "0x010400") << given << " as " << alsoAskedFor;
    }
    EXPECT_FALSE(mirror.existsPath("/sys/devices/" + below)) << "not in the given words";
    mirror.synchronize(".");
    EXPECT_FALSE(mirror.existsPath("/" + below));
    mirror.synchronize("/sys");
    EXPECT_EQ(mirror.root()->getElement()->getName(), "sys");
    EXPECT_FALSE(mirror.existsPath("sys"));
    mirror.synchronize("");
    EXPECT_EQ(mirror.root(), nullptr);
}

TEST_F(SysFsMirror, EntersTheDebugFileSystemByNoOtherName) {
    writeFile("/sys/kernel/debug/deep/trap", "1");
    makeLink("/sys/devices/to-debug", "../kernel/debug");
    makeLink("/sys/devices/to-deep", "../kernel/debug/deep");
    makeLink("/sys/devices/to-kernel", "/sys/kernel");
    ASSERT_EQ(::chdir("/sys/kernel"), 0);
    for (const char* root :
         {"/", "/sys", "/sys/kernel", "/sys/devices/to-debug", "/sys/devices/to-deep",
          "/sys/devices/to-kernel", "debug", "debug/deep", ".", "..", "./debug",
          "/sys/../sys/kernel/debug/../debug"}) {
        mirror.synchronize(root);
        EXPECT_TRUE(mirror.existsPath(root)) << root;
        EXPECT_FALSE(mirror.exists("trap")) << root;
    }
}

TEST_F(SysFsMirror, MirrorsTreesOfAnyDepthAndSize) {
    std::string path = "/sys/deep";
    for (int level = 0; level < 150; ++level)
        path += "/" + std::to_string(level);
    writeFile(path + "/leaf", "here");
    for (int i = 0; i < 3000; ++i)
        writeFile("/sys/deep/wide/entry-" + std::to_string(i), std::to_string(i));
    mirror.synchronize("/sys/deep");
    EXPECT_EQ(mirror.getValue(path + "/leaf"), "here");
    for (int i = 0; i < 3000; ++i)
        ASSERT_EQ(mirror.getValue("/sys/deep/wide/entry-" + std::to_string(i)), std::to_string(i));
    EXPECT_EQ(mirror.getPaths("entry-2999", "2999").size(), 1U);
}

TEST_F(SysFsMirror, PrintsATreeAnEntryALine) {
    testing::internal::CaptureStdout();
    mirror.toCout(function + "/host3");
    mirror.toCout(function + "/subsystem");
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              function + "/host3\n" + function + "/host3/port_state = Online\n" + function +
                  "/subsystem -> ../../../bus/pci\n");
}

TEST_F(SysFsMirror, TellsPermissionsOfTheEntryItself) {
    ASSERT_EQ(::chmod((function + "/class").c_str(), 0640), 0);
    SysFsAttrib attribute(function, "class");
    EXPECT_EQ(attribute.getPermissions(), "");
    ASSERT_TRUE(attribute.loadStatData());
    EXPECT_EQ(attribute.getPermissions(), "rw-r-----");
    static_assert(!std::is_constructible_v<SysFsLink, std::string_view, std::string_view>);
    SysFsLink link(std::string("/sys/devices/pci0000:00"), std::string("loop"));
    ASSERT_TRUE(link.loadStatData());
    EXPECT_TRUE(S_ISLNK(link.getStat()->st_mode));
    EXPECT_FALSE(SysFsLink("/sys", "missing").loadStatData());
}

}  // namespace
