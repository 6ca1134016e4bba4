// The device's own volume (IAudioEndpointVolume) on the virtual engine: levels per channel and
// master, as scalars and in the engine's dB, the mute, the steps, refused arguments, injected
// failures with the call trace, and the objects of a device that has gone.
#include <algorithm>
#include <climits>
#include <cmath>
#include <functional>
#include <limits>
#include <optional>
#include <string>
#include <vector>

#include "vae_fixture.h"

namespace vaetest {
namespace {

using zqvm::SampleFormat;

constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();

class EndpointVolumeTest : public VirtualAudioTest {
protected:
    static CComPtr<IAudioEndpointVolume> VolumeOf(const std::wstring& id) {
        CComPtr<IAudioEndpointVolume> volume;
        EXPECT_EQ(Device(id)->Activate(IID_IAudioEndpointVolume, CLSCTX_ALL, nullptr,
                                       reinterpret_cast<void**>(&volume)),
                  S_OK);
        return volume;
    }

    static float Scalar(IAudioEndpointVolume* volume, std::optional<UINT> channel = std::nullopt) {
        float level = -1.0f;
        EXPECT_EQ(channel ? volume->GetChannelVolumeLevelScalar(*channel, &level) : volume->GetMasterVolumeLevelScalar(&level),
                  S_OK);
        return level;
    }

    static float Db(IAudioEndpointVolume* volume, std::optional<UINT> channel = std::nullopt) {
        float db = 1.0f;
        EXPECT_EQ(channel ? volume->GetChannelVolumeLevel(*channel, &db) : volume->GetMasterVolumeLevel(&db), S_OK);
        return db;
    }

    static UINT StepOf(IAudioEndpointVolume* volume) {
        UINT step = 0;
        UINT steps = 0;
        EXPECT_EQ(volume->GetVolumeStepInfo(&step, &steps), S_OK);
        EXPECT_EQ(steps, 101u);
        return step;
    }
};

// A callback the volume never calls: control-change notifications are not offered.
class IgnoredCallback final : public IAudioEndpointVolumeCallback {
public:
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID, void** ppv) override {
        *ppv = nullptr;
        return E_NOINTERFACE;
    }
    ULONG STDMETHODCALLTYPE AddRef() override { return 1; }
    ULONG STDMETHODCALLTYPE Release() override { return 1; }
    HRESULT STDMETHODCALLTYPE OnNotify(PAUDIO_VOLUME_NOTIFICATION_DATA) override { return S_OK; }
};

// Every method of the interface with arguments it takes, by its injectable name.
struct VolumeCall {
    const char* method;
    std::function<HRESULT(IAudioEndpointVolume*)> call;
};

std::vector<VolumeCall> EveryVolumeCall(IAudioEndpointVolumeCallback* callback) {
    static float level;
    static UINT count;
    static UINT step;
    static BOOL mute;
    static DWORD mask;
    return {
        {"RegisterControlChangeNotify", [=](IAudioEndpointVolume* v) { return v->RegisterControlChangeNotify(callback); }},
        {"UnregisterControlChangeNotify",
         [=](IAudioEndpointVolume* v) { return v->UnregisterControlChangeNotify(callback); }},
        {"GetChannelCount", [](IAudioEndpointVolume* v) { return v->GetChannelCount(&count); }},
        {"SetMasterVolumeLevel", [](IAudioEndpointVolume* v) { return v->SetMasterVolumeLevel(-6.0f, nullptr); }},
        {"SetMasterVolumeLevelScalar",
         [](IAudioEndpointVolume* v) { return v->SetMasterVolumeLevelScalar(0.5f, nullptr); }},
        {"GetMasterVolumeLevel", [](IAudioEndpointVolume* v) { return v->GetMasterVolumeLevel(&level); }},
        {"GetMasterVolumeLevelScalar", [](IAudioEndpointVolume* v) { return v->GetMasterVolumeLevelScalar(&level); }},
        {"SetChannelVolumeLevel", [](IAudioEndpointVolume* v) { return v->SetChannelVolumeLevel(1, -6.0f, nullptr); }},
        {"SetChannelVolumeLevelScalar",
         [](IAudioEndpointVolume* v) { return v->SetChannelVolumeLevelScalar(1, 0.5f, nullptr); }},
        {"GetChannelVolumeLevel", [](IAudioEndpointVolume* v) { return v->GetChannelVolumeLevel(1, &level); }},
        {"GetChannelVolumeLevelScalar",
         [](IAudioEndpointVolume* v) { return v->GetChannelVolumeLevelScalar(1, &level); }},
        {"SetMute", [](IAudioEndpointVolume* v) { return v->SetMute(TRUE, nullptr); }},
        {"GetMute", [](IAudioEndpointVolume* v) { return v->GetMute(&mute); }},
        {"GetVolumeStepInfo", [](IAudioEndpointVolume* v) { return v->GetVolumeStepInfo(&step, &count); }},
        {"VolumeStepUp", [](IAudioEndpointVolume* v) { return v->VolumeStepUp(nullptr); }},
        {"VolumeStepDown", [](IAudioEndpointVolume* v) { return v->VolumeStepDown(nullptr); }},
        {"QueryHardwareSupport", [](IAudioEndpointVolume* v) { return v->QueryHardwareSupport(&mask); }},
        {"GetVolumeRange", [](IAudioEndpointVolume* v) { return v->GetVolumeRange(&level, &level, &level); }},
    };
}

std::string Named(const char* method) { return std::string("IAudioEndpointVolume::") + method; }

TEST_F(EndpointVolumeTest, LevelsAreTheDevicesOwnPerChannelWithTheLoudestAsMaster) {
    const std::wstring speaker = Add(eRender, 48000, 2, SampleFormat::Float32);
    const std::wstring other = Add(eRender, 48000, 2, SampleFormat::Float32);
    CComPtr<IAudioEndpointVolume> volume = VolumeOf(speaker);
    ASSERT_NE(volume, nullptr);
    UINT channels = 0;
    ASSERT_EQ(volume->GetChannelCount(&channels), S_OK);
    EXPECT_EQ(channels, 2u);
    EXPECT_EQ(Scalar(volume), 1.0f) << "a device starts at its full volume";
    EXPECT_EQ(Db(volume), 0.0f);

    ASSERT_EQ(volume->SetMasterVolumeLevelScalar(0.5f, nullptr), S_OK);
    EXPECT_EQ(Scalar(volume, 0), 0.5f);
    EXPECT_EQ(Scalar(volume, 1), 0.5f);
    EXPECT_NEAR(Db(volume), 20.0 * std::log10(0.5), 1e-4) << "the engine's dB are 20 log10 of the scalar";

    ASSERT_EQ(volume->SetChannelVolumeLevelScalar(1, 0.25f, nullptr), S_OK);
    ASSERT_EQ(volume->SetChannelVolumeLevel(0, -20.0f, nullptr), S_OK);
    EXPECT_NEAR(Scalar(volume, 0), 0.1f, 1e-6f);
    EXPECT_EQ(Scalar(volume, 1), 0.25f) << "a channel's level changed another's";
    EXPECT_NEAR(Db(volume, 0), -20.0f, 1e-4f);
    EXPECT_EQ(Scalar(volume), 0.25f) << "the master level is the loudest channel's";

    ASSERT_EQ(volume->SetMasterVolumeLevel(-100.0f, nullptr), S_OK);
    EXPECT_NEAR(Scalar(volume), 1e-5f, 1e-9f);
    EXPECT_NEAR(Db(volume, 1), -100.0f, 1e-3f);
    ASSERT_EQ(volume->SetChannelVolumeLevelScalar(0, 0.0f, nullptr), S_OK);
    EXPECT_EQ(Db(volume, 0), -100.0f) << "silence is the floor of the range, not -inf";

    BOOL mute = TRUE;
    ASSERT_EQ(volume->GetMute(&mute), S_OK);
    EXPECT_FALSE(mute);
    ASSERT_EQ(volume->SetMute(TRUE, nullptr), S_OK);
    ASSERT_EQ(volume->SetMasterVolumeLevelScalar(0.75f, nullptr), S_OK);

    // Another object of the same device sees the same volume; another device keeps its own; the
    // process's session volume is not the device's.
    CComPtr<IAudioEndpointVolume> again = VolumeOf(speaker);
    EXPECT_EQ(Scalar(again, 0), 0.75f);
    ASSERT_EQ(again->GetMute(&mute), S_OK);
    EXPECT_TRUE(mute);
    CComPtr<IAudioEndpointVolume> otherVolume = VolumeOf(other);
    EXPECT_EQ(Scalar(otherVolume), 1.0f);
    ASSERT_EQ(otherVolume->GetMute(&mute), S_OK);
    EXPECT_FALSE(mute);
    CComPtr<IAudioSessionManager> manager;
    ASSERT_EQ(Device(speaker)->Activate(IID_IAudioSessionManager, CLSCTX_ALL, nullptr,
                                        reinterpret_cast<void**>(&manager)),
              S_OK);
    CComPtr<ISimpleAudioVolume> session;
    ASSERT_EQ(manager->GetSimpleAudioVolume(nullptr, 0, &session), S_OK);
    float sessionLevel = 0.0f;
    ASSERT_EQ(session->GetMasterVolume(&sessionLevel), S_OK);
    EXPECT_EQ(sessionLevel, 1.0f);
    ASSERT_EQ(session->GetMute(&mute), S_OK);
    EXPECT_FALSE(mute);

    // A device keeps its volume while it is disabled.
    ASSERT_TRUE(zqvm::SetEndpointState(speaker, DEVICE_STATE_DISABLED));
    ASSERT_TRUE(zqvm::SetEndpointState(speaker, DEVICE_STATE_ACTIVE));
    EXPECT_EQ(Scalar(VolumeOf(speaker), 1), 0.75f);
}

TEST_F(EndpointVolumeTest, StepsAreHundredthsOfTheMasterLevelAndStopAtEitherEnd) {
    const std::wstring mic = Add(eCapture, 48000, 2, SampleFormat::Int16);
    CComPtr<IAudioEndpointVolume> volume = VolumeOf(mic);
    ASSERT_NE(volume, nullptr);
    float minimum = 0.0f;
    float maximum = -1.0f;
    float increment = 0.0f;
    ASSERT_EQ(volume->GetVolumeRange(&minimum, &maximum, &increment), S_OK);
    EXPECT_EQ(minimum, -100.0f);
    EXPECT_EQ(maximum, 0.0f);
    EXPECT_EQ(increment, 1.0f);
    DWORD mask = 1;
    ASSERT_EQ(volume->QueryHardwareSupport(&mask), S_OK);
    EXPECT_EQ(mask, 0u);

    EXPECT_EQ(StepOf(volume), 100u);
    ASSERT_EQ(volume->VolumeStepUp(nullptr), S_OK) << "at the top a step up is no failure";
    EXPECT_EQ(StepOf(volume), 100u);
    EXPECT_EQ(Scalar(volume), 1.0f);
    ASSERT_EQ(volume->VolumeStepDown(nullptr), S_OK);
    EXPECT_EQ(StepOf(volume), 99u);
    EXPECT_NEAR(Scalar(volume), 0.99f, 1e-6f);

    // From the loudest channel's nearest step, and every channel to the step.
    ASSERT_EQ(volume->SetChannelVolumeLevelScalar(0, 0.3f, nullptr), S_OK);
    ASSERT_EQ(volume->SetChannelVolumeLevelScalar(1, 0.498f, nullptr), S_OK);
    EXPECT_EQ(StepOf(volume), 50u);
    ASSERT_EQ(volume->VolumeStepUp(nullptr), S_OK);
    EXPECT_NEAR(Scalar(volume, 0), 0.51f, 1e-6f);
    EXPECT_NEAR(Scalar(volume, 1), 0.51f, 1e-6f);

    ASSERT_EQ(volume->SetMasterVolumeLevelScalar(0.004f, nullptr), S_OK);
    EXPECT_EQ(StepOf(volume), 0u);
    ASSERT_EQ(volume->VolumeStepDown(nullptr), S_OK);
    EXPECT_EQ(Scalar(volume), 0.0f);
    ASSERT_EQ(volume->VolumeStepDown(nullptr), S_OK) << "at the bottom a step down is no failure";
    EXPECT_EQ(Scalar(volume), 0.0f);
    ASSERT_EQ(volume->VolumeStepUp(nullptr), S_OK);
    EXPECT_NEAR(Scalar(volume), 0.01f, 1e-6f);
}

TEST_F(EndpointVolumeTest, BadArgumentsAreRefusedAndChangeNothing) {
    const std::wstring speaker = Add(eRender, 48000, 2, SampleFormat::Float32);
    CComPtr<IAudioEndpointVolume> volume = VolumeOf(speaker);
    ASSERT_NE(volume, nullptr);
    ASSERT_EQ(volume->SetMasterVolumeLevelScalar(0.5f, nullptr), S_OK);

    float level = 0.0f;
    UINT count = 0;
    DWORD mask = 0;
    EXPECT_EQ(volume->GetChannelCount(nullptr), E_POINTER);
    EXPECT_EQ(volume->GetMasterVolumeLevel(nullptr), E_POINTER);
    EXPECT_EQ(volume->GetMasterVolumeLevelScalar(nullptr), E_POINTER);
    EXPECT_EQ(volume->GetChannelVolumeLevel(0, nullptr), E_POINTER);
    EXPECT_EQ(volume->GetChannelVolumeLevelScalar(0, nullptr), E_POINTER);
    EXPECT_EQ(volume->GetMute(nullptr), E_POINTER);
    EXPECT_EQ(volume->GetVolumeStepInfo(nullptr, &count), E_POINTER);
    EXPECT_EQ(volume->GetVolumeStepInfo(&count, nullptr), E_POINTER);
    EXPECT_EQ(volume->QueryHardwareSupport(nullptr), E_POINTER);
    EXPECT_EQ(volume->GetVolumeRange(nullptr, &level, &level), E_POINTER);
    EXPECT_EQ(volume->GetVolumeRange(&level, nullptr, &level), E_POINTER);
    EXPECT_EQ(volume->GetVolumeRange(&level, &level, nullptr), E_POINTER);
    EXPECT_EQ(volume->RegisterControlChangeNotify(nullptr), E_POINTER);
    EXPECT_EQ(volume->UnregisterControlChangeNotify(nullptr), E_POINTER);
    IgnoredCallback callback;
    EXPECT_EQ(volume->RegisterControlChangeNotify(&callback), E_NOTIMPL);
    EXPECT_EQ(volume->UnregisterControlChangeNotify(&callback), E_NOTIMPL);
    EXPECT_EQ(volume->QueryHardwareSupport(&mask), S_OK);

    for (float scalar : {-0.01f, 1.01f, kNaN}) {
        SCOPED_TRACE(scalar);
        EXPECT_EQ(volume->SetMasterVolumeLevelScalar(scalar, nullptr), E_INVALIDARG);
        EXPECT_EQ(volume->SetChannelVolumeLevelScalar(0, scalar, nullptr), E_INVALIDARG);
    }
    for (float db : {0.5f, -100.5f, kNaN, -std::numeric_limits<float>::infinity()}) {
        SCOPED_TRACE(db);
        EXPECT_EQ(volume->SetMasterVolumeLevel(db, nullptr), E_INVALIDARG);
        EXPECT_EQ(volume->SetChannelVolumeLevel(1, db, nullptr), E_INVALIDARG);
    }
    // The channel count, and the largest index (which must not pass for "every channel").
    for (UINT channel : {2u, static_cast<UINT>(UINT_MAX)}) {
        SCOPED_TRACE(channel);
        EXPECT_EQ(volume->SetChannelVolumeLevelScalar(channel, 0.2f, nullptr), E_INVALIDARG);
        EXPECT_EQ(volume->SetChannelVolumeLevel(channel, -3.0f, nullptr), E_INVALIDARG);
        EXPECT_EQ(volume->GetChannelVolumeLevelScalar(channel, &level), E_INVALIDARG);
        EXPECT_EQ(volume->GetChannelVolumeLevel(channel, &level), E_INVALIDARG);
    }
    EXPECT_EQ(Scalar(volume, 0), 0.5f);
    EXPECT_EQ(Scalar(volume, 1), 0.5f);
}

// Every method asks the failure rules at its entry, by its own name, for its endpoint only, and
// is traced; every injectable name of the interface is one of these methods.
TEST_F(EndpointVolumeTest, EveryMethodTakesAnInjectedFailureForItsEndpointAndIsTraced) {
    const std::wstring speaker = Add(eRender, 48000, 2, SampleFormat::Float32);
    const std::wstring other = Add(eRender, 48000, 2, SampleFormat::Float32);
    const std::string speakerUtf8(speaker.begin(), speaker.end());  // the test endpoints' ids are ASCII
    CComPtr<IAudioEndpointVolume> volume = VolumeOf(speaker);
    CComPtr<IAudioEndpointVolume> otherVolume = VolumeOf(other);
    ASSERT_NE(volume, nullptr);
    ASSERT_NE(otherVolume, nullptr);
    IgnoredCallback callback;
    const std::vector<VolumeCall> calls = EveryVolumeCall(&callback);

    HRESULT code = static_cast<HRESULT>(0x8889A100);
    for (const VolumeCall& call : calls) {
        SCOPED_TRACE(call.method);
        ++code;
        ASSERT_TRUE(zqvm::InjectFailure(speaker, Named(call.method), code, /*once=*/true));
        EXPECT_NE(call.call(otherVolume), code) << "failed on another endpoint";
        zqvm::ClearCoreAudioCalls();
        zqvm::TraceCoreAudioCalls(true);
        EXPECT_EQ(call.call(volume), code);
        zqvm::TraceCoreAudioCalls(false);
        EXPECT_EQ(zqvm::CoreAudioCalls(), std::vector<std::string>{Named(call.method) + " on " + speakerUtf8});
        EXPECT_NE(call.call(volume), code) << "a once-failure must be used up";
    }
    zqvm::ClearCoreAudioCalls();

    for (const std::string& name : zqvm::InjectableMethods()) {
        if (name.rfind("IAudioEndpointVolume::", 0) != 0) continue;
        EXPECT_TRUE(std::any_of(calls.begin(), calls.end(), [&](const VolumeCall& c) { return Named(c.method) == name; }))
            << name << " is injectable but no method of that name is tested";
    }

    // Its Activate fails by the interface's name; other interfaces of the device still come.
    ASSERT_TRUE(zqvm::InjectFailure(speaker, "IMMDevice::Activate/IAudioEndpointVolume", E_OUTOFMEMORY, true));
    CComPtr<IMMDevice> device = Device(speaker);
    CComPtr<IAudioClient> client;
    EXPECT_EQ(device->Activate(IID_IAudioClient, CLSCTX_ALL, nullptr, reinterpret_cast<void**>(&client)), S_OK);
    const auto activate = [&](CComPtr<IAudioEndpointVolume>& out) {
        return device->Activate(IID_IAudioEndpointVolume, CLSCTX_ALL, nullptr, reinterpret_cast<void**>(&out));
    };
    CComPtr<IAudioEndpointVolume> refused;
    EXPECT_EQ(activate(refused), E_OUTOFMEMORY);
    EXPECT_EQ(refused, nullptr);
    EXPECT_EQ(activate(refused), S_OK) << "a once-failure must be used up";
}

TEST_F(EndpointVolumeTest, AVolumeOfADeviceThatHasGoneIsInvalidatedForGood) {
    const std::wstring pulled = Add(eCapture, 48000, 2, SampleFormat::Int16);
    const std::wstring disabled = Add(eRender, 48000, 2, SampleFormat::Float32);
    const std::wstring removed = Add(eRender, 48000, 2, SampleFormat::Float32);
    CComPtr<IAudioEndpointVolume> pulledVolume = VolumeOf(pulled);
    CComPtr<IAudioEndpointVolume> disabledVolume = VolumeOf(disabled);
    CComPtr<IAudioEndpointVolume> removedVolume = VolumeOf(removed);
    CComPtr<IMMDevice> disabledDevice = Device(disabled);
    ASSERT_EQ(disabledVolume->SetMasterVolumeLevelScalar(0.3f, nullptr), S_OK);

    ASSERT_TRUE(zqvm::InvalidateEndpoint(pulled));
    ASSERT_TRUE(zqvm::SetEndpointState(disabled, DEVICE_STATE_DISABLED));
    ASSERT_TRUE(zqvm::RemoveEndpoint(removed));
    IgnoredCallback callback;
    for (const VolumeCall& call : EveryVolumeCall(&callback)) {
        SCOPED_TRACE(call.method);
        EXPECT_EQ(call.call(pulledVolume), AUDCLNT_E_DEVICE_INVALIDATED);
        EXPECT_EQ(call.call(disabledVolume), AUDCLNT_E_DEVICE_INVALIDATED);
        EXPECT_EQ(call.call(removedVolume), AUDCLNT_E_DEVICE_INVALIDATED);
    }
    CComPtr<IAudioEndpointVolume> none;
    EXPECT_EQ(disabledDevice->Activate(IID_IAudioEndpointVolume, CLSCTX_ALL, nullptr, reinterpret_cast<void**>(&none)),
              AUDCLNT_E_DEVICE_INVALIDATED);

    // Enabled again: the old object stays invalid, a new one works, and nothing the invalid
    // calls asked for was taken.
    ASSERT_TRUE(zqvm::SetEndpointState(disabled, DEVICE_STATE_ACTIVE));
    float level = 0.0f;
    EXPECT_EQ(disabledVolume->GetMasterVolumeLevelScalar(&level), AUDCLNT_E_DEVICE_INVALIDATED);
    CComPtr<IAudioEndpointVolume> fresh = VolumeOf(disabled);
    ASSERT_NE(fresh, nullptr);
    EXPECT_EQ(Scalar(fresh), 0.3f);
    BOOL mute = TRUE;
    ASSERT_EQ(fresh->GetMute(&mute), S_OK);
    EXPECT_FALSE(mute);
}

}  // namespace
}  // namespace vaetest
