#include "hwlib/pci/pci_vpd.h"

#include <algorithm>
#include <utility>

namespace {

constexpr unsigned identifierTag = 0x82;
constexpr unsigned readOnlyTag = 0x90;
constexpr unsigned readWriteTag = 0x91;
constexpr unsigned largeResource = 0x80;
constexpr std::size_t largeHeader = 3;
constexpr std::size_t recordHeader = 3;

using Bytes = std::span<const std::byte>;

unsigned byteOf(Bytes bytes, std::size_t at) {
    return std::to_integer<unsigned>(bytes[at]);
}

std::string textOf(Bytes bytes) {
    const std::string_view text(reinterpret_cast<const char*>(bytes.data()), bytes.size());
    return std::string(text.substr(0, text.find('\0')));
}

struct Resource {
    unsigned tag;
    Bytes content;
    bool whole;  ///< false: the data ends before the resource does
};

/// Takes the large resource at the front of `vpd` off it; absent when there is none.
std::optional<Resource> takeResource(Bytes& vpd) {
    if (vpd.size() < largeHeader || byteOf(vpd, 0) < largeResource) return std::nullopt;
    const unsigned tag = byteOf(vpd, 0);
    const std::size_t promised = byteOf(vpd, 1) | byteOf(vpd, 2) << 8;
    vpd = vpd.subspan(largeHeader);
    const std::size_t length = std::min(promised, vpd.size());
    const Resource resource{tag, vpd.first(length), length == promised};
    vpd = vpd.subspan(length);
    return resource;
}

std::optional<Resource> takeIdentifier(Bytes& vpd) {
    const auto identifier = takeResource(vpd);
    if (!identifier || identifier->tag != identifierTag || !identifier->whole) return std::nullopt;
    return identifier;
}

/// Appends the records of one section at `*end`; returns the new end of the list.
PciVpdList* appendRecords(Bytes section, PciVpdList* end) {
    while (section.size() >= recordHeader) {
        const std::array keyword{static_cast<char>(section[0]), static_cast<char>(section[1])};
        const std::size_t length = byteOf(section, 2);
        section = section.subspan(recordHeader);
        if (length > section.size()) break;
        if (length > 0) {
            *end = std::make_unique<PciVpdKeyword>(keyword, textOf(section.first(length)));
            end = &(*end)->next;
        }
        section = section.subspan(length);
    }
    return end;
}

}  // namespace

/// Record by record, so that a long list does not end in as deep a recursion.
PciVpdKeyword::~PciVpdKeyword() {
    for (PciVpdList rest = std::move(next); rest != nullptr; rest = std::move(rest->next)) {
    }
}

std::optional<std::string> pci_get_vpdname(Bytes vpd) {
    const auto identifier = takeIdentifier(vpd);
    return identifier ? std::optional(textOf(identifier->content)) : std::nullopt;
}

PciVpdList pci_get_vpdtags(Bytes vpd) {
    PciVpdList list;
    if (!takeIdentifier(vpd)) return list;
    PciVpdList* end = &list;
    while (const auto resource = takeResource(vpd)) {
        if (resource->tag == readOnlyTag || resource->tag == readWriteTag)
            end = appendRecords(resource->content, end);
    }
    return list;
}

void pci_free_vpdtags(PciVpdList list) {
    list.reset();
}

const std::string* tav::PciVpd::find(std::string_view keyword) const {
    for (const PciVpdKeyword* entry = keywords.get(); entry != nullptr; entry = entry->next.get()) {
        if (std::string_view(entry->keyword.data(), entry->keyword.size()) == keyword)
            return &entry->value;
    }
    return nullptr;
}

tav::Answer<tav::PciVpd> tav::parsePciVpd(Bytes vpd) {
    if (vpd.empty()) return Lack::Absent;
    auto name = pci_get_vpdname(vpd);
    if (!name) return Lack::Malformed;
    return PciVpd{*std::move(name), pci_get_vpdtags(vpd)};
}
