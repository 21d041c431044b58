#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>

/// Catalogue data of the Fibre Channel and converged network adapters that are known by name. The
/// key of a row is the PCI subsystem device ID × 65536 + the subsystem vendor ID. Texts are
/// NUL-padded.

struct tavFCAdapterModel {
    std::uint32_t key;
    char family[37];
    char model[131];
};
static_assert(sizeof(tavFCAdapterModel) == 172 && offsetof(tavFCAdapterModel, model) == 41);

struct tavFCAdapterPart {
    std::uint32_t key;
    char partNumber[32];
};
static_assert(sizeof(tavFCAdapterPart) == 36);

inline constexpr std::size_t MAX_FC_MODEL_LIST = 75;
inline constexpr std::size_t MAX_FC_PART_LIST = 5;
extern const std::array<tavFCAdapterModel, MAX_FC_MODEL_LIST> gFCAdapterModelList;
extern const std::array<tavFCAdapterPart, MAX_FC_PART_LIST> gFCAdapterPartList;

namespace tav {

/// "Generic FCHBA Model" for an adapter that is not in the table.
std::string_view fcAdapterModel(std::uint32_t key);
/// Empty for an adapter that is not in the table.
std::string_view fcAdapterPartNumber(std::uint32_t key);
/// Whether the name is that of a converged network adapter.
bool isConvergedModel(std::string_view model);

}  // namespace tav
