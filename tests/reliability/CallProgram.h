#pragma once

// Generated programs of entry-point calls.

#include <cstdint>
#include <string>
#include <vector>

namespace reliability {

inline constexpr int64_t kMs = 1'000'000;
inline constexpr int64_t kSecond = 1'000'000'000;

// Whether threads change, too, between the accesses of fields that are shared without a lock.
#ifdef CINDRAL_EXPLORE
inline constexpr bool kShowsRaces = true;
#else
inline constexpr bool kShowsRaces = false;
#endif
// How late a load may be there: many times what a store takes in a processor, and far less than any
// deadline.
inline constexpr int64_t kStaleForNs = 1'000;

// Draws the same numbers from the same seed, everywhere.
class Dice {
  public:
    explicit Dice(uint64_t seed);
    uint32_t below(uint32_t limit);

  private:
    uint64_t mState;
};

// What one thread does next. The letters are those of a program's text.
enum class Act : char {
    kQueue = 'q',    // a: layer
    kConsume = 'c',  // a: layer, b: pending
    kVsync = 'v',
    kPeriod = 'p',  // a: index of periodNs
    kInit = 'i',
    kClear = 'x',
    kDelay = 'd',  // a: entry point, b: ms that its calls take from now on
    kMood = 'm',   // a: the device's answers from now on
};

struct Op {
    Act act = Act::kVsync;
    int a = 0;
    int b = 0;
    int afterUs = 0;  // slept before the act
};

// The layers of a program: three games, one that is none, one without a package, and a light one.
inline constexpr int kLayers = 6;
inline constexpr int kGames = 3;
// Two more games, that no program names.
inline constexpr int kFreshGame = kLayers;
inline constexpr int kFreshGames = 2;
const char* layerName(int layer);
// Vsync periods of 60, 90 and 120 Hz, one of no display, and an absurd one.
inline constexpr int kPeriods = 5;
inline constexpr int kGoodPeriods = 3;
int64_t periodNs(int index);

// The undisturbed beginning queues so many frames at once, at an interval, so that their rate is that
// of the period; with the first frame of the eleventh burst the measuring period closes.
inline constexpr int kBurst[kGoodPeriods] = {7, 11, 15};
inline constexpr int kBursts = 10;
inline constexpr int64_t kBurstIntervalNs = 120 * kMs;
int framesToClose(int period);

struct CallProgram {
    // The device: g frame regulator, p headroom regulator, d debug switch, n negative boosts,
    // t trace tags, f fickle answers. And s: in the end everything has to work as ever;
    // u: the last thing before the unload is a new layer; c: nothing disturbs the end, the unload included.
    std::string features;
    int games = 1;          // layers that the undisturbed beginning plays
    int frames = 0;         // so many; 0 for none, and then nothing is initialised either
    int pending = 0;        // consumed buffers at its end that left others queued
    int period = 0;         // index of its vsync period
    int unloadAfterMs = 0;  // from the end of the last thread
    int failThread = 0;     // the creation of a thread, the program's own counted, that fails
    std::vector<std::vector<Op>> threads;

    bool has(char feature) const { return features.find(feature) != std::string::npos; }
    bool uses(Act act) const;
    // Whether any of its calls names a layer other than the first.
    bool isSolo() const;
};

CallProgram generate(uint64_t seed);
// One line that parse() reads back. parse() throws std::runtime_error with what is wrong.
std::string toText(const CallProgram& program);
CallProgram parse(const std::string& text);

}  // namespace reliability
