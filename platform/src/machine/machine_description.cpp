// The machine description file (XML, read with pugixml).
//
//   <machine>
//     <endpoint flow="capture" name="Microphone (KV-1 USB Microphone)" ...>
//       <source kind="tone" frequency="1000" level_dbfs="-6"/>
//     </endpoint>
//     <endpoint flow="render" name="Speakers (Virtual Audio)" ...>
//       <sink wav="played.wav"/>
//     </endpoint>
//   </machine>
//
// <endpoint> attributes (only flow is required):
//   id          the endpoint identifier; default: made up in the Windows shape
//   flow        capture | render
//   name        friendly name (PKEY_Device_FriendlyName)
//   container   container identifier GUID, with or without braces (PKEY_Device_ContainerId)
//   usb_device  instead of container: the sysfs path of a USB device or of a device below it,
//               as udev and PulseAudio name it ("/devices/.../usb1/1-2"; under ZQ_SYSFS_ROOT):
//               that USB device's container, as the pulse and hidraw backends derive it
//   rate        sample rate in Hz, default 48000
//   channels    1 to 8, default 2
//   format      float32 | int16 | int24 | int32, default float32
//   extensible  true | false: WAVEFORMATEXTENSIBLE mix format, default false
//   channel_mask  extensible only: speaker mask (decimal or 0x hex), default the usual layout
//   state       active | disabled | notpresent | unplugged, default active
//   default     roles it is the default for: console, multimedia, communications (comma
//               separated) or all; roles nobody claims go to the first active endpoint
//   keep_seconds  render only: seconds of played audio kept for RenderedFrames, default 10
//   ppm         the device clock's rate error, -1000 to 1000 (may be fractional), default 0
//   phase_ms    the device period's phase, 0 to under 10 ms, default 0
// <source> (capture only; default silence):
//   kind="silence" | "fed"
//   kind="tone" frequency="Hz" and level_dbfs="-6" or amplitude="0.5" (linear)
//   kind="impulse" amplitude="1" interval="frames between impulses (0: once)"
//   kind="wav" path="file" loop="true|false"
// <sink wav="file"/> (render only): also write what is played to a 32-bit float WAV file.
// <bridge> (a HID-to-UART bridge, one of the maker's microphones; only serial is required):
//   serial        the USB serial number string
//   manufacturer  default KESTRAVON
//   product       the USB product string, default empty
//   container     container identifier GUID of its USB device: published in the registry
//                 ("ContainerID"), pairing the bridge with the capture endpoint of the same
//                 container; without it the registry has no key for the bridge
//   usb_device    instead of container, as for an endpoint
//   version_reply bytes the firmware answers the version query with, in hex separated by
//                 blanks, default "AA 05 12" (protocol 5, firmware 0x12); "" for no answer
//   vid, pid      USB identifiers, default 0x10C4 and 0xEAB0
// Relative paths are taken from the description file's folder. Other elements are ignored;
// unknown attributes of these elements are errors, so a misspelt one does not go unnoticed.
#include "machine_description.h"

#include <pugixml.hpp>

#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <initializer_list>
#include <sstream>

#include "../usb/usb_container.h"
#include "../audio/text.h"

namespace zqplatform::machine {

using audio::ParseGuid;
using audio::WideFromUtf8;
namespace {

class Parser {
public:
    Parser(const std::string& xml, const std::string& baseDir) : m_xml(xml), m_baseDir(baseDir) {}

    bool Parse(std::vector<zqvm::EndpointSpec>& endpoints, std::vector<zqvm::BridgeDescription>& bridges,
               std::string& error) {
        pugi::xml_document doc;
        const pugi::xml_parse_result result = doc.load_buffer(m_xml.data(), m_xml.size());
        if (!result) {
            error = AtLine(result.offset, result.description());
            return false;
        }
        const pugi::xml_node machine = doc.child("machine");
        if (!machine) {
            error = "the root element must be <machine>";
            return false;
        }
        for (const pugi::xml_node node : machine.children("endpoint")) {
            zqvm::EndpointSpec endpointSpec;
            if (!Endpoint(node, endpointSpec)) {
                error = AtLine(m_at.offset_debug(), m_error);
                return false;
            }
            endpoints.push_back(std::move(endpointSpec));
        }
        for (const pugi::xml_node node : machine.children("bridge")) {
            zqvm::BridgeDescription bridge;
            if (!Bridge(node, bridge)) {
                error = AtLine(m_at.offset_debug(), m_error);
                return false;
            }
            bridges.push_back(std::move(bridge));
        }
        return true;
    }

private:
    // "line N: what", N the line of the description that the byte offset falls on.
    std::string AtLine(ptrdiff_t offset, const std::string& what) const {
        int line = 0;
        if (offset >= 0) {
            line = 1;
            for (ptrdiff_t i = 0; i < offset && static_cast<size_t>(i) < m_xml.size(); ++i)
                if (m_xml[static_cast<size_t>(i)] == '\n') ++line;
        }
        return "line " + std::to_string(line) + ": " + what;
    }

    bool Fail(const pugi::xml_node& at, std::string why) {
        m_at = at;
        m_error = std::move(why);
        return false;
    }

    bool OnlyKnownAttributes(const pugi::xml_node& node, std::initializer_list<const char*> known) {
        for (const pugi::xml_attribute attribute : node.attributes()) {
            bool ok = false;
            for (const char* name : known) ok = ok || std::strcmp(attribute.name(), name) == 0;
            if (!ok) return Fail(node, std::string("<") + node.name() + "> has no attribute '" + attribute.name() + "'");
        }
        return true;
    }

    bool Number(const pugi::xml_node& node, const char* name, double& out) {
        const pugi::xml_attribute attribute = node.attribute(name);
        if (!attribute) return true;
        const char* text = attribute.value();
        char* end = nullptr;
        errno = 0;
        const double value = std::strtod(text, &end);
        if (end == text || *end != '\0' || errno != 0 || !std::isfinite(value))
            return Fail(node, std::string("'") + name + "' is not a number: '" + text + "'");
        out = value;
        return true;
    }

    bool Unsigned(const pugi::xml_node& node, const char* name, uint64_t max, uint64_t& out) {
        const pugi::xml_attribute attribute = node.attribute(name);
        if (!attribute) return true;
        const char* text = attribute.value();
        char* end = nullptr;
        errno = 0;
        const unsigned long long value = std::strtoull(text, &end, 0);
        if (end == text || *end != '\0' || errno != 0 || text[0] == '-' || value > max)
            return Fail(node, std::string("'") + name + "' is not a whole number up to " + std::to_string(max) +
                                  ": '" + text + "'");
        out = value;
        return true;
    }

    bool Boolean(const pugi::xml_node& node, const char* name, bool& out) {
        const pugi::xml_attribute attribute = node.attribute(name);
        if (!attribute) return true;
        const std::string text = attribute.value();
        if (text == "true" || text == "1") {
            out = true;
        } else if (text == "false" || text == "0") {
            out = false;
        } else {
            return Fail(node, std::string("'") + name + "' must be true or false");
        }
        return true;
    }

    std::string Path(const char* text) const {
        std::string path = text;
        if (!path.empty() && path[0] != '/' && !m_baseDir.empty()) path = m_baseDir + "/" + path;
        return path;
    }

    bool Roles(const pugi::xml_node& node, std::vector<ERole>& roles) {
        std::string list = node.attribute("default").value();
        size_t start = 0;
        while (start <= list.size()) {
            size_t end = list.find(',', start);
            if (end == std::string::npos) end = list.size();
            std::string role = list.substr(start, end - start);
            role.erase(0, role.find_first_not_of(" \t"));
            role.erase(role.find_last_not_of(" \t") + 1);
            if (role == "console") {
                roles.push_back(eConsole);
            } else if (role == "multimedia") {
                roles.push_back(eMultimedia);
            } else if (role == "communications") {
                roles.push_back(eCommunications);
            } else if (role == "all") {
                roles.insert(roles.end(), {eConsole, eMultimedia, eCommunications});
            } else if (!role.empty()) {
                return Fail(node, "unknown role '" + role + "'");
            }
            start = end + 1;
        }
        return true;
    }

    // container="GUID", or usb_device="sysfs path": the USB device's container as the pulse and
    // hidraw backends derive it. container is left as it was when neither is given.
    bool Container(const pugi::xml_node& node, std::optional<GUID>& container) {
        const pugi::xml_attribute text = node.attribute("container");
        const pugi::xml_attribute device = node.attribute("usb_device");
        if (text && device) return Fail(node, "give container or usb_device, not both");
        if (text) {
            const std::optional<GUID> guid = ParseGuid(text.value());
            if (!guid) return Fail(node, std::string("container is not a GUID: '") + text.value() + "'");
            container = *guid;
        } else if (device) {
            const std::string root = usb::SysfsRoot();
            const GUID guid = usb::ContainerIdOfUsbFolder(usb::FindUsbDeviceFolder(root, device.value()));
            if (guid == GUID_NULL) {
                return Fail(node, std::string("usb_device is no USB device under ") + root + ": '" + device.value() + "'");
            }
            container = guid;
        }
        return true;
    }

    bool Bridge(const pugi::xml_node& node, zqvm::BridgeDescription& bridge) {
        if (!OnlyKnownAttributes(node,
                                 {"serial", "manufacturer", "product", "container", "usb_device", "version_reply", "vid", "pid"}))
            return false;
        if (!node.attribute("serial")) return Fail(node, "a bridge needs a serial");
        bridge.serial = node.attribute("serial").value();
        bridge.manufacturer = node.attribute("manufacturer").as_string("KESTRAVON");
        bridge.product = node.attribute("product").value();
        if (!Container(node, bridge.containerId)) return false;
        if (const pugi::xml_attribute reply = node.attribute("version_reply")) {
            bridge.versionReply.clear();
            std::istringstream bytes(reply.value());
            std::string byte;
            while (bytes >> byte) {
                char* end = nullptr;
                const unsigned long value = std::strtoul(byte.c_str(), &end, 16);
                if (*end != '\0' || value > 0xFF || byte.size() > 2)
                    return Fail(node, "version_reply must be hex bytes separated by blanks: '" + byte + "'");
                bridge.versionReply.push_back(static_cast<uint8_t>(value));
            }
        }
        uint64_t vid = bridge.vid, pid = bridge.pid;
        if (!Unsigned(node, "vid", 0xFFFF, vid) || !Unsigned(node, "pid", 0xFFFF, pid)) return false;
        bridge.vid = static_cast<WORD>(vid);
        bridge.pid = static_cast<WORD>(pid);
        return true;
    }

    bool Endpoint(const pugi::xml_node& node, zqvm::EndpointSpec& endpointSpec) {
        if (!OnlyKnownAttributes(node, {"id", "flow", "name", "container", "usb_device", "rate", "channels", "format",
                                        "extensible", "channel_mask", "state", "default", "keep_seconds", "ppm",
                                        "phase_ms"}))
            return false;
        const std::string flow = node.attribute("flow").value();
        if (flow == "capture")
            endpointSpec.flow = eCapture;
        else if (flow == "render")
            endpointSpec.flow = eRender;
        else
            return Fail(node, "flow must be capture or render");
        endpointSpec.id = WideFromUtf8(node.attribute("id").value());
        endpointSpec.name = WideFromUtf8(node.attribute("name").value());
        std::optional<GUID> container;
        if (!Container(node, container)) return false;
        if (container) endpointSpec.container = *container;
        uint64_t rate = endpointSpec.rate, channels = endpointSpec.channels, mask = 0, keep = endpointSpec.keepSeconds;
        if (!Unsigned(node, "rate", 1000000, rate) || !Unsigned(node, "channels", 8, channels) ||
            !Unsigned(node, "channel_mask", 0xFFFFFFFFu, mask) || !Unsigned(node, "keep_seconds", 3600, keep) ||
            !Boolean(node, "extensible", endpointSpec.extensible) || !Number(node, "ppm", endpointSpec.ppm) ||
            !Number(node, "phase_ms", endpointSpec.phaseMs))
            return false;
        endpointSpec.rate = static_cast<uint32_t>(rate);
        endpointSpec.channels = static_cast<uint16_t>(channels);
        endpointSpec.channelMask = static_cast<uint32_t>(mask);
        endpointSpec.keepSeconds = static_cast<uint32_t>(keep);
        const std::string format = node.attribute("format").as_string("float32");
        if (format == "float32")
            endpointSpec.format = zqvm::SampleFormat::Float32;
        else if (format == "int16")
            endpointSpec.format = zqvm::SampleFormat::Int16;
        else if (format == "int24")
            endpointSpec.format = zqvm::SampleFormat::Int24;
        else if (format == "int32")
            endpointSpec.format = zqvm::SampleFormat::Int32;
        else
            return Fail(node, "format must be float32, int16, int24 or int32");
        const std::string state = node.attribute("state").as_string("active");
        if (state == "active")
            endpointSpec.state = DEVICE_STATE_ACTIVE;
        else if (state == "disabled")
            endpointSpec.state = DEVICE_STATE_DISABLED;
        else if (state == "notpresent")
            endpointSpec.state = DEVICE_STATE_NOTPRESENT;
        else if (state == "unplugged")
            endpointSpec.state = DEVICE_STATE_UNPLUGGED;
        else
            return Fail(node, "state must be active, disabled, notpresent or unplugged");
        if (!Roles(node, endpointSpec.defaultFor)) return false;

        if (const pugi::xml_node source = node.child("source")) {
            if (endpointSpec.flow != eCapture) return Fail(source, "only capture endpoints have a <source>");
            if (!Source(source, endpointSpec.source)) return false;
        }
        if (const pugi::xml_node sink = node.child("sink")) {
            if (endpointSpec.flow != eRender) return Fail(sink, "only render endpoints have a <sink>");
            if (!OnlyKnownAttributes(sink, {"wav"})) return false;
            endpointSpec.renderWavPath = Path(sink.attribute("wav").value());
        }
        return true;
    }

    bool Source(const pugi::xml_node& node, zqvm::CaptureSource& source) {
        if (!OnlyKnownAttributes(node, {"kind", "frequency", "level_dbfs", "amplitude", "interval", "path", "loop"}))
            return false;
        const std::string kind = node.attribute("kind").value();
        double level = 0.0;
        uint64_t interval = 0;
        if (!Number(node, "frequency", source.frequency) || !Number(node, "amplitude", source.amplitude) ||
            !Number(node, "level_dbfs", level) || !Unsigned(node, "interval", 0xFFFFFFFFu, interval) ||
            !Boolean(node, "loop", source.loop))
            return false;
        if (node.attribute("level_dbfs")) {
            if (node.attribute("amplitude")) return Fail(node, "give level_dbfs or amplitude, not both");
            source.amplitude = std::pow(10.0, level / 20.0);
        }
        source.intervalFrames = static_cast<uint32_t>(interval);
        if (kind == "silence") {
            source.kind = zqvm::CaptureSource::Kind::Silence;
        } else if (kind == "tone") {
            source.kind = zqvm::CaptureSource::Kind::Tone;
        } else if (kind == "impulse") {
            source.kind = zqvm::CaptureSource::Kind::Impulse;
        } else if (kind == "fed") {
            source.kind = zqvm::CaptureSource::Kind::Fed;
        } else if (kind == "wav") {
            source.kind = zqvm::CaptureSource::Kind::WavFile;
            if (!node.attribute("path")) return Fail(node, "a wav source needs a path");
            source.path = Path(node.attribute("path").value());
        } else {
            return Fail(node, "source kind must be silence, tone, impulse, wav or fed");
        }
        return true;
    }

    const std::string& m_xml;
    const std::string& m_baseDir;
    pugi::xml_node m_at;
    std::string m_error;
};

}  // namespace

bool ParseMachineDescription(const std::string& xml, const std::string& baseDir, MachineParts& machine,
                             std::string& error) {
    return Parser(xml, baseDir).Parse(machine.endpoints, machine.bridges, error);
}

}  // namespace zqplatform::machine
