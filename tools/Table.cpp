#include "tools/Table.h"

#include <algorithm>
#include <clocale>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include <langinfo.h>
#include <unistd.h>

#include <sys/ioctl.h>

#include "tools/CellText.h"

namespace tav::ctl {
namespace {

constexpr std::size_t widestCell = 60;
constexpr std::size_t narrowestCell = 8;
constexpr std::string_view gap = "  ";
constexpr const char* unknown = "-";

bool hasColours() {
    const char* const refused = std::getenv("NO_COLOR");
    const char* const terminal = std::getenv("TERM");
    return ::isatty(STDOUT_FILENO) == 1 && (refused == nullptr || *refused == '\0') &&
           terminal != nullptr && std::strcmp(terminal, "dumb") != 0;
}

const char* colourOf(Tone tone) {
    switch (tone) {
        case Tone::Heading:
            return "\x1B[1m";
        case Tone::Bad:
            return "\x1B[31m";
        case Tone::Doubtful:
            return "\x1B[33m";
        case Tone::Plain:
            break;
    }
    return "";
}

std::size_t sumOf(const std::vector<std::size_t>& widths) {
    std::size_t sum = 0;
    for (const std::size_t width : widths) {
        if (width > 0) sum += width + (sum > 0 ? gap.size() : 0);
    }
    return sum;
}

/// Takes from the widest, a column at a time, until all fit or none can give any more.
void squeeze(std::vector<std::size_t>& widths, std::size_t columns) {
    for (std::size_t sum = sumOf(widths); columns > 0 && sum > columns; --sum) {
        const auto widest = std::max_element(widths.begin(), widths.end());
        if (*widest <= narrowestCell) return;
        --*widest;
    }
}

void appendCell(std::string& line, const std::string& text, std::size_t width, bool isRight) {
    const std::size_t taken = columnsOf(text);
    const std::string blanks(width - std::min(width, taken), ' ');
    line += isRight ? blanks + text : text + blanks;
}

}  // namespace

Look lookOfOutput() {
    std::setlocale(LC_CTYPE, "");
    Look look;
    look.hasColours = hasColours();
    look.isUtf8 = std::string_view(::nl_langinfo(CODESET)) == "UTF-8";
    winsize size{};
    if (::ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0) {
        look.columns = size.ws_col;
        look.lines = size.ws_row;
    }
    return look;
}

std::string toned(const std::string& text, Tone tone, const Look& look) {
    const std::string colour = look.hasColours ? colourOf(tone) : "";
    return colour.empty() ? text : colour + text + "\x1B[0m";
}

void Table::print(std::ostream& out, const Look& look) const {
    std::vector<std::size_t> widths(columns_.size(), 0);
    std::vector<std::vector<std::string>> shown;
    shown.reserve(rows_.size());
    for (const Row& row : rows_) {
        std::vector<std::string>& cells = shown.emplace_back();
        cells.reserve(columns_.size());
        for (std::size_t i = 0; i < columns_.size(); ++i) {
            cells.push_back(cellText(row.cells.at(i), widestCell, look.isUtf8));
            widths[i] = std::max(widths[i], columnsOf(cells.back()));
        }
    }
    for (std::size_t i = 0; i < columns_.size(); ++i) {
        if (widths[i] > 0) widths[i] = std::max(widths[i], columns_[i].title.size());
    }
    squeeze(widths, look.columns);

    const auto printLine = [&](const auto& textOf, Tone first, Tone rest) {
        std::string line;
        Tone tone = first;
        for (std::size_t i = 0; i < columns_.size(); ++i) {
            if (widths[i] == 0) continue;
            if (!line.empty()) line += gap;
            std::string cell;
            appendCell(cell, cellText(textOf(i), widths[i], look.isUtf8), widths[i],
                       columns_[i].isNumber);
            line += toned(cell, tone, look);
            tone = rest;
        }
        line.erase(line.find_last_not_of(' ') + 1);
        out << line << '\n';
    };
    printLine([&](std::size_t i) { return columns_[i].title; }, Tone::Heading, Tone::Heading);
    for (std::size_t row = 0; row < rows_.size(); ++row) {
        const auto& cells = shown[row];
        printLine([&](std::size_t i) { return cells[i].empty() ? unknown : cells[i]; },
                  rows_[row].tone, Tone::Plain);
    }
}

}  // namespace tav::ctl
