#include "storage/model/storage_utils.h"

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <numeric>

#include "base/Trim.h"
#include "storage/model/storage_tables.h"

namespace {

bool fits(std::uint32_t rowID, std::uint32_t id) {
    return rowID == 0 || rowID == id;
}

bool isHexDigit(char character) {
    return std::isxdigit(static_cast<unsigned char>(character)) != 0;
}

/// Four digits and a colon; the text may end anywhere.
bool beginsWithPciDomain(const char* text) {
    constexpr int digits = 4;
    int count = 0;
    while (count < digits && isHexDigit(text[count]))
        ++count;
    return count == digits && text[digits] == ':';
}

/// Without its sign, which the smallest number cannot do without.
long sizeOf(long number) {
    constexpr long most = std::numeric_limits<long>::max();
    return number < -most ? most : std::abs(number);
}

/// Null for a model that no table knows.
const tavStorageDrive* driveOf(std::string_view model) {
    for (const std::span<const tavStorageDrive> list :
         {std::span<const tavStorageDrive>(gStorageDriveList),
          std::span<const tavStorageDrive>(gNVMeDriveList)}) {
        for (const tavStorageDrive& drive : list) {
            if (model == drive.model) return &drive;
        }
    }
    return nullptr;
}

}  // namespace

const char* getStorageControllerModel(std::uint32_t chipsetID, std::uint32_t boardID,
                                      std::uint8_t familyMask, std::uint8_t* outFlags) {
    const auto* const row = std::find_if(
        gStorageHbaList.begin(), gStorageHbaList.end(), [&](const tavStorageHba& candidate) {
            return (familyMask == 0 || (candidate.family & familyMask) != 0) &&
                   fits(candidate.chipsetID, chipsetID) && fits(candidate.boardID, boardID);
        });
    const bool found = row != gStorageHbaList.end();
    if (outFlags != nullptr) *outFlags = found ? row->family : std::uint8_t{0};
    return found ? row->model : nullptr;
}

std::string getDiskPartNumber(std::string_view model, char* buffer) {
    const tavStorageDrive* const row = driveOf(model);
    if (row == nullptr) return {};
    if (buffer != nullptr) std::memcpy(buffer, row->partNumber, sizeof row->partNumber);
    return row->partNumber;
}

const char* strstr_pcilocation(const char* path) {
    if (path == nullptr) return nullptr;
    for (const char* slash = std::strchr(path, '/'); slash != nullptr;
         slash = std::strchr(slash + 1, '/')) {
        if (beginsWithPciDomain(slash + 1)) return slash;
    }
    return nullptr;
}

char* trim_surrounding_whitespace(char* text) {
    if (text == nullptr) return nullptr;
    const std::string_view trimmed = tav::trimBoth(text);
    char* const first = text + (trimmed.data() - text);
    first[trimmed.size()] = '\0';
    return first;
}

std::size_t get_ata_string(char* destination, std::span<const std::byte> identify,
                           std::size_t firstWord, std::size_t wordCount) {
    const std::size_t words = identify.size() / 2;
    const std::size_t first = std::min(firstWord, words);
    const std::size_t count = std::min(wordCount, words - first);
    for (std::size_t i = 0; i < count; ++i) {
        const std::span<const std::byte> word = identify.subspan(2 * (first + i), 2);
        destination[2 * i] = static_cast<char>(word[1]);
        destination[2 * i + 1] = static_cast<char>(word[0]);
    }
    return 2 * count;
}

long compute_gcd(long a, long b) {
    return std::gcd(sizeOf(a), sizeOf(b));
}
