#pragma once

#include "PniAccess.h"
#include "tavBladeInfo.h"
#include "tavConfSpaceData.h"
#include "tavIp.h"
#include "tavIpmiWatchdog.h"

#include <array>
#include <atomic>
#include <cstdint>
#include <memory>
#include <string>

#include <pthread.h>

/// The daemon core: owns the collaborators, runs the information cycle and keeps the BMC's watchdog
/// in time. Everything happens in the constructor, by run mode.
class TavServerInfo {
  public:
    enum RunMode {
        run_mode_none = 0,
        run_mode_daemon = 1,
        run_mode_thread = 2,
        run_mode_once = 4,
        run_mode_terminate = 5
    };
    enum ExitCodes {
        exit_success = 0,
        exit_failure = 1
    };
    enum Const {
        max_wait_time = 20,          ///< seconds between two iterations
        max_set_info_wait_time = 120 ///< seconds between two inventories
    };

    /// Does or starts the work of the run mode. In daemon mode it does not return, unless a pid
    /// file says that a daemon is there already. The caller holds the agent's signals back.
    explicit TavServerInfo(RunMode mode);
    TavServerInfo(const TavServerInfo&) = delete;
    TavServerInfo& operator=(const TavServerInfo&) = delete;
    /// Runs the cycle: one iteration in once mode, else until it is told to stop. `result` becomes
    /// 0, or -1 when an error ended it.
    virtual void main_action(int& result);
    /// Ends the cycle's thread, if there is one, and waits for it.
    virtual ~TavServerInfo();

    /// Releases inventory, port information and blade link; the configuration space stays.
    void free_data() noexcept;

    /// The last resort, when not even an error can be handled: ends the process with a log line,
    /// status 1 and without a pid file of its own.
    [[noreturn]] static void giveUp() noexcept;

    /// First line (at most 255 characters) of the installation bundle versions that contains
    /// `needle`; empty if there is none.
    static std::string getVibVersionString(const char* needle);

    /// Brings configuration space, cached settings and BMC timer into line; true when the settings
    /// changed or the timer was set up anew.
    bool updateWatchdog();
    /// Restarts the timer and arms SIGALRM for half its period. Returns the seconds after which the
    /// next restart is due, 0 if the timer is not set up. The second argument is not consulted.
    static unsigned reset_watchdog(tavIpmi::TavIpmiWatchdog::TimerUse use, bool) noexcept;
    /// Cancels the alarm and stops the timer.
    static void stop_watchdog(tavIpmi::TavIpmiWatchdog::TimerUse use) noexcept;

    bool softWatchdogEnabled() const noexcept { return soft_watchdog_enabled; }
    /// OS product name and release for the management blade.
    const std::string& getProductName() const noexcept { return productName; }
    const std::string& getRelease() const noexcept { return release; }
    const std::string& getHostname() const noexcept { return hostname; }

  private:
    void readHostIdentity();
    void openPortInformation();
    void clearIpSlots();
    void dispatch();
    void startDaemonUnlessRunning();

    void open_syslog();
    [[noreturn]] void start_main_action_daemon();
    [[noreturn]] void awaitDaemon(pid_t child) noexcept;
    [[noreturn]] void runDaemon(pid_t parent);
    void start_main_action_thread();
    void stop_main_action_thread();
    static void* thread_function(void* server);
    static void child_handler(int signum);
    static void signal_handler(int signum);

    void iterate();
    void serveWatchdog();
    void waitForNextIteration();
    bool isLasting() const noexcept;
    bool ending() const noexcept;
    void shutdownSteps();
    void setInfo();
    void setShutdownInfo() const;
    void reportTermination() const;
    void giveHeartbeatItsTurn() const;
    static bool heartbeatIsDue() noexcept;
    static void stopHeartbeat() noexcept;
    bool programTimer(tavIpmi::TavIpmiWatchdog& timer, bool enabled, std::uint32_t time);
    void noteFailure(const char* why) noexcept;
    void reportToMMB(std::uint32_t index) const;
    void writePortInformation(std::uint32_t index);
    bool pushAddresses();

    const RunMode run_mode;
    bool blade{false}; ///< as the BMC tells
    std::string productName{"VMware ESXi"};
    std::string hostname;
    std::string release;
    std::unique_ptr<TavBladeInfo> pTavBladeInfo;
    std::unique_ptr<TavConfSpaceData> pTavConfSpaceData;
    std::unique_ptr<PniAccess> pPniAccess;
    std::unique_ptr<tavIp::TavIp> pTavIpData; ///< last inventory pushed
    bool soft_watchdog_enabled{false};
    std::uint32_t soft_watchdog_time{0}; ///< 100 ms counts
    TavConfSpaceData::WatchdogBehaviour soft_watchdog_behaviour{
        TavConfSpaceData::watchdog_behaviour_continue};
    pthread_t thread_id; ///< runs the cycle; the constructing thread until there is another
    std::atomic<bool> run{false};
    bool stop_requested{false}; ///< under `lock`
    pthread_mutex_t lock{};     ///< held by the cycle's thread but while it waits
    pthread_cond_t cond{};
    unsigned waitTime{max_wait_time};
    unsigned watchdogCountdown{1};
    unsigned informationCountdown{1};
    std::array<char, 160> failure{}; ///< why the cycle ended, if it failed

    static TavServerInfo* this_TavServerInfo; ///< what the daemon's signal handler acts on
};
