#include "device/Game.h"

#include <time.h>

#include <algorithm>
#include <chrono>
#include <thread>
#include <utility>

namespace device {

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;
using std::chrono::nanoseconds;

constexpr milliseconds kClassification{10};
// A busy machine may need several attempts to keep the rate for a second.
constexpr std::chrono::seconds kPatience{90};
// Who is later than that begins anew instead of catching up, which would be too fast.
constexpr milliseconds kTooLate{100};

// Buffers that are left queued in so many frames count as accumulation.
constexpr int kAccumulatingFrames = 31;

}  // namespace

Game::Game(const CindralLibrary& library, std::vector<std::string> layers, int64_t periodNs)
      : mLibrary(library), mLayers(std::move(layers)), mPeriodNs(periodNs) {}

bool Game::start(const std::function<void()>& classified) const {
    if (!mLibrary.init()) return false;
    mLibrary.setVsyncPeriod(static_cast<long>(mPeriodNs));
    for (const std::string& layer : mLayers) {
        mLibrary.trackBufferIncrement(layer.c_str());
        classified ? classified() : std::this_thread::sleep_for(kClassification);
    }
    return true;
}

bool Game::playUntil(const std::function<bool()>& built) const {
    const auto end = Clock::now() + kPatience;
    for (auto next = Clock::now(); next < end; next += nanoseconds(mPeriodNs)) {
        std::this_thread::sleep_until(next);
        if (Clock::now() > next + kTooLate) next = Clock::now();
        queue();
        if (built()) return true;
        consume();
    }
    return false;
}

void Game::startPacing() const {
    const char* const layer = mLayers.front().c_str();
    for (int i = 0; i < kAccumulatingFrames; ++i) mLibrary.trackBufferDecrement(layer, 1);
    mLibrary.trackBufferDecrement(layer, 0);
}

void Game::queue() const {
    for (const std::string& layer : mLayers) mLibrary.trackBufferIncrement(layer.c_str());
}

void Game::consume() const {
    for (const std::string& layer : mLayers) mLibrary.trackBufferDecrement(layer.c_str(), 0);
}

}  // namespace device
