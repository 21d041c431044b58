#include "sim/rmc/Json.h"

#include <algorithm>
#include <exception>
#include <memory>

namespace tav::sim {

std::optional<Json::Value> parseJson(std::string_view text, std::string& fault) {
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

std::string shown(const Json::Value& value) {
    if (value.isNull() || value.isArray() || value.isObject()) return "?";
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
