// The Core Audio identifiers (IIDs, the enumerator's CLSID, the endpoint property keys) that
// the SDK headers only declare: MinGW-w64 has no import library that defines them, so this
// one file defines them, as <initguid.h> before the headers does. Linked into every Windows
// module that names them (the audio core, the tests, the host).
#include <initguid.h>

#include "zqPlatform.h"
