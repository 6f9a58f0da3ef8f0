#!/bin/bash
# The System V script with the simulated agent in the place of the installed one.
#   initScript.sh TAV_SIM
set -euo pipefail
script=$(dirname "$0")/../../packaging/examples/tavd.init

if [[ ${2-} != inside ]]; then
    unshare --net --mount --pid --fork true || exit 77
    exec unshare --net --mount --pid --fork --kill-child --mount-proc "$0" "$1" inside
fi
mount -t tmpfs tmpfs /run
mkdir /run/bin
ip link set lo up
mount -t tmpfs tmpfs /usr/sbin

ends() { # STATUS ACTION
    local status=0
    "$script" ${2-} || status=$?
    if ((status != $1)); then
        echo "'${2-}' ended with $status instead of $1" >&2
        exit 1
    fi
}

ends 5 start
# The program's own name is what the script looks at.
cat >/usr/sbin/tav_init <<EOF
#!/bin/bash
exec -a tav_init /run/bin/tav_init --quiet --trace /run/trace --speed 10 --
EOF
chmod +x /usr/sbin/tav_init
cp "$1" /run/bin/tav_init

ends 3 status
ends 0 stop
ends 0 start
ends 0 status
first=$(</run/tavd.pid)
ends 0 start
[[ $(</run/tavd.pid) == "$first" ]]
ends 0 restart
[[ $(</run/tavd.pid) != "$first" ]]
kill -KILL "$(</run/tavd.pid)"
until ! grep -q tav_init "/proc/$(</run/tavd.pid)/comm" 2>/dev/null; do :; done
ends 1 status
ends 0 try-restart
ends 1 status
ends 0 start
ends 0 stop
ends 3 status
ends 3 reload
ends 2
