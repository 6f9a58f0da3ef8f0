#!/bin/bash
# Every text that the agent can log stands in its manual, and the manuals are sound.
set -euo pipefail
cd "$(dirname "$0")/.."

mandoc -Tlint -Wwarning docs/man/*

# The texts of calls that log or throw. Literals that follow one another are one; what stands for
# something else cuts them.
texts() {
    cat src/*.cpp | sed 's|^ *//.*||' | tr -s '\n ' ' ' | sed 's/" *"//g' |
        grep -oP '[^"]*"(\\.|[^"\\])*"' |
        grep -oP '(sys[lL]og\(LOG_\w+, |sysLogFailure\(|throw [\w:]+Error\(|throw std::\w+\(|errnoText\(|throwSystemError\(|[?:+] )"\K.* .*(?="$)' |
        sed 's/%[a-z]*/\n/g; s/\\n//g' | sed 's/^[ :,(;]*//; s/[ :,=(.;]*$//' | grep '[a-z]\{4\}' | sort -u
}

manual=$(sed 's/^\.It //; /^\.[A-Z]/d; s/\\&//g' docs/man/tav_init.8)
status=0
while read -r text; do
    if [[ $manual != *"$text"* ]]; then
        echo "docs/man/tav_init.8 does not explain: $text"
        status=1
    fi
done < <(texts)
exit $status
