#pragma once

#include <stdexcept>

namespace replay {

// Something the user gave cannot be used. what() is one line that says where, what, and what to do.
class InputError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

// What was asked for could not be written. what() is one line.
class OutputError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

// The replay itself went wrong: the library could not be run, or the run ended in a deadlock.
// what() may have many lines.
class ReplayError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

}  // namespace replay
