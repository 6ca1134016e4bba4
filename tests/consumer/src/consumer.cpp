// Uses the installed library as a host would: only its exported header and its libraries.
// Exits 0 when the core object publishes itself and reports that it is not initialised.
#include <cstdio>

#include "zqCoreAudio.h"

int main() {
    int failures = 0;
    {
        CZQCoreAudio core;
        if (g_pCore != &core) {
            std::fprintf(stderr, "consumer: g_pCore is not the constructed core object\n");
            ++failures;
        }
        if (core.IsInit()) {
            std::fprintf(stderr, "consumer: a core object that was never initialised reports IsInit\n");
            ++failures;
        }
        if (core.GetHwnd() != nullptr || core.GetCaptureEngine() != nullptr) {
            std::fprintf(stderr, "consumer: a core object that was never initialised has a window or an engine\n");
            ++failures;
        }
        const CStringW name(L"consumer");  // the platform library's string, linked directly
        if (name.GetLength() != 8) {
            std::fprintf(stderr, "consumer: CStringW from the platform library misbehaves\n");
            ++failures;
        }
    }
    if (failures == 0) std::printf("consumer: ok\n");
    return failures == 0 ? 0 : 1;
}
