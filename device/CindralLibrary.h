#pragma once

#include <string>

namespace device {

// The library under test, opened at run time as the compositor does it. All entry points but
// updateLayerListLocked, which is for the library's own threads.
//
// Constructed and destroyed by one thread; the entry points may be called from any. Destroying it
// unloads the library, which stops and joins the library's threads: inside a simulation, do it
// there.
class CindralLibrary {
  public:
    // A path, or a bare file name that is then looked for along the program's run path.
    // Throws std::runtime_error if it cannot be opened or lacks an entry point.
    explicit CindralLibrary(const std::string& path = "libcindral.so");
    ~CindralLibrary();
    CindralLibrary(const CindralLibrary&) = delete;
    CindralLibrary& operator=(const CindralLibrary&) = delete;

    bool (*init)() = nullptr;
    void (*setVsyncPeriod)(long periodNs) = nullptr;
    void (*trackBufferIncrement)(const char* layer) = nullptr;
    void (*trackBufferDecrement)(const char* layer, int pending) = nullptr;
    void (*trackVsyncSignal)() = nullptr;
    void (*clearConfigs)() = nullptr;

  private:
    template <typename Function>
    void bind(Function*& function, const char* name);

    std::string mPath;
    void* mHandle = nullptr;
};

}  // namespace device
