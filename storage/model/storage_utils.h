#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include "base/Export.h"

/// Small helpers that controllers, factories and the storage resource manager share. Plain
/// functions without state, for any thread.

/// Model text of the first row of gStorageHbaList whose family is in the mask (0: any), whose
/// chipset and whose board fit; null for none. `outFlags`, where given, receives the row's family
/// flags, or 0.
TAV_API const char* getStorageControllerModel(std::uint32_t chipsetID, std::uint32_t boardID,
                                              std::uint8_t familyMask,
                                              std::uint8_t* outFlags = nullptr);

/// Part number of the drive whose model is exactly this; empty for none. `buffer`, where given,
/// holds 60 characters and receives it with its NUL; without a row it is left alone.
TAV_API std::string getDiskPartNumber(std::string_view model, char* buffer = nullptr);

/// The first "/" of a sysfs path that begins a PCI address ("/0000:03:00.0"): one followed by four
/// hexadecimal digits and a ":". Null for none or a null path.
TAV_API const char* strstr_pcilocation(const char* path);

/// Cuts trailing white space off in place; the result points past leading white space. Null for a
/// null text.
TAV_API char* trim_surrounding_whitespace(char* text);

/// Copies a text out of ATA IDENTIFY DEVICE data (words of 16 bits, low byte first, each with its
/// first character in the high byte; ACS). Writes two characters per word that `identify` holds
/// (words beyond its end are left out) and no terminator. Returns the number of characters.
TAV_API std::size_t get_ata_string(char* destination, std::span<const std::byte> identify,
                                   std::size_t firstWord, std::size_t wordCount);

/// Greatest common divisor, 0 or more, of any two numbers; the other one's size when one is 0. The
/// size of the smallest number has no place in a long: it counts as the greatest one.
TAV_API long compute_gcd(long a, long b);
