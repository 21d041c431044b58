#include "host/HostMemory.h"

#include <algorithm>
#include <charconv>
#include <cstddef>

namespace tav {
namespace {

/// Cuts the first field off `row`. A comma inside double quotes belongs to the field.
std::string_view takeField(std::string_view& row) {
    bool quoted = false;
    std::size_t end = 0;
    while (end < row.size() && (quoted || row[end] != ',')) {
        if (row[end] == '"') quoted = !quoted;
        ++end;
    }
    const std::string_view field = row.substr(0, end);
    row.remove_prefix(std::min(end + 1, row.size()));
    return field;
}

std::string_view takeRow(std::string_view& text) {
    const std::size_t end = std::min(text.find('\n'), text.size());
    const std::string_view row = text.substr(0, end);
    text.remove_prefix(std::min(end + 1, text.size()));
    return row;
}

bool contains(std::string_view text, std::string_view part) {
    return text.find(part) != std::string_view::npos;
}

/// The number behind the opening quote of a field; 0 when there is none.
long numberIn(std::string_view field) {
    long number = 0;
    if (!field.starts_with('"')) return 0;
    std::from_chars(field.data() + 1, field.data() + field.size(), number);
    return std::max(number, 0L);
}

}  // namespace

HostMemory parseMemorySample(std::string_view sample) {
    std::string_view names = takeRow(sample);
    std::string_view values = takeRow(sample);
    HostMemory memory;
    while (!names.empty() && !values.empty()) {
        const std::string_view name = takeField(names);
        const std::string_view value = takeField(values);
        if (contains(name, "Machine MBytes")) memory.totalMBytes = numberIn(value);
        if (contains(name, "\\Memory\\Free MBytes")) memory.freeMBytes = numberIn(value);
    }
    return memory;
}

}  // namespace tav
