// inject: plays a few programs again and again, and lets something else fail each time: every
// allocation and every thread creation of the library in its turn, each entry point of the services
// and each library, every property in every hostile way, slow answers, and clocks at the edge of
// their range. What can fail is counted first, in a run without a fault. See kUsage.

#include <array>
#include <cstdio>
#include <set>

#include "tests/reliability/Arguments.h"
#include "tests/reliability/Player.h"
#include "tests/reliability/Violation.h"
#include "tests/reliability/Workers.h"

using namespace reliability;
using device::EntryPoint;

namespace {

constexpr char kUsage[] =
        "usage: inject [--every N] [--library PATH]   N: only every Nth allocation\n";

constexpr const char* kScenarios[] = {
        // Everything on: measured, boosted, held, saved.
        "gpdnt 1 71 32 0 20 0 | q0,0@16667 q0,0@16667 v0,0@0 q0,0@1000 q0,0@60000 c0,0@0 "
        "| v0,0@16667 v0,0@16667 c0,1@1000",
        // Early frames, which save energy, and late ones.
        "gpdnt 1 71 32 0 0 0 | q0,0@5000 q0,0@5000 q0,0@5000 q0,0@5000 q0,0@5000 q0,0@5000 "
        "q0,0@25000 q0,0@25000 q0,0@5000 q0,0@5000 "
        "| v0,0@16667 v0,0@16667 v0,0@16667 v0,0@16667 v0,0@16667 v0,0@16667 v0,0@16667",
        // Two games, and a third that takes the place of the first.
        "gpn 2 71 32 0 0 0 | q2,0@2000000 q2,0@1000 q0,0@0 | q0,0@2000000 v0,0@0",
        // A fast display that slows down.
        "gpd 1 111 32 1 0 0 | v0,0@0 q0,0@11111 q0,0@11111 p0,0@0 q0,0@90000",
        // Layers of all kinds, and a compositor that changes its mind.
        "gpd 1 0 0 0 300 0 | i0,0@0 p0,0@0 q3,0@0 q4,0@1000 q5,0@1000 q0,0@1000 q1,0@1000 "
        "x0,0@0 i0,0@0 q2,0@1000 p4,0@0",
        // The headroom regulator alone, and power optimisation alone.
        "pd 1 71 32 0 0 0 | v0,0@0 q0,0@1000 q0,0@0 c0,1@0 q0,0@0",
        "gdt 1 400 0 0 1100 0",
};

constexpr int kFirstNeededForActivity = 2;     // without the knobs or the properties all is off
constexpr int kFirstNeededForEnvironment = 3;  // and without a verdict nothing is a game

struct Fault {
    explicit Fault(std::string name) : what(std::move(name)) {}

    std::string what;
    int failThread = 0;
    Trouble trouble;
    std::function<std::string(const Reached&)> complaint;  // empty if the fallback is in force
};

struct Scenario {
    Program program;
    Reached sound;  // of the run without a fault
    std::set<std::string> properties;
};

class Injector {
  public:
    Injector(std::string library, int64_t every) : mLibrary(std::move(library)), mEvery(every) {}

    int run() {
        for (const char* text : kScenarios) mScenarios.push_back(measured(text));
        inject("allocations, once", [this](const Scenario& s) { return allocations(s, false); });
        inject("allocations, from then on",
               [this](const Scenario& s) { return allocations(s, true); });
        inject("threads, once", [](const Scenario& s) { return threads(s, false); });
        inject("threads, from then on", [](const Scenario& s) { return threads(s, true); });
        inject("missing libraries and entry points", missing);
        inject("hostile properties", hostile);
        inject("slow entry points", slow);
        inject("clocks at the edge", clocks);
        std::printf("%zu faults in all, %d did harm\n", mAll, mHarmful);
        return mHarmful == 0 ? EXIT_SUCCESS : EXIT_FAILURE;
    }

  private:
    Scenario measured(const char* text) {
        Scenario scenario{parse(text), {}, {}};
        Trouble counting;
        counting.memory = countedMemory();
        counting.observer = [&](const device::Event& event) {
            if (event.kind == device::EventKind::kServiceCall &&
                event.entryPoint == EntryPoint::kPerfGetProp)
                scenario.properties.insert(event.text);
        };
        scenario.sound = play(scenario.program, kUndisturbed, mLibrary, &counting);
        return scenario;
    }

    template <typename Faults>
    void inject(const char* kind, Faults faultsOf) {
        size_t count = 0;
        for (const Scenario& scenario : mScenarios) {
            const std::vector<Fault> faults = faultsOf(scenario);
            count += faults.size();
            for (size_t next = 0; next < faults.size();)
                next = playFrom(next, faults, scenario, kind);
        }
        mAll += count;
        std::printf("%-36s %zu\n", kind, count);
        std::fflush(stdout);
    }

    // Returns the index after the first fault that does harm, or the number of faults.
    size_t playFrom(size_t first, const std::vector<Fault>& faults, const Scenario& scenario,
                    const char* kind) {
        Worker worker([&](Report& report) {
            for (size_t i = first; i < faults.size(); ++i) {
                Worker::begins(report, i);
                playWith(faults[i], scenario.program);
            }
        });
        Finding finding;
        if (worker.wait(finding)) return faults.size();
        const Fault& fault = faults[finding.at];
        ++mHarmful;
        std::printf("%s, %s: violated: %s\n%s\nin: %s\n", kind, fault.what.c_str(),
                    finding.invariant.c_str(), finding.text.c_str(),
                    toText(scenario.program).c_str());
        return finding.at + 1;
    }

    void playWith(const Fault& fault, Program program) const {
        program.failThread = fault.failThread;
        const Reached reached = play(program, kUndisturbed, mLibrary, &fault.trouble);
        if (!fault.complaint) return;
        const std::string complaint = fault.complaint(reached);
        if (!complaint.empty()) violate("fallback-in-force", complaint);
    }

    std::vector<Fault> allocations(const Scenario& scenario, bool lasting) const {
        std::vector<Fault> faults;
        for (int64_t nth = 1; nth <= scenario.sound.allocations; nth += mEvery) {
            Fault fault("allocation " + std::to_string(nth));
            fault.trouble.memory = countedMemory();
            fault.trouble.memory.nth = nth;
            fault.trouble.memory.lasting = lasting;
            fault.trouble.passes = true;
            faults.push_back(std::move(fault));
        }
        return faults;
    }

    // Where the library lacks a thread, it says so.
    static std::vector<Fault> threads(const Scenario& scenario, bool lasting) {
        std::vector<Fault> faults;
        for (int nth = 1; nth <= scenario.sound.threads; ++nth) {
            Fault fault("thread " + std::to_string(nth));
            fault.failThread = nth;
            fault.trouble.lastingThreads = lasting;
            fault.trouble.passes = !lasting;
            fault.complaint = [](const Reached& reached) {
                return reached.lostThreads > 0 || reached.lostOwnThread ? "" : "no line says so";
            };
            faults.push_back(std::move(fault));
        }
        return faults;
    }

    // Binding stops at the first that is missing: those behind it are never called.
    static std::vector<Fault> missing(const Scenario& scenario) {
        std::vector<Fault> faults;
        for (const char* library : {"libskewknob_system.so", "libnuv-perfd-client_system.so"})
            faults.push_back(without(library, 0, scenario));
        for (int i = 0; i < device::kEntryPointCount; ++i)
            faults.push_back(without(toString(static_cast<EntryPoint>(i)), i, scenario));
        return faults;
    }

    static Fault without(const char* name, int index, const Scenario& scenario) {
        Fault fault(std::string("without ") + name);
        fault.trouble.without = {name};
        const Reached& sound = scenario.sound;
        fault.complaint = [index, sound](const Reached& reached) -> std::string {
            if ((reached.calledEntryPoints >> index) != 0) return "one behind it was called";
            const bool active = index >= kFirstNeededForActivity;
            if (reached.active != active) return active ? "not active" : "active without it";
            const bool same = reached.threads == sound.threads;
            if (index >= kFirstNeededForEnvironment && !same) return "threads are missing";
            return "";
        };
        return fault;
    }

    static std::vector<Fault> hostile(const Scenario& scenario) {
        const std::string values[] = {
                "",     " 1",   "+1",    "-1",  "2147483647",          "-2147483648",
                "text", "nan",  "-inf",  "0x1", std::string(91, '9'),  std::string(91, 'x'),
                "\n",   "%s%n", "1e308", "1.5", "99999999999999999999"};
        std::vector<Fault> faults;
        for (const std::string& property : scenario.properties) {
            for (const std::string& value : values) {
                Fault fault(property + " = \"" + value + '"');
                fault.trouble.device = [property, value](device::StandInDevice& device) {
                    device.setProperty(property, value);
                };
                faults.push_back(std::move(fault));
            }
        }
        return faults;
    }

    static std::vector<Fault> slow(const Scenario&) {
        std::vector<Fault> faults;
        for (int entryPoint = 0; entryPoint < device::kEntryPointCount; ++entryPoint) {
            for (const int64_t seconds : {1, 5}) {
                Fault fault(toString(static_cast<EntryPoint>(entryPoint)) +
                            (" takes " + std::to_string(seconds)) + " s");
                fault.trouble.slowEntryPoint = entryPoint;
                fault.trouble.slowNs = seconds * kSecond;
                fault.trouble.passes = true;
                faults.push_back(std::move(fault));
            }
        }
        return faults;
    }

    static std::vector<Fault> clocks(const Scenario&) {
        constexpr int64_t kHour = 3600 * kSecond;
        std::vector<Fault> faults;
        for (const int64_t start : {int64_t{1}, kSecond - 1, (int64_t{1} << 31) * kSecond,
                                    (int64_t{1} << 32) * kSecond, INT64_MAX - kHour}) {
            Fault fault("clock starts at " + std::to_string(start));
            fault.trouble.startTimeNs = start;
            fault.trouble.passes = true;
            faults.push_back(std::move(fault));
        }
        return faults;
    }

    const std::string mLibrary;
    const int64_t mEvery;
    std::vector<Scenario> mScenarios;
    size_t mAll = 0;
    int mHarmful = 0;
};

}  // namespace

int main(int argc, char** argv) {
    try {
        Arguments arguments(argc, argv, kUsage);
        const std::string library = arguments.text("--library", "libcindral.so");
        const auto every = static_cast<int64_t>(arguments.number("--every", 1));
        arguments.done();
        if (every < 1) throw std::runtime_error("--every wants at least 1");
        return Injector(library, every).run();
    } catch (const std::exception& error) {
        std::fprintf(stderr, "inject: %s\n", error.what());
        return 2;
    }
}
