// The inline members of the zqSystem classes that the audio core's exported interface lists
// live, on this platform, with their classes in this library. zqSystem.h gives them default
// visibility; taking their addresses here has them emitted, and so exported, from this file.
#include "zqplatform/zqSystem.h"

namespace {
[[gnu::used]] const auto kEmitGetLogType = &CZqLog::GetLogType;
[[gnu::used]] const auto kEmitGetSecurityAttributes = &CSecurityAttributesRW::GetSecurityAttributes;
}  // namespace
