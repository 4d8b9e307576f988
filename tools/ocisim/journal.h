// The journal: one line per thing the library did to the simulated server, in order.
#pragma once

#include <string>
#include <vector>

namespace ocisim {

// Statement texts are journaled on one line: line feed, carriage return and tab are
// written as \n, \r and \t. Backslashes stay as they are, so Windows paths read plainly.
std::string journal_escape(const std::string& text);

// The lines of a journal file, without their line ends; empty when there is no file.
std::vector<std::string> read_journal(const std::string& path);

}  // namespace ocisim
