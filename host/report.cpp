#include "report.h"

#include <map>

#include "json_writer.h"

namespace zqhost {
namespace {

void WriteMicrophones(JsonWriter& json, const std::vector<MicrophoneInfo>& microphones) {
    json.Key("microphones").BeginArray();
    for (const MicrophoneInfo& m : microphones) {
        json.BeginObject();
        json.Key("serial").String(m.serial);
        json.Key("product").String(m.product);
        json.Key("manufacturer").String(m.manufacturer);
        json.Key("api").Integer(m.api);
        json.Key("fw").Integer(m.fw);
        json.Key("friendly_name").String(m.friendlyName);
        json.Key("endpoint_name").String(m.endpointName);
        json.EndObject();
    }
    json.EndArray();
}

void WriteDeviceLists(JsonWriter& json, const DeviceLists& lists) {
    json.Key("render_devices").BeginArray();
    for (const std::string& name : lists.render) json.String(name);
    json.EndArray();
    json.Key("capture_devices").BeginArray();
    for (const CaptureDeviceInfo& c : lists.capture) {
        json.BeginObject();
        json.Key("name").String(c.name);
        json.Key("friendly_name").String(c.friendlyName);
        json.Key("serial").String(c.serial);
        json.EndObject();
    }
    json.EndArray();
}

void WriteMessages(JsonWriter& json, const std::vector<ReceivedMessage>& messages) {
    // Counts per message and, for the two whose wParam is a code, per wParam.
    std::map<UINT, int> counts;
    std::map<UINT, std::map<unsigned long long, int>> byCode;
    for (const ReceivedMessage& m : messages) {
        ++counts[m.message];
        if (m.message != WM_SESSION_VOLUME_CHANGED) ++byCode[m.message][static_cast<unsigned long long>(m.wParam)];
    }
    json.Key("messages").BeginObject();
    for (UINT message : {WM_AUDIO_DEVICE_CHANGED, WM_AUDIO_RENDER_CHANGED, WM_SESSION_VOLUME_CHANGED}) {
        json.Key(MessageName(message)).BeginObject();
        json.Key("count").Integer(counts[message]);
        if (message != WM_SESSION_VOLUME_CHANGED) {
            json.Key("by_wparam").BeginObject();
            for (const auto& [code, count] : byCode[message]) json.Key(std::to_string(code)).Integer(count);
            json.EndObject();
        }
        json.EndObject();
    }
    json.EndObject();

    json.Key("message_log").BeginArray();
    for (const ReceivedMessage& m : messages) {
        json.BeginObject();
        json.Key("t").Number(m.seconds);
        json.Key("message").String(MessageName(m.message));
        if (m.message == WM_SESSION_VOLUME_CHANGED) {
            json.Key("volume").Number(m.volume);
            json.Key("mute").Bool(m.mute);
        } else {
            json.Key("wparam").Integer(static_cast<long long>(m.wParam));
            if (!m.serial.empty()) json.Key("serial").String(m.serial);
        }
        json.EndObject();
    }
    json.EndArray();
}

void WriteStrongest(JsonWriter& json, const char* key, const StrongestBin& s) {
    json.Key(key).BeginObject();
    json.Key("bin").Integer(s.bin);
    if (s.bin < 0) {
        json.Key("hz").Null();
        json.Key("db").Null();
    } else {
        json.Key("hz").Number(s.hz);
        json.Key("db").Number(s.db);
    }
    json.EndObject();
}

}  // namespace

std::string SummaryJson(HostSession& session, const RunSummary& run) {
    CZQCoreAudio& core = session.Core();
    JsonWriter json;
    json.BeginObject();
    json.Key("machine").String(run.machine);
    json.Key("seconds").Number(run.seconds);
    json.Key("products").Integer(core.GetProductCount());
    WriteMicrophones(json, session.Devices().microphones);
    WriteDeviceLists(json, session.Devices());
    WriteMessages(json, session.Messages());

    json.Key("capture_counts").BeginArray();
    for (const Listing& l : session.Listings()) {
        json.BeginObject();
        json.Key("t").Number(l.seconds);
        json.Key("cause").String(l.cause);
        json.Key("capture_count").Integer(l.captureCount);
        json.Key("microphone_count").Integer(l.microphoneCount);
        json.EndObject();
    }
    json.EndArray();

    json.Key("actions").BeginArray();
    for (const ActionRecord& a : run.actions) {
        json.BeginObject();
        json.Key("t").Number(a.seconds);
        json.Key("action").String(a.name);
        json.Key("ok").Bool(a.ok);
        json.Key("text").String(a.text);
        json.EndObject();
    }
    json.EndArray();

    json.Key("levels").BeginObject();
    json.Key("capture_percent").Number(run.largest.capturePercent);
    json.Key("capture_dbfs").Number(PeakDbfs(run.largest.captureLinear));
    json.Key("render_percent").Number(run.largest.renderPercent);
    json.Key("render_dbfs").Number(PeakDbfs(run.largest.renderLinear));
    json.EndObject();

    json.Key("settings").BeginObject();
    json.Key("started").Bool(core.IsStarted());
    json.Key("bypass").Bool(core.IsBypass());
    json.Key("render_mute").Bool(core.IsRenderMute());
    json.Key("render_volume").Number(session.ShownVolume());
    json.Key("session_mute").Bool(session.SessionMute());
    json.Key("window_function").Integer(core.GetWhichFunction());
    json.Key("spectrum_view").Integer(core.GetSpectrumView());
    json.EndObject();

    json.Key("spectrum").BeginObject();
    WriteStrongest(json, "input", run.input);
    WriteStrongest(json, "output", run.output);
    json.EndObject();
    json.EndObject();
    return json.Text() + "\n";
}

}  // namespace zqhost
