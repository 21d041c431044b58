#include "core/JsonText.h"

#include <json/writer.h>

namespace tav {

std::string compactJson(const Json::Value& value) {
    Json::StreamWriterBuilder builder;
    builder["indentation"] = "";
    std::string text = Json::writeString(builder, value);
    if (text.ends_with('\n')) text.pop_back();
    return text;
}

}  // namespace tav
