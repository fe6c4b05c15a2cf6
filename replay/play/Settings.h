#pragma once

// What the device of a replay answers: its properties and what it thinks of the game.

#include <map>
#include <string>

namespace replay {

class Settings {
  public:
    // Everything switched on, with the library's markers and log lines.
    Settings();

    // Takes "PROPERTY=VALUE". Throws InputError for a property that the library does not read or a
    // value that is not of its type and range.
    void set(const std::string& assignment);

    // Only what differs from a device on which nothing was ever set.
    const std::map<std::string, std::string>& properties() const { return mProperties; }

  private:
    std::map<std::string, std::string> mProperties;
};

// Throws InputError for a property that the library does not read.
bool takesWholeNumbers(const std::string& property);

// A line for each property: its name, the values it takes and what it does.
std::string describeProperties();

}  // namespace replay
