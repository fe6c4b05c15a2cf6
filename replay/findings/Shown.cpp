#include "replay/findings/Shown.h"

#include <algorithm>
#include <cmath>
#include <functional>
#include <map>

#include "replay/base/Statistics.h"
#include "replay/findings/FrameFindings.h"

namespace replay {

namespace {

struct Picture {
    size_t vsync = 0;  // index
    int frame = kNoFrame;
};

class Presenter {
  public:
    Presenter(Findings& findings, const std::vector<Latch>& latches)
          : mFindings(findings), mVsyncs(findings.vsyncsNs) {
        const int64_t delayNs = usualDelayNs(latches);
        for (const Latch& latch : latches) add(latch, delayNs);
    }

    void write() {
        mFindings.screen.pictures = mPictures.size();
        if (mPictures.empty()) return;
        show(mPictures.front(), 0);
        std::vector<int64_t> intervals;
        std::vector<int64_t> errors;
        for (size_t i = 1; i < mPictures.size(); ++i) {
            const Picture& before = mPictures[i - 1];
            const Picture& picture = mPictures[i];
            show(picture, vsyncsBetween(before, picture) - cadenceAt(picture));
            mFindings.screen.repeated += picture.vsync - before.vsync - 1;
            intervals.push_back(mVsyncs[picture.vsync] - mVsyncs[before.vsync]);
            if (before.frame == kNoFrame || picture.frame == kNoFrame) continue;
            const int64_t queuedNs = frameOf(picture).dueNs - frameOf(before).dueNs;
            errors.push_back(std::abs(intervals.back() - queuedNs));
        }
        mFindings.screen.animationErrorNs = distributionOf(std::move(errors));
        const auto longest = static_cast<ptrdiff_t>((intervals.size() + 99) / 100);
        std::partial_sort(intervals.begin(), intervals.begin() + longest, intervals.end(),
                          std::greater<>());
        mFindings.screen.onePercentLow = lowOf(intervals, 100);
        mFindings.screen.tenthPercentLow = lowOf(intervals, 1000);
    }

  private:
    // The compositor takes a buffer some time after the vsync that woke it. Whichever vsync the
    // capture shows, most latches have the same distance from theirs.
    int64_t usualDelayNs(const std::vector<Latch>& latches) const {
        std::vector<int64_t> delays;
        auto next = mVsyncs.begin();
        for (const Latch& latch : latches) {
            while (next != mVsyncs.end() && *next <= latch.timeNs) ++next;
            if (next != mVsyncs.begin()) delays.push_back(latch.timeNs - *(next - 1));
        }
        return percentile(delays, 50);
    }

    void add(const Latch& latch, int64_t delayNs) {
        if (mVsyncs.empty()) return;
        const int64_t timeNs = latch.timeNs - delayNs;
        auto nearest = std::lower_bound(mVsyncs.begin(), mVsyncs.end(), timeNs);
        const bool isBefore =
                nearest == mVsyncs.end() ||
                (nearest != mVsyncs.begin() && timeNs - *(nearest - 1) < *nearest - timeNs);
        if (isBefore) --nearest;
        const Picture picture{static_cast<size_t>(nearest - mVsyncs.begin()), latch.frame};
        const bool replaces = !mPictures.empty() && mPictures.back().vsync >= picture.vsync;
        if (replaces) {
            mPictures.back().frame = picture.frame;
        } else {
            mPictures.push_back(picture);
        }
    }

    static int vsyncsBetween(const Picture& before, const Picture& after) {
        return static_cast<int>(after.vsync - before.vsync);
    }

    Frame& frameOf(const Picture& picture) {
        return mFindings.frames[static_cast<size_t>(picture.frame)];
    }

    void show(const Picture& picture, int lateVsyncs) {
        if (picture.frame == kNoFrame) return;
        frameOf(picture).shownNs = mVsyncs[picture.vsync];
        frameOf(picture).shownLateVsyncs = lateVsyncs;
        if (lateVsyncs == 0) ++mFindings.screen.inTime;
    }

    // A game that runs at half the display's rate means its pictures for every second vsync.
    int cadenceAt(const Picture& picture) {
        if (mCadences.empty()) {
            std::map<int64_t, std::vector<int64_t>> steps;
            for (size_t i = 1; i < mPictures.size(); ++i) {
                steps[periodAt(mPictures[i])].push_back(
                        vsyncsBetween(mPictures[i - 1], mPictures[i]));
            }
            for (const auto& [periodNs, counts] : steps)
                mCadences[periodNs] = percentile(counts, 50);
        }
        return static_cast<int>(mCadences[periodAt(picture)]);
    }

    int64_t periodAt(const Picture& picture) const {
        return mFindings.refresh.periodAt(mVsyncs[picture.vsync]);
    }

    // Pictures a second while the longest `share`th of them stood.
    static double lowOf(const std::vector<int64_t>& longestFirst, size_t share) {
        if (longestFirst.empty()) return 0;
        const size_t count = (longestFirst.size() + share - 1) / share;
        int64_t total = 0;
        for (size_t i = 0; i < count; ++i) total += longestFirst[i];
        return static_cast<double>(count) * 1e9 / static_cast<double>(total);
    }

    Findings& mFindings;
    const std::vector<int64_t>& mVsyncs;
    std::vector<Picture> mPictures;
    std::map<int64_t, int64_t>
            mCadences;  // vsyncs from picture to picture, by the display's period
};

}  // namespace

void addShown(Findings& findings, const std::vector<Latch>& latches) {
    Presenter(findings, latches).write();
}

}  // namespace replay
