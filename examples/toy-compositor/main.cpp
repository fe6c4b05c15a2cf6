// A display compositor of fifty lines. One game queues a buffer after each 10 ms of rendering and
// one display takes a buffer every 16.7 ms; both report what they do to libcindral. One frame is
// late.

#include <cindral.h>

#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <mutex>
#include <thread>

using Clock = std::chrono::steady_clock;  // CLOCK_MONOTONIC, as the library's

constexpr char kLayer[] = "SurfaceView[com.example.game/com.example.game.MainActivity](BLAST)#1";
constexpr std::chrono::nanoseconds kVsyncPeriod{16'666'667};
constexpr std::chrono::milliseconds kRenderTime{10};
constexpr int kFrames = 150;
constexpr int kLateFrame = 100;
constexpr std::chrono::milliseconds kLateRenderTime{60};
constexpr int kMaxPending = 2;

// The buffers between the game and the display.
std::mutex queueLock;
std::condition_variable consumed;
int pending = 0;

// A client's queueBuffer: the report comes from the thread that queued, without the queue's lock,
// as it may hold the caller.
void game() {
    for (int frame = 0; frame < kFrames; ++frame) {
        std::this_thread::sleep_for(frame == kLateFrame ? kLateRenderTime : kRenderTime);
        {
            std::unique_lock<std::mutex> lock(queueLock);
            consumed.wait(lock, [] { return pending < kMaxPending; });
            ++pending;
        }
        cindralTrackBufferIncrement(kLayer);
    }
}

// The display's vsync, and the composition that takes one buffer.
void display(int frames) {
    Clock::time_point vsync = Clock::now();
    while (frames > 0) {
        std::this_thread::sleep_until(vsync += kVsyncPeriod);
        cindralTrackVsyncSignal();
        std::unique_lock<std::mutex> lock(queueLock);
        if (pending == 0) continue;
        const int left = --pending;
        --frames;
        lock.unlock();
        consumed.notify_one();
        cindralTrackBufferDecrement(kLayer, left);
    }
}

int main() {
    std::printf("libcindral is %s\n", cindralInit() ? "active" : "inactive");
    cindralSetVsyncPeriod(kVsyncPeriod.count());
    std::thread producer(game);
    display(kFrames);
    producer.join();
    std::printf("%d buffers queued and shown\n", kFrames);
}
