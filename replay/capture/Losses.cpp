#include "replay/capture/Losses.h"

#include "replay/base/Error.h"

namespace replay {

namespace {

// Enough to tell a damaged beginning from a file of another kind.
constexpr uint64_t kDamageBeforeGivingUp = 10'000;

constexpr uint64_t kMaxUnreadNamed = 20;

constexpr char kWhatToGive[] =
        "give ftrace text, systrace HTML or a Perfetto trace, as it is or in gzip, zstd or zip";

std::string counted(uint64_t count, const std::string& unit) {
    return std::to_string(count) + " " + unit + (count == 1 ? "" : "s");
}

void append(std::string& text, const std::string& part) {
    text += (text.empty() ? "" : "; ") + part;
}

}  // namespace

void Losses::noteDamage(const char* unit, const std::function<std::string()>& what) {
    if (mDamaged++ > 0) return;
    mUnit = unit;
    mFirstDamage = what();
}

void Losses::noteDropped(uint64_t events) {
    mDroppedEvents += events;
    if (events == 0) ++mDropReports;
}

void Losses::noteCutOff(const std::string& why) {
    if (mCutOff.empty()) mCutOff = why;
}

void Losses::noteUnread(const std::string& file, const std::string& read) {
    mReadInstead = read;
    if (mUnread++ < kMaxUnreadNamed) mUnreadNames += (mUnread == 1 ? "" : ", ") + file;
}

void Losses::requireMostlyGood(bool atEnd) const {
    if (mDamaged <= mGood + (atEnd ? 0 : kDamageBeforeGivingUp)) return;
    std::string text = mFirstDamage;
    if (mDamaged > 1) text += "; and " + counted(mDamaged - 1, std::string("more bad ") + mUnit);
    if (mGood > 0) text += ", with only " + std::to_string(mGood) + " good";
    throw InputError(text + "; " + kWhatToGive);
}

std::string Losses::describe() const {
    std::string text;
    if (mDamaged > 0) {
        append(text, counted(mDamaged, std::string("damaged ") + mUnit) + " skipped" +
                             (mDamaged > 1 ? ", the first: " : ": ") + mFirstDamage);
    }
    if (mDroppedEvents > 0) append(text, counted(mDroppedEvents, "event") + " lost by the kernel");
    if (mDropReports > 0) {
        append(text, "the kernel lost events in " + counted(mDropReports, "place") +
                             ", it does not say how many");
    }
    if (!mCutOff.empty()) append(text, "cut off: " + mCutOff);
    if (mUnread > 0)
        append(text, "of the captures in it only " + mReadInstead + " is played; unpack it for " +
                             mUnreadNames + (mUnread > kMaxUnreadNamed ? " and more" : ""));
    return text;
}

}  // namespace replay
