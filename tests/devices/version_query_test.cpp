// The version query over a microphone's bridge, against simulated bridges: the calls made,
// in order and with their arguments, and what ends up in the record.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "device_test_support.h"
#include "zqCoreAudio.h"

namespace {

using zqvm::BridgeDescription;

const std::vector<std::string> kFullQuery = {
    "HidUart_Open(1, 0, 0) -> 0x00",
    "HidUart_SetUartConfig(57600, 3, 0, 0, 0) -> 0x00",
    "HidUart_GetTimeouts() -> 0x00",
    "HidUart_SetTimeouts(150, 150) -> 0x00",
    "HidUart_Write(03) -> 0x00",
    "HidUart_Read(1000) -> 0x12",
    "HidUart_Close() -> 0x00",
};

BridgeDescription Microphone(const char* serial, std::vector<uint8_t> reply = {0xAA, 0x05, 0x12}) {
    BridgeDescription d;
    d.product = "KV-1 USB";
    d.serial = serial;
    d.versionReply = std::move(reply);
    return d;
}

class VersionQuery : public ::testing::Test {
protected:
    // Bridge 0 is another HID device; the microphone under test is bridge 1.
    zqvm::BridgeId Install(const BridgeDescription& microphone) {
        zqvm::AddBridge(Microphone("OTHER", {0xAA, 0x09, 0x09}));
        const zqvm::BridgeId id = zqvm::AddBridge(microphone);
        zqvm::ClearBridgeCalls();
        return id;
    }

    zqtest::CleanMachine machine;
    CWMAudioDevice record;
};

TEST_F(VersionQuery, AReplyAA0512GivesApi5AndFirmware0x12) {
    Install(Microphone("SN1"));
    EXPECT_TRUE(record.InitVer(1));
    EXPECT_EQ(record.GetVerAPI(), 0x05);
    EXPECT_EQ(record.GetVerFW(), 0x12);
    EXPECT_EQ(zqvm::BridgeCalls(), kFullQuery);  // the read runs into its time-out, as it always does
    EXPECT_EQ(zqvm::BridgeOpenHandleCount(), 0u);
}

TEST_F(VersionQuery, ABridgeThatCannotBeOpenedLeavesVersionsZeroAndClosesNothing) {
    Install(Microphone("SN1"));
    EXPECT_FALSE(record.InitVer(2));  // no third device
    EXPECT_FALSE(record.InitVer(-1));
    EXPECT_EQ(record.GetVerAPI(), 0);
    EXPECT_EQ(record.GetVerFW(), 0);
    EXPECT_EQ(zqvm::BridgeCalls(), (std::vector<std::string>{"HidUart_Open(2, 0, 0) -> 0x01",
                                                              "HidUart_Open(4294967295, 0, 0) -> 0x01"}));

    zqvm::ClearBridgeCalls();
    BridgeDescription busy = Microphone("SN2");
    busy.openStatus = HID_UART_DEVICE_ACCESS_ERROR;
    zqvm::AddBridge(busy);
    EXPECT_FALSE(record.InitVer(2));
    EXPECT_EQ(zqvm::BridgeCalls(), std::vector<std::string>{"HidUart_Open(2, 0, 0) -> 0x15"});
    EXPECT_EQ(zqvm::BridgeOpenHandleCount(), 0u);
}

// A failed query leaves whatever the record held: a record that had versions keeps them.
class FailedQuery : public VersionQuery {
protected:
    void SetUp() override {
        zqvm::AddBridge(Microphone("KNOWN", {0xAA, 0x02, 0x30}));
        ASSERT_TRUE(record.InitVer(0));
        zqvm::RemoveAllBridges();
    }
    void ExpectVersionsKept() {
        EXPECT_EQ(record.GetVerAPI(), 0x02);
        EXPECT_EQ(record.GetVerFW(), 0x30);
        EXPECT_EQ(zqvm::BridgeOpenHandleCount(), 0u);
    }
};

TEST_F(FailedQuery, AUartThatCannotBeConfiguredIsClosedAndNothingIsSent) {
    BridgeDescription d = Microphone("SN1");
    d.configStatus = HID_UART_DEVICE_IO_FAILED;
    Install(d);
    EXPECT_FALSE(record.InitVer(1));
    EXPECT_EQ(zqvm::BridgeCalls(), (std::vector<std::string>{"HidUart_Open(1, 0, 0) -> 0x00",
                                                              "HidUart_SetUartConfig(57600, 3, 0, 0, 0) -> 0x14",
                                                              "HidUart_Close() -> 0x00"}));
    ExpectVersionsKept();
}

TEST_F(FailedQuery, AFailedWriteClosesTheBridgeWithoutReading) {
    BridgeDescription d = Microphone("SN1");
    d.writeStatus = HID_UART_WRITE_TIMED_OUT;
    Install(d);
    EXPECT_FALSE(record.InitVer(1));
    std::vector<std::string> expected(kFullQuery.begin(), kFullQuery.begin() + 4);
    expected.push_back("HidUart_Write(03) -> 0x13");
    expected.push_back("HidUart_Close() -> 0x00");
    EXPECT_EQ(zqvm::BridgeCalls(), expected);
    ExpectVersionsKept();
}

TEST_F(VersionQuery, TimeoutsThatCannotBeReadAreLeftAsTheyAre) {
    BridgeDescription d = Microphone("SN1");
    d.getTimeoutsStatus = HID_UART_DEVICE_IO_FAILED;
    const zqvm::BridgeId id = Install(d);
    EXPECT_TRUE(record.InitVer(1));
    const std::vector<std::string> calls = zqvm::BridgeCalls();
    ASSERT_EQ(calls.size(), 6u);
    EXPECT_EQ(calls[2], "HidUart_GetTimeouts() -> 0x14");
    EXPECT_EQ(calls[3], "HidUart_Write(03) -> 0x00");  // no SetTimeouts
    EXPECT_EQ(zqvm::GetBridgeState(id)->readTimeoutMs, 0u);
    EXPECT_EQ(record.GetVerAPI(), 0x05);  // the query still goes on
    EXPECT_EQ(record.GetVerFW(), 0x12);
}

TEST_F(VersionQuery, TheStatusOfSettingTheTimeoutsIsNotLookedAt) {
    BridgeDescription d = Microphone("SN1");
    d.setTimeoutsStatus = HID_UART_INVALID_PARAMETER;
    Install(d);
    EXPECT_TRUE(record.InitVer(1));
    EXPECT_EQ(zqvm::BridgeCalls()[3], "HidUart_SetTimeouts(150, 150) -> 0x04");
    EXPECT_EQ(record.GetVerAPI(), 0x05);
}

// A query that was sent and read is a success whatever came back; the versions are the reply's
// second and third bytes, or zeros when it holds fewer than three. Each query starts from a
// record that had other versions, so that zeros are seen to be written.
TEST_F(VersionQuery, RepliesGiveTheirSecondAndThirdBytesOrZeros) {
    std::vector<uint8_t> overfull(1500, 0x77);  // more than the 1000 bytes read: no time-out
    overfull[1] = 0x03;
    overfull[2] = 0x04;
    struct Case {
        const char* what;
        std::vector<uint8_t> reply;
        int readStatus;
        DWORD firmwareBaudRate;
        int api, fw;
    };
    const Case cases[] = {
        {"bytes after the third ignored", {0x01, 0x07, 0x21, 0xFF, 0xEE, 0x00}, HID_UART_SUCCESS, 57600, 0x07, 0x21},
        {"a reply filling the whole buffer", overfull, HID_UART_SUCCESS, 57600, 0x03, 0x04},
        {"empty reply", {}, HID_UART_SUCCESS, 57600, 0, 0},
        {"one byte", {0xAA}, HID_UART_SUCCESS, 57600, 0, 0},
        {"two bytes", {0xAA, 0x05}, HID_UART_SUCCESS, 57600, 0, 0},
        {"a failed read", {0xAA, 0x05, 0x12}, HID_UART_READ_ERROR, 57600, 0, 0},
        {"firmware at another speed", {0xAA, 0x05, 0x12}, HID_UART_SUCCESS, 115200, 0, 0},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        zqvm::RemoveAllBridges();
        zqvm::AddBridge(Microphone("KNOWN", {0xAA, 0x09, 0x08}));
        ASSERT_TRUE(record.InitVer(0));
        ASSERT_EQ(record.GetVerAPI(), 0x09);
        zqvm::RemoveAllBridges();
        BridgeDescription d = Microphone("SN1", c.reply);
        d.readStatus = c.readStatus;
        d.firmwareBaudRate = c.firmwareBaudRate;
        Install(d);
        EXPECT_TRUE(record.InitVer(1));
        EXPECT_EQ(record.GetVerAPI(), c.api);
        EXPECT_EQ(record.GetVerFW(), c.fw);
        EXPECT_EQ(zqvm::BridgeCalls().back(), "HidUart_Close() -> 0x00");
    }
}

}  // namespace
