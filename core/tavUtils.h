#pragma once

#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "base/Export.h"

/// Asks the host operating system about itself. All objects share the same caches. Everything may
/// be called from any thread. Failures are logged and give the empty value that each function
/// names; nothing here throws because of what the host answers.
class TAV_API tavUtils {
 public:
    /// The network node name; " " when it cannot be read.
    std::string readHostName();
    /// Product name and version of the hypervisor, without any white space; empty where there is no
    /// `localcli`. Read once; a failed read is tried again at the next call.
    std::string readHostOSName();
    std::string readHostOSVersion();
    /// System, node, release, version and machine, joined by blanks; " " when they cannot be read.
    std::string readHostOSDescription();
    /// Stores the code of the OS type; always true.
    bool getOSType(int* type);

    /// The host's IPv4 addresses without loopback, in the order of the interface list. While they
    /// cannot be asked for, the ones last known.
    std::vector<std::string> getIPAddresses();
    /// The same, and makes the first of them the primary address.
    std::vector<std::string> updateAndFetchIPAddresses();
    bool setPrimaryIPAddress(const std::vector<std::string>& addresses);
    std::string getPrimaryIPAddress();
    /// Whether the text is a dotted IPv4 address other than 0.0.0.0.
    bool is_ipv4_address(const std::string& text);

    /// Local time as "2019-03-07 14:05:09".
    static std::string getTime();
    /// Local time as "Mar 7 14:05:09".
    static std::string getDateTime();
    /// Local time stamp "YYYY-MM-DDTHH:MM:SS" and at least one more character, as seconds since the
    /// epoch; 0 for a text that is shorter or has no digits there. What stands between the numbers
    /// is not looked at, and a number beyond its range carries over, as mktime() has it.
    long toEpoc(const std::string& stamp);

    /// When the host booted this time and the time before, in seconds since the epoch: 0 where the
    /// summary log knows none (`current` is left alone then). 0 or -1.
    int fetchSystemBootTime(long& current, long& previous);
    /// When the host was last told to shut down; left alone where the summary log knows none. 0 or
    /// -1.
    int fetchSystemShutdownTime(long& shutdown);

    /// Replaces the map from PCI addresses to slot locations by what the host's PCI listing says;
    /// leaves it alone when the listing cannot be had. Nothing in the library calls it: call it
    /// before the managers start, and again while hasGeoIDMap() is false and isGeoIDMapToBeHad() is
    /// true, and let the managers rebuild() once it has come. Takes as long as the command does;
    /// callers take turns.
    void initGeoIDMap();
    /// Whether the host has told its PCI listing, whatever it says of locations.
    bool hasGeoIDMap();
    /// Whether the host has the command that lists its PCI functions. Runs a command.
    bool isGeoIDMapToBeHad();
    void printGeoIDMap();
    /// The location text of a PCI address ("r001i06s03"), or "NotAvailable".
    std::string getGeoIDStr(const std::string& pciAddress);
    /// Its rack, chassis position and slot ("001", "06", "03"); empty when there is no location.
    std::vector<std::string> getGeoIDInfo(const std::string& pciAddress);
    /// The part of `text` after the first `start` (or from its beginning) up to the first `end`, if
    /// that comes later (or to its end).
    std::string getSubStr(const std::string& start, const std::string& end,
                          const std::string& text);

    /// The PCI address of a storage adapter, left alone when the host knows none. 1, or -1 when the
    /// host could not be asked or `adapterName` is not a name.
    int getPCIString(const std::string& adapterName, std::string& address);

    /// Appends the sorted names in a directory to `names`; a relative path counts from the root.
    /// The number of entries including "." and "..", 0 for a symbolic link, -1 on failure.
    int dirList(const std::string& directory, std::vector<std::string>& names);
    /// The same for names that begin with "00" (PCI addresses of domain 0000).
    int dirPciList(const std::string& directory, std::vector<std::string>& names);
    /// The first line that contains `key`, with its line end; empty when there is none. Of a line
    /// of 1 MiB or more only the beginning is known, which the log tells where that has no `key`.
    std::string getLineFromFile(const char* path, const std::string& key);
    /// `out` becomes `in` without white space at its end and blanks at its beginning.
    void trimExtraSpaces(std::string in, std::string& out);

    void setCacheRefreshTimeInterval(long interval) { cacheRefreshTimeInterval = interval; }
    long getCacheRefreshTimeInterval() const { return cacheRefreshTimeInterval; }

 private:
    long cacheRefreshTimeInterval = 0;

    using GeoIDMap = std::map<std::string, std::string>;
    static std::shared_ptr<const GeoIDMap> currentGeoIDMap();

    static std::mutex mutex_lock;  ///< guards what stands below
    static std::string OSVersion;
    static std::string OSName;
    static std::string primaryIPv4Address;
    static std::string auxIPv4Address;
    static std::vector<std::string> knownIPv4Addresses;  ///< the last that could be asked for
    static std::shared_ptr<const GeoIDMap> geoIDMap;     ///< replaced, never changed; null at first
};

namespace tav {

/// The map from PCI addresses to slot locations that the lines "Address: ..." and
/// "Slot Description: ... r..." of a PCI listing give. None when the first line is no address.
TAV_API std::optional<std::map<std::string, std::string>> parsePciTopology(
    std::string_view listing);

/// What a line of the version command says: all of `output` after its first colon, without white
/// space. Empty when there is no colon, or for text that no product is named by.
TAV_API std::string parseVersionLine(std::string_view output);

/// The non-empty lines of `text`.
TAV_API std::vector<std::string> splitLines(std::string_view text);

}  // namespace tav
