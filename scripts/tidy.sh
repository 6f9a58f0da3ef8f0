#!/bin/bash
# Runs clang-tidy over the sources as the preset clang compiles them, several at a time: most of its
# price is the system's headers. Its path-sensitive checks look at the agent's sources. What was found
# clean is looked at again only when it changed: a source, one of the project's headers in it, how it
# is compiled, the configuration, or what is installed.
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/packages.sh

clean=build/clang-tidy # an empty file for each unit that was found clean, named by its digest
mkdir -p "$clean"

declare -A paths digests
for path in $(git ls-files --cached --others --exclude-standard '*.h' '*.cpp'); do
    paths[${path##*/}]=$path
done

# Sets digests[FILE] to what stands for its content with that of all that it includes.
digest() { # FILE
    local name path all
    digests[$1]=
    all=$(sha256sum <"$1")
    for name in $(sed -n 's/^ *# *include "\(.*\)"/\1/p' "$1"); do
        path=${paths[${name##*/}]-}
        [[ $path ]] || continue # a system's header in quotes
        [[ -v digests[$path] ]] || digest "$path"
        all+=${digests[$path]}
    done
    digests[$1]=$(sha256sum <<<"$all")
}

# Some of them only stand for those of the present version.
installed=$(dpkg-query --show "${build_packages[@]}" "${check_packages[@]}" \
    'clang-tidy-[0-9]*' 'libstdc++-[0-9]*-dev')
commands=() # entries of a compilation database
changed=()  # FILE NAME-WHEN-CLEAN [CHECKS]

look_at() { # FILE CHECKS COMMAND
    local key
    [[ -v digests[$1] ]] || digest "$1"
    key=$(sha256sum <<<"$(<.clang-tidy) $installed $2 $3 ${digests[$1]}")
    commands+=("{\"directory\": \"$PWD/build/clang\", \"command\": \"$3\", \"file\": \"$PWD/$1\"}")
    # A line that ended in a blank would go on with the next one for xargs.
    [[ -e $clean/${key%% *} ]] || changed+=("$1 $clean/${key%% *} ${2:-,}")
}

while read -r command && read -r file; do
    path=${file#"$PWD/"}
    case $path in
    # What such a unit includes, its sources, too, are headers to clang.
    build/clang/src/*) look_at "$path" '' "$command -Xclang -analyzer-opt-analyze-headers" ;;
    */Unity/*) look_at "$path" '-clang-analyzer-*' "$command" ;;
    # Some are parts of several targets: the first is their own.
    *) [[ -v digests[$path] ]] || look_at "$path" '' "$command" ;;
    esac
done < <(sed -n 's/^ *"\(command\|file\)": "\(.*\)",\?$/\2/p' build/clang/compile_commands.json)

for path in $(git ls-files '*.cpp'); do
    [[ -v digests[$path] ]] || { echo "$path: no target compiles it" >&2; exit 1; }
done

(IFS=, && printf '[%s]\n' "${commands[*]}") >"$clean/compile_commands.json"
echo "units to look at: ${#changed[@]} of ${#commands[@]}"
# In their order: the agent's, with the path-sensitive checks, takes longest and is among the first.
printf '%s\n' "${changed[@]}" | xargs -r -P "$(nproc)" -L 1 sh -c \
    'clang-tidy -p "$0" --quiet --checks="$3" "$1" && touch "$2"' "$clean" 2>&1 |
    { grep -v 'warnings generated' || true; }
