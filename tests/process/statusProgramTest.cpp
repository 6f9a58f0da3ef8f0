#include "programs.h"

#include <algorithm>
#include <csignal>
#include <filesystem>

using testing::HasSubstr;

namespace {

/// tav_status as its users run it, and what Prometheus' programs make of its metrics.
class StatusProgram : public Programs {
  public:
    ~StatusProgram() override { std::filesystem::remove("/dev/ipmi0"); }

    /// What a simulated server's metrics are, in a file for the collector.
    std::string metrics(std::vector<std::string> options) {
        clearTrace();
        options.insert(options.end(), {"--quiet", "--status=metrics"});
        runSim(std::move(options), {});
        std::filesystem::create_directories(root() + "/metrics");
        shell("cp " + root() + "/stdout " + root() + "/metrics/tav.prom");
        return root() + "/metrics";
    }
};

TEST_F(StatusProgram, endsWithAStatusForEverySituation) {
    struct Case {
        const char* prepare;
        std::vector<std::string> command;
        int status;
        const char* output;
        const char* error;
    };
    constexpr const char* nothing = "true";
    constexpr const char* notANode = "touch /dev/ipmi0";
    constexpr const char* closed = "chown 1 /dev/ipmi0 && chmod 600 /dev/ipmi0";
    const char* const unprivileged = "--bounding-set=-dac_override,-dac_read_search";
    const Case cases[] = {
        {nothing, {TAV_STATUS, "--version"}, 0, "tav_status 1", ""},
        {nothing, {TAV_STATUS, "--help"}, 0, "--metrics", ""},
        {nothing, {TAV_STATUS, "--wrong"}, 2, "", "usage: "},
        {nothing, {TAV_STATUS, "--json", "--check"}, 3, "", "usage: "},
        {nothing, {TAV_STATUS}, 1, "UNKNOWN: 1 problem\n  UNKNOWN   there is no IPMI device", ""},
        {nothing, {TAV_STATUS, "--check"}, 3, "TAV UNKNOWN - there is no IPMI device", ""},
        {nothing, {TAV_STATUS, "--json"}, 1, "\"reach\": \"no_device\"", "no IPMI device"},
        {nothing, {"sh", "-c", TAV_STATUS " >&-"}, 1, "", "standard output: Bad file descriptor"},
        {notANode, {TAV_STATUS, "--check"}, 2, "TAV CRITICAL - the IPMI driver fails: ", ""},
        {closed, {"setpriv", unprivileged, TAV_STATUS}, 1, "Permission denied; only root", ""},
    };
    for (const auto& [prepare, command, status, output, error] : cases) {
        shell(prepare);
        clearTrace();
        const End end = run(command);
        EXPECT_EQ(end.code(), status) << testing::PrintToString(command);
        EXPECT_THAT(trace(), HasSubstr(output));
        EXPECT_THAT(end.error, *error == '\0' ? HasSubstr("") : HasSubstr(error));
        EXPECT_EQ(end.error.empty(), *error == '\0');
    }
    EXPECT_EQ(runSim({"--status=check", "--fault", "1+:silent"}, {}).code(), 2);
    EXPECT_EQ(runSim({"--status", "--quiet"}, {"-s"}).code(), 0);
    EXPECT_THAT(trace(), HasSubstr("slot 1            10.0.0.1          right       tav0"));
}

#ifdef NDEBUG // other builds are slower, those with sanitizers by far
/// Processor time, which other work on the machine does not count into; the least of a few, for
/// cold caches do.
TEST_F(StatusProgram, needsLittleProcessorTime) {
    auto least = std::chrono::microseconds::max();
    for (int look = 0; look < 5; ++look) {
        const End end = runSim({"--machine", "nic-blade", "--status"}, {});
        EXPECT_EQ(end.code(), 0);
        least = std::min(least, end.worked);
    }
    EXPECT_THAT(trace(), HasSubstr("checksums: header right, body right"));
    EXPECT_LT(least, std::chrono::milliseconds(50));
    RecordProperty("microseconds", static_cast<int>(least.count()));
}
#endif

TEST_F(StatusProgram, prometheusHasNothingToSayAgainstItsMetrics) {
    for (const std::vector<std::string>& options :
         {std::vector<std::string>{"--machine", "nic-blade"},
          {"--watchdog", "300"},
          {"--no-device"},
          {"--fault", "3+:cc=0xC1"}}) {
        const std::string place = metrics(options);
        shell("cd " + place + " && promtool check metrics <tav.prom >complaints 2>&1");
        EXPECT_EQ(contentOf(place + "/complaints"), "") << testing::PrintToString(options);
    }
}

TEST_F(StatusProgram, nodeExporterHandsItsMetricsOn) {
    const std::string place = metrics({"--machine", "nic"});
    const pid_t exporter =
        start({"prometheus-node-exporter", "--collector.disable-defaults", "--collector.textfile",
               "--web.listen-address=127.0.0.1:9100", "--collector.textfile.directory=" + place});
    const std::string page = root() + "/page";
    shell("timeout 60 bash -c 'until exec 3<>/dev/tcp/127.0.0.1/9100; do sleep 0.05; done;"
          " printf \"GET /metrics HTTP/1.0\\r\\n\\r\\n\" >&3; cat <&3' >" +
          page + " 2>/dev/null");
    EXPECT_THAT(contentOf(page), HasSubstr("\ntav_address_slot{slot=\"1\",state=\"missing\"} 1\n"));
    EXPECT_THAT(contentOf(page), HasSubstr("\nnode_textfile_scrape_error 0\n"));
    stop(exporter, SIGKILL);
}

} // namespace
