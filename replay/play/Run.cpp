#include "replay/play/Run.h"

namespace replay {

const char* toString(FedEvent::Kind kind) {
    static constexpr const char* kNames[FedEvent::kKinds] = {"init", "vsync-period", "queue",
                                                             "consume", "vsync"};
    return kNames[static_cast<int>(kind)];
}

std::string Run::threadName(int thread) const {
    const auto index = static_cast<size_t>(thread);
    if (index < threadNames.size() && !threadNames[index].empty()) return threadNames[index];
    return "thread-" + std::to_string(thread);
}

}  // namespace replay
