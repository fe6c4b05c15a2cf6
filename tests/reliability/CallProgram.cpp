#include "tests/reliability/CallProgram.h"

#include <algorithm>
#include <cstdio>
#include <sstream>
#include <stdexcept>

#include "sim/SplitMix64.h"

namespace reliability {

namespace {

constexpr const char* kNames[kLayers + kFreshGames] = {
        "SurfaceView[com.example.game/com.example.game.Main](BLAST)#1",
        "SurfaceView[com.example.other/com.example.other.Main](BLAST)#2",
        "SurfaceView[com.example.third/com.example.third.Main](BLAST)#3",
        "SurfaceView[com.example.video/com.example.video.Main](BLAST)#4",
        "StatusBar#5",
        "SurfaceView[com.example.light/com.example.light.Main](BLAST)#6",
        "SurfaceView[com.example.fresh/com.example.fresh.Main](BLAST)#7",
        "SurfaceView[com.example.fresher/com.example.fresher.Main](BLAST)#8",
};

constexpr int64_t kPeriodsNs[kPeriods] = {16'666'667, 11'111'111, 8'333'333, 20'000'000, -5};

constexpr int kAccumulation = 32;
constexpr int kMostThreads = 4;

class Generator {
  public:
    explicit Generator(uint64_t seed) : mDice(seed) {}

    CallProgram program() {
        drawDevice();
        drawBeginning();
        const uint32_t threads = 1 + below(kMostThreads);
        for (uint32_t i = 0; i < threads; ++i) mProgram.threads.push_back(thread());
        if (mGames == kGames) bringThird();
        if (oneIn(6)) replaceClient();
        if (mProgram.frames == 0) start(mProgram.threads[0]);
        const int waits[] = {0, 0, 1, 20, 300, 1100};
        mProgram.unloadAfterMs = pick(waits);
        if (oneIn(10)) mProgram.failThread = 1 + static_cast<int>(below(6));
        if (oneIn(3)) meetReleases();
        if (kShowsRaces && mProgram.frames != 0 && oneIn(4)) meetCreation();
        return mProgram;
    }

  private:
    uint32_t below(uint32_t limit) { return mDice.below(limit); }
    bool oneIn(uint32_t n) { return below(n) == 0; }
    template <typename T, size_t N>
    T pick(const T (&values)[N]) {
        return values[below(N)];
    }

    void drawDevice() {
        std::string& features = mProgram.features;
        const char* const kinds[] = {"gp", "gp", "gp", "gp", "g", "p"};
        features = pick(kinds);
        if (!oneIn(4)) features += 'd';
        if (oneIn(2)) features += 'n';
        if (oneIn(2)) features += 't';
        if (oneIn(8)) features += 'f';
        if (oneIn(2)) features += 's';
        if (oneIn(4)) features += 'u';
    }

    void drawBeginning() {
        const int games[] = {1, 1, 2, 2, 3};
        mGames = pick(games);
        mProgram.games = oneIn(3) ? mGames : std::min(mGames, 2);
        mProgram.period = static_cast<int>(oneIn(3) ? below(kGoodPeriods) : 0);
        if (oneIn(6)) return;
        const int frames = framesToClose(mProgram.period);
        mProgram.frames = oneIn(3) ? frames - 1 - static_cast<int>(below(3)) : frames;
        if (oneIn(2)) mProgram.pending = kAccumulation;
    }

    // When the oldest layer has been silent for a second its place is free: the third comes, at the
    // very moment at which the oldest one returns.
    void bringThird() {
        constexpr int kSilenceUs = 2'000'000;
        for (const int layer : {2, 0}) {
            std::vector<Op> ops{{Act::kQueue, layer, 0, kSilenceUs}};
            for (uint32_t i = below(5); i > 0; --i)
                ops.push_back({Act::kQueue, layer, 0, oneIn(2) ? 0 : afterUs()});
            mProgram.threads.push_back(std::move(ops));
        }
    }

    // The module's client is replaced while a checker asks it.
    void replaceClient() {
        const auto layer = static_cast<int>(below(kLayers));
        mProgram.threads.push_back({{Act::kDelay, 2, 50, 0},
                                    {Act::kQueue, layer, 0, 0},
                                    {Act::kClear, 0, 0, 1000},
                                    {Act::kInit, 0, 0, 0},
                                    {Act::kDelay, 2, 0, afterUs()}});
    }

    // Each vsync ends the timer of the one before, and its release meets a buffer.
    void meetReleases() {
        std::vector<Op> vsyncs{{Act::kVsync, 0, 0, 0}}, buffers;
        for (uint32_t i = 12 + below(20); i > 0; --i) {
            vsyncs.push_back({Act::kVsync, 0, 0, 1000});
            buffers.push_back({Act::kQueue, 0, 0, 1000});
        }
        mProgram.threads.push_back(std::move(vsyncs));
        mProgram.threads.push_back(std::move(buffers));
    }

    // Other calls meet the frame that completes the measurement, with which the environment is built.
    void meetCreation() {
        constexpr int kIntervalUs = kBurstIntervalNs / 1000;
        mProgram.frames = framesToClose(mProgram.period) - 1;
        mProgram.threads.push_back({{Act::kQueue, 0, 0, kIntervalUs}});
        for (int i = 0; i < 2; ++i) {
            const Act acts[] = {Act::kVsync, Act::kPeriod, Act::kConsume};
            const Op op{pick(acts), 0, static_cast<int>(below(2)), 0};
            mProgram.threads.push_back({op, op});
            mProgram.threads.back()[0].afterUs = kIntervalUs;
            if (op.act == Act::kPeriod) mProgram.threads.back()[1].a = 1;
        }
    }

    void start(std::vector<Op>& ops) const {
        ops.insert(ops.begin(), {{Act::kInit, 0, 0, 0}, {Act::kPeriod, mProgram.period, 0, 0}});
    }

    std::vector<Op> thread() {
        const uint32_t role = below(5);
        std::vector<Op> ops(3 + below(8));
        const int layer = anyLayer();
        for (Op& op : ops) op = role == 4 ? managing() : reporting(role, layer);
        return ops;
    }

    int anyLayer() {
        if (oneIn(12)) return kGames + static_cast<int>(below(kLayers - kGames));
        return static_cast<int>(below(static_cast<uint32_t>(mGames)));
    }

    // Most often a frame, else at once, a bit, or a stall.
    int afterUs() {
        const auto frame = static_cast<int>(kPeriodsNs[mProgram.period] / 1000);
        const int common[] = {frame, frame, frame, 0, 0, 1000, frame / 2, 2 * frame};
        const int rare[] = {40'000, 140'000, 1'050'000};
        return oneIn(12) ? pick(rare) : pick(common);
    }

    Op reporting(uint32_t role, int layer) {
        if (role == 0) return {Act::kVsync, 0, 0, afterUs()};
        if (role == 1) return {Act::kConsume, layer, static_cast<int>(below(2)), afterUs()};
        return {Act::kQueue, layer, 0, afterUs()};
    }

    Op managing() {
        constexpr Act kActs[] = {Act::kInit,  Act::kClear, Act::kPeriod, Act::kPeriod, Act::kDelay,
                                 Act::kQueue, Act::kQueue, Act::kMood,   Act::kConsume};
        const Act act = pick(kActs);
        Op op{act, anyLayer(), 0, afterUs()};
        if (act == Act::kPeriod) op.a = static_cast<int>(below(oneIn(4) ? kPeriods : kGoodPeriods));
        if (act == Act::kMood) op.a = static_cast<int>(below(8));
        if (act == Act::kDelay) {
            constexpr int kDelaysMs[] = {0, 0, 1, 10, 50, 5'000, 12'000};
            op.a = static_cast<int>(below(8));
            op.b = pick(kDelaysMs);
        }
        return op;
    }

    Dice mDice;
    CallProgram mProgram;
    int mGames = 1;
};

[[noreturn]] void rejectText(const std::string& word) {
    throw std::runtime_error("cannot read \"" + word +
                             "\" in the program: take the text as a campaign printed it");
}

Op parseOp(const std::string& word) {
    Op op;
    char letter = 0;
    if (std::sscanf(word.c_str(), "%c%d,%d@%d", &letter, &op.a, &op.b, &op.afterUs) != 4 ||
        std::string("qcvpixdm").find(letter) == std::string::npos || op.a < 0 || op.a >= 8) {
        rejectText(word);
    }
    op.act = static_cast<Act>(letter);
    const bool names = op.act == Act::kQueue || op.act == Act::kConsume;
    if ((names && op.a >= kLayers) || (op.act == Act::kPeriod && op.a >= kPeriods))
        rejectText(word);
    return op;
}

}  // namespace

Dice::Dice(uint64_t seed) : mState(seed * 0x9e3779b97f4a7c15u) {}

uint32_t Dice::below(uint32_t limit) {
    return static_cast<uint32_t>(((sim::splitMix64(mState) >> 32) * limit) >> 32);
}

int framesToClose(int period) {
    return kBursts * kBurst[period] + 1;
}

const char* layerName(int layer) {
    return kNames[layer];
}

int64_t periodNs(int index) {
    return kPeriodsNs[index];
}

bool CallProgram::uses(Act act) const {
    return std::any_of(threads.begin(), threads.end(), [act](const auto& ops) {
        return std::any_of(ops.begin(), ops.end(), [act](const Op& op) { return op.act == act; });
    });
}

bool CallProgram::isSolo() const {
    const auto isOther = [](const Op& op) {
        return (op.act == Act::kQueue || op.act == Act::kConsume) && op.a != 0;
    };
    return games == 1 && std::none_of(threads.begin(), threads.end(), [&](const auto& ops) {
               return std::any_of(ops.begin(), ops.end(), isOther);
           });
}

CallProgram generate(uint64_t seed) {
    return Generator(seed).program();
}

std::string toText(const CallProgram& program) {
    std::ostringstream text;
    text << program.features << ' ' << program.games << ' ' << program.frames << ' '
         << program.pending << ' ' << program.period << ' ' << program.unloadAfterMs << ' '
         << program.failThread;
    for (const auto& ops : program.threads) {
        text << " |";
        for (const Op& op : ops) {
            text << ' ' << static_cast<char>(op.act) << op.a << ',' << op.b << '@' << op.afterUs;
        }
    }
    return text.str();
}

CallProgram parse(const std::string& text) {
    std::istringstream words(text);
    CallProgram program;
    words >> program.features >> program.games >> program.frames >> program.pending >>
            program.period >> program.unloadAfterMs >> program.failThread;
    if (!words || program.games < 1 || program.games > kGames || program.period < 0 ||
        program.period >= kPeriods) {
        rejectText(text);
    }
    for (std::string word; words >> word;) {
        if (word == "|") {
            program.threads.emplace_back();
        } else if (program.threads.empty()) {
            rejectText(word);
        } else {
            program.threads.back().push_back(parseOp(word));
        }
    }
    return program;
}

}  // namespace reliability
