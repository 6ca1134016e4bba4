// The simulated bridges behind the bridge library, and the way discovery reads their strings.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "device_test_support.h"
#include "devices/MicrophoneIdentity.h"
#include "zqCoreAudio.h"

namespace {

using zqvm::BridgeDescription;
using zqvm::BridgeString;

BridgeDescription Bridge(const char* manufacturer, const char* product, const char* serial) {
    BridgeDescription d;
    d.manufacturer = manufacturer;
    d.product = product;
    d.serial = serial;
    return d;
}

// A buffer one byte larger than the library's, so a write past 260 bytes shows.
struct GuardedBuffer {
    GuardedBuffer() { std::memset(bytes, '#', sizeof(bytes)); }
    char bytes[HID_UART_DEVICE_STRLEN + 1];
};

class Bridges : public ::testing::Test {
protected:
    zqtest::CleanMachine machine;
};

TEST_F(Bridges, DevicesAreCountedAndNamedInTheOrderTheyArrived) {
    zqvm::AddBridge(Bridge("KESTRAVON", "KV-1 USB", "SN-A"));
    BridgeDescription keyboard = Bridge("Logitech", "K120", "LG-1");
    keyboard.vid = 0x046D;
    keyboard.pid = 0xC31C;
    zqvm::AddBridge(keyboard);
    zqvm::AddBridge(Bridge("Silicon Laboratories", "CP2110 HID USB-to-UART Bridge", "SN-C"));

    DWORD count = 0;
    ASSERT_EQ(HidUart_GetNumDevices(&count, 0, 0), HID_UART_SUCCESS);
    EXPECT_EQ(count, 3u);
    ASSERT_EQ(HidUart_GetNumDevices(&count, 0x10C4, 0xEAB0), HID_UART_SUCCESS);
    EXPECT_EQ(count, 2u);  // the filter skips the keyboard
    EXPECT_EQ(HidUart_GetNumDevices(nullptr, 0, 0), HID_UART_INVALID_PARAMETER);

    CStringW text;
    EXPECT_EQ(ReadBridgeString(1, HID_UART_GET_MANUFACTURER_STR, text), HID_UART_SUCCESS);
    EXPECT_EQ(text, L"Logitech");
    EXPECT_EQ(ReadBridgeString(2, HID_UART_GET_SERIAL_STR, text), HID_UART_SUCCESS);
    EXPECT_EQ(text, L"SN-C");
    EXPECT_EQ(ReadBridgeString(0, HID_UART_GET_PRODUCT_STR, text), HID_UART_SUCCESS);
    EXPECT_EQ(text, L"KV-1 USB");
    EXPECT_EQ(ReadBridgeString(1, HID_UART_GET_VID_STR, text), HID_UART_SUCCESS);
    EXPECT_EQ(text, L"046D");

    char buffer[HID_UART_DEVICE_STRLEN];
    EXPECT_EQ(HidUart_GetString(3, 0, 0, buffer, HID_UART_GET_SERIAL_STR), HID_UART_DEVICE_NOT_FOUND);
    EXPECT_EQ(HidUart_GetString(0, 0, 0, buffer, 7), HID_UART_INVALID_PARAMETER);
    EXPECT_EQ(HidUart_GetString(0, 0, 0, nullptr, HID_UART_GET_SERIAL_STR), HID_UART_INVALID_PARAMETER);
    // With a filter, indexes count only the matching devices.
    EXPECT_EQ(HidUart_GetString(1, 0x10C4, 0xEAB0, buffer, HID_UART_GET_SERIAL_STR), HID_UART_SUCCESS);
    EXPECT_STREQ(buffer, "SN-C");
}

TEST_F(Bridges, AStringOf260BytesFillsTheBufferWithoutANulAndNoFurther) {
    const std::string full(HID_UART_DEVICE_STRLEN, 'S');
    zqvm::AddBridge(Bridge("KESTRAVON", "KV-1 USB", (full + "beyond").c_str()));
    GuardedBuffer buffer;
    ASSERT_EQ(HidUart_GetString(0, 0, 0, buffer.bytes, HID_UART_GET_SERIAL_STR), HID_UART_SUCCESS);
    EXPECT_EQ(std::string(buffer.bytes, HID_UART_DEVICE_STRLEN), full);
    EXPECT_EQ(buffer.bytes[HID_UART_DEVICE_STRLEN], '#');

    // Discovery's reading takes all 260 bytes as the text and never runs past them.
    CStringW text;
    ASSERT_EQ(ReadBridgeString(0, HID_UART_GET_SERIAL_STR, text), HID_UART_SUCCESS);
    EXPECT_EQ(text.GetLength(), HID_UART_DEVICE_STRLEN);
    EXPECT_EQ(text, CStringW(std::wstring(HID_UART_DEVICE_STRLEN, L'S').c_str()));
}

TEST_F(Bridges, ATimedOutStringQueryMayOrMayNotWriteTheBuffer) {
    BridgeDescription d = Bridge("KESTRAVON", "KV-1 USB", "SN-A");
    d.product = BridgeString("KV-1 USB", HID_UART_READ_TIMED_OUT, true);
    d.serial = BridgeString("SN-A", HID_UART_READ_TIMED_OUT, false);
    d.manufacturer = BridgeString("KESTRAVON", HID_UART_DEVICE_IO_FAILED, false);
    zqvm::AddBridge(d);

    GuardedBuffer written;
    EXPECT_EQ(HidUart_GetString(0, 0, 0, written.bytes, HID_UART_GET_PRODUCT_STR), HID_UART_READ_TIMED_OUT);
    EXPECT_STREQ(written.bytes, "KV-1 USB");
    GuardedBuffer untouched;
    EXPECT_EQ(HidUart_GetString(0, 0, 0, untouched.bytes, HID_UART_GET_SERIAL_STR), HID_UART_READ_TIMED_OUT);
    EXPECT_EQ(untouched.bytes[0], '#');

    // Discovery's buffers start empty, so an unwritten one reads as an empty text.
    CStringW text = L"stale";
    EXPECT_EQ(ReadBridgeString(0, HID_UART_GET_SERIAL_STR, text), HID_UART_READ_TIMED_OUT);
    EXPECT_TRUE(text.IsEmpty());
    EXPECT_EQ(ReadBridgeString(0, HID_UART_GET_PRODUCT_STR, text), HID_UART_READ_TIMED_OUT);
    EXPECT_EQ(text, L"KV-1 USB");
    EXPECT_EQ(ReadBridgeString(0, HID_UART_GET_MANUFACTURER_STR, text), HID_UART_DEVICE_IO_FAILED);
    EXPECT_TRUE(text.IsEmpty());
}

TEST(BridgeText, StopsAtTheFirstNulOrTheEndOfTheBufferAndReadsUtf8) {
    const char withNul[8] = {'K', 'V', '\0', 'x', 'y', 'z', 'w', 'v'};
    EXPECT_EQ(BridgeTextToWide(withNul, sizeof(withNul)), L"KV");
    const char noNul[4] = {'A', 'B', 'C', 'D'};
    EXPECT_EQ(BridgeTextToWide(noNul, sizeof(noNul)), L"ABCD");
    EXPECT_EQ(BridgeTextToWide(noNul, 2), L"AB");
    EXPECT_TRUE(BridgeTextToWide(noNul, 0).IsEmpty());
    EXPECT_TRUE(BridgeTextToWide(nullptr, 10).IsEmpty());
    // UTF-8 whatever the C library's locale (the host sets none); a byte that is not UTF-8
    // becomes U+FFFD.
    const char umlaut[] = "S\xC3\xBC" "d \xF0\x9F\x8E\xA4";
    EXPECT_EQ(BridgeTextToWide(umlaut, sizeof(umlaut)), L"S\u00FCd \U0001F3A4");
    const char high[3] = {'\xC4', '\xFF', '\0'};
    EXPECT_EQ(BridgeTextToWide(high, sizeof(high)), L"\uFFFD\uFFFD");
}

TEST_F(Bridges, RemovingABridgeMovesTheLaterOnesDownAndBreaksItsOpenHandle) {
    const zqvm::BridgeId first = zqvm::AddBridge(Bridge("KESTRAVON", "KV-1 USB", "SN-A"));
    const zqvm::BridgeId last = zqvm::AddBridge(Bridge("KESTRAVON", "KV-1 USB", "SN-B"));
    HID_UART_DEVICE device = nullptr;
    ASSERT_EQ(HidUart_Open(&device, 0, 0, 0), HID_UART_SUCCESS);
    HID_UART_DEVICE second = nullptr;
    EXPECT_EQ(HidUart_Open(&second, 0, 0, 0), HID_UART_DEVICE_ACCESS_ERROR);  // one handle per bridge

    ASSERT_TRUE(zqvm::RemoveBridge(first));
    EXPECT_FALSE(zqvm::RemoveBridge(first));
    CStringW text;
    ReadBridgeString(0, HID_UART_GET_SERIAL_STR, text);
    EXPECT_EQ(text, L"SN-B");
    const std::vector<zqvm::PresentBridge> present = zqvm::PresentBridges();
    ASSERT_EQ(present.size(), 1u);
    EXPECT_EQ(present[0].id, last);
    EXPECT_EQ(present[0].description.serial.bytes, "SN-B");

    BYTE query = 0x03;
    DWORD written = 0;
    EXPECT_EQ(HidUart_Write(device, &query, 1, &written), HID_UART_DEVICE_IO_FAILED);
    EXPECT_EQ(HidUart_Close(device), HID_UART_SUCCESS);
    EXPECT_EQ(HidUart_Close(device), HID_UART_INVALID_DEVICE_OBJECT);
    EXPECT_EQ(zqvm::BridgeOpenHandleCount(), 0u);
    EXPECT_FALSE(zqvm::GetBridgeState(first)->present);
}

TEST_F(Bridges, TheUartReturnsWhatIsPendingThenTimesOut) {
    const zqvm::BridgeId id = zqvm::AddBridge(Bridge("KESTRAVON", "KV-1 USB", "SN-A"));
    HID_UART_DEVICE device = nullptr;
    ASSERT_EQ(HidUart_Open(&device, 0, 0, 0), HID_UART_SUCCESS);
    ASSERT_EQ(HidUart_SetUartConfig(device, 57600, HID_UART_EIGHT_DATA_BITS, HID_UART_NO_PARITY,
                                    HID_UART_SHORT_STOP_BIT, HID_UART_NO_FLOW_CONTROL),
              HID_UART_SUCCESS);
    ASSERT_EQ(HidUart_SetTimeouts(device, 40, 60), HID_UART_SUCCESS);

    BYTE queries[2] = {0x03, 0x03};
    DWORD written = 0;
    ASSERT_EQ(HidUart_Write(device, queries, 2, &written), HID_UART_SUCCESS);
    EXPECT_EQ(written, 2u);
    BYTE reply[8] = {};
    DWORD read = 0;
    EXPECT_EQ(HidUart_Read(device, reply, 4, &read), HID_UART_SUCCESS);  // four of the six bytes
    EXPECT_EQ(read, 4u);
    EXPECT_EQ(zqvm::GetBridgeState(id)->waitedMs, 0u);
    EXPECT_EQ(HidUart_Read(device, reply, 8, &read), HID_UART_READ_TIMED_OUT);
    EXPECT_EQ(read, 2u);
    EXPECT_EQ(reply[0], 0x05);
    EXPECT_EQ(reply[1], 0x12);
    EXPECT_EQ(zqvm::GetBridgeState(id)->waitedMs, 40u);

    EXPECT_EQ(HidUart_Read(device, reply, 0, &read), HID_UART_INVALID_REQUEST_LENGTH);
    EXPECT_EQ(HidUart_Read(device, reply, HID_UART_MAX_READ_SIZE + 1, &read), HID_UART_INVALID_REQUEST_LENGTH);
    EXPECT_EQ(HidUart_Write(device, queries, 0, &written), HID_UART_INVALID_REQUEST_LENGTH);
    EXPECT_EQ(HidUart_SetUartConfig(device, 57600, 4, 0, 0, 0), HID_UART_INVALID_PARAMETER);
    EXPECT_EQ(HidUart_Close(device), HID_UART_SUCCESS);
    EXPECT_EQ(HidUart_Read(device, reply, 8, &read), HID_UART_INVALID_DEVICE_OBJECT);
}

TEST_F(Bridges, AContainerIdentifierIsPublishedInTheRegistryWhileTheBridgeIsPresent) {
    BridgeDescription d = Bridge("KESTRAVON", "KV-1 USB", "SN-A");
    d.containerId = GUID{0x0A1B2C3D, 0x4E5F, 0x6071, {0x82, 0x93, 0xA4, 0xB5, 0xC6, 0xD7, 0xE8, 0xF9}};
    const zqvm::BridgeId id = zqvm::AddBridge(d);
    CStringW text;
    ASSERT_TRUE(ReadContainerIdText(L"sn-a", text));  // key names ignore letter case
    EXPECT_EQ(text, L"{0A1B2C3D-4E5F-6071-8293-A4B5C6D7E8F9}");
    EXPECT_EQ(ContainerIdFromText(text), *d.containerId);
    zqvm::RemoveBridge(id);
    EXPECT_FALSE(ReadContainerIdText(L"SN-A", text));
}

}  // namespace
