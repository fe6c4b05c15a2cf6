#pragma once

// "--name value" pairs of a command line.

#include <cstdint>
#include <cstdlib>
#include <map>
#include <stdexcept>
#include <string>

namespace reliability {

class Arguments {
  public:
    Arguments(int argc, char** argv, const char* usage) : mUsage(usage) {
        for (int i = 1; i < argc; i += 2) {
            if (i + 1 == argc) reject(std::string(argv[i]) + " lacks its value");
            mValues[argv[i]] = argv[i + 1];
        }
    }

    std::string text(const std::string& name, const std::string& otherwise) {
        const auto found = mValues.find(name);
        if (found == mValues.end()) return otherwise;
        std::string value = found->second;
        mValues.erase(found);
        return value;
    }

    uint64_t number(const std::string& name, uint64_t otherwise) {
        const std::string value = text(name, std::to_string(otherwise));
        char* end = nullptr;
        const uint64_t parsed = std::strtoull(value.c_str(), &end, 10);
        if (value.empty() || *end != '\0') reject(name + " wants a number, not \"" + value + '"');
        return parsed;
    }

    // All that were given have been asked for.
    void done() const {
        if (!mValues.empty()) reject("unknown option " + mValues.begin()->first);
    }

  private:
    [[noreturn]] void reject(const std::string& what) const {
        throw std::runtime_error(what + "\n" + mUsage);
    }

    const char* mUsage;
    std::map<std::string, std::string> mValues;
};

}  // namespace reliability
