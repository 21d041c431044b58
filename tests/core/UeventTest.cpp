#include <string>

#include <gtest/gtest.h>

#include "core/Uevent.h"

namespace {

using namespace std::string_literals;

struct Row {
    const char* what;
    std::string message;
    const char* action;  ///< null where there is no event
    const char* path = "";
    const char* subsystem = "";
};

TEST(Uevent, IsReadAsTheKernelWritesIt) {
    const Row rows[] = {
        {"a disk",
         "add@/devices/a/2:0:0:0\0ACTION=add\0DEVPATH=/devices/a/2:0:0:0\0SUBSYSTEM=scsi\0"
         "DEVTYPE=scsi_device\0SEQNUM=7\0"s,
         "add", "/devices/a/2:0:0:0", "scsi"},
        {"another order, and an end without its NUL",
         "remove@/d\0SEQNUM=1\0SUBSYSTEM=block\0DEVPATH=/d\0ACTION=remove"s, "remove", "/d",
         "block"},
        {"the first of two counts",
         "add@/d\0ACTION=add\0SUBSYSTEM=pci\0SUBSYSTEM=scsi\0ACTION=x\0"s, "add", "", "pci"},
        {"names that only begin alike",
         "add@/d\0ACTIONS=x\0ACTION=add\0SUBSYSTEMS=x\0SUBSYSTEM=y\0"s, "add", "", "y"},
        {"a value with a sign of its own", "add@/d\0ACTION=a=b\0SUBSYSTEM=s@t\0"s, "a=b", "",
         "s@t"},
        {"a program's message, which begins otherwise",
         "libudev\0\xFE\xED\xCA\xFE"
         "ACTION=add\0SUBSYSTEM=scsi\0"s,
         nullptr},
        {"no subsystem", "add@/d\0ACTION=add\0DEVPATH=/d\0"s, nullptr},
        {"an empty one", "add@/d\0ACTION=add\0SUBSYSTEM=\0"s, nullptr},
        {"no action but in the heading", "add@/d\0DEVPATH=/d\0SUBSYSTEM=scsi\0"s, nullptr},
        {"a heading alone", "add@/d"s, nullptr},
        {"nothing but ends", "\0\0\0"s, nullptr},
        {"nothing", "", nullptr},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.what);
        const auto event = tav::parseUevent(std::as_bytes(std::span(row.message)));
        ASSERT_EQ(event.has_value(), row.action != nullptr);
        if (!event) continue;
        EXPECT_EQ(event->action, row.action);
        EXPECT_EQ(event->devicePath, row.path);
        EXPECT_EQ(event->subsystem, row.subsystem);
    }
}

}  // namespace
