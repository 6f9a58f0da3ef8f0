#pragma once

#include "tavError.h"

#include <ctime>
#include <string>

#include <sys/utsname.h>

namespace tavSystemInfo {

/// Errors of the host's own calls.
class TavSystemInfoError : public TavError {
  public:
    TavSystemInfoError(const std::string& file, const std::string& message, const unsigned& line);
    /// The message with the code's digits over its start.
    TavSystemInfoError(const std::string& file, const std::string& message, const unsigned& line,
                       const int& code);
};

/// A snapshot of the host's identity: kernel, OS type, time of the last boot.
class TavSystemInfo {
  public:
    /// Operating-system types of the DMTF's CIM_OperatingSystem class, value for value.
    enum OSType {
        os_unknown = 0,
        os_other = 1,
        os_macos = 2,
        os_attunix = 3,
        os_dgux = 4,
        os_decnt = 5,
        os_tru64_unix = 6,
        os_openvms = 7,
        os_hpux = 8,
        os_aix = 9,
        os_mvs = 10,
        os_os400 = 11,
        os_os_2 = 12,
        os_javavm = 13,
        os_msdos = 14,
        os_win3x = 15,
        os_win95 = 16,
        os_win98 = 17,
        os_winnt = 18,
        os_wince = 19,
        os_ncr3000 = 20,
        os_netware = 21,
        os_osf = 22,
        os_dc_os = 23,
        os_reliant_unix = 24,
        os_sco_unixware = 25,
        os_sco_openserver = 26,
        os_sequent = 27,
        os_irix = 28,
        os_solaris = 29,
        os_sunos = 30,
        os_u6000 = 31,
        os_aseries = 32,
        os_hp_nonstop_os = 33,
        os_hp_nonstop_oss = 34,
        os_bs2000 = 35,
        os_linux = 36,
        os_lynx = 37,
        os_xenix = 38,
        os_vm = 39,
        os_interactive_unix = 40,
        os_bsdunix = 41,
        os_freebsd = 42,
        os_netbsd = 43,
        os_gnu_hurd = 44,
        os_os9 = 45,
        os_mach_kernel = 46,
        os_inferno = 47,
        os_qnx = 48,
        os_epoc = 49,
        os_ixworks = 50,
        os_vxworks = 51,
        os_mint = 52,
        os_beos = 53,
        os_hp_mpe = 54,
        os_nextstep = 55,
        os_palmpilot = 56,
        os_rhapsody = 57,
        os_windows_2000 = 58,
        os_dedicated = 59,
        os_os_390 = 60,
        os_vse = 61,
        os_tpf = 62,
        os_windows_r_me = 63,
        os_caldera_open_unix = 64,
        os_openbsd = 65,
        os_not_applicable = 66,
        os_windows_xp = 67,
        os_z_os = 68,
        os_microsoft_windows_server_2003 = 69,
        os_microsoft_windows_server_2003_64_bit = 70,
        os_windows_xp_64_bit = 71,
        os_windows_xp_embedded = 72,
        os_windows_vista = 73,
        os_windows_vista_64_bit = 74,
        os_windows_embedded_for_point_of_service = 75,
        os_microsoft_windows_server_2008 = 76,
        os_microsoft_windows_server_2008_64_bit = 77,
        os_freebsd_64_bit = 78,
        os_redhat_enterprise_linux = 79,
        os_redhat_enterprise_linux_64_bit = 80,
        os_solaris_64_bit = 81,
        os_suse = 82,
        os_suse_64_bit = 83,
        os_sles = 84,
        os_sles_64_bit = 85,
        os_novell_oes = 86,
        os_novell_linux_desktop = 87,
        os_sun_java_desktop_system = 88,
        os_mandriva = 89,
        os_mandriva_64_bit = 90,
        os_turbolinux = 91,
        os_turbolinux_64_bit = 92,
        os_ubuntu = 93,
        os_ubuntu_64_bit = 94,
        os_debian = 95,
        os_debian_64_bit = 96,
        os_linux_2_4_x = 97,
        os_linux_2_4_x_64_bit = 98,
        os_linux_2_6_x = 99,
        os_linux_2_6_x_64_bit = 100,
        os_linux_64_bit = 101,
        os_other_64_bit = 102,
        os_microsoft_windows_server_2008_r2 = 103,
        os_vmware_esxi = 104,
        os_microsoft_windows_7 = 105
    };

    /// Takes the snapshot. Throws TavSystemInfoError when a system call fails.
    TavSystemInfo();
    virtual ~TavSystemInfo() = default;

    std::string getSystemname() const { return utsname_buf.sysname; }
    std::string getNodename() const { return utsname_buf.nodename; }
    std::string getRelease() const { return utsname_buf.release; }
    std::string getVersion() const { return utsname_buf.version; }
    std::string getHardwareType() const { return utsname_buf.machine; }
    OSType getOSType() const noexcept { return ostype; }
    /// Time of the last boot as CIM datetime text.
    std::string getSysUpTimeStr() const { return sysUpTimeString; }
    /// Time of the last boot, seconds since the epoch.
    std::time_t getSysUpTime() const noexcept { return sysuptime; }

    /// The present time in seconds since the epoch; 0 if the clock cannot be read.
    static std::time_t getDateTime() noexcept;
    /// The present time as CIM datetime text: yyyymmddhhmmss.uuuuuu, sign, offset from UTC in
    /// minutes. West of UTC the offset carries its own minus sign besides ("--300"). All zero if
    /// the clock cannot be read.
    static std::string getDateTimeStr();

  private:
    OSType ostype{os_unknown};
    utsname utsname_buf{};
    std::string sysUpTimeString;
    std::time_t sysuptime{0};
};

} // namespace tavSystemInfo
