#include "pniLayout.h"

#include "PniAccess.h"
#include "pniRecords.h"

#include <algorithm>
#include <cstring>
#include <string_view>

namespace {

/// Bytes of an area that say what follows. No area is shorter.
constexpr std::size_t listFields = 3;
/// By `Portfn_tech`. SAS has a number, but no name.
constexpr std::array technologyNames = {"NIC", "FC", "FCoE", "iSCSI", "IB"};
constexpr const char* unknownTechnology = "Unknown";

[[noreturn]] void formatError(unsigned line) {
    throw PniAccessError("Format error ", __FILE__, line);
}

class LayoutWalk {
  public:
    LayoutWalk(ByteView body_, PniInfoCache& cache_) : body(body_), cache(cache_) {}

    void walk() {
        take(cache.commonsize);
        for (unsigned m = 0; m < cache.keptModules(); ++m) {
            walkModule(m, cache.module[m]);
        }
        cache.fruDataSize = fruOffset();
    }

  private:
    void walkModule(unsigned index, PniInfoCache::Module& module) {
        const auto area = peek<PniModuleArea>();
        checkEnd(area.moduleId, index, cache.numModules);
        module.moduleId = area.moduleId.id;
        module.fruOffset = fruOffset();
        module.size = area.recordLen;
        module.numPorts = area.portCount;
        take(area.recordLen);
        for (unsigned p = 0; p < area.portCount; ++p) {
            walkPort(p, area.portCount, module);
        }
    }

    void walkPort(unsigned index, unsigned count, PniInfoCache::Module& module) {
        const auto area = peek<PniPortArea>();
        checkPlace(area.portId, index, count);
        PniInfoCache::Port passedOver{};
        PniInfoCache::Port& port = index < PniInfoCache::maxPorts ? module.port[index] : passedOver;
        port.fruOffset = fruOffset();
        port.size = area.recordLen;
        port.numPortFn = area.pfCount;
        take(area.recordLen);
        for (unsigned f = 0; f < area.pfCount; ++f) {
            walkPortFn(f, area.pfCount, port);
        }
    }

    void walkPortFn(unsigned index, unsigned count, PniInfoCache::Port& port) {
        const auto area = peek<PniPortfnCommon>();
        checkPlace(area.pfId, index, count);
        const unsigned totalSize = area.totalRecordLen * 4U;
        if (area.commonAreaLen < listFields || area.commonAreaLen > totalSize) {
            formatError(__LINE__);
        }
        const std::uint16_t offset = fruOffset();
        const ByteView function = take(totalSize);
        if (index < PniInfoCache::maxPortFns) {
            port.portFn[index] = {offset, static_cast<std::uint16_t>(totalSize), area.commonAreaLen,
                                  technology(function.first(area.commonAreaLen))};
        }
    }

    Portfn_tech technology(ByteView common) const {
        return PniAccess::techTypeStringToEnum(portFnType(cache.formatVersion, common).c_str());
    }

    /// The area that begins here, as far as the body goes.
    template <typename Area>
    Area peek() const {
        Area area;
        if (!readRecord(body.subspan(position), area, listFields)) {
            formatError(__LINE__);
        }
        return area;
    }

    ByteView take(std::size_t length) {
        if (length < listFields || length > body.size() - position) {
            formatError(__LINE__);
        }
        const ByteView taken = body.subspan(position, length);
        position += length;
        return taken;
    }

    static void checkEnd(PniAreaId area, unsigned index, unsigned count) {
        if ((area.endOfList != 0) != (index + 1 == count)) {
            formatError(__LINE__);
        }
    }

    static void checkPlace(PniAreaId area, unsigned index, unsigned count) {
        checkEnd(area, index, count);
        if (area.id != index) {
            formatError(__LINE__);
        }
    }

    std::uint16_t fruOffset() const {
        return static_cast<std::uint16_t>(cache.commonOffset + position);
    }

    ByteView body;
    PniInfoCache& cache;
    std::size_t position{0};
};

} // namespace

void readPniLayout(ByteView body, PniInfoCache& cache) {
    LayoutWalk(body, cache).walk();
}

std::string portFnType(unsigned format, ByteView common) {
    PniPortfnCommon area;
    if (!readRecord(common, area, offsetof(PniPortfnCommon, functionProps) + 1)) {
        return unknownTechnology;
    }
    if (format == pniFormatWithNames) {
        const auto& name = area.functionProps.text.technologyType;
        return {name, ::strnlen(name, sizeof name)};
    }
    const unsigned code = area.functionProps.binary.technologyType;
    return code < technologyNames.size() ? technologyNames[code] : unknownTechnology;
}

Portfn_tech PniAccess::techTypeStringToEnum(const char* text) noexcept {
    const auto* const found = std::ranges::find(technologyNames, std::string_view(text));
    return found == technologyNames.end()
               ? portfn_tech_unknown
               : static_cast<Portfn_tech>(found - technologyNames.begin());
}
