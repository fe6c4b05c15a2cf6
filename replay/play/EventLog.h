#pragma once

// Everything the library did in a run, kept small: a run of ten minutes has about a million events,
// and a device::Event of its own for each would take a quarter of a gigabyte.
//
// Reads like a list of device::Event; each is put together anew when it is asked for. One thread
// at a time.

#include <array>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "device/StandInDevice.h"

namespace replay {

// Texts by number, most of them kept once.
class TextPool {
  public:
    uint32_t add(const std::string& text);
    std::string_view operator[](uint32_t number) const { return mTexts[number]; }

  private:
    std::string_view store(const std::string& text);

    std::vector<std::unique_ptr<char[]>> mBlocks;
    size_t mUsed = 0;  // of the last block
    size_t mSize = 0;  // of the last block
    std::vector<std::string_view> mTexts = {""};
    std::array<uint32_t, 1024> mLatest{};  // of the texts with the same hash
};

class EventLog {
  public:
    class Iterator {
      public:
        using iterator_category = std::input_iterator_tag;
        using value_type = device::Event;
        using difference_type = std::ptrdiff_t;
        using pointer = void;
        using reference = const device::Event&;

        Iterator(const EventLog& log, size_t index) : mLog(&log), mIndex(index) {}
        // Until the iterator is moved on.
        const device::Event& operator*() {
            mLog->unpack(mIndex, mEvent);
            return mEvent;
        }
        Iterator& operator++() {
            ++mIndex;
            return *this;
        }
        bool operator==(const Iterator& other) const { return mIndex == other.mIndex; }
        bool operator!=(const Iterator& other) const { return mIndex != other.mIndex; }

      private:
        const EventLog* mLog;
        size_t mIndex;
        device::Event mEvent;
    };

    // Times are stored less `originNs`.
    void setOrigin(int64_t originNs) { mOriginNs = originNs; }
    void reserve(size_t events) { mEvents.reserve(events); }
    void push_back(const device::Event& event);

    size_t size() const { return mEvents.size(); }
    bool empty() const { return mEvents.empty(); }
    device::Event operator[](size_t index) const;
    Iterator begin() const { return {*this, 0}; }
    Iterator end() const { return {*this, size()}; }

  private:
    struct Packed {
        int64_t timeNs;
        uint32_t text;  // a log line or marker; of a call the place in mCalls
        uint32_t tag;   // of a log line
        int32_t thread;
        uint8_t kind;
        uint8_t priority;
    };
    struct Call {
        uint32_t firstArgument;
        uint16_t arguments;
        uint16_t entryPoint;
        uint32_t text;
        uint32_t defaultValue;
        uint32_t result;
    };

    uint32_t packCall(const device::Event& event);
    void unpack(size_t index, device::Event& event) const;
    void unpackCall(const Call& call, device::Event& event) const;

    int64_t mOriginNs = 0;
    std::vector<Packed> mEvents;
    std::vector<Call> mCalls;
    std::vector<int> mArguments;
    TextPool mTexts;
};

}  // namespace replay
