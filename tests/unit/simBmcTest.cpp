// The simulated BMC, against conversations that are kept as text.

#include "bladeLink.h"
#include "rig.h"
#include "vmConnection.h"

#include <fstream>
#include <sstream>

using sim::Bytes;

namespace {

class SimBmc : public Rig {
  public:
    /// `ask` is given the bytes of each line "> BYTES"; it must answer as the next line "< BYTES"
    /// says. At "+ MILLISECONDS" that much time passes. All else explains.
    void hold(const std::string& name, const std::function<Bytes(Bytes)>& ask) {
        std::ifstream lines(TAV_CONVERSATIONS "/" + name);
        std::string answer;
        int answers = 0;
        for (std::string line; std::getline(lines, line);) {
            std::istringstream words(line.substr(std::min<std::size_t>(line.size(), 1)));
            if (line.starts_with('>')) {
                Bytes bytes;
                for (unsigned byte = 0; words >> std::hex >> byte;) {
                    bytes.push_back(static_cast<unsigned char>(byte));
                }
                answer = hex(ask(bytes));
            } else if (line.starts_with('<')) {
                EXPECT_EQ(answer.empty() ? "<" : "< " + answer, line) << "answer " << answers;
                ++answers;
            } else if (int milliseconds = 0; line.starts_with('+') && words >> milliseconds) {
                clock.now += std::chrono::milliseconds(milliseconds);
            }
        }
        EXPECT_GT(answers, 20);
    }
};

TEST_F(SimBmc, answersOrRefuses) {
    EXPECT_EQ(hex(bmc.answer(0x34, 0, 0x40, Bytes{0, 0})), "c1") << "no adapter";
    bmc.fru.emplace().image.resize(300);
    hold("simulated-bmc.txt", [this](const Bytes& request) {
        return bmc.answer(request.at(0), 0, request.at(1), sim::Data(request).subspan(2));
    });
}

TEST_F(SimBmc, servesAVirtualMachine) {
    EXPECT_EQ(hex(sim::VmConnection::greeting()), "ff 01 a1 00 a1 06 a1");
    bmc.blade.emplace();
    sim::MessageChannel channel(
        bmc, [this](const sim::Exchange& exchange) { exchanges.push_back(exchange); });
    sim::VmConnection connection(channel);
    EXPECT_EQ(hex(connection.receive(Bytes(100'000, 0))), "") << "a frame that never ends";
    hold("virtual-machine.txt", [&connection](const Bytes& sent) {
        Bytes answer;
        for (const unsigned char byte : sent) {
            const Bytes output = connection.receive({&byte, 1});
            answer.insert(answer.end(), output.begin(), output.end());
        }
        return answer;
    });
    const auto event = std::ranges::find(exchanges, 0x24, &sim::Exchange::slaveAddress);
    ASSERT_NE(event, exchanges.end());
    EXPECT_EQ(hex(event->request), "04 c0 31 6f 42 ff ff");
    EXPECT_EQ(bmc.blade->chassis.statusEvents, 3U);
}

} // namespace
