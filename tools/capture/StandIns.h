#pragma once

#include <array>
#include <bitset>
#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <random>
#include <set>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace tav::capture {

/// Stand-ins for what identifies a host: of the same length and shape, the same one for the same
/// text wherever it stands, and different ones for different texts. Nobody can lead a stand-in back
/// who does not have this object.
class StandIns {
 public:
    explicit StandIns(std::uint64_t seed) : random_(seed) {}

    /// A text such as a serial number: letters stand for letters, digits for digits. What is no
    /// identity is left alone: too short, all the same, "To be filled by O.E.M.".
    void addSerial(std::string_view text);
    /// A name stands alone: "vm" is none in "vmnic0".
    void addName(std::string_view text);
    /// An address of the Internet Protocol, version 4 or 6, as text. Those that everybody has are
    /// left alone.
    void addAddress(std::string_view text);
    /// A number that is written in hexadecimal digits, with or without separators, or as its bytes.
    /// The first `kept` digits stay: they name a maker.
    void addNumber(std::string_view bytes, std::size_t kept);
    /// The same for a MAC address (6 bytes), and for a world wide name (8 or 16 bytes), whose maker
    /// stands where its own first digit says.
    void addMacAddress(std::string_view bytes);
    void addWorldWideName(std::string_view bytes);

    /// Where bytes stand, which says what may be replaced in them.
    enum class Place {
        Text,    ///< short serial numbers and names stand alone
        Answer,  ///< of a device: fields touch each other
        Path,    ///< numbers alone are replaced, so that the way to a file stays
    };
    std::string replaced(std::string_view bytes, Place place) const;

 private:
    enum class Kind { Serial, Name, Number };
    struct Pattern {
        std::string from, to;
        Kind kind;
    };

    void add(Kind kind, std::string from, std::string to);
    std::string standInFor(std::string_view text);
    std::optional<std::string> standInForAddress(std::string_view text);
    char standInFor(char character);
    char anyOf(std::string_view characters);
    const Pattern* patternAt(std::string_view bytes, std::size_t at, Place place) const;

    std::mt19937_64 random_;
    std::set<std::string, std::less<>> known_;
    std::set<std::string> given_;
    /// By their first two bytes; the longest first.
    std::unordered_map<std::uint16_t, std::vector<Pattern>> patterns_;
    std::bitset<65536> begins_;
};

}  // namespace tav::capture
