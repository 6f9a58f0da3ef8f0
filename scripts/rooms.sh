#!/bin/bash
# Holds the picture of the rooms in docs/rooms.md against the includes of the sources.
set -euo pipefail
cd "$(dirname "$0")/.."

declare -A room_of
rooms=(src message text sim/bmc sim/device sim/vm tools)
for room in "${rooms[@]}"; do
    for header in "$room"/*.h; do
        room_of[${header##*/}]=${room##*/}
    done
done

arrows() {
    local room name
    for room in "${rooms[@]}"; do
        for name in $(sed -n 's/^#include "\(.*\)"/\1/p' "$room"/*.h "$room"/*.cpp); do
            [[ ${room_of[$name]} == "${room##*/}" ]] || echo "${room##*/} --> ${room_of[$name]}"
        done
    done | sort -u
}

diff --label "docs/rooms.md" --label "the includes" -U 0 \
    <(sed -n 's/^ *\([a-z]* --> [a-z]*\)$/\1/p' docs/rooms.md | sort) <(arrows)
