#include "journal.h"

#include <filesystem>
#include <fstream>

namespace ocisim {

std::string journal_escape(const std::string& text) {
    std::string escaped;
    escaped.reserve(text.size());
    for (char c : text) {
        switch (c) {
        case '\n': escaped += "\\n"; break;
        case '\r': escaped += "\\r"; break;
        case '\t': escaped += "\\t"; break;
        default: escaped += c;
        }
    }
    return escaped;
}

std::vector<std::string> read_journal(const std::string& path) {
    std::vector<std::string> lines;
    std::ifstream in(std::filesystem::u8path(path), std::ios::binary);
    std::string line;
    while (std::getline(in, line)) {
        if (!line.empty() && line.back() == '\r') line.pop_back();
        lines.push_back(line);
    }
    return lines;
}

}  // namespace ocisim
