/* A test plug-in. Built several times with different definitions:
   ZQ_FIXTURE_SEED      the pattern of its description
   ZQ_FIXTURE_RESULT    what its entry point returns
   ZQ_FIXTURE_NO_ENTRY  it exports no entry point at all */
#include "fixture_plugin.h"

#if defined(_WIN32)
#define ZQ_FIXTURE_EXPORT __declspec(dllexport)
#else
#define ZQ_FIXTURE_EXPORT __attribute__((visibility("default")))
#endif

#ifndef ZQ_FIXTURE_NO_ENTRY
ZQ_FIXTURE_EXPORT int zqGetPluginInfo(unsigned char* info) {
    for (unsigned i = 0; i < ZQ_FIXTURE_DESCRIPTION_SIZE; ++i) info[i] = zq_fixture_byte(ZQ_FIXTURE_SEED, i);
    return ZQ_FIXTURE_RESULT;
}
#else
ZQ_FIXTURE_EXPORT int zqPluginVersion(void) { return ZQ_FIXTURE_SEED; }
#endif
