// CSecurityAttributesRW: attributes that let every user read and write the object they guard.
#include "zqplatform/zqSystem.h"

namespace {

// Stands for the descriptor "everyone: read and write"; this platform has no per-object ACLs,
// so one shared, immutable descriptor serves every instance.
struct EveryoneReadWriteDescriptor {
    DWORD revision;
    DWORD access;
};
const EveryoneReadWriteDescriptor g_everyoneReadWrite = {1, 0xC0000000u /* GENERIC_READ | GENERIC_WRITE */};

}  // namespace

CSecurityAttributesRW::CSecurityAttributesRW() : m_sa{sizeof(_SECURITY_ATTRIBUTES), nullptr, FALSE}, m_bCreated(false) {}

CSecurityAttributesRW::~CSecurityAttributesRW() { Close(); }

CSecurityAttributesRW& CSecurityAttributesRW::operator=(const CSecurityAttributesRW& other) {
    m_sa = other.m_sa;
    m_bCreated = other.m_bCreated;
    return *this;
}

int CSecurityAttributesRW::Create() {
    m_sa.nLength = sizeof(_SECURITY_ATTRIBUTES);
    m_sa.lpSecurityDescriptor = const_cast<EveryoneReadWriteDescriptor*>(&g_everyoneReadWrite);
    m_sa.bInheritHandle = FALSE;
    m_bCreated = true;
    return TRUE;
}

void CSecurityAttributesRW::Close() {
    m_sa.lpSecurityDescriptor = nullptr;
    m_bCreated = false;
}
