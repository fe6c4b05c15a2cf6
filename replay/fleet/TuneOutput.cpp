#include <algorithm>

#include "replay/base/Text.h"
#include "replay/fleet/FleetPage.h"
#include "replay/fleet/Gather.h"
#include "replay/fleet/Tune.h"

namespace replay {

namespace {

constexpr size_t kSettingsShown = 10;
constexpr size_t kHarmedShown = 10;
constexpr size_t kTiesShown = 3;
constexpr char kDebugProperty[] = "vendor.perf.cindral.debug";
constexpr char kFirstLine[] = "# Chosen by cindral-replay tune.\n";

std::string percentText(double change) {
    if (change >= kUnfit) return "unfit";
    return format("%+.3f %%", 100 * change);
}

std::string verdictOf(const Tuned& tuned) {
    const std::string& best = tuned.best().setup.label;
    const std::string of = format(" of %zu settings", tuned.tried.size());
    if (tuned.base == 0) return "The base is the best" + of + ": keep it.";
    if (tuned.keepsBase) {
        return best + " is the best" + of + " on the captures it was chosen by (" +
               percentText(tuned.best().change) +
               "), but not surely on captures it has not seen: keep the base.";
    }
    return best + " is the best" + of + ".";
}

std::string tieText(const Tuned& tuned) {
    if (tuned.ties == 0) return "";
    std::string text = format("Ties: %zu, such as", tuned.ties);
    for (size_t i = 1; i <= std::min(kTiesShown, tuned.ties); ++i) {
        text += (i > 1 ? "; " : " ") + tuned.tried[i].setup.label;
    }
    return text + "; this is the closest to the base.";
}

std::string unseenText(const Tuned& tuned) {
    const Effect& unseen = tuned.unseen;
    if (tuned.base == 0) return "";
    if (unseen.captures < kLeastUnseen) {
        return format("Unseen captures: %zu, too few to confirm it; give more captures.",
                      unseen.captures);
    }
    return format(
            "Unseen captures: %zu change by %s, 95 %% interval %s to %s (bootstrap over captures).",
            unseen.captures, percentText(unseen.change).c_str(), percentText(unseen.least).c_str(),
            percentText(unseen.most).c_str());
}

std::string harmText(const Tuned& tuned) {
    if (tuned.harmed.empty()) return "Harm: no capture gets worse by more than 1 %.";
    std::string text =
            format("Harm: %zu captures get worse by more than 1 %%:", tuned.harmed.size());
    for (size_t i = 0; i < std::min(kHarmedShown, tuned.harmed.size()); ++i) {
        text += (i > 0 ? ", " : " ") + tuned.harmed[i].name + " (" +
                percentText(tuned.harmed[i].change) + ")";
    }
    return text + (tuned.harmed.size() > kHarmedShown ? ", ..." : ".");
}

// What a boost is worth decides about some settings, and only a device can tell.
std::string assumptionText(const Tuned& tuned) {
    const int assumed = tuned.best().setup.model->effects.boostSpeedupPercent;
    std::string text = format("Assumed: a boost makes work %d %% faster", assumed);
    if (tuned.mostWorth < 0) return text + "; other worths were not looked at for want of budget.";
    for (const Turn& turn : tuned.turns) {
        text += format("; from %d %% %s, %s would win (%s, not %s)", turn.boostSpeedupPercent,
                       turn.boostSpeedupPercent < assumed ? "down" : "on", turn.setting.c_str(),
                       percentText(turn.change).c_str(), percentText(turn.bestChange).c_str());
    }
    if (tuned.turns.empty()) {
        text += format("; from 0 to %d %% no other that was tried would win", tuned.mostWorth);
    }
    return text + ".";
}

// Of the best, with the base at the end if it is not among them.
std::vector<size_t> shownSettings(const Tuned& tuned) {
    std::vector<size_t> shown;
    for (size_t i = 0; i < std::min(kSettingsShown, tuned.tried.size()); ++i) shown.push_back(i);
    if (tuned.base >= kSettingsShown) shown.push_back(tuned.base);
    return shown;
}

}  // namespace

std::vector<std::string> answerOf(const Tuned& tuned) {
    std::vector<std::string> lines{verdictOf(tuned)};
    lines.push_back(tieText(tuned));
    lines.push_back("Objective: " + tuned.objective +
                    "; changes are against the base, below 0 is better.");
    lines.push_back(format("Chosen by: %zu captures%s.", tuned.choosing,
                           tuned.left == 0 ? "" : format(", %zu left out", tuned.left).c_str()));
    lines.push_back(unseenText(tuned));
    if (tuned.base != 0) lines.push_back(harmText(tuned));
    lines.push_back(assumptionText(tuned));
    lines.erase(std::remove(lines.begin(), lines.end(), ""), lines.end());
    return lines;
}

void writeTuned(std::ostream& out, const Tuned& tuned) {
    out << format("%12s", "objective");
    for (const std::string& figure : tuned.figures) out << format("  %20s", figure.c_str());
    out << "  setting\n";
    for (const size_t i : shownSettings(tuned)) {
        const TriedSetting& tried = tuned.tried[i];
        out << format("%12s", percentText(tried.change).c_str());
        for (const double mean : tried.means) out << format("  %20.3f", mean);
        out << "  " << tried.setup.label << "\n";
    }
    out << "Figures are means over the captures; counts and seconds a minute.\n\n";
    for (const std::string& line : answerOf(tuned)) out << line << "\n";
}

std::string propertiesText(const Tuned& tuned) {
    std::string text = kFirstLine;
    for (const std::string& line : answerOf(tuned)) text += "# " + line + "\n";
    for (const auto& [name, value] : tuned.recommended().setup.settings.properties()) {
        if (name != kDebugProperty) text += name + "=" + value + "\n";
    }
    return text;
}

bool isPropertyFile(std::string_view firstBytes) {
    return startsWith(firstBytes, kFirstLine);
}

void writeTunedPage(const std::string& path, const std::string& rows, const Tuned& tuned) {
    const Table table("", Table::Use::kNew);  // of no name
    gatherRows({rows}, table);
    FleetPage page;
    page.title = "One setting for a fleet";
    page.answer = answerOf(tuned);
    page.base = tuned.tried[tuned.base].setup.label;
    for (const size_t i : shownSettings(tuned)) {
        page.options.push_back(tuned.tried[i].options);
    }
    writeFleetPage(path, table, page);
}

}  // namespace replay
