// The one descriptor "everyone may read and write" that every CSecurityAttributesRW points to:
// shared, immutable and never freed, so member-wise copies of the attributes stay valid. Each
// platform makes its own (on Windows a real one, platform/windows/security_descriptor.cpp).
// Internal to the platform library.
#pragma once

namespace zqplatform {

// Null when the system could not make it; the guarded objects then get the default one.
void* EveryoneReadWriteDescriptor();

}  // namespace zqplatform
