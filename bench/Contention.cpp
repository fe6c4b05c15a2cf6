#include "bench/Contention.h"

#include <sched.h>

#include <stdexcept>

#include "bench/PairedRun.h"
#include "platform/Thread.h"

namespace bench {

namespace {

void useProcessors(const cpu_set_t& set) {
    if (sched_setaffinity(0, sizeof(set), &set) != 0)
        throw std::runtime_error("cannot choose the processor to run on: sched_setaffinity");
}

}  // namespace

Rivals::Rivals(Scene& scene, int count) : mScene(scene) {
    for (int i = 0; i < count; ++i) {
        const char* layer = i == 0 ? Scene::layer(1) : Scene::ignoredLayer(i - 1);
        mThreads.emplace_back([this, layer] { run(layer); });
    }
}

Rivals::~Rivals() {
    mStop = true;
    for (std::thread& thread : mThreads) thread.join();
}

void Rivals::run(const char* layer) {
    while (!mStop) {
        const Side side = mSide;
        if (side == Side::kLibrary) {
            mScene.library().trackBufferIncrement(layer);
        } else if (side == Side::kFloor) {
            floor::layerLockNamed(layer);
        } else {
            sched_yield();
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
