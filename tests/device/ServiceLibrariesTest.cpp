#include <gtest/gtest.h>

#include <stdexcept>
#include <string>

#include "device/Process.h"
#include "device/StandInDevice.h"
#include "tests/device/ServiceClient.h"

using device::EntryPoint;
using device::isMapped;
using device::ServiceLibraries;

namespace {

TEST(ServiceLibraries, WithoutAnEntryPoint_OnlyThatSymbolIsMissing) {
    const int count = static_cast<int>(EntryPoint::kPerfGetFeedbackExtn) + 1;
    for (int missing = 0; missing < count; ++missing) {
        const ServiceLibraries libraries({toString(static_cast<EntryPoint>(missing))});
        const OpenedLibrary knob(kKnobLibrary);
        const OpenedLibrary perf(kPerfLibrary);
        ASSERT_TRUE(knob.isOpen() && perf.isOpen());
        for (int i = 0; i < count; ++i) {
            const auto entryPoint = static_cast<EntryPoint>(i);
            const auto& home = entryPoint == EntryPoint::kIsFeatureEnabled ? knob : perf;
            const bool isThere = home.find<void()>(toString(entryPoint)) != nullptr;
            EXPECT_EQ(isThere, i != missing) << toString(entryPoint) << " " << missing;
        }
    }
}

TEST(ServiceLibraries, LibraryLeftOut_CannotBeOpenedByItsName) {
    for (const auto& [missing, present] :
         {std::pair(kKnobLibrary, kPerfLibrary), std::pair(kPerfLibrary, kKnobLibrary)}) {
        const ServiceLibraries libraries({missing});
        EXPECT_FALSE(OpenedLibrary(missing).isOpen()) << missing;
        EXPECT_TRUE(OpenedLibrary(present).isOpen()) << present;
    }
}

TEST(ServiceLibraries, Closed_AreUnmappedOnceNobodyElseHoldsThem) {
    {
        const OpenedLibrary before(kPerfLibrary);
        ASSERT_FALSE(before.isOpen());
        const ServiceLibraries libraries;
        const ServiceClient client;
        client.hint(4166, nullptr, 8, 1500);
        client.isFeatureEnabled(7);
        ASSERT_TRUE(isMapped(kKnobLibrary) && isMapped(kPerfLibrary));
    }
    EXPECT_FALSE(isMapped(kKnobLibrary));
    EXPECT_FALSE(isMapped(kPerfLibrary));
}

TEST(ServiceLibraries, ImpossibleWish_IsRefusedWithItsNameAndLeavesNothingOpen) {
    const struct {
        std::vector<std::string> without;
        const char* inMessage;
    } cases[] = {
            {{"perf_hnit"}, "\"perf_hnit\""},
            {{"perf_hint", "perf_lock_acq"}, kPerfLibrary},
    };
    for (const auto& [without, inMessage] : cases) {
        try {
            const ServiceLibraries libraries(without);
            ADD_FAILURE() << "not refused: " << without[0];
        } catch (const std::runtime_error& error) {
            EXPECT_NE(std::string(error.what()).find(inMessage), std::string::npos) << error.what();
        }
        EXPECT_FALSE(isMapped(kKnobLibrary));
    }
}

}  // namespace
