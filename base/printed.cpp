#include "base/printed.h"

#include <array>
#include <cstdarg>
#include <cstdio>

std::string tav::printed(const char* format, ...) {
    std::array<char, 1024> text{};
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(text.data(), text.size(), format, arguments);
    va_end(arguments);
    return text.data();
}
