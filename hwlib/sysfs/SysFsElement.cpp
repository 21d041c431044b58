#include "hwlib/sysfs/SysFsElement.h"

#include <array>

#include "base/FileReading.h"

std::string SysFsElement::getName() const {
    return std::string(name_);
}

std::string SysFsElement::getPath() const {
    if (directory_.empty()) return std::string(name_);
    std::string path;
    path.reserve(directory_.size() + 1 + name_.size());
    return path.append(directory_).append("/").append(name_);
}

std::string SysFsElement::getValueSeparator() const {
    return {};
}

std::string SysFsElement::getValue() const {
    return {};
}

bool SysFsElement::loadStatData() {
    struct stat data;
    if (::lstat(getPath().c_str(), &data) != 0) return false;
    stat_ = std::make_unique<struct stat>(data);
    return true;
}

std::string SysFsElement::getPermissions() const {
    if (stat_ == nullptr) return {};
    std::string text = "rwxrwxrwx";
    for (std::size_t i = 0; i < text.size(); ++i) {
        if ((stat_->st_mode & (0400U >> i)) == 0) text[i] = '-';
    }
    return text;
}

bool SysFsElement::isAt(std::string_view path) const noexcept {
    if (directory_.empty()) return path == name_;
    return path.size() == directory_.size() + 1 + name_.size() && path.ends_with(name_) &&
           path[directory_.size()] == '/' && path.starts_with(directory_);
}

std::string SysFsAttrib::getValueSeparator() const {
    return " = ";
}

std::string SysFsAttrib::getValue() const {
    return tav::_makePretty(readData());
}

std::string SysFsAttrib::readData() const {
    std::array<char, tav::attributeLimit> room;
    return std::string(tav::readAttribute(getPath().c_str(), room).valueOr(""));
}

std::string SysFsLink::getValueSeparator() const {
    return " -> ";
}

std::string SysFsLink::getValue() const {
    return tav::linkTarget(getPath().c_str()).valueOr(std::string());
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
