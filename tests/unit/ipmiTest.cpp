#include "rig.h"
#include "tavIpmi.h"

#include <csignal>

using std::chrono::milliseconds;
using tavIpmi::TavIpmi;
using tavIpmi::TavIpmi_request_msg;
using tavIpmi::TavIpmiError;
using testing::HasSubstr;

namespace {

TavIpmi_request_msg deviceIdRequest() {
    return {tavIpmi::ipmi_netfn_req_app, tavIpmi::ipmi_cmd_get_device_id};
}

TEST(IpmiMessage, takesAtMost271Bytes) {
    const std::vector<unsigned char> data(300, 0x5A);
    const std::pair<unsigned short, std::size_t> cases[] = {{0, 0}, {1, 1}, {271, 271}, {272, 0}};
    for (const auto& [length, kept] : cases) {
        TavIpmi_request_msg msg(6, 1, length, data.data());
        EXPECT_EQ(msg.snd_data_len, kept);
        EXPECT_EQ(msg.buffer[0], kept == 0 ? 0 : 0x5A);
        if (kept == 0) {
            EXPECT_THROW(msg.replaceSendData(data.data(), length), std::length_error);
        }
    }
}

TEST(IpmiMessage, copiesOwnTheirResponse) {
    TavIpmi_request_msg original = deviceIdRequest();
    const unsigned char answer[] = {0, 1, 2};
    ASSERT_TRUE(original.storeResponse(answer));
    TavIpmi_request_msg copy(original);
    EXPECT_NE(copy.rcv_data, original.rcv_data);
    EXPECT_EQ(copy.snd_data, copy.buffer);
    EXPECT_EQ(hex(copy.response()), "00 01 02");
    original.replaceSendData(answer, 1);
    EXPECT_EQ(original.rcv_data, nullptr);
    EXPECT_EQ(hex(copy.response()), "00 01 02");
}

TEST(IpmiError, composesItsText) {
    EXPECT_STREQ(TavIpmiError("text", "file", 7).what(), "Error: text(file,7)\n");
    const std::string type = "reply message has wrong type: ";
    EXPECT_STREQ(TavIpmiError(type, "file", 7, 2).what(), "2eply message has wrong type: ");
    EXPECT_STREQ(TavIpmiError(type, "file", 7, -1).what(), "-1ply message has wrong type: ");
}

struct ExchangeCase {
    const char* fault;
    const char* outcome; // "true", "false" or the text of the error
    const char* response;
    int seconds; // that the exchange took
};

class Transport : public Rig {
  public:
    std::string outcome(TavIpmi_request_msg& msg) {
        try {
            return TavIpmi(0, 0, TavIpmi::ipmiSystemInterface).sendCmd(msg) ? "true" : "false";
        } catch (const TavIpmiError& error) {
            return error.what();
        }
    }
};

TEST_F(Transport, endsEveryKindOfExchange) {
    const ExchangeCase cases[] = {
        {"99:silent", "true", "00 20 01 01 40 02 bf", 0},
        {"1+:cc=0xC1", "true", "c1", 0},
        {"1+:length=0", "true", "", 0},
        {"1+:length=2", "true", "00 20", 0},
        {"1+:foreign-id", "true", "", 0},
        {"1+:silent", "false", "", 5},
        {"1+:events=4", "true", "00 20 01 01 40 02 bf", 0},
        {"1+:events=5", "false", "", 0},
        {"1+:commands=5", "false", "", 0},
        {"1+:slow=4000", "true", "00 20 01 01 40 02 bf", 4},
        {"1+:slow=6000", "false", "", 5},
        {"1+:length=272", "true", "00 20 01 01 40 02 bf", 0},
        {"1+:length=273", "ioctl IPMICTL_RECEIVE_MSG failed: Message too long", "", 0},
        {"1+:type=7", "7eply message has wrong type: ", "", 0},
        {"1+:type=0", "0eply message has wrong type: ", "", 0},
        {"1+:errno=EIO@open", "Open failed: No such file or directory", "ee", 0},
        {"1+:errno=ENODEV@send", "ioctl IPMICTL_SEND_COMMAND failed: No such device", "", 0},
        {"1+:errno=EINTR@wait", "select failed: Interrupted system call", "", 0},
        {"1+:errno=EIO@receive", "ioctl IPMICTL_RECEIVE_MSG failed: Input/output error", "", 0},
    };
    for (const ExchangeCase& one : cases) {
        SCOPED_TRACE(one.fault);
        const auto start = clock.now;
        TavIpmi_request_msg msg = deviceIdRequest();
        const unsigned char earlier[] = {0xEE};
        ASSERT_TRUE(msg.storeResponse(earlier));
        device.behave();
        device.misbehave(one.fault);
        EXPECT_THAT(outcome(msg), HasSubstr(one.outcome));
        EXPECT_THAT(hex(msg.response()), testing::StartsWith(one.response));
        EXPECT_EQ(msg.response().empty(), std::string(one.response).empty());
        EXPECT_EQ(clock.now - start, std::chrono::seconds(one.seconds));
    }
}

TEST_F(Transport, asksTheDeviceFiveTimesForOneExchange) {
    TavIpmi_request_msg msg = deviceIdRequest();
    EXPECT_EQ(outcome(msg), "true");
    EXPECT_EQ(device.callCount(), 5U);
}

TEST_F(Transport, refusesLanAddressesAndClosesTheDevice) {
    EXPECT_THROW(TavIpmi(0, 0, TavIpmi::ipmiLanAddress), TavIpmiError);
    EXPECT_EQ(device.callCount(sim::DeviceCall::open), device.callCount(sim::DeviceCall::close));
}

TEST_F(Transport, onlyWholeAndSuccessfulAnswersPassTheVerdict) {
    const std::pair<const char*, bool> cases[] = {
        {"1+:length=16", true}, {"1+:length=17", true},  {"1+:length=15", false},
        {"1+:length=0", false}, {"1+:cc=0xC3", false},   {"1+:silent", false},
        {"1+:length=1", false}, {"1+:foreign-id", false}};
    struct DeviceId {
        unsigned char bytes[16];
    };
    for (const auto& [fault, good] : cases) {
        device.behave();
        device.misbehave(fault);
        TavIpmi_request_msg msg = deviceIdRequest();
        DeviceId record{};
        EXPECT_EQ(exchange(TavIpmi(0, 0, TavIpmi::ipmiSystemInterface), msg, record), good)
            << fault;
    }
}

/// A dead BMC, and an end that is requested while an exchange waits: how long all that follows
/// takes.
TEST_F(Transport, theEndComesInTime) {
    sim::Misbehaviour misbehaviour;
    misbehaviour.faults = {sim::parseFault("1+:silent")};
    misbehaviour.raisedSignals = {{3, SIGTERM}}; // the first wait
    device.misbehave(misbehaviour);
    const auto spend = [this](int number) {
        const auto start = clock.now;
        for (int i = 0; i < number; ++i) {
            TavIpmi_request_msg msg = deviceIdRequest();
            outcome(msg);
        }
        return (clock.now - start).count();
    };
    inOwnProcess([&] {
        EXPECT_EQ(spend(1), 5000) << "one that waits already";
        EXPECT_EQ(spend(100), 500) << "leftovers of an operation";
        {
            tavIpmi::Farewell farewell(milliseconds{2500});
            farewell.keep(milliseconds{2000});
            EXPECT_EQ(spend(100), 500);
            EXPECT_TRUE(tavIpmi::Farewell::over());
            farewell.keep(milliseconds{0});
            EXPECT_EQ(spend(1), 1500) << "no answer has longer";
            EXPECT_EQ(spend(100), 500);
        }
        {
            const tavIpmi::RecordUpdate update;
            EXPECT_EQ(spend(100), 1000) << "nine seconds in all";
        }
        const tavIpmi::Farewell farewell(milliseconds{5000});
        EXPECT_EQ(spend(100), 700) << "less than ten seconds in all";
    });
}

} // namespace
