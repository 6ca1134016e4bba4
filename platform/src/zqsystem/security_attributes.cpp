// CSecurityAttributesRW: attributes that let every user read and write the object they guard.
#include "security_descriptor.h"
#include "zqplatform/zqSystem.h"

#if !defined(_WIN32)
namespace {

// Stands for the descriptor "everyone: read and write"; this platform has no per-object ACLs,
// so one shared, immutable descriptor serves every instance.
struct ReadWriteForEveryone {
    DWORD revision;
    DWORD access;
};
const ReadWriteForEveryone g_everyoneReadWrite = {1, 0xC0000000u /* GENERIC_READ | GENERIC_WRITE */};

}  // namespace

void* zqplatform::EveryoneReadWriteDescriptor() {
    return const_cast<ReadWriteForEveryone*>(&g_everyoneReadWrite);
}
#endif

CSecurityAttributesRW::CSecurityAttributesRW() : m_sa{sizeof(_SECURITY_ATTRIBUTES), nullptr, FALSE}, m_bCreated(false) {}

CSecurityAttributesRW::~CSecurityAttributesRW() { Close(); }

CSecurityAttributesRW& CSecurityAttributesRW::operator=(const CSecurityAttributesRW& other) {
    m_sa = other.m_sa;
    m_bCreated = other.m_bCreated;
    return *this;
}

int CSecurityAttributesRW::Create() {
    m_sa.nLength = sizeof(_SECURITY_ATTRIBUTES);
    m_sa.lpSecurityDescriptor = zqplatform::EveryoneReadWriteDescriptor();
    m_sa.bInheritHandle = FALSE;
    m_bCreated = m_sa.lpSecurityDescriptor != nullptr;
    return m_bCreated ? TRUE : FALSE;
}

void CSecurityAttributesRW::Close() {
    m_sa.lpSecurityDescriptor = nullptr;
    m_bCreated = false;
}
