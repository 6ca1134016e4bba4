// The maker's bridge chip as its hidraw node shows it, with a microphone's firmware behind the
// UART: the feature reports that enable, purge and configure the UART and give the part number,
// UART bytes in interrupt reports (the first byte their count), and a firmware that answers the
// version query 0x03 only when the UART runs at 57600 8N1 without flow control. Both the
// in-process node and the FUSE node serve one of these; every call is thread-safe.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <mutex>
#include <vector>

namespace zqtest {

class BridgeChip {
public:
    // What the chip is and does.
    void SetIds(uint16_t vendor, uint16_t product);  // the USB ids it answers with (10C4:EAB0)
    void SetPart(uint8_t part);
    void SetReply(std::vector<uint8_t> reply);  // empty: the firmware stays silent
    void SetMalformedReplies(bool malformed);    // the reply comes in reports that carry no UART data
    void Unplug();                               // every later call fails
    // Called, outside the chip's lock, when input arrives or the chip is unplugged.
    void OnChange(std::function<void()> listener);

    // What was done to it.
    bool Enabled() const;
    int Purges() const;
    std::vector<uint8_t> Config() const;  // the last UART configuration report

    // The node's side: report[0] is the report id. GetFeature and SetFeature fail for a report
    // the chip does not know; Write takes one output report; Read gives one input report (its
    // length), 0 when none waits, -1 once unplugged.
    bool Ids(uint16_t* vendor, uint16_t* product) const;  // false once unplugged
    bool GetFeature(uint8_t* report, size_t size);
    bool SetFeature(const uint8_t* report, size_t size);
    bool Write(const uint8_t* report, size_t size);
    long Read(uint8_t* report, size_t size);
    bool HasInput() const;
    bool Gone() const;

private:
    void Changed();

    mutable std::mutex m_mutex;
    uint16_t m_vendor = 0x10C4;
    uint16_t m_product = 0xEAB0;
    uint8_t m_part = 0x0A;
    std::vector<uint8_t> m_reply = {0xAA, 0x05, 0x12};
    bool m_malformed = false;
    bool m_gone = false;
    bool m_enabled = false;
    int m_purges = 0;
    std::vector<uint8_t> m_config;
    std::deque<std::vector<uint8_t>> m_input;
    std::function<void()> m_listener;
};

}  // namespace zqtest
