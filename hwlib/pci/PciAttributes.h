#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include <sys/types.h>

#include "base/Answer.h"
#include "base/FileDescriptor.h"
#include "hwlib/pci/PciIdentity.h"

namespace tav {

/// Reads the attributes in a PCI function's sysfs directory. Nothing is kept: each call reads anew,
/// and one failed attribute costs no other. May be used on any thread; takes no lock.
class PciAttributes {
 public:
    /// Of the function directory `path`, relative to the open directory `parent` (or AT_FDCWD)
    /// that the caller keeps open: a short way spares the kernel a long one.
    PciAttributes(int parent, std::string path);

    /// Asks the kernel alone, but for the revision before Linux 4.10.
    PciIdentity readIdentity() const;
    Answer<std::int32_t> readInterruptLine() const;

    /// These two ask the function itself, which is slow. What can be read of a list or of the data
    /// in part only is refused.
    Answer<PciCapabilities> readCapabilities() const;
    Answer<std::vector<std::byte>> readVpd() const;

 private:
    std::string pathOf(const char* name) const { return prefix_ + name; }
    FileDescriptor open(const char* name) const;
    template <class Number>
    void readMissing(const char* name, Answer<Number>& value) const;
    Answer<std::uint8_t> readRevisionFromConfig() const;

    int parent_;
    std::string prefix_;  ///< "0000:3b:00.1/"
};

/// What tells a function's directory, or the link to it, from any other that had its name before;
/// 0 when there is no such. The kernel makes both anew for a function that is added.
ino64_t placeId(const std::string& path);

/// Takes from the text of a function's "uevent" file what stands in it.
PciIdentity parsePciEvent(std::string_view text);

}  // namespace tav
