#pragma once

#include <fstream>
#include <functional>
#include <ostream>
#include <string>

namespace replay {

// A full disk or a reader that went away shows only now, if nobody asked before. Throws
// OutputError.
void finishOutput(std::ostream& out, const std::string& name);

// Lets `write` make a file of the name it is given, and then puts it in the place of `path`: others
// see what was there before, or all of it, also if the run is interrupted. What is no file, such as
// a pipe, is written to directly. What a killed run of this machine left half written of the same path
// goes. Throws OutputError, and what `write` throws.
void replaceFile(const std::string& path, const std::function<void(const std::string&)>& write);

// The same, for what is written as a stream.
void writeFile(const std::string& path, const std::function<void(std::ostream&)>& write);

// All that is in a file; empty if it cannot be read.
std::string contentOf(const std::string& path);

bool standardOutputIsTerminal();

// One line on standard error, in the program's name.
void complain(const std::string& text);

}  // namespace replay
