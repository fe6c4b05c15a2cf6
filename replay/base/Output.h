#pragma once

#include <fstream>
#include <functional>
#include <ostream>
#include <string>

namespace replay {

// A full disk or a reader that went away shows only now, if nobody asked before. Throws
// OutputError.
void finishOutput(std::ostream& out, const std::string& name);

// Creates the file, lets `write` fill it, and sees that it got there. Throws OutputError.
void writeFile(const std::string& path, const std::function<void(std::ostream&)>& write);

bool standardOutputIsTerminal();

// One line on standard error, in the program's name.
void complain(const std::string& text);

}  // namespace replay
