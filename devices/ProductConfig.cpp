// _ZQ_CONFIG: one product entry, a value type. Its members are defined here, out of line, so
// that the exported class carries them.
#include "zqCoreAudio.h"

_ZQ_CONFIG::_ZQ_CONFIG() : nApi(0), nFw(0) {}
_ZQ_CONFIG::_ZQ_CONFIG(const _ZQ_CONFIG& other) = default;
_ZQ_CONFIG::~_ZQ_CONFIG() = default;
_ZQ_CONFIG& _ZQ_CONFIG::operator=(const _ZQ_CONFIG& other) = default;
