#pragma once

namespace android::cindral {

// Keeps what may be thrown inside, which is std::bad_alloc, from the compositor: the report is lost,
// and a result is as if nothing were on. Apart, so that an inactive module pays for no more than the
// test before it.
template <auto kCall, typename... Arguments>
[[gnu::noinline]] auto contain(Arguments... arguments) noexcept {
    using Result = decltype(kCall(arguments...));
    try {
        return kCall(arguments...);
    } catch (...) {
        return Result();
    }
}

}  // namespace android::cindral
