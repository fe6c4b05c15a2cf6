#pragma once

// What a simulation tells the thread sanitizer, where the program runs under it. The turn that is
// passed on orders everything that happens, but that is not the program's doing: a race is between
// two accesses that the program itself has left without an order. So the simulator and the tools
// around it are compiled without the sanitizer, hand over by calls that it does not follow, and say
// which order the modelled locks make. What they do with their own data, through calls that the
// sanitizer does follow, they keep from it.

extern "C" {
#define CINDRAL_OF_SANITIZER __attribute__((weak))  // null without it
void __tsan_acquire(void* lock) CINDRAL_OF_SANITIZER;
void __tsan_release(void* lock) CINDRAL_OF_SANITIZER;
void AnnotateIgnoreReadsBegin(const char* file, int line) CINDRAL_OF_SANITIZER;
void AnnotateIgnoreReadsEnd(const char* file, int line) CINDRAL_OF_SANITIZER;
void AnnotateIgnoreWritesBegin(const char* file, int line) CINDRAL_OF_SANITIZER;
void AnnotateIgnoreWritesEnd(const char* file, int line) CINDRAL_OF_SANITIZER;
void AnnotateIgnoreSyncBegin(const char* file, int line) CINDRAL_OF_SANITIZER;
void AnnotateIgnoreSyncEnd(const char* file, int line) CINDRAL_OF_SANITIZER;
#undef CINDRAL_OF_SANITIZER
}

namespace sim {

inline bool isUnderThreadSanitizer() {
    return __tsan_acquire != nullptr;
}

inline void hideAccesses(bool hidden) {
    if (!isUnderThreadSanitizer()) return;
    (hidden ? AnnotateIgnoreReadsBegin : AnnotateIgnoreReadsEnd)(__FILE__, __LINE__);
    (hidden ? AnnotateIgnoreWritesBegin : AnnotateIgnoreWritesEnd)(__FILE__, __LINE__);
}

inline void hideOrder(bool hidden) {
    if (!isUnderThreadSanitizer()) return;
    (hidden ? AnnotateIgnoreSyncBegin : AnnotateIgnoreSyncEnd)(__FILE__, __LINE__);
}

// While one is alive, the calling thread's accesses are kept from the sanitizer, or, the other way
// round, shown again.
class Unseen {
  public:
    Unseen() { hideAccesses(true); }
    ~Unseen() { hideAccesses(false); }
    Unseen(const Unseen&) = delete;
    Unseen& operator=(const Unseen&) = delete;
};

class Seen {
  public:
    Seen() { hideAccesses(false); }
    ~Seen() { hideAccesses(true); }
    Seen(const Seen&) = delete;
    Seen& operator=(const Seen&) = delete;
};

// A lock of the tools: it works, but orders nothing of the program that calls them.
template <typename Lock>
class UnseenLock {
  public:
    void lock() {
        hideOrder(true);
        mLock.lock();
        hideOrder(false);
        hideAccesses(true);
    }
    void unlock() {
        hideAccesses(false);
        hideOrder(true);
        mLock.unlock();
        hideOrder(false);
    }

  private:
    Lock mLock;
};

}  // namespace sim
