// IAudioMeterInformation, for Windows SDK headers that forward-declare it without defining it
// (the endpointvolume.h of mingw-w64 10, as Debian 12 ships it). The identifier, method order
// and signatures are the SDK's; where the SDK defines the interface, this header adds nothing.
// Like every DEFINE_GUID, the identifier is defined by the one file that includes it after
// <initguid.h>, and only declared elsewhere.
#pragma once

#if !defined(_WIN32)
#  error "zqplatform/winsdk/ completes the Windows SDK; elsewhere zqPlatform.h brings the stand-ins"
#endif

#include <endpointvolume.h>

#if !defined(__IAudioMeterInformation_INTERFACE_DEFINED__)
#define __IAudioMeterInformation_INTERFACE_DEFINED__

DEFINE_GUID(IID_IAudioMeterInformation, 0xc02216f6, 0x8c67, 0x4b5b, 0x9d, 0x00, 0xd0, 0x08, 0xe7, 0x3e, 0x00, 0x64);

MIDL_INTERFACE("c02216f6-8c67-4b5b-9d00-d008e73e0064")
IAudioMeterInformation : public IUnknown {
    virtual HRESULT STDMETHODCALLTYPE GetPeakValue(float* pfPeak) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetMeteringChannelCount(UINT* pnChannelCount) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetChannelsPeakValues(UINT32 u32ChannelCount, float* afPeakValues) = 0;
    virtual HRESULT STDMETHODCALLTYPE QueryHardwareSupport(DWORD* pdwHardwareSupportMask) = 0;
};
#if defined(__CRT_UUID_DECL)
__CRT_UUID_DECL(IAudioMeterInformation, 0xc02216f6, 0x8c67, 0x4b5b, 0x9d, 0x00, 0xd0, 0x08, 0xe7, 0x3e, 0x00, 0x64)
#endif

#endif  // !__IAudioMeterInformation_INTERFACE_DEFINED__
