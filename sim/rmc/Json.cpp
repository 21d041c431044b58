#include "sim/rmc/Json.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <exception>
#include <iterator>
#include <memory>

namespace tav::sim {
namespace {

/// Length of the UTF-8 character (RFC 3629) that `text` begins with; 0 when it begins with none.
std::size_t characterLength(std::string_view text) {
    struct Form {
        unsigned char mask, lead;
        std::uint32_t smallest;
    };
    constexpr Form forms[] = {
        {0x80, 0x00, 0}, {0xE0, 0xC0, 0x80}, {0xF0, 0xE0, 0x800}, {0xF8, 0xF0, 0x10000}};
    const auto byte = [&](std::size_t index) { return static_cast<unsigned char>(text[index]); };
    for (std::size_t more = 0; more < std::size(forms); ++more) {
        const Form& form = forms[more];
        if ((byte(0) & form.mask) != form.lead) continue;
        if (text.size() <= more) return 0;
        std::uint32_t code = byte(0) & static_cast<unsigned char>(~form.mask);
        for (std::size_t index = 1; index <= more; ++index) {
            if ((byte(index) & 0xC0) != 0x80) return 0;
            code = code << 6 | (byte(index) & 0x3F);
        }
        const bool surrogate = code >= 0xD800 && code <= 0xDFFF;
        return code < form.smallest || code > 0x10FFFF || surrogate ? 0 : more + 1;
    }
    return 0;
}

bool isUtf8(std::string_view text) {
    while (!text.empty()) {
        const std::size_t length = characterLength(text);
        if (length == 0) return false;
        text.remove_prefix(length);
    }
    return true;
}

bool isScalar(const Json::Value& value) {
    return !value.isNull() && !value.isArray() && !value.isObject();
}

}  // namespace

std::optional<Json::Value> parseJson(std::string_view text, std::string& fault) {
    if (!isUtf8(text)) {
        fault = "it is not UTF-8 text";
        return std::nullopt;
    }
    Json::CharReaderBuilder builder;
    Json::CharReaderBuilder::strictMode(&builder.settings_);
    const std::unique_ptr<Json::CharReader> reader(builder.newCharReader());
    Json::Value document;
    try {
        if (reader->parse(text.data(), text.data() + text.size(), &document, &fault)) {
            fault.clear();
            return document;
        }
    } catch (const std::exception& error) {  // nested too deeply
        fault = error.what();
    }
    std::replace(fault.begin(), fault.end(), '\n', ' ');
    if (fault.empty()) fault = "it cannot be parsed";
    return std::nullopt;
}

const Json::Value& member(const Json::Value& object, const char* name) {
    return object.isObject() ? object[name] : Json::Value::nullSingleton();
}

std::string textOf(const Json::Value& object, const char* name) {
    const Json::Value& value = member(object, name);
    return isScalar(value) ? value.asString() : "";
}

std::int64_t numberOf(const Json::Value& object, const char* name) {
    return std::strtoll(textOf(object, name).c_str(), nullptr, 0);
}

std::string shown(const Json::Value& value) {
    if (!isScalar(value)) return "?";
    std::string text = value.asString();
    const auto control = [](char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7F; };
    std::replace_if(text.begin(), text.end(), control, '.');
    return text;
}

std::string oneLine(const Json::Value& value) {
    Json::StreamWriterBuilder builder;
    builder["indentation"] = "";
    return Json::writeString(builder, value);
}

}  // namespace tav::sim
