#include "simOptions.h"

#include "faultOptions.h"

namespace sim {

namespace {

std::vector<Option> optionTable(SimOptions& options) {
    using Text = const std::string&;
    std::vector<Option> table = bmcOptionTable(options);
    table.insert(
        table.end(),
        {{"--no-device", false, [&options](Text) { options.noDevice = true; }},
         {"--versions", false, [&options](Text) { options.versions = true; }},
         {"--root", true, [&options](Text value) { options.root = value; }},
         {"--record", true, [&options](Text value) { options.recording.record = value; }},
         {"--mask", false, [&options](Text) { options.recording.mask = true; }},
         {"--pcap", true, [&options](Text value) { options.recording.pcap = value; }},
         {"--replay", true, [&options](Text value) { options.replay = value; }},
         {"--smbios", true,
          [&options](Text value) { options.smbiosForm = namedSmbiosForm(value); }},
         {"--fault", true,
          [&options](Text value) { options.misbehaviour.faults.push_back(parseFault(value)); }},
         {"--fail-call", true,
          [&options](Text value) { options.misbehaviour.failingCall = parseFailingCall(value); }},
         {"--raise-at-call", true, [&options](Text value) {
              options.misbehaviour.raisedSignals.push_back(parseRaisedSignal(value));
          }}});
    for (const std::string form : {"", "=text", "=json", "=metrics", "=check"}) {
        table.push_back({"--status" + form, false, [&options, form](Text) {
                             options.status =
                                 tavStatus::namedForm(form.empty() ? "text" : form.substr(1));
                         }});
    }
    return table;
}

} // namespace

SimOptions parseSimOptions(int argc, char** argv) {
    const std::span<char*> arguments(argv, static_cast<std::size_t>(argc));
    SimOptions options;
    const auto agents = parseOptions(optionTable(options), arguments.subspan(1));
    options.agentArguments = {arguments[0]};
    options.agentArguments.insert(options.agentArguments.end(), agents.begin(), agents.end());
    options.agentArguments.push_back(nullptr);
    return options;
}

std::string simUsage() {
    return std::string(R"(usage: tav_sim [OPTION...] [-- AGENT-OPTION...]
Runs the agent on a simulated BMC and shows every exchange between them.

  --root DIR           keep the host's files that the agent uses under DIR
  --versions           do not run the agent, but show what its reader of the BMC's EEPROM
                       versions finds
  --status[=FORM]      show at the end what tav_status shows of this server, as text (default),
                       json, metrics or check; with no option of the agent's do only that
  --record FILE        record the conversation as tav_trace -o does
  --pcap FILE          write it for Wireshark as tav_trace --pcap does
  --mask               mask serial numbers, texts and addresses in all that is written
  --replay FILE        in place of a BMC, answer from a record, in its network and on its machine.
                       Exit status: 2 if the record cannot be used, 3 if the agent asks something
                       else than is recorded, 4 if the record was cut off before the agent's end;
                       otherwise the agent's, and that of its daemon, whose end is waited for
)") + bmcUsage() +
           R"(
The host:
  --smbios FORM        how it shows its SMBIOS tables: sysfs3 (default) or sysfs2 as files of the
                       kernel, legacy in low physical memory, none

Misbehaviour:
  --no-device          there is no device node
  --fault N:WHAT       at exchange N; N-M: at exchanges N to M; N+: from exchange N on.
                       Exchanges are counted from 1, a failed open of the device node is one.
                       WHAT is one of
      cc=CODE            refused with this completion code
      silent             no answer
      silent-bus         no answer from another controller on the IPMB
      length=BYTES       answer cut or filled up to this length, completion code included
                         (273 is more than a receive takes)
      bytes=HEX@PLACE    answer with these bytes from this place on, for example ff01@4
      foreign-id         answer to another message id
      events=COUNT       asynchronous events before the answer
      commands=COUNT     incoming commands before the answer
      type=NUMBER        a record of this receive type before the answer
      slow=MS            answer after this time
      errno=NAME@CALL    open, send, wait, receive, close or lock fails, for example EIO@send
  --fail-call N:ERRNO  device call N of all fails; N+: it and all that follow
  --raise-at-call N:SIGNAL
                       the process gets SIGNAL when it makes device call N; repeatable
)";
}

} // namespace sim
