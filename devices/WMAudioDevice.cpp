// CWMAudioDevice: one endpoint record. The record owns one reference on its endpoint; every
// path that stores an endpoint goes through SetDevice so that the reference is taken before the
// old one is given back (which makes self-assignment harmless).
#include "zqCoreAudio.h"

CWMAudioDevice::CWMAudioDevice()
    : m_nVerAPI(0), m_nVerFW(0), m_bEditNow(false), m_guidHidContainerID(GUID_NULL), m_pDevice(nullptr) {}

CWMAudioDevice::CWMAudioDevice(const CWMAudioDevice& src) : CWMAudioDevice() { *this = src; }

CWMAudioDevice::~CWMAudioDevice() { Clear(); }

CWMAudioDevice& CWMAudioDevice::operator=(const CWMAudioDevice& src) {
    m_nVerAPI = src.m_nVerAPI;
    m_nVerFW = src.m_nVerFW;
    m_strProduct = src.m_strProduct;
    m_strManufacturer = src.m_strManufacturer;
    m_strName = src.m_strName;
    m_strFriendlyName = src.m_strFriendlyName;
    m_strSN = src.m_strSN;
    m_guidHidContainerID = src.m_guidHidContainerID;
    m_bEditNow = src.m_bEditNow;
    SetDevice(src.m_pDevice);
    return *this;
}

void CWMAudioDevice::Clear() {
    m_nVerAPI = 0;
    m_nVerFW = 0;
    m_strProduct.Empty();
    m_strManufacturer.Empty();
    m_strName.Empty();
    m_strFriendlyName.Empty();
    m_strSN.Empty();
    m_guidHidContainerID = GUID_NULL;
    SetDevice(nullptr);
}

IMMDevice* CWMAudioDevice::GetDevice() { return m_pDevice; }

void CWMAudioDevice::SetDevice(IMMDevice* p) {
    if (p != nullptr) p->AddRef();
    IMMDevice* old = m_pDevice;
    m_pDevice = p;
    if (old != nullptr) old->Release();
}

CStringW CWMAudioDevice::GetName() { return m_strName; }
void CWMAudioDevice::SetName(const wchar_t* text) { m_strName = text; }
CStringW CWMAudioDevice::GetFriendlyName() { return m_strFriendlyName; }
void CWMAudioDevice::SetFriendlyName(const wchar_t* text) { m_strFriendlyName = text; }
CStringW CWMAudioDevice::GetManufacturer() { return m_strManufacturer; }
void CWMAudioDevice::SetManufacturer(const wchar_t* text) { m_strManufacturer = text; }
CStringW CWMAudioDevice::GetProduct() { return m_strProduct; }
void CWMAudioDevice::SetProduct(const wchar_t* text) { m_strProduct = text; }
CStringW CWMAudioDevice::GetSN() { return m_strSN; }
void CWMAudioDevice::SetSN(const wchar_t* text) { m_strSN = text; }
_GUID CWMAudioDevice::GetHidContainerID() { return m_guidHidContainerID; }
void CWMAudioDevice::SetHidContainerID(_GUID guid) { m_guidHidContainerID = guid; }
unsigned char CWMAudioDevice::GetVerAPI() { return m_nVerAPI; }
unsigned char CWMAudioDevice::GetVerFW() { return m_nVerFW; }
bool CWMAudioDevice::IsEditNow() { return m_bEditNow; }
void CWMAudioDevice::MarkEditNow(bool bEdit) { m_bEditNow = bEdit; }
