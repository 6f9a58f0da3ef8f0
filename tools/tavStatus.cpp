// Shows whether agent, host and BMC agree. Asks the BMC and changes nothing, there or here.

#include "statusForms.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <span>
#include <string>
#include <string_view>

namespace {

constexpr int usageStatus = 2;
constexpr int unknownStatus = 3; // for monitoring, where 2 means something else

constexpr const char* usage = R"(usage: tav_status [--json | --metrics | --check]
Shows what the BMC knows, and whether that agrees with this host: the BMC is asked, nothing in it
changes. Needs root, for the IPMI device.

  (no option)  for people: whether all is well, then all that was found
  --json       the same for programs
  --metrics    as metrics, for the textfile collector of Prometheus' node exporter
  --check      for monitoring: one line; exit status 0 OK, 1 WARNING, 2 CRITICAL, 3 UNKNOWN
  --help       this text
  --version    which tav_status this is

Exit status otherwise: 0 when the BMC could be asked, 1 when not, 2 for a wrong command line.
)";

/// Writes to standard output; false, with a complaint, when that does not take it.
bool print(const std::string& text) {
    if (std::fputs(text.c_str(), stdout) < 0 || std::fflush(stdout) != 0) {
        std::perror("tav_status: standard output");
        return false;
    }
    return true;
}

int show(tavStatus::Form form) {
    const tavStatus::Shown shown = tavStatus::showStatus(tavStatus::collectStatus(), form);
    if (!shown.complaint.empty()) {
        static_cast<void>(std::fprintf(stderr, "tav_status: %s\n", shown.complaint.c_str()));
    }
    if (!print(shown.text)) {
        return form == tavStatus::Form::check ? unknownStatus : EXIT_FAILURE;
    }
    return shown.exitStatus;
}

/// How it ends when no status can be shown at all.
int statusWithout(std::span<char* const> arguments, int otherwise) {
    const bool monitored =
        std::ranges::find(arguments, std::string_view("--check")) != arguments.end();
    return monitored ? unknownStatus : otherwise;
}

int refuse(std::span<char* const> arguments) {
    static_cast<void>(std::fputs(usage, stderr));
    return statusWithout(arguments, usageStatus);
}

int run(std::span<char* const> arguments) {
    if (arguments.empty()) {
        return show(tavStatus::Form::text);
    }
    const std::string_view option = arguments[0];
    if (arguments.size() != 1 || !option.starts_with("--") || option == "--text") {
        return refuse(arguments);
    }
    if (option == "--help") {
        return print(usage) ? EXIT_SUCCESS : EXIT_FAILURE;
    }
    if (option == "--version") {
        return print("tav_status " TAV_VERSION "\n") ? EXIT_SUCCESS : EXIT_FAILURE;
    }
    const auto form = tavStatus::namedForm(option.substr(2));
    return form ? show(*form) : refuse(arguments);
}

} // namespace

int main(int argc, char** argv) {
    const auto arguments = std::span<char* const>(argv, static_cast<std::size_t>(argc)).subspan(1);
    try {
        return run(arguments);
    } catch (const std::exception& error) {
        static_cast<void>(std::fprintf(stderr, "tav_status: %s\n", error.what()));
        return statusWithout(arguments, EXIT_FAILURE);
    }
}
