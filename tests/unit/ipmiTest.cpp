#include "rig.h"
#include "tavIpmi.h"

#include <algorithm>
#include <csignal>

#include <malloc.h>

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

TEST(IpmiMessage, ownsItsResponse) {
    TavIpmi_request_msg original(0x2E, 0x24, sim::Bytes{7, 8});
    const sim::Bytes answer(200, 3);
    const auto before = ::mallinfo2().uordblks;
    for (int i = 0; i < 1000; ++i) {
        ASSERT_TRUE(original.storeResponse(answer));
    }
    EXPECT_LT(::mallinfo2().uordblks, before + 10 * answer.size()) << "only the last one is kept";
    TavIpmi_request_msg assigned = deviceIdRequest();
    assigned = original;
    const TavIpmi_request_msg copy(assigned);
    assigned.replaceSendData(answer);
    EXPECT_EQ(assigned.rcv_data, nullptr);
    EXPECT_NE(copy.rcv_data, original.rcv_data);
    EXPECT_EQ(hex(std::array{copy.netfn, copy.cmd}), "2e 24");
    EXPECT_EQ(hex({static_cast<unsigned char*>(copy.snd_data), copy.snd_data_len}), "07 08");
    EXPECT_TRUE(std::ranges::equal(copy.response(), answer));
}

struct ExchangeCase {
    const char* fault;
    const char* outcome; // "true", "false" or the text of the error
    const char* response;
    int seconds;  // that the exchange took
    int calls;    // of the device
    bool verdict; // 16 bytes were asked for
};

class Transport : public Rig {
  public:
    std::string outcome(TavIpmi_request_msg& msg) {
        bool answered = false;
        const std::string error =
            errorOf([&] { answered = TavIpmi(0, 0, TavIpmi::ipmiSystemInterface).sendCmd(msg); });
        return !error.empty() ? error : answered ? "true" : "false";
    }
};

TEST_F(Transport, endsEveryKindOfExchange) {
    const ExchangeCase cases[] = {
        {"1+:slow=0", "true", "00 20 01 01 40 02 bf", 0, 5, true},
        {"1+:cc=0xC1", "true", "c1", 0, 5, false},
        {"1+:length=0", "true", "", 0, 5, false},
        {"1+:length=2", "true", "00 20", 0, 5, false},
        {"1+:length=15", "true", "00 20", 0, 5, false},
        {"1+:length=17", "true", "00 20", 0, 5, true},
        {"1+:bytes=ff41@1", "true", "00 ff 41 01 40 02 bf", 0, 5, true},
        {"1+:foreign-id", "true", "", 0, 5, false},
        {"1+:silent", "false", "", 5, 8, false},
        {"1+:events=4", "true", "00 20 01 01 40 02 bf", 0, 13, true},
        {"1+:events=5", "false", "", 0, 13, false},
        {"1+:commands=5", "false", "", 0, 13, false},
        {"1+:slow=4000", "true", "00 20 01 01 40 02 bf", 4, 5, true},
        {"1+:slow=6000", "false", "", 5, 8, false},
        {"1+:length=272", "true", "00 20 01 01 40 02 bf", 0, 5, true},
        {"1+:length=273", "RECEIVE_MSG failed: Message too long(src/", "", 0, 5, false},
        {"1+:type=7", "7eply message has wrong type: ", "", 0, 5, false},
        {"1+:type=-1", "-1ply message has wrong type: ", "", 0, 5, false},
        {"1+:errno=EIO@open", "Open failed: No such file or directory", "ee", 0, 3, false},
        {"1+:errno=ENODEV@send", "ioctl IPMICTL_SEND_COMMAND failed: No such dev", "", 0, 3, false},
        {"1+:errno=EINTR@wait", "select failed: Interrupted system call", "", 0, 4, false},
        {"1+:errno=EIO@receive", "ioctl IPMICTL_RECEIVE_MSG failed: Input/ou", "", 0, 5, false},
    };
    for (const ExchangeCase& one : cases) {
        SCOPED_TRACE(one.fault);
        clock.now += std::chrono::seconds(5); // whatever it was asked the BMC has answered
        const auto start = clock.now;
        const auto calls = device.callCount();
        TavIpmi_request_msg msg = deviceIdRequest();
        const unsigned char earlier[] = {0xEE};
        ASSERT_TRUE(msg.storeResponse(earlier));
        goWrong(one.fault);
        const std::string result = outcome(msg);
        EXPECT_THAT(result, HasSubstr(one.outcome));
        EXPECT_THAT(hex(msg.response()), testing::StartsWith(one.response));
        EXPECT_EQ(msg.response().empty(), std::string(one.response).empty());
        EXPECT_EQ(clock.now - start, std::chrono::seconds(one.seconds));
        EXPECT_EQ(device.callCount() - calls, one.calls);
        if (result.size() <= 5) {
            unsigned char record[1][16];
            EXPECT_EQ(exchange(TavIpmi(0, 0, TavIpmi::ipmiSystemInterface), msg, record),
                      one.verdict);
        }
    }
}

TEST_F(Transport, refusesLanAddressesAndClosesTheDevice) {
    EXPECT_THROW(TavIpmi(0, 0, TavIpmi::ipmiLanAddress), TavIpmiError);
    EXPECT_EQ(device.callCount(sim::DeviceCall::open), device.callCount(sim::DeviceCall::close));
}

/// A dead BMC, and an end that is requested while an exchange waits: how long all that follows
/// takes.
TEST_F(Transport, theEndComesInTime) {
    const auto spend = [this](int number) {
        const auto start = clock.now;
        for (int i = 0; i < number; ++i) {
            TavIpmi_request_msg msg = deviceIdRequest();
            outcome(msg);
        }
        return (clock.now - start).count();
    };
    const struct {
        std::vector<std::string> faults;
        int first, update;
    } cases[] = {{{"1+:silent"}, 5000, 1000},
                 {{"1:slow=4900", "1:errno=EIO@receive", "2+:silent"}, 4900, 1100}};
    for (const auto& one : cases) {
        inOwnProcess([&] {
            sim::Misbehaviour misbehaviour;
            for (const std::string& fault : one.faults) {
                misbehaviour.faults.push_back(sim::parseFault(fault));
            }
            misbehaviour.raisedSignals = {{3, SIGTERM}}; // the first wait
            device.misbehave(misbehaviour);
            EXPECT_EQ(spend(1), one.first) << "one that waits already";
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
                EXPECT_EQ(spend(100), one.update) << "nine seconds in all";
            }
            const tavIpmi::Farewell farewell(milliseconds{5000});
            EXPECT_EQ(spend(100), 700) << "less than ten seconds in all";
        });
    }
}

} // namespace
