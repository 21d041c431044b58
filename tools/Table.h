#pragma once

#include <cstddef>
#include <ostream>
#include <string>
#include <vector>

namespace tav::ctl {

/// How whoever reads the output can be told things.
struct Look {
    bool hasColours = false;
    bool isUtf8 = false;
    std::size_t columns = 0;  ///< 0: as many as are wanted
    std::size_t lines = 0;
};
/// That of standard output: colours only on a terminal that has them, and not with NO_COLOR.
Look lookOfOutput();

enum class Tone { Plain, Heading, Bad, Doubtful };
/// The text in that tone, as far as the look has colours. It must be harmless already.
std::string toned(const std::string& text, Tone tone, const Look& look);

struct Column {
    std::string title;
    bool isNumber = false;  ///< stands to the right
};

/// What is printed in columns that are as wide as what stands in them, 60 characters at most, or as
/// narrow as the terminal needs. Every text goes through cellText(). Columns in which nothing
/// stands are left out.
class Table {
 public:
    struct Row {
        std::vector<std::string> cells;  ///< one for each column; empty: nothing is known
        Tone tone = Tone::Plain;         ///< of the first
    };

    explicit Table(std::vector<Column> columns) : columns_(std::move(columns)) {}

    void add(Row row) { rows_.push_back(std::move(row)); }
    bool isEmpty() const { return rows_.empty(); }
    void print(std::ostream& out, const Look& look) const;

 private:
    std::vector<Column> columns_;
    std::vector<Row> rows_;
};

}  // namespace tav::ctl
