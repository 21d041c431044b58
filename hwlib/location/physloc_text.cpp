#include <algorithm>
#include <array>
#include <cstring>
#include <string_view>

#include "hwlib/location/physloc.h"
#include "hwlib/location/physloc_kinds.h"

namespace tav::physloc {
namespace {

/// Appends to a buffer; remembers when something did not fit and keeps room for the final NUL.
class Text {
 public:
    Text(char* destination, std::size_t size) : next_(destination), end_(destination + size) {}

    void add(char character) {
        if (next_ == end_) {
            fits_ = false;
        } else {
            *next_++ = character;
        }
    }
    void add(std::string_view text) {
        for (const char character : text)
            add(character);
    }
    void add(unsigned number, unsigned minimumDigits) {
        std::array<char, 10> digits{};
        unsigned count = 0;
        do {
            digits[count++] = static_cast<char>('0' + number % 10);
            number /= 10;
        } while (number != 0 || count < minimumDigits);
        while (count > 0)
            add(digits[--count]);
    }
    bool finish() {
        add('\0');
        return fits_;
    }

 private:
    char* next_;
    char* end_;
    bool fits_ = true;
};

void addConnectorName(const physloc_data_t& data, Text& text) {
    std::uint8_t number = noPort;
    if (physloc_get_fabric_port(data.link, data.instance, &number) != PHYSLOC_SUCCESS ||
        number == noPort) {
        return text.add("none");
    }
    text.add(physloc_get_fabric_connector(data.hub));
    text.add(number, 1);
}

void addValue(const Value& value, unsigned minimumDigits, const physloc_data_t& data, Text& text) {
    switch (value.meaning) {
        case Value::Nothing:
            break;
        case Value::Number:
            text.add(data.*value.field, minimumDigits);
            break;
        case Value::GroupLetter:
            text.add(data.group == 0 ? 'A' : 'B');
            break;
        case Value::HubLetter:
            text.add(physloc_get_fabric_connector(data.hub));
            break;
        case Value::ConnectorName:
            addConnectorName(data, text);
            break;
    }
}

/// Understands the placeholders that the forms use: %u, %1u, %02u, %03u, %c and %s.
void addForm(std::string_view form, const Values& values, const physloc_data_t& data, Text& text) {
    auto value = values.begin();
    for (auto at = form.begin(); at != form.end(); ++at) {
        if (*at != '%') {
            text.add(*at);
            continue;
        }
        unsigned minimumDigits = 1;
        while (*++at >= '0' && *at <= '9')
            minimumDigits = static_cast<unsigned>(*at - '0');
        addValue(*value++, minimumDigits, data, text);
    }
}

constexpr bool hasAsManyPlaceholders(const char* form, const Values& values) {
    if (form == nullptr) return true;
    const std::string_view text(form);
    const auto given = std::count_if(values.begin(), values.end(), [](const Value& value) {
        return value.meaning != Value::Nothing;
    });
    return std::count(text.begin(), text.end(), '%') == given;
}
static_assert(std::all_of(kinds.begin(), kinds.end(), [](const Kind& kind) {
    return hasAsManyPlaceholders(kind.numericForm, kind.values) &&
           hasAsManyPlaceholders(kind.longForm, kind.values) &&
           hasAsManyPlaceholders(kind.shortForm, kind.shortValues);
}));

int format(Group group, int form, const physloc_data_t* decoded, char* dst, std::size_t size) {
    if (dst == nullptr || decoded == nullptr) return PHYSLOC_BAD_POINTER;
    const Kind* const kind = findKind(decoded->type);
    if (kind == nullptr || groupOf(classOf(*kind)) != group) return PHYSLOC_NOT_IMPLEMENTED;
    const bool isShort = form == PHYSLOC_FORM_SHORT;
    const char* const text = isShort                        ? kind->shortForm
                             : form == PHYSLOC_FORM_LONG    ? kind->longForm
                             : form == PHYSLOC_FORM_NUMERIC ? kind->numericForm
                                                            : nullptr;
    if (text == nullptr) return PHYSLOC_NOT_IMPLEMENTED;
    Text out(dst, size);
    addForm(text, isShort ? kind->shortValues : kind->values, *decoded, out);
    if (out.finish()) return PHYSLOC_SUCCESS;
    if (size > 0) *dst = '\0';
    return PHYSLOC_CANNOT_EXECUTE;
}

struct GroupFormatter {
    Group group;
    physloc_formatter_t* format;
};
constexpr std::array<GroupFormatter, 8> formatters{{
    {Geographic, physloc_get_geoid_string},
    {Cpu, physloc_get_cpu_string},
    {PlatformData, physloc_get_pdh_string},
    {Power, physloc_get_power_string},
    {Fabric, physloc_get_fabric_string},
    {Platform, physloc_get_platform_string},
    {Memory, physloc_get_memory_string},
    {Io, physloc_get_io_string},
}};

constexpr std::array<const char*, 18> resultTexts{
    "success",
    "not implemented",
    "bad pointer",
    "invalid slot",
    "cannot execute",
    "invalid physloc",
    "invalid rack",
    "invalid U position",
    "invalid DIMM group",
    "invalid CPU core",
    "invalid CPU link",
    "invalid link",
    "invalid instance",
    "invalid version",
    "invalid CPU socket",
    "invalid fabric port",
    "invalid hub",
    "invalid hublet",
};

}  // namespace
}  // namespace tav::physloc

using namespace tav::physloc;

const char* physloc_get_rtn_string(int code) {
    return code >= 0 && code < static_cast<int>(resultTexts.size())
               ? resultTexts[static_cast<std::size_t>(code)]
               : "";
}

int physloc_get_string(int form, std::uint32_t word0, std::uint32_t word1, char* dst) {
    if (dst == nullptr) return PHYSLOC_BAD_POINTER;
    if (form < PHYSLOC_FORM_LONG || form > PHYSLOC_FORM_SHORT) return PHYSLOC_NOT_IMPLEMENTED;
    physloc_data_t decoded;
    const int result = physloc_decode(word0, word1, &decoded);
    if (result != PHYSLOC_SUCCESS) return result;
    const Kind* const kind = findKind(decoded.type);
    const GroupFormatter* const formatter = findRow(formatters, [&](const GroupFormatter& row) {
        return row.group == groupOf(static_cast<std::uint8_t>(word0));
    });
    if (kind == nullptr || formatter == nullptr) return PHYSLOC_NOT_IMPLEMENTED;
    if (form != PHYSLOC_FORM_PREFIX)
        return formatter->format(form, &decoded, dst, PHYSLOC_TEXT_SIZE);

    const std::size_t length = std::strlen(kind->prefix);
    if (length >= PHYSLOC_TEXT_SIZE) return PHYSLOC_CANNOT_EXECUTE;
    std::memcpy(dst, kind->prefix, length);
    return formatter->format(PHYSLOC_FORM_NUMERIC, &decoded, dst + length,
                             PHYSLOC_TEXT_SIZE - length);
}

int physloc_get_fabric_port(std::uint8_t quad, std::uint8_t port, std::uint8_t* number) {
    if (number == nullptr) return PHYSLOC_BAD_POINTER;
    const FabricRow* const row = findRow(fabricMap, [&](const FabricRow& candidate) {
        return candidate.quad == quad && candidate.port == port;
    });
    if (row == nullptr) return PHYSLOC_INVALID_FABRIC_PORT;
    *number = row->number;
    return PHYSLOC_SUCCESS;
}

char physloc_get_fabric_connector(std::uint8_t hubNumber) {
    constexpr std::string_view letters = "AB";
    return hubNumber < letters.size() ? letters[hubNumber] : '?';
}

int physloc_get_geoid_string(int form, const physloc_data_t* decoded, char* dst, std::size_t size) {
    return format(Geographic, form, decoded, dst, size);
}
int physloc_get_cpu_string(int form, const physloc_data_t* decoded, char* dst, std::size_t size) {
    return format(Cpu, form, decoded, dst, size);
}
int physloc_get_pdh_string(int form, const physloc_data_t* decoded, char* dst, std::size_t size) {
    return format(PlatformData, form, decoded, dst, size);
}
int physloc_get_power_string(int form, const physloc_data_t* decoded, char* dst, std::size_t size) {
    return format(Power, form, decoded, dst, size);
}
int physloc_get_fabric_string(int form, const physloc_data_t* decoded, char* dst,
                              std::size_t size) {
    return format(Fabric, form, decoded, dst, size);
}
int physloc_get_platform_string(int form, const physloc_data_t* decoded, char* dst,
                                std::size_t size) {
    return format(Platform, form, decoded, dst, size);
}
int physloc_get_memory_string(int form, const physloc_data_t* decoded, char* dst,
                              std::size_t size) {
    return format(Memory, form, decoded, dst, size);
}
int physloc_get_io_string(int form, const physloc_data_t* decoded, char* dst, std::size_t size) {
    return format(Io, form, decoded, dst, size);
}
