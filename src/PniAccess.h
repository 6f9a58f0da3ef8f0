#pragma once

#include "IPv4Address.h"
#include "IPv6Address.h"
#include "MacAddress.h"
#include "pniInfoCache.h"
#include "pniRecords.h"
#include "tavError.h"
#include "tavIpmi.h"

#include <array>
#include <functional>
#include <list>
#include <optional>
#include <string>

/// Results of the FRU operations.
enum PniErrorCodes {
    pni_success = 0,
    pni_init_err = 1,
    pni_checksum_err = 2,
    pni_format_err = 3,
    pni_parameter_err = 4,
    pni_unsupported_err = 5,
    pni_misc_err = 6, ///< no answer, or a completion code other than 0
    pni_memory_err = 7
};

/// Errors of the construction.
class PniAccessError : public TavError {
  public:
    using TavError::TavError;
};

/// The port information ("PNI") record that the network adapters keep in a FRU behind the BMC:
/// modules, their ports, and the ports' functions with MAC and IP addresses.
class PniAccess {
  public:
    /// Finds the FRU and reads the record's layout. Throws PniAccessError for a record that is not
    /// there or not sound, and std::runtime_error when the BMC has no such device. An error of the
    /// transport is logged and leaves the object unusable; so does another program that keeps the
    /// record to itself, but then it is outdated and can be renewed.
    PniAccess();
    virtual ~PniAccess() = default;

    /// True once the layout has been read.
    explicit operator bool() const noexcept {
        return pniInfoCache.state.valid != 0 && pniInfoCache.state.initdone != 0;
    }
    /// Whether there is a FRU, too: number 0 is the BMC's own, which holds no ports.
    bool usable() const noexcept { return pniInfoCache.deviceId != 0 && *this; }
    const PniInfoCache& layout() const noexcept { return pniInfoCache; }
    /// Another program has changed the record since its layout was read, or has it now. Nothing is
    /// written any more with this layout.
    bool outdated() const noexcept { return layoutOutdated; }
    /// Reads an outdated layout anew. False, and all as it was, when it is not outdated or cannot
    /// be read now; nothing is logged.
    bool renew() noexcept;
    /// Index of the module with this id, -1 if there is none.
    int getModuleIndex(unsigned char moduleId) const noexcept;

    // Ports' addresses. Each opens the device for itself and lets nothing out; an error of the
    // transport is logged and ends the operation. Agents take turns: those that write have the
    // record to themselves meanwhile (see lockPniRecord()). After a write of an update has failed
    // behind its first one nothing is written any more, for good.
    /// Number of NIC port functions, 0 if unusable.
    unsigned getNumberOfMacAddresses() const noexcept;
    /// Active MAC address of the n-th NIC port function, from 0; all zero if it cannot be read.
    MacAddress getMacAddress(int n) const noexcept;
    // All ports are read, or many, so `between`, which must not throw, is called between two of
    // them, where nothing is half done.
    /// Makes `address` the only IPv4 address of the port with this MAC address, active or
    /// manufactured. False if there is no such port or the record could not be written.
    bool setIpv4Address(const MacAddress& mac, const IPv4Address& address,
                        const std::function<void()>& between = {}) noexcept;
    /// The same for the IPv6 addresses. A port holds 15; further ones are dropped with a log line.
    bool setIpv6Address(const MacAddress& mac, const std::list<IPv6Address>& addresses,
                        const std::function<void()>& between = {}) noexcept;
    /// Empties the address lists of all NIC ports. False if one could not be written.
    bool clearIpAddressData(const std::function<void()>& between = {}) noexcept;

    // The operations from here on throw TavIpmiError when a system call fails.

    // Bytes of the FRU, in requests of at most 64. `count` bytes of `buf` are cleared before they
    // are read. pni_parameter_err when the range goes beyond 64 KiB, which no offset reaches.
    PniErrorCodes readFru(const tavIpmi::TavIpmi& ipmi, unsigned short offset, int count,
                          unsigned char* buf) const;
    PniErrorCodes writeFru(const tavIpmi::TavIpmi& ipmi, unsigned short offset, int count,
                           const unsigned char* buf);
    /// Copies bytes; the ranges may overlap.
    PniErrorCodes moveFru(const tavIpmi::TavIpmi& ipmi, unsigned short to, unsigned short from,
                          unsigned short count);

    // One port function, by its indices in the layout; pni_parameter_err when it is not there.
    /// Reads into `out` what there is of the common part.
    PniErrorCodes readPortFnCommonArea(const tavIpmi::TavIpmi& ipmi, unsigned char module,
                                       unsigned char port, unsigned char fn,
                                       PniPortfnCommon* out) const;
    PniErrorCodes writePortFnCommonArea(const tavIpmi::TavIpmi& ipmi, unsigned char module,
                                        unsigned char port, unsigned char fn,
                                        const PniPortfnCommon* in);
    /// Reads up to `len` bytes of the specific part, as far as it goes.
    PniErrorCodes readPortFnSpecificArea(const tavIpmi::TavIpmi& ipmi, unsigned char module,
                                         unsigned char port, unsigned char fn, int len,
                                         unsigned char* out) const;
    /// Replaces the first `len` bytes of the specific part and keeps the record's checksums right.
    /// If it is too short it grows, by a multiple of 4 bytes, and all that follows in the record
    /// moves up; pni_parameter_err, and nothing changed, when the FRU has no room for that, and
    /// pni_format_err when the record does not end where it did. Not begun any more once the layout
    /// is outdated, an update was left half done or the end of the agent is requested
    /// (pni_misc_err).
    PniErrorCodes writePortFnSpecificArea(const tavIpmi::TavIpmi& ipmi, unsigned char module,
                                          unsigned char port, unsigned char fn, int len,
                                          const unsigned char* data);
    /// "NIC", "FC", "FCoE", "iSCSI", "IB" or, also when it cannot be read, "Unknown".
    std::string getPortFunctionType(const tavIpmi::TavIpmi& ipmi, unsigned char module,
                                    unsigned char port, unsigned char fn) const;

    /// True when `seed` and the bytes sum to 0 modulo 256.
    static bool validateZeroChecksum(const unsigned char* data, int len,
                                     unsigned char seed) noexcept;
    /// Sum of the bytes modulo 256.
    static unsigned char sum(const unsigned char* data, unsigned int len) noexcept;
    /// By the exact name; portfn_tech_unknown for others.
    static Portfn_tech techTypeStringToEnum(const char* text) noexcept;

  private:
    struct PortFnIndex {
        unsigned char module;
        unsigned char port;
        unsigned char fn;
    };

    /// An object without layout, for renew().
    struct Unread {};
    explicit PniAccess(Unread /*unread*/) noexcept {}

    void discover();
    void findDevice(const tavIpmi::TavIpmi& ipmi);
    void readLayout(const tavIpmi::TavIpmi& ipmi);
    void findRecord(const tavIpmi::TavIpmi& ipmi);
    void readBody(const tavIpmi::TavIpmi& ipmi, const OemPniMultirecordHeader& header);

    const PniInfoCache::PortFn* portFnAt(PortFnIndex index) const noexcept;
    bool asInLayout(PortFnIndex index, const PniPortfnCommon& common) const;
    PniErrorCodes compareEnd(const tavIpmi::TavIpmi& ipmi);
    bool writable() const noexcept { return usable() && !layoutOutdated && !leftAlone; }
    void noteChange() noexcept;
    void noteBusy() noexcept;
    void noteFailure(const char* transfer, unsigned offset, ByteView response) const noexcept;
    void leaveAlone(PortFnIndex index, const char* what) noexcept;

    PniErrorCodes rewritePortFn(const tavIpmi::TavIpmi& ipmi, PortFnIndex index, ByteView data);
    PniErrorCodes growPortFn(const tavIpmi::TavIpmi& ipmi, PortFnIndex index, int delta);
    PniErrorCodes lengthenPortFn(const tavIpmi::TavIpmi& ipmi, PortFnIndex index, unsigned units);
    PniErrorCodes lengthenRecord(const tavIpmi::TavIpmi& ipmi, unsigned units);
    PniErrorCodes replaceBytes(const tavIpmi::TavIpmi& ipmi, unsigned short offset, int oldLength,
                               ByteView bytes);
    void shiftLayout(PortFnIndex grown, std::uint16_t delta) noexcept;

    bool readNic(const tavIpmi::TavIpmi& ipmi, PortFnIndex index, PniPortfnNic& nic);
    bool readNicArea(const tavIpmi::TavIpmi& ipmi, PortFnIndex index, PniPortfnNic& nic) const;
    bool writeNic(const tavIpmi::TavIpmi& ipmi, PortFnIndex index, const PniPortfnNic& nic);
    bool clearNic(const tavIpmi::TavIpmi& ipmi, PortFnIndex index);
    std::optional<PortFnIndex> findNic(const tavIpmi::TavIpmi& ipmi, const MacAddress& mac,
                                       PniPortfnNic& nic, const std::function<void()>& between);

    template <typename Operation>
    std::optional<bool> updateRecord(Operation operation) noexcept;
    template <typename Predicate>
    std::optional<PortFnIndex> firstNicPortFn(Predicate wanted,
                                              const std::function<void()>& between = {}) const;

    template <typename Record>
    PniErrorCodes readFruRecord(const tavIpmi::TavIpmi& ipmi, unsigned short offset,
                                Record& record) const {
        unsigned char bytes[sizeof(Record)];
        const PniErrorCodes result = readFru(ipmi, offset, sizeof bytes, bytes);
        readRecord(ByteView(bytes), record);
        return result;
    }
    template <typename Record>
    PniErrorCodes writeFruRecord(const tavIpmi::TavIpmi& ipmi, unsigned short offset,
                                 const Record& record) {
        return writeFru(ipmi, offset, sizeof record, recordBytes(record).data());
    }

    PniInfoCache pniInfoCache{};
    /// FRU offset of the record's end: behind the last module there may be more of it.
    unsigned recordEnd{0};
    bool layoutOutdated{false};
    bool hadTurn{false};                    ///< locked the record before
    bool written{false};                    ///< the update under way may have changed the FRU
    bool leftAlone{false};                  ///< an update was left half done
    mutable std::array<char, 80> failure{}; ///< what the last transfer that failed was
};
