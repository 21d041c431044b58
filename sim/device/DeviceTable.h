#pragma once

#include <memory>
#include <optional>
#include <string>

#include "base/FileDescriptor.h"

/// The device nodes that this process sees although the machine has none of them. The interposed
/// open() and ioctl() (Interposer.cpp) ask here first and go to the kernel for everything else.
namespace tav::sim {

/// What stands behind one open() of a simulated device. The program holds a real descriptor, one
/// end of a socket pair, so that close, select and poll on it are the kernel's own.
class OpenDevice {
 public:
    explicit OpenDevice(FileDescriptor deviceEnd) : deviceEnd_(std::move(deviceEnd)) {}
    OpenDevice(const OpenDevice&) = delete;
    OpenDevice& operator=(const OpenDevice&) = delete;
    virtual ~OpenDevice() = default;

    /// Serves one ioctl on `descriptor`, which is the program's end. Returns the ioctl's result, or
    /// a negative error number. Called on the thread of the program that calls ioctl.
    virtual int control(int descriptor, unsigned long request, void* argument) = 0;

    /// Whether the program has closed the last descriptor of this open().
    bool closedByProgram() const;

 protected:
    int deviceEnd() const { return deviceEnd_.get(); }

 private:
    FileDescriptor deviceEnd_;
};

/// A device node: makes an OpenDevice for each open() of its path.
class Device {
 public:
    virtual ~Device() = default;

    /// Returns null and sets `error` to the error number when the open is to fail.
    virtual std::shared_ptr<OpenDevice> open(FileDescriptor deviceEnd, int& error) = 0;
};

/// From now on `path` is served by `device`. Descriptors opened before keep their device.
void installDevice(const std::string& path, std::shared_ptr<Device> device);
void removeDevice(const std::string& path);

/// From now on a path that begins with `prefix`, and has no device of its own, is served by what
/// `find` makes of it; null: by nothing.
using FindDevice = std::shared_ptr<Device> (*)(const std::string& path);
void installDevices(const std::string& prefix, FindDevice find);

/// open() of `path`: a descriptor or a negative error number; empty when no device is installed.
std::optional<int> openDevice(const char* path, int flags);

/// ioctl() on `descriptor`: its result or a negative error number; empty when the descriptor does
/// not belong to a simulated device.
std::optional<int> controlDevice(int descriptor, unsigned long request, void* argument);

/// Lets go of what the program has closed. Every open does so too.
void forgetClosedDevices();

}  // namespace tav::sim
