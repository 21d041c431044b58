#include "collector/ClientEvent.h"

#include <algorithm>
#include <memory>
#include <stdexcept>
#include <string_view>

#include <json/reader.h>

#include "base/JsonText.h"
#include "core/Log.h"

namespace {

constexpr tav::ModuleLog logger{"TAV_SERVER"};

bool isDigit(char c) {
    return c >= '0' && c <= '9';
}

std::size_t digitsIn(std::string_view text) {
    return static_cast<std::size_t>(std::find_if_not(text.begin(), text.end(), isDigit) -
                                    text.begin());
}

/// -?(0|[1-9][0-9]*)(\.[0-9]+)?([eE][+-]?[0-9]+)?
bool isNumber(std::string_view text) {
    if (text.starts_with('-')) text.remove_prefix(1);
    const std::size_t whole = digitsIn(text);
    if (whole == 0 || (whole > 1 && text[0] == '0')) return false;
    text.remove_prefix(whole);
    if (text.starts_with('.')) {
        const std::size_t places = digitsIn(text.substr(1));
        if (places == 0) return false;
        text.remove_prefix(1 + places);
    }
    if (text.starts_with('e') || text.starts_with('E')) {
        text.remove_prefix(1);
        if (text.starts_with('+') || text.starts_with('-')) text.remove_prefix(1);
        return !text.empty() && digitsIn(text) == text.size();
    }
    return text.empty();
}

/// The length of the string that the text begins with; 0 when it has no end or holds a control
/// character.
std::size_t stringLength(std::string_view text) {
    for (std::size_t i = 1; i < text.size(); ++i) {
        if (static_cast<unsigned char>(text[i]) < ' ') return 0;
        if (text[i] == '"') return i + 1;
        if (text[i] == '\\') ++i;
    }
    return 0;
}

/// The parser lets comments, odd numbers and control characters through, its strict mode or not.
const char* whyLax(std::string_view text) {
    constexpr std::string_view numberStart = "-+.0123456789";
    constexpr std::string_view numberCharacters = "-+.0123456789eE";
    while (!text.empty()) {
        std::size_t length = 1;
        if (text[0] == '"') {
            length = stringLength(text);
            if (length == 0) return "A string has no end, or holds a control character.";
        } else if (text[0] == '/' || text[0] == '#') {
            return "There is a comment.";
        } else if (numberStart.find(text[0]) != std::string_view::npos) {
            length = std::min(text.find_first_not_of(numberCharacters), text.size());
            if (!isNumber(text.substr(0, length))) return "A number has an unknown form.";
        }
        text.remove_prefix(length);
    }
    return nullptr;
}

}  // namespace

std::optional<Json::Value> tav::parseStrictJson(const std::string& text) {
    Json::CharReaderBuilder builder;
    Json::CharReaderBuilder::strictMode(&builder.settings_);
    builder["strictRoot"] = false;
    const std::unique_ptr<Json::CharReader> reader(builder.newCharReader());
    Json::Value value;
    std::string errors;
    try {
        const bool isParsed =
            reader->parse(text.data(), text.data() + text.size(), &value, &errors);
        const char* const why = isParsed ? whyLax(text) : nullptr;
        if (isParsed && why == nullptr) return value;
        if (why != nullptr) errors = why;
    } catch (const std::exception& failure) {  // it is nested too deeply
        errors = failure.what();
    }
    logger.debug(here(), "Error: %s", errors.c_str());
    return std::nullopt;
}

std::optional<Json::Value> tav::parseClientEvent(const std::string& text) {
    std::optional<Json::Value> event = parseStrictJson(wellFormedUtf8(text));
    if (event && (!event->isObject() || event->size() < 2)) event.reset();
    return event;
}
