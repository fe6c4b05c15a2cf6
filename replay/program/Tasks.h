#pragma once

#include <stdexcept>

#include "replay/program/CommandLine.h"

namespace replay {

enum ExitStatus { kDone = 0, kOutputFailed = 1, kBadInput = 2, kReplayFailed = 3, kDiffers = 4 };

// What was asked for could not be written. what() is one line.
class OutputError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

// Does what the command line asks for. Throws InputError, OutputError and ReplayError.
ExitStatus execute(const CommandLine& line);

// One line on standard error, in the program's name.
void complain(std::string text);

}  // namespace replay
