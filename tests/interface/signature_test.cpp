// The exported interface, member by member, at exactly its argument and result types.
//
// The types are held at compile time through member-function-pointer types: a member whose
// argument or result type drifts, that gains an overload or a default argument of a different
// kind, or that disappears, stops this file from compiling. The private members that the
// whole-class export puts in the export table are reached through an explicit instantiation,
// where access is not checked, and are also held to be private.
//
// The interface's "unsigned long" is 32 bits wide: that is DWORD here, since the unsigned long
// of this platform is 64 bits.
//
// The runtime tests call, through the shared library, what a host may call on a core object
// that is constructed but not initialised.
#include <gtest/gtest.h>

#include <cstdint>
#include <type_traits>

#include "zqCoreAudio.h"

namespace {

using Core = CZQCoreAudio;
using Device = CWMAudioDevice;

// ---- reaching private members without access checks ------------------------------------------
// An explicit instantiation may name a private member; the friend it defines hands the
// member pointer out, so its type can be compared.
template <typename Tag, auto Member>
struct PrivateMember {
    friend constexpr auto MemberOf(Tag) { return Member; }
};

struct LoadConfigTag {
    friend constexpr auto MemberOf(LoadConfigTag);
};
struct LoadPluginsTag {
    friend constexpr auto MemberOf(LoadPluginsTag);
};
struct IsDeviceInConfigTag {
    friend constexpr auto MemberOf(IsDeviceInConfigTag);
};

template struct PrivateMember<LoadConfigTag, &CZQCoreAudio::LoadConfig>;
template struct PrivateMember<LoadPluginsTag, &CZQCoreAudio::LoadPlugins>;
template struct PrivateMember<IsDeviceInConfigTag, &CZQCoreAudio::IsDeviceInConfig>;

// Whether the name can be taken from outside the class (false for private members).
template <typename T>
concept LoadConfigIsAccessible = requires { &T::LoadConfig; };
template <typename T>
concept LoadPluginsIsAccessible = requires { &T::LoadPlugins; };
template <typename T>
concept IsDeviceInConfigIsAccessible = requires { &T::IsDeviceInConfig; };

#define ZQ_HOLD(Class, Member, ...) \
    static_assert(std::is_same_v<decltype(&Class::Member), __VA_ARGS__>, #Class "::" #Member " has changed type")

// ---- platform types at the interface -------------------------------------------------------
static_assert(sizeof(DWORD) == 4, "the interface's unsigned long is 32 bits");
static_assert(std::is_same_v<DWORD, std::uint32_t>);
static_assert(std::is_pointer_v<HWND>);
static_assert(std::is_class_v<_GUID> && sizeof(_GUID) == 16);
static_assert(std::is_same_v<GUID, _GUID>);

// ---- CZQCoreAudio: lifecycle and main control ----------------------------------------------
static_assert(std::is_default_constructible_v<Core>);
static_assert(std::is_destructible_v<Core>);
ZQ_HOLD(Core, Init, void (Core::*)(HWND));
ZQ_HOLD(Core, Shutdown, void (Core::*)());
ZQ_HOLD(Core, IsInit, bool (Core::*)());
ZQ_HOLD(Core, Start, void (Core::*)());
ZQ_HOLD(Core, Stop, void (Core::*)());
ZQ_HOLD(Core, IsStarted, bool (Core::*)());
ZQ_HOLD(Core, Refresh, void (Core::*)());
ZQ_HOLD(Core, DestroyRender, void (Core::*)());
ZQ_HOLD(Core, RebuildRender, void (Core::*)());
ZQ_HOLD(Core, DestroyCapture, void (Core::*)());
ZQ_HOLD(Core, RebuildCapture, void (Core::*)());

// ---- engines, stream devices and handles ---------------------------------------------------
ZQ_HOLD(Core, GetCaptureEngine, CAudioCapture* (Core::*)());
ZQ_HOLD(Core, GetRenderEngine, CAudioRender* (Core::*)());
ZQ_HOLD(Core, SetCaptureDevice, bool (Core::*)(IMMDevice*));
ZQ_HOLD(Core, SetRenderDevice, bool (Core::*)(IMMDevice*));
ZQ_HOLD(Core, GetCaptureDeviceCount, unsigned int (Core::*)());
ZQ_HOLD(Core, GetCaptureDevice, CWMAudioDevice* (Core::*)(int));
ZQ_HOLD(Core, GetRenderDeviceCount, unsigned int (Core::*)());
ZQ_HOLD(Core, GetRenderDevice, CWMAudioDevice* (Core::*)(int));
ZQ_HOLD(Core, GetNotifyClient, CMMNotificationClient* (Core::*)());
ZQ_HOLD(Core, GetHwnd, HWND (Core::*)());
ZQ_HOLD(Core, GetSA, _SECURITY_ATTRIBUTES* (Core::*)());

// ---- settings ------------------------------------------------------------------------------
ZQ_HOLD(Core, SetBypass, void (Core::*)(bool));
ZQ_HOLD(Core, IsBypass, bool (Core::*)());
ZQ_HOLD(Core, SetWaveScale, void (Core::*)(int));
ZQ_HOLD(Core, GetWaveScale, int (Core::*)());
ZQ_HOLD(Core, SetWhichFunction, void (Core::*)(int));
ZQ_HOLD(Core, GetWhichFunction, int (Core::*)());
ZQ_HOLD(Core, SetSpectrumView, void (Core::*)(DWORD));
ZQ_HOLD(Core, GetSpectrumView, int (Core::*)());

// ---- logging: printf-style, a variable argument list after the format ----------------------
ZQ_HOLD(Core, LogInfo, void (Core::*)(const wchar_t*, ...));
ZQ_HOLD(Core, LogWarning, void (Core::*)(const wchar_t*, ...));
ZQ_HOLD(Core, LogError, void (Core::*)(const wchar_t*, ...));
ZQ_HOLD(Core, SetLog, void (Core::*)(CZqLog*));
ZQ_HOLD(Core, GetDbgTextFIFO, CStringW (Core::*)());

// ---- device notifications ------------------------------------------------------------------
ZQ_HOLD(Core, DoDeviceChange, void (Core::*)(const wchar_t*, DWORD));
ZQ_HOLD(Core, DoDeviceAdded, void (Core::*)(const wchar_t*));
ZQ_HOLD(Core, DoDeviceRemoved, void (Core::*)(const wchar_t*));
ZQ_HOLD(Core, RemoveDevice, void (Core::*)(const wchar_t*));
ZQ_HOLD(Core, DoRenderChanged, void (Core::*)(const wchar_t*));
ZQ_HOLD(Core, DoCaptureChanged, void (Core::*)(const wchar_t*));

// ---- the maker's microphones ---------------------------------------------------------------
ZQ_HOLD(Core, ClearDeviceZQ, void (Core::*)());
ZQ_HOLD(Core, FillDevicesZQ, bool (Core::*)());
ZQ_HOLD(Core, FindHidDevice, IMMDevice* (Core::*)(_GUID, CStringW&));
ZQ_HOLD(Core, GetHidCaptureDeviceCount, unsigned int (Core::*)());
ZQ_HOLD(Core, GetHidCaptureDevice, CWMAudioDevice* (Core::*)(int));

// ---- product table -------------------------------------------------------------------------
static_assert(std::is_same_v<decltype(MemberOf(LoadConfigTag{})), void (Core::*)()>);
static_assert(!LoadConfigIsAccessible<Core>, "LoadConfig is private");
ZQ_HOLD(Core, GetProductCount, int (Core::*)());
ZQ_HOLD(Core, GetProductNameByIndex, CStringW (Core::*)(int));
ZQ_HOLD(Core, GetProductFriendlyNameByIndex, CStringW (Core::*)(int));
ZQ_HOLD(Core, GetProductAPI, unsigned char (Core::*)(int));
ZQ_HOLD(Core, GetProductFW, unsigned char (Core::*)(int));
ZQ_HOLD(Core, GetEditorExeByProduct, CStringW (Core::*)(const CStringW&));
ZQ_HOLD(Core, GetGroupId, int (Core::*)(const CStringW&));
ZQ_HOLD(Core, FindFriendlyNameDevice, CStringW (Core::*)(unsigned char, unsigned char, const CStringW&));
static_assert(std::is_same_v<decltype(MemberOf(IsDeviceInConfigTag{})), bool (Core::*)(const CStringW&)>);
static_assert(!IsDeviceInConfigIsAccessible<Core>, "IsDeviceInConfig is private");

// ---- plug-ins ------------------------------------------------------------------------------
static_assert(std::is_same_v<decltype(MemberOf(LoadPluginsTag{})), void (Core::*)()>);
static_assert(!LoadPluginsIsAccessible<Core>, "LoadPlugins is private");
ZQ_HOLD(Core, GetPluginCount, int (Core::*)());
ZQ_HOLD(Core, GetPlugin, _ZQ_PLUGIN_INFO (Core::*)(int));
static_assert(sizeof(_ZQ_PLUGIN_INFO) == 1044);
static_assert(std::is_trivially_copyable_v<_ZQ_PLUGIN_INFO>, "returned by value as a plain record");

// ---- level meters and volume ---------------------------------------------------------------
ZQ_HOLD(Core, GetPeakCapture, float (Core::*)());
ZQ_HOLD(Core, GetPeakCaptureDBFS, float (Core::*)());
ZQ_HOLD(Core, GetPeakRender, float (Core::*)());
ZQ_HOLD(Core, GetPeakRenderDBFS, float (Core::*)());
ZQ_HOLD(Core, SetCaptureVol, void (Core::*)(float));
ZQ_HOLD(Core, GetCaptureVol, float (Core::*)());
ZQ_HOLD(Core, SetRenderVol, void (Core::*)(float));
ZQ_HOLD(Core, GetRenderVol, float (Core::*)());
ZQ_HOLD(Core, MuteRender, void (Core::*)(bool));
ZQ_HOLD(Core, IsRenderMute, bool (Core::*)());
ZQ_HOLD(Core, GetDataPeakIn, float (Core::*)(int, int));
ZQ_HOLD(Core, GetDataPeakOut, float (Core::*)(int, int));

// ---- spectrum ------------------------------------------------------------------------------
ZQ_HOLD(Core, GetSpectrumAmpIn, float (Core::*)(int));
ZQ_HOLD(Core, GetSpectrumAmpOut, float (Core::*)(int));
ZQ_HOLD(Core, GetSpectrumAmpPeakIn, float (Core::*)(int));
ZQ_HOLD(Core, GetSpectrumAmpPeakOut, float (Core::*)(int));

// ---- CWMAudioDevice ------------------------------------------------------------------------
static_assert(std::is_default_constructible_v<Device>);
static_assert(std::is_copy_constructible_v<Device>);
static_assert(!std::is_trivially_copy_constructible_v<Device>, "the copy constructor is the class's own");
static_assert(std::is_destructible_v<Device>);
ZQ_HOLD(Device, operator=, Device& (Device::*)(const Device&));
ZQ_HOLD(Device, Clear, void (Device::*)());
ZQ_HOLD(Device, GetDevice, IMMDevice* (Device::*)());
ZQ_HOLD(Device, SetDevice, void (Device::*)(IMMDevice*));
ZQ_HOLD(Device, GetName, CStringW (Device::*)());
ZQ_HOLD(Device, SetName, void (Device::*)(const wchar_t*));
ZQ_HOLD(Device, GetFriendlyName, CStringW (Device::*)());
ZQ_HOLD(Device, SetFriendlyName, void (Device::*)(const wchar_t*));
ZQ_HOLD(Device, GetManufacturer, CStringW (Device::*)());
ZQ_HOLD(Device, SetManufacturer, void (Device::*)(const wchar_t*));
ZQ_HOLD(Device, GetProduct, CStringW (Device::*)());
ZQ_HOLD(Device, SetProduct, void (Device::*)(const wchar_t*));
ZQ_HOLD(Device, GetSN, CStringW (Device::*)());
ZQ_HOLD(Device, SetSN, void (Device::*)(const wchar_t*));
ZQ_HOLD(Device, GetHidContainerID, _GUID (Device::*)());
ZQ_HOLD(Device, SetHidContainerID, void (Device::*)(_GUID));
ZQ_HOLD(Device, GetVerAPI, unsigned char (Device::*)());
ZQ_HOLD(Device, GetVerFW, unsigned char (Device::*)());
ZQ_HOLD(Device, InitVer, bool (Device::*)(int));
ZQ_HOLD(Device, IsEditNow, bool (Device::*)());
ZQ_HOLD(Device, MarkEditNow, void (Device::*)(bool));

// ---- _ZQ_CONFIG: its four special members are declared (and so exported) -------------------
static_assert(std::is_default_constructible_v<_ZQ_CONFIG>);
static_assert(std::is_copy_constructible_v<_ZQ_CONFIG>);
static_assert(!std::is_trivially_copy_constructible_v<_ZQ_CONFIG>);
static_assert(std::is_destructible_v<_ZQ_CONFIG>);
ZQ_HOLD(_ZQ_CONFIG, operator=, _ZQ_CONFIG& (_ZQ_CONFIG::*)(const _ZQ_CONFIG&));

// ---- inline members of the zqSystem classes ------------------------------------------------
static_assert(std::is_copy_constructible_v<CZqLog>);
static_assert(std::is_constructible_v<CZqLog, const CZqLog&>);
ZQ_HOLD(CZqLog, GetLogType, zqLogType (CZqLog::*)());
ZQ_HOLD(CSecurityAttributesRW, operator=, CSecurityAttributesRW& (CSecurityAttributesRW::*)(const CSecurityAttributesRW&));
ZQ_HOLD(CSecurityAttributesRW, GetSecurityAttributes, _SECURITY_ATTRIBUTES* (CSecurityAttributesRW::*)());

// ---- exported data and the host's window messages ------------------------------------------
static_assert(std::is_same_v<decltype(g_pCore), CZQCoreAudio*>);
static_assert(WM_AUDIO_RENDER_CHANGED == 0x04C8);
static_assert(WM_AUDIO_DEVICE_CHANGED == 0x04CC);
static_assert(WM_SESSION_VOLUME_CHANGED == 0x04D2);

#undef ZQ_HOLD

// ---- runtime: a constructed core object that is not initialised ---------------------------

TEST(ExportedInterface, ConstructorPublishesTheCoreObject) {
    CZQCoreAudio core;
    EXPECT_EQ(g_pCore, &core);
}

TEST(ExportedInterface, SecurityAttributesLiveInTheCoreObject) {
    CZQCoreAudio core;
    _SECURITY_ATTRIBUTES* sa = core.GetSA();
    ASSERT_NE(sa, nullptr);
    EXPECT_EQ(core.GetSA(), sa);
    const auto* first = reinterpret_cast<const unsigned char*>(&core);
    const auto* inside = reinterpret_cast<const unsigned char*>(sa);
    EXPECT_TRUE(inside >= first && inside < first + sizeof(CZQCoreAudio)) << "GetSA points outside the object";
}

TEST(ExportedInterface, DebugTextFifoIsAlwaysEmpty) {
    CZQCoreAudio core;
    EXPECT_TRUE(core.GetDbgTextFIFO().IsEmpty());
    core.LogInfo(L"CoreAudio: %s %d", L"interface", 1);
    core.LogWarning(L"CoreAudio: %s", L"interface");
    core.LogError(L"CoreAudio: %x", 0x80004005u);
    EXPECT_TRUE(core.GetDbgTextFIFO().IsEmpty());
}

}  // namespace
