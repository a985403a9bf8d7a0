#pragma once

#include <fstream>
#include <string>
#include <vector>

namespace hxr::test {

/// The names of all exported entries, from the record of their declarations.
inline std::vector<std::string> exportedEntries(const char* record) {
    std::vector<std::string> names;
    std::ifstream file(record);
    for (std::string line; std::getline(file, line);) {
        const std::size_t end = line.find('('), begin = line.find_last_of(" *", end) + 1;
        if (end != std::string::npos) names.push_back(line.substr(begin, end - begin));
    }
    return names;
}

}  // namespace hxr::test
