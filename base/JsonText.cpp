#include "base/JsonText.h"

#include <algorithm>
#include <cstddef>
#include <string_view>

#include <json/writer.h>

#include "base/Utf8.h"

namespace tav {
namespace {

constexpr std::string_view replacementCharacter = "\xEF\xBF\xBD";

}  // namespace

std::string wellFormedUtf8(std::string_view text) {
    std::string wellFormed;
    wellFormed.reserve(text.size());
    for (std::string_view rest = text; !rest.empty();) {
        const std::size_t length = utf8Length(rest);
        wellFormed += length == 0 ? replacementCharacter : rest.substr(0, length);
        rest.remove_prefix(std::max<std::size_t>(length, 1));
    }
    return wellFormed;
}

Json::Value jsonText(const std::string& text) {
    return wellFormedUtf8(text);
}

std::string compactJson(const Json::Value& value) {
    Json::StreamWriterBuilder builder;
    builder["indentation"] = "";
    std::string text = Json::writeString(builder, value);
    if (text.ends_with('\n')) text.pop_back();
    return text;
}

}  // namespace tav
