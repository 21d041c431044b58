#include "hwlib/sysfs/SysFsElement.h"

#include <array>
#include <utility>

#include "base/FileReading.h"

SysFsElement::SysFsElement(std::string directory, std::string name)
    : own_(std::make_unique<Own>(Own{std::move(directory), std::move(name), std::nullopt})),
      directory_(own_->directory),
      name_(own_->name) {}

std::string SysFsElement::getName() const {
    return std::string(name_);
}

std::string SysFsElement::getPath() const {
    std::string path;
    path.reserve(directory_.size() + 1 + name_.size());
    path.append(directory_);
    if (!path.empty() && path.back() != '/') path += '/';
    return path.append(name_);
}

std::string SysFsElement::getValueSeparator() const {
    return {};
}

std::string SysFsElement::getValue() const {
    return {};
}

tav::Answer<std::string> SysFsElement::readValue() const {
    return tav::Lack::Absent;
}

bool SysFsElement::loadStatData() {
    struct stat data;
    if (::lstat(getPath().c_str(), &data) != 0) return false;
    if (own_ == nullptr) own_ = std::make_unique<Own>();
    own_->stat = data;
    return true;
}

const struct stat* SysFsElement::getStat() const {
    return own_ != nullptr && own_->stat ? &*own_->stat : nullptr;
}

std::string SysFsElement::getPermissions() const {
    const struct stat* const data = getStat();
    if (data == nullptr) return {};
    std::string text = "rwxrwxrwx";
    for (std::size_t i = 0; i < text.size(); ++i) {
        if ((data->st_mode & (0400U >> i)) == 0) text[i] = '-';
    }
    return text;
}

std::string SysFsAttrib::getValueSeparator() const {
    return " = ";
}

std::string SysFsAttrib::getValue() const {
    return readValue().valueOr(std::string());
}

tav::Answer<std::string> SysFsAttrib::readValue() const {
    auto data = readData();
    if (data) *data = tav::_makePretty(*data);
    return data;
}

tav::Answer<std::string> SysFsAttrib::readData() const {
    std::array<char, tav::attributeLimit> room;
    const auto text = tav::readAttribute(getPath().c_str(), room);
    if (!text) return text.lack();
    return std::string(*text);
}

std::string SysFsLink::getValueSeparator() const {
    return " -> ";
}

std::string SysFsLink::getValue() const {
    return readValue().valueOr(std::string());
}

tav::Answer<std::string> SysFsLink::readValue() const {
    return tav::linkTarget(getPath().c_str());
}

std::string tav::_makePretty(std::string_view text) {
    constexpr std::string_view blanks = " \t\n\v\f\r";
    text = text.substr(0, text.find('\0'));
    std::string pretty;
    pretty.reserve(text.size());
    while (true) {
        const std::size_t start = text.find_first_not_of(blanks);
        if (start == std::string_view::npos) return pretty;
        text.remove_prefix(start);
        const std::string_view word = text.substr(0, text.find_first_of(blanks));
        if (!pretty.empty()) pretty += ' ';
        pretty += word;
        text.remove_prefix(word.size());
    }
}
