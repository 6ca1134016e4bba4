// "Everyone may read and write" as a real security descriptor: a DACL with one allow entry
// for the World SID (SDDL "D:(A;;GRGW;;;WD)").
#include <windows.h>
#include <sddl.h>

#include "../src/zqsystem/security_descriptor.h"

void* zqplatform::EveryoneReadWriteDescriptor() {
    static void* const descriptor = [] {
        PSECURITY_DESCRIPTOR made = nullptr;
        if (!ConvertStringSecurityDescriptorToSecurityDescriptorW(L"D:(A;;GRGW;;;WD)", SDDL_REVISION_1, &made,
                                                                  nullptr)) {
            made = nullptr;
        }
        return made;  // kept for the process's life: every copy of the attributes points here
    }();
    return descriptor;
}
