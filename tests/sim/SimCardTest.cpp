// The vendor APDUs, and fault injection from the environment and the control
// tool, with latency.
#include "SimHarness.h"

#include "base/Conversion.h"

#include "tests/support/TestCommon.h"

using namespace SimTesting;

namespace {

class SimCard : public SimTest {
protected:
    Bytes transmit(CK_SESSION_HANDLE session, const Bytes& command) {
        Bytes response(512);
        CK_ULONG length = response.size();
        EXPECT_EQ(m_sim.transmit(session, const_cast<unsigned char*>(command.data()), command.size(), response.data(),
                                 &length),
                  CKR_OK);
        response.resize(length);
        return response;
    }
    static unsigned statusWord(const Bytes& response) {
        return response.size() < 2 ? 0 : response[response.size() - 2] << 8 | response.back();
    }
    static std::string hex(const Bytes& bytes) {
        std::string text;
        Korvex::BinData2HexStr(bytes, text);
        return text;
    }
};

const Bytes kSelectDf = {0x00, 0xA4, 0x00, 0x0C, 0x02, 0xDF, 0x71};
const Bytes kSelectEf = {0x00, 0xA4, 0x00, 0x0C, 0x02, 0xD0, 0x01};
const Bytes kSelectEfWithFcp = {0x00, 0xA4, 0x00, 0x00, 0x02, 0xD0, 0x01, 0x00};
const Bytes kReadBinary = {0x00, 0xB0, 0x00, 0x00, 0x00};

TEST_F(SimCard, OtherApdusGetTheStatusWordsOfACard) {
    CK_SESSION_HANDLE session = openSession(0);
    const std::pair<Bytes, unsigned> answers[] = {
        {kReadBinary, 0x6986},  // no EF selected
        {kSelectEf, 0x6A82},    // not below the DF
        {{0x00, 0xA4, 0x00, 0x0C, 0x02, 0x12, 0x34}, 0x6A82},
        {{0x00, 0xA4, 0x00, 0x0C, 0x03, 0xDF, 0x71}, 0x6700},
        {{0x00, 0xA4, 0x08, 0x0C, 0x02, 0xDF, 0x71}, 0x6A86},
        {{0x00, 0xCA, 0x00, 0x00, 0x00}, 0x6D00},
        {{0x80, 0xA4, 0x00, 0x0C, 0x02, 0xDF, 0x71}, 0x6E00},
        {{0x00, 0xA4}, 0x6700},
        {kSelectDf, 0x9000},
        {kSelectEfWithFcp, 0x9000},
        {{0x00, 0xB0, 0x00, 0x40, 0x00}, 0x6B00},
        {{0x00, 0x20, 0x00, 0x82}, 0x63C3},  // the encryption PIN's tries
    };
    for (const auto& [command, expected] : answers)
        EXPECT_EQ(statusWord(transmit(session, command)), expected) << hex(command);
    EXPECT_EQ(transmit(session, kSelectEfWithFcp).front(), 0x62);
    Bytes tail = transmit(session, {0x00, 0xB0, 0x00, 0x0E, 0x04});
    EXPECT_EQ(tail.size(), 4u);
    EXPECT_EQ(statusWord(tail), 0x6282u);

    Bytes small(1);
    CK_ULONG length = small.size();
    unsigned char read[] = {0x00, 0x84, 0x00, 0x00, 0x08};
    EXPECT_EQ(m_sim.transmit(session, read, sizeof read, small.data(), &length), CKR_BUFFER_TOO_SMALL);
    EXPECT_EQ(length, 10u);
    EXPECT_EQ(m_sim.transmit(session, nullptr, 5, small.data(), &length), CKR_ARGUMENTS_BAD);
    CK_SESSION_HANDLE internal = openSession(kInternalSlot);
    EXPECT_EQ(m_sim.transmit(internal, read, sizeof read, small.data(), &length), CKR_FUNCTION_NOT_SUPPORTED);
}

class SimEnvironmentFaults : public SimTest {
protected:
    void prepareEnvironment() override {
        setenv("VESSA_SIM_FAULTS", "C_OpenSession@slot:1=CKR_DEVICE_ERROR*1;C_GetInfo=0x5", 1);
        setenv("VESSA_SIM_LATENCY_MS", "30", 1);
    }
};

TEST_F(SimEnvironmentFaults, EnvironmentSetsFaultsAndLatencyForTheProcess) {
    CK_INFO info;
    EXPECT_EQ(p11->C_GetInfo(&info), CKR_GENERAL_ERROR);
    EXPECT_EQ(Sim::AddFaults("C_Sign=CKR_NOPE"), CKR_ARGUMENTS_BAD);
    CK_SESSION_HANDLE session;
    EXPECT_EQ(p11->C_OpenSession(1, CKF_SERIAL_SESSION, nullptr, nullptr, &session), CKR_DEVICE_ERROR);
    EXPECT_EQ(p11->C_OpenSession(1, CKF_SERIAL_SESSION, nullptr, nullptr, &session), CKR_OK);
    CK_TOKEN_INFO token;
    auto start = std::chrono::steady_clock::now();
    ASSERT_EQ(p11->C_GetTokenInfo(0, &token), CKR_OK);
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(30));

    // The control tool changes faults and latency of the running module.
    int status = 0;
    RunCommand(std::string(VSIM_TOOL) + " latency 0 && " + VSIM_TOOL +
                   " fault 'C_GetSessionInfo@max=CKR_DEVICE_REMOVED*1;C_GetSessionInfo@maria=CKR_DEVICE_ERROR'",
               status);
    ASSERT_EQ(status, 0);
    CK_ULONG count = 0;
    ASSERT_EQ(p11->C_GetSlotList(CK_FALSE, nullptr, &count), CKR_OK);
    CK_SESSION_INFO sessionInfo;
    EXPECT_EQ(p11->C_GetSessionInfo(session, &sessionInfo), CKR_DEVICE_REMOVED);
    EXPECT_EQ(p11->C_GetSessionInfo(session, &sessionInfo), CKR_OK);
}

} // namespace
