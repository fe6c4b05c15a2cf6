#pragma once

#include <cstdint>
#include <string>

namespace sim {

// A number for a sequence of numbers and texts; the same on every machine.
class Digest {
  public:
    void add(uint64_t value) {
        constexpr uint64_t kFactor = 0x9e3779b97f4a7c15u;  // odd, so that nothing gets lost
        mValue = (mValue ^ value) * kFactor;
        mValue ^= mValue >> 32;
    }
    void add(const std::string& text) {
        add(text.size());
        for (const char c : text) add(static_cast<unsigned char>(c));
    }

    uint64_t value() const { return mValue; }

  private:
    uint64_t mValue = 0;
};

}  // namespace sim
