// What the engine's rule tables share: a rule, and the small helpers its statements use.
// The tables live by area (instance, files, logs, ASM), each in its rules_*.cpp.
#pragma once

#include "sql_engine.h"

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace ocisim {

// A statement template (%1..%9 for its parts) and what it does when a text matches it.
struct Engine::Rule {
    std::string pattern;
    std::function<ResultSet(Engine&, const std::vector<std::string>&, Binds&)> run;
};

namespace rules {

using Rows = std::vector<std::vector<std::string>>;
// The parts a rule's template captured.
using Args = const std::vector<std::string>&;

ResultSet query(std::size_t columns, Rows rows);
// A statement that returns no rows.
ResultSet done();
// A number out of a statement text; ORA-00904 when it isn't one, as for a bad column.
std::int64_t integer_argument(const std::string& text);
bool is_identifier(const std::string& text);
bool starts_with(const std::string& text, const std::string& prefix);
// Joins with the separator the folder already uses (a backslash unless it has only slashes).
std::string join_path(const std::string& folder, const std::string& file);
// A file of `size` bytes standing for the contents of a file the simulator only knows by size.
bool write_filler(const std::string& path, std::int64_t size);

}  // namespace rules
}  // namespace ocisim
