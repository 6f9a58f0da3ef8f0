# How the tests in virtual machines look at the machine and at its BMC. Sourced, not run.

patience=60 # seconds until something must have happened

pass() { echo "ok: $*"; }

# The command's output must match within $patience.
await() { # WHAT EXTENDED-REGULAR-EXPRESSION COMMAND...
    local what=$1 pattern=$2 output deadline=$((SECONDS + patience))
    shift 2
    until output=$("$@") && grep -qE -- "$pattern" <<<"$output"; do
        ((SECONDS < deadline)) || vm_fail "FAILED: $what: no '$pattern' in '$output'"
        sleep 0.2
    done
    pass "$what"
}

# The same at once.
expect() { patience=0 await "$@"; } # WHAT EXTENDED-REGULAR-EXPRESSION COMMAND...

# Runs a command line in the machine, which must end with that status.
guest_ends() { # WHAT STATUS COMMAND-LINE
    local status=0
    guest "$3" || status=$?
    ((status == $2)) || vm_fail "FAILED: $1: exit status $status, not $2"
    pass "$1"
}

# What the BMC was asked behind that line of its log.
bmc_log_length() { wc -l <"$bmc_log"; }
bmc_log_behind() { tail -n "+$(($1 + 1))" "$bmc_log"; } # LINE
resets_behind() { bmc_log_behind "$1" | grep -c 'Reset Watchdog Timer .*-> ok' || true; } # LINE
