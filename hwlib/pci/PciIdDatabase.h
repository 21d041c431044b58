#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "base/Export.h"

/// One entry of the PCI ID database.
struct PciIdEntry {
    std::string name;
};

/// Stays valid when the database is loaded anew.
using PciIdEntryPtr = std::shared_ptr<const PciIdEntry>;

namespace tav {

/// What a line of the database says by its first characters.
struct PciIdLine {
    enum class Kind : std::uint8_t {
        Vendor,
        Device,
        Subsystem,
        BaseClass,
        Subclass,
        Malformed,   ///< stands where a device or subclass should
        SectionEnd,  ///< belongs to no vendor and no class, and ends what stood before it
        None,        ///< says nothing: a comment, for example
    };
    Kind kind;
    std::uint32_t id;       ///< of a subsystem: vendor << 16 | device
    std::string_view name;  ///< empty when the line has none
};

/// `inClasses` tells whether the line stands in the classes' part of the database, where indented
/// lines are subclasses and programming interfaces instead of devices and subsystems.
TAV_API PciIdLine parsePciIdLine(std::string_view line, bool inClasses);

/// The PCI ID database, looked at as little as possible: it is searched once for where vendors and
/// base classes stand. What one of them holds is read when it is first asked for, and then kept as
/// positions (8 bytes an entry) and as the names that were asked for. May be used by several
/// threads; a look-up takes the object's own lock.
class TAV_API PciIdDatabase {
 public:
    /// Reads at most room.size() bytes of the database from `position` on; 0 at its end.
    using Read = std::function<std::size_t(std::span<char> room, std::uint64_t position)>;

    explicit PciIdDatabase(Read read);

    /// Null when the database has no such entry. A class code is base class, subclass and
    /// programming interface; an unknown subclass gives the base class.
    PciIdEntryPtr vendor(std::uint16_t vendor);
    PciIdEntryPtr device(std::uint16_t vendor, std::uint16_t device);
    PciIdEntryPtr subsystem(std::uint16_t vendor, std::uint16_t device,
                            std::uint16_t subsystemVendor, std::uint16_t subsystemDevice);
    PciIdEntryPtr deviceClass(std::uint32_t classCode);

 private:
    using Kind = PciIdLine::Kind;
    struct Place {
        std::uint32_t key;
        std::uint32_t position;
    };
    using Places = std::vector<Place>;
    /// A vendor with the places of its devices, or a base class with those of its subclasses.
    struct Section {
        PciIdEntryPtr entry;
        Places places;
    };
    using SubsystemKey = std::array<std::uint32_t, 2>;

    static void sort(Places& places);
    static std::optional<std::uint32_t> find(const Places& places, std::uint32_t key);
    static std::size_t readSize(const Places& sections, std::uint32_t id);
    Places& sectionsOf(Kind kind) { return kind == Kind::Vendor ? vendors_ : baseClasses_; }
    void findSections();
    void addSection(std::uint64_t position, std::string_view lineStart);
    const Section& section(Kind kind, std::uint32_t id);
    Section readSection(Kind kind, std::uint32_t id, std::uint32_t position, std::size_t readSize);
    PciIdEntryPtr member(Kind kind, const Section& section, std::uint32_t key, std::uint32_t id);
    PciIdEntryPtr readEntry(Kind kind, std::uint32_t id, std::uint32_t position);
    PciIdEntryPtr readSubsystem(std::uint32_t device, std::uint32_t devicePosition,
                                std::uint32_t subsystem);

    Read read_;
    Places vendors_;
    Places baseClasses_;
    std::mutex lock_;
    std::map<std::pair<Kind, std::uint32_t>, Section> sections_;
    std::map<std::pair<Kind, std::uint32_t>, PciIdEntryPtr> members_;
    std::map<SubsystemKey, PciIdEntryPtr> subsystems_;
};

}  // namespace tav
