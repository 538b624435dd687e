#include "table.hpp"

#include <csv.h>

#include <array>
#include <fstream>
#include <memory>

#include "failure.hpp"
#include "files.hpp"

namespace app {

namespace {

struct Reading {
    std::vector<Row> rows;
    Row row;
};

void end_field(void* text, size_t length, void* user) {
    static_cast<Reading*>(user)->row.emplace_back(static_cast<const char*>(text), length);
}

void end_row(int, void* user) {
    auto& reading = *static_cast<Reading*>(user);
    reading.rows.push_back(std::move(reading.row));
    reading.row.clear();
}

}  // namespace

std::vector<Row> read_csv(const std::string& path) {
    check_input(path);
    std::ifstream file(path, std::ios::binary);
    csv_parser parser;
    if (csv_init(&parser, CSV_STRICT | CSV_STRICT_FINI) != 0)
        throw Failure("no memory for a table");
    const std::unique_ptr<csv_parser, decltype(&csv_free)> owner(&parser, csv_free);
    Reading reading;
    std::array<char, 65536> block;
    while (file.read(block.data(), block.size()) || file.gcount() > 0) {
        const auto size = static_cast<size_t>(file.gcount());
        if (csv_parse(&parser, block.data(), size, end_field, end_row, &reading) != size) break;
    }
    if (!file.eof() || csv_error(&parser) || csv_fini(&parser, end_field, end_row, &reading) != 0) {
        throw Failure(path + ": is no table in CSV, after line " +
                      std::to_string(reading.rows.size()));
    }
    return std::move(reading.rows);
}

std::string csv_line(const Row& row) {
    std::string line;
    for (const std::string& field : row) {
        if (!line.empty() || &field != &row.front()) line += ',';
        if (field.find_first_of(",\"\r\n") == std::string::npos) {
            line += field;
            continue;
        }
        std::string quoted(2 * field.size() + 2, ' ');
        quoted.resize(csv_write(quoted.data(), quoted.size(), field.data(), field.size()));
        line += quoted;
    }
    return line + "\n";
}

}  // namespace app
