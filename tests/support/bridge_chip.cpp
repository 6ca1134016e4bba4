#include "bridge_chip.h"

#include <algorithm>
#include <utility>

namespace zqtest {
namespace {

// 57600 baud, no parity, no flow control, 8 data bits, 1 stop bit.
const std::vector<uint8_t> kUnderstoodConfig = {0x50, 0x00, 0x00, 0xE1, 0x00, 0x00, 0x00, 0x03, 0x00};
constexpr uint8_t kVersionQuery = 0x03;

}  // namespace

void BridgeChip::SetIds(uint16_t vendor, uint16_t product) {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_vendor = vendor;
    m_product = product;
}

void BridgeChip::SetPart(uint8_t part) {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_part = part;
}

void BridgeChip::SetReply(std::vector<uint8_t> reply) {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_reply = std::move(reply);
}

void BridgeChip::SetMalformedReplies(bool malformed) {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_malformed = malformed;
}

void BridgeChip::Unplug() {
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_gone = true;
    }
    Changed();
}

void BridgeChip::OnChange(std::function<void()> listener) {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_listener = std::move(listener);
}

bool BridgeChip::Enabled() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_enabled;
}

int BridgeChip::Purges() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_purges;
}

std::vector<uint8_t> BridgeChip::Config() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_config;
}

bool BridgeChip::Ids(uint16_t* vendor, uint16_t* product) const {
    std::lock_guard<std::mutex> lock(m_mutex);
    *vendor = m_vendor;
    *product = m_product;
    return !m_gone;
}

bool BridgeChip::GetFeature(uint8_t* report, size_t size) {
    std::lock_guard<std::mutex> lock(m_mutex);
    if (m_gone || report[0] != 0x46 || size < 3) return false;
    report[1] = m_part;
    report[2] = 1;
    return true;
}

bool BridgeChip::SetFeature(const uint8_t* report, size_t size) {
    std::lock_guard<std::mutex> lock(m_mutex);
    if (m_gone) return false;
    if (report[0] == 0x41 && size == 2) {
        m_enabled = report[1] == 1;
    } else if (report[0] == 0x43 && size == 2) {
        ++m_purges;
    } else if (report[0] == 0x50 && size == kUnderstoodConfig.size()) {
        m_config.assign(report, report + size);
    } else {
        return false;
    }
    return true;
}

bool BridgeChip::Write(const uint8_t* report, size_t size) {
    bool answered = false;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        if (m_gone || size < 1 || report[0] + 1u != size) return false;
        for (size_t i = 1; i < size; ++i) {
            if (report[i] != kVersionQuery || !m_enabled || m_config != kUnderstoodConfig || m_reply.empty()) continue;
            const std::vector<uint8_t>& r = m_reply;
            if (m_malformed) {
                m_input.push_back({0x00, r[0], r[1], r[2]});  // report id 0
                m_input.push_back({0x09, r[0]});              // shorter than its count says
            } else {
                m_input.push_back({1, r[0]});  // split over two reports
                m_input.push_back({static_cast<uint8_t>(r.size() - 1), r[1], r[2]});
            }
            answered = true;
        }
    }
    if (answered) Changed();
    return true;
}

long BridgeChip::Read(uint8_t* report, size_t size) {
    std::lock_guard<std::mutex> lock(m_mutex);
    if (m_gone) return -1;
    if (m_input.empty()) return 0;
    const std::vector<uint8_t> next = std::move(m_input.front());
    m_input.pop_front();
    const size_t n = std::min(size, next.size());
    std::copy_n(next.begin(), n, report);
    return static_cast<long>(n);
}

bool BridgeChip::HasInput() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return !m_input.empty();
}

bool BridgeChip::Gone() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_gone;
}

void BridgeChip::Changed() {
    std::function<void()> listener;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        listener = m_listener;
    }
    if (listener) listener();
}

}  // namespace zqtest
