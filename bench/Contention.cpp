#include "bench/Contention.h"

#include <sched.h>

#include <random>
#include <stdexcept>

#include "bench/Clock.h"
#include "platform/Thread.h"

namespace bench {

namespace {

void useProcessors(const cpu_set_t& set) {
    if (sched_setaffinity(0, sizeof(set), &set) != 0)
        throw std::runtime_error("cannot choose the processor to run on: sched_setaffinity");
}

}  // namespace

Rival::Rival(Scene& scene) : mScene(scene), mThread([this] { run(); }) {}

Rival::~Rival() {
    mStop = true;
    mThread.join();
}

void Rival::run() {
    std::minstd_rand random;
    std::uniform_int_distribution<int64_t> pauseNs(0, 2'000);
    while (!mStop) {
        const Side side = mSide;
        if (side == Side::kLibrary) mScene.library().trackBufferIncrement(Scene::layer(1));
        if (side == Side::kFloor) floor::incrementOfRival(Scene::layer(0));
        const int64_t end = nowNs() + pauseNs(random);
        while (nowNs() < end) {
        }
    }
}

HeldProducer::HeldProducer(Scene& scene)
      : mThread([this, &scene] {
            android::cindral::enterRealtimeScheduling();
            while (!mStop) {
                const int64_t before = nowNs();
                scene.library().trackBufferIncrement(Scene::layer(0));
                if (nowNs() - before > kPeriodNs / 2) continue;
                mHeld = false;
                return;
            }
        }) {}

void HeldProducer::check() const {
    if (!mHeld) throw std::runtime_error("the producer that should be held runs free");
}

HeldProducer::~HeldProducer() {
    mStop = true;
    mThread.join();
}

EveryProcessor::EveryProcessor() {
    cpu_set_t all;
    CPU_ZERO(&all);
    for (int processor = 0; processor < CPU_SETSIZE; ++processor) CPU_SET(processor, &all);
    useProcessors(all);
}

EveryProcessor::~EveryProcessor() {
    pinToOneProcessor();
}

void pinToOneProcessor() {
    cpu_set_t one;
    CPU_ZERO(&one);
    CPU_SET(sched_getcpu(), &one);
    useProcessors(one);
}

}  // namespace bench
