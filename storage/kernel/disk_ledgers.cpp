#include "storage/kernel/disk_ledgers.h"

#include <array>
#include <utility>

#include "base/printed.h"

namespace tav {
namespace {

/// The one that is shown first: of a disk that is swapped while it is asked, one source may tell of
/// the old one still, and who is shown is who is meant.
constexpr std::array<std::string DiskMemory::*, 3> serialSources = {
    &DiskMemory::identifySerial, &DiskMemory::unitSerial, &DiskMemory::inquirySerial};

/// What a disk tells of itself when it answers.
struct ToldText {
    std::string (tavDiskInfo::*get)() const;
    void (tavDiskInfo::*set)(std::string);
};
constexpr std::array toldTexts = {
    ToldText{&tavDiskInfo::getModel, &tavDiskInfo::setModel},
    ToldText{&tavDiskInfo::getPartNumber, &tavDiskInfo::setPartNumber},
    ToldText{&tavDiskInfo::getRevision, &tavDiskInfo::setRevision},
    ToldText{&tavDiskInfo::getMediaType, &tavDiskInfo::setMediaType},
    ToldText{&tavDiskInfo::getProtocol, &tavDiskInfo::setProtocol},
};

void keepSerials(const DiskMemory& known, tavDiskInfo& found) {
    for (const auto source : serialSources) {
        if ((found.memory().*source).empty()) found.memory().*source = known.*source;
    }
    for (const auto source : serialSources) {
        const std::string& serial = found.getMemory().*source;
        if (serial.empty()) continue;
        found.setSerialNumber(serial);
        return;
    }
}

void keepTold(const tavDiskInfo& known, bool isIdentified, tavDiskInfo& found) {
    for (const ToldText& text : toldTexts) {
        std::string before = (known.*text.get)();
        const bool isMissing = !isIdentified || (found.*text.get)().empty();
        if (isMissing && !before.empty()) (found.*text.set)(std::move(before));
    }
    if (!isIdentified) found.setATAMajorRevision(known.getATAMajorRevision());
}

/// The entry of one discovery.
class Entry {
 public:
    Entry(std::vector<tavDiskInfo> found, const DiskRegister& about,
          std::vector<DiskLedger>& ledgers)
        : found_(std::move(found)),
          about_(about),
          ledgers_(ledgers),
          matching_(ledgers_.size(), found_.size()) {}

    void make() {
        match();
        std::vector<DiskLedger> entered;
        entered.reserve(found_.size());
        for (std::size_t index = 0; index < found_.size(); ++index)
            entered.push_back(enterFound(index));
        for (std::size_t index = 0; index < ledgers_.size(); ++index) {
            if (matching_.nowOf(index)) continue;
            markVanished(ledgers_[index]);
            entered.push_back(std::move(ledgers_[index]));
        }
        ledgers_ = std::move(entered);
    }

 private:
    const tavDiskInfo& before(std::size_t index) const { return ledgers_[index].record(); }

    Sameness sameness(std::size_t beforeIndex, std::size_t now) const {
        return samenessOf(before(beforeIndex).getMemory(), found_[now].getMemory());
    }

    /// Who is who at each place: the same serial number; then whatever may be the same, first at
    /// the same address; then whoever has taken somebody's place.
    void match() {
        const auto placeBefore = [&](std::size_t i) { return about_.placeOf(before(i)); };
        const auto placeNow = [&](std::size_t i) { return about_.placeOf(found_[i]); };
        const auto isSame = [&](std::size_t b, std::size_t n) {
            return sameness(b, n) == Sameness::Same;
        };
        const auto maySame = [&](std::size_t b, std::size_t n) {
            return sameness(b, n) == Sameness::Unknown;
        };
        const auto hasAddress = [&](std::size_t b, std::size_t n) {
            return before(b).getOSSCSILink() == found_[n].getOSSCSILink();
        };
        matching_.pair(placeBefore, placeNow, isSame);
        matching_.pair(placeBefore, placeNow, [&](std::size_t b, std::size_t n) {
            return maySame(b, n) && hasAddress(b, n);
        });
        matching_.pair(placeBefore, placeNow, maySame);
        // Where nobody knows the places, a disk may come back at another address.
        matching_.pair([&](std::size_t i) { return addressSerial(before(i)); },
                       [&](std::size_t i) { return addressSerial(found_[i]); }, isSame);
        matching_.pair(placeBefore, placeNow, hasAddress);
        matching_.pair(placeBefore, placeNow, [](std::size_t, std::size_t) { return true; });
    }

    /// The serial number of a disk that has no other place than its address; else empty.
    std::string addressSerial(const tavDiskInfo& disk) const {
        return about_.placeOf(disk) == disk.getOSSCSILink() ? disk.getSerialNumber() : "";
    }

    DiskLedger enterFound(std::size_t index) {
        tavDiskInfo& disk = found_[index];
        const auto match = matching_.beforeOf(index);
        if (!match) {
            about_.isNew(disk, about_.placeOf(disk));
            return DiskLedger(std::move(disk));
        }
        DiskLedger ledger = std::move(ledgers_[*match]);
        if (sameness(disk, ledger.record()) == Sameness::Other) {
            markReplaced(ledger, disk.getSerialNumber());
        }
        look(ledger, std::move(disk));
        return ledger;
    }

    static Sameness sameness(const tavDiskInfo& a, const tavDiskInfo& b) {
        return samenessOf(a.getMemory(), b.getMemory());
    }

    void look(DiskLedger& ledger, tavDiskInfo disk) const {
        const tavDiskInfo known = ledger.record();
        if (const auto change = ledger.look(std::move(disk))) {
            about_.hasChanged(ledger, known, *change);
        }
    }

    void markVanished(DiskLedger& ledger) const {
        tavDiskInfo gone = ledger.record();
        about_.describeVanished(gone);
        assign(gone, offline);
        look(ledger, std::move(gone));
    }

    /// A disk with another serial number is another disk: the one before is gone, and what has come
    /// in its place is compared with an empty one.
    void markReplaced(DiskLedger& ledger, const std::string& serial) const {
        tavDiskInfo gone = ledger.record();
        gone.setEventInfoString(serialChangeReason(serial, gone.getSerialNumber()));
        assign(gone, offline);
        look(ledger, std::move(gone));
    }

    std::vector<tavDiskInfo> found_;
    const DiskRegister& about_;
    std::vector<DiskLedger>& ledgers_;
    LedgerMatching matching_;
};

}  // namespace

Sameness samenessOf(const DiskMemory& before, const DiskMemory& now) {
    for (const auto source : serialSources) {
        if ((before.*source).empty() || (now.*source).empty()) continue;
        return before.*source == now.*source ? Sameness::Same : Sameness::Other;
    }
    return Sameness::Unknown;
}

void keepKnown(const tavDiskInfo& known, bool isIdentified, tavDiskInfo& found) {
    if (samenessOf(known.getMemory(), found.getMemory()) == Sameness::Other) return;
    DiskMemory memory = known.getMemory();
    for (const auto source : serialSources)
        memory.*source = found.memory().*source;
    memory.isReplaced = false;
    found.memory() = std::move(memory);
    keepSerials(known.getMemory(), found);
    keepTold(known, isIdentified, found);
}

void enter(std::vector<tavDiskInfo> found, const DiskRegister& about,
           std::vector<DiskLedger>& ledgers) {
    Entry(std::move(found), about, ledgers).make();
}

std::string serialChangeReason(const std::string& current, const std::string& known) {
    return printed(
        "Detected change in disk serial number (Current serial number: %s; Last known serial "
        "number: %s).",
        current.c_str(), known.c_str());
}

}  // namespace tav
