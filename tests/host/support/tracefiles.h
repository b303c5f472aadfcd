// The provider's trace files beside its program, read as ASCII: the files are UTF-16 with a few
// narrow lines, and the tests look for ASCII text.
#pragma once

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

namespace orvtest::host {

inline std::string TraceText(const std::filesystem::path& dir)
{
    std::string text;
    for (const auto& entry : std::filesystem::directory_iterator(dir))
        if (std::ifstream file(entry.path(), std::ios::binary); entry.path().extension() == ".log")
            text.append(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
    std::erase(text, '\0');
    return text;
}

} // namespace orvtest::host
