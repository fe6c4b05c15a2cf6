#pragma once

#include <functional>
#include <string>

namespace replay {

// Lets `write` make a file of the name it is given, and then puts it in the place of `path`: others
// see what was there before, or all of it. Throws OutputError, and what `write` throws.
void replaceFile(const std::string& path, const std::function<void(const std::string&)>& write);

void writeWhole(const std::string& path, const std::string& text);

// Empty if it cannot be read.
std::string contentOf(const std::string& path);

}  // namespace replay
