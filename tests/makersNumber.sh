#!/bin/bash
# What is no maker's number is refused when the agent is configured, and the text says what one is.
set -euo pipefail
source=$(realpath "$(dirname "$0")/..")
work=$(mktemp -d /tmp/tav_makers_number.XXXXXX)
trap 'rm -rf "$work"' EXIT

# Sets $status and $said, which CMake breaks into lines.
configure() { # NUMBER
    said=$(cmake -G Ninja -S "$source" -B "$work" -DTAV_IANA_ENTERPRISE_NUMBER="$1" 2>&1) && status=0 || status=$?
    said=$(tr -s '\n ' ' ' <<<"$said")
}

for number in 0 012345 16777216 4294967297 99999999999999999999 -1 +1 1.5 0x10 "1 2" abc ""; do
    configure "$number"
    if ((status == 0)) || [[ $said != *"'$number', which is no number from 1 to 16777215"* ]]; then
        echo "'$number': status $status, $said" >&2
        exit 1
    fi
done
for number in 1 16777215 32473; do
    configure "$number"
    warned=no
    [[ $said != *"NO REAL BMC WILL ANSWER"* ]] || warned=yes
    if ((status)) || [[ $number/$warned != @(1/no|16777215/no|32473/yes) ]]; then
        echo "'$number': status $status, $said" >&2
        exit 1
    fi
done
