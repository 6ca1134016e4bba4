// Endpoints added to the virtual machine, and what the enumerator and the property store say of
// endpoints, read the way the tests compare them: a call that fails reads as an empty value.
#pragma once

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "zqPlatform.h"
#include "zqplatform/vm/audio_machine.h"

namespace zqtest {

// Adds an endpoint to the virtual machine (expected to succeed); its id.
std::wstring AddTestEndpoint(EDataFlow flow, const wchar_t* name, uint32_t rate, uint16_t channels,
                             zqvm::SampleFormat format, const zqvm::CaptureSource& source = {}, bool extensible = false);

std::wstring IdOf(IMMDevice* device);
// The ids of the endpoints of that flow whose state is in the mask, in the collection's order.
std::vector<std::wstring> EndpointIds(IMMDeviceEnumerator* enumerator, EDataFlow flow, DWORD stateMask);
std::wstring FriendlyNameOf(IMMDevice* device);
GUID ContainerOf(IMMDevice* device);  // GUID_NULL when it has none

// An event-driven shared stream on the endpoint's mix format, opened as the capture and render
// engines open theirs; opened holds the first failure of the open, if any.
struct EventStream {
    explicit EventStream(IMMDevice* device, REFERENCE_TIME duration = 200000);
    ~EventStream();
    EventStream(const EventStream&) = delete;
    EventStream& operator=(const EventStream&) = delete;

    template <typename Service>
    CComPtr<Service> Get() {
        CComPtr<Service> service;
        if (!client) return service;
        EXPECT_EQ(client->GetService(zq_iid_of<Service>::get(), reinterpret_cast<void**>(&service)), S_OK);
        return service;
    }
    bool Signalled() const { return WaitForSingleObject(event, 0) == WAIT_OBJECT_0; }
    UINT32 Padding() const;  // expects the call to succeed

    CComPtr<IAudioClient> client;
    WAVEFORMATEX* format = nullptr;  // the mix format the stream was opened on
    HANDLE event = nullptr;
    UINT32 bufferFrames = 0;
    HRESULT opened = E_FAIL;
};

}  // namespace zqtest
