#include "tavIpmiEEPROMVersionInfo.h"

#include "agentClock.h"
#include "tavIpmi.h"

#include <algorithm>

namespace tavIpmi {

TavIpmiEEPROMVersionInfo::TavIpmiEEPROMVersionInfo() : last_update(monotonicSeconds()) {
    update();
}

bool TavIpmiEEPROMVersionInfo::update() {
    const TavIpmi ipmi(0, 0, TavIpmi::ipmiSystemInterface);
    TavGetEEPROMVersionInfoReq request{oemPrefix(cmd_spec_get_eeprom_version_info), 0};
    TavIpmi_request_msg msg(ipmi_netfn_req_oem, ipmi_oemcmd_group_vexa, recordBytes(request));
    bool changed = false;
    for (TavGetEEPROMVersionInfoData& known : data) {
        msg.replaceSendData(recordBytes(request));
        ++request.EEPROM_num;
        if (!exchange(ipmi, msg)) {
            continue;
        }
        TavGetEEPROMVersionInfoData fetched;
        readRecord(msg.response(), fetched);
        if (!std::ranges::equal(recordBytes(fetched), recordBytes(known))) {
            known = fetched;
            changed = true;
        }
    }
    return changed;
}

bool TavIpmiEEPROMVersionInfo::isUpToDate() {
    const std::time_t now = monotonicSeconds();
    if (std::difftime(now, last_update) <= double{update_period}) {
        return false;
    }
    last_update = now;
    return update();
}

} // namespace tavIpmi
