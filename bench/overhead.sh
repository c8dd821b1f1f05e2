#!/bin/sh
# The installer's own overhead: the demo installation site installed by setup
# inside the sandbox, against a plain replay of the very command lines setup
# handed to the shell, from the same starting state.
#
#   sh bench/overhead.sh [BUILD_DIR [RUNS]]
#
# BUILD_DIR defaults to build (it needs setup, rehearse and mkmedium), RUNS to
# 7. Needs root, for the sandbox; never pass/fail. The command lines are
# recorded once: inside the sandbox /bin/sh is a wrapper that logs the words
# of each outermost shell call (every system and popen) and runs the real
# shell. Then, RUNS times each, alternating, each in a fresh sandbox: setup
# installs the site as make demo does; a plain shell script runs the recorded
# lines in order, each as `/bin/sh -c LINE` (dash starts them with vfork, as
# system does with posix_spawn). The replay starts in the work directory
# setup makes before its first copy (it unpacks the archive there) and skips
# what setup does in-process between the commands (the files it writes, its
# log, its directory lookups): the difference is setup's own time. Each time
# is taken by the command inside the sandbox, sandbox set-up excluded.
set -eu
Here=$(cd "$(dirname "$0")/.." && pwd)
Build=$(cd "${1:-$Here/build}" && pwd)
Runs=${2:-7}
Rehearse="$Build/tools/rehearse/rehearse"
Mkmedium="$Build/tools/mkmedium/mkmedium"
# The wrapper runs this one, never itself.
Real=$(readlink -f /bin/sh)

for program in "$Build/setup" "$Rehearse" "$Mkmedium"; do
    [ -x "$program" ] || { echo "overhead: $program is not built" >&2; exit 2; }
done
[ "$(id -u)" = 0 ] || { echo "overhead: the sandbox needs root" >&2; exit 2; }

# Every sandbox gets an empty /tmp of its own: the machine's /tmp, which others
# use meanwhile, would change what setup does from one run to the next. So the
# site and the recording live elsewhere.
Work=$(mktemp -d /var/tmp/overhead.XXXXXX)
trap 'rm -rf "$Work"' EXIT
Site="$Work/site"
Sandbox="$Rehearse -q -t /tmp:64M -C $Site -i /dev/null --"

# Step 1: the demo installation site.
"$Mkmedium" --site -o "$Site" --setup "$Build/setup" \
    --help-file "$Here/examples/demo/setup.hlp" "$Here/examples/demo" >/dev/null

# Step 2: the recording. The variable marks the shells started inside a
# logged one, so a command line that runs a shell itself is logged once.
cat >"$Work/sh" <<EOF
#!$Real
if [ -z "\${OVERHEAD_NESTED-}" ]; then
    export OVERHEAD_NESTED=1
    printf '%s\\0' "\$@" >>$Work/calls
fi
exec $Real "\$@"
EOF
chmod 755 "$Work/sh"
if ! $Sandbox "$Real" -c "
    cp $Work/sh /bin/sh.overhead && mv -f /bin/sh.overhead /bin/sh || exit 125
    ./setup >&2 || exit
    cat $Work/calls" >"$Work/lines" 2>"$Work/setup.out"; then
    echo "overhead: setup failed while its command lines were recorded:" >&2
    cat "$Work/setup.out" >&2
    exit 1
fi
# Each call is "-c LINE": the first word of every pair must be -c.
count=$(xargs -0 -n 2 printf '%s\n%.0s' <"$Work/lines" | grep -c '' || true)
others=$(xargs -0 -n 2 printf '%s\n%.0s' <"$Work/lines" | grep -cvx -- -c || true)
# The replay: one call a line, /bin/sh '-c' 'LINE', each word quoted.
sed -z "s/'/'\\\\''/g; s/.*/'&'/; 1~2s|^|/bin/sh |; 2~2s/\$/\\n/" "$Work/lines" |
    tr '\0' ' ' >"$Work/replay.sh"
if [ "$count" -eq 0 ] || [ "$others" -ne 0 ] || ! grep -q "sh '-c' '/[a-z/]*sh -c \"" "$Work/replay.sh"; then
    echo "overhead: the recorded calls are not the expected \"-c LINE\":" >&2
    head -n 5 "$Work/replay.sh" >&2
    exit 1
fi
echo "recorded $count command lines, for example:"
grep -m 2 "sh '-c' '/[a-z/]*sh -c \"" "$Work/replay.sh" | sed 's/^ */    /'

# Runs PREPARE, then TIMED, in a fresh sandbox; prints the seconds TIMED took
# there, wall clock, then user and system CPU of it and all it waited for,
# and whether the installation reached its end (the queue tool's log, written
# by the last step of both). bash for its `time`, to the millisecond.
inside() {
    $Sandbox /bin/bash -c "
        $1
        TIMEFORMAT='%3R %3U %3S'
        times=\$({ time $2 </dev/null >/dev/null 2>&1; } 2>&1)
        [ -s /opt/Orvel/pnzz/log/pnqadmin.log ] && echo \$times ok || echo \$times incomplete"
}

# One run of WHO (setup or replay): its times go to WHO.times, in ms.
run() {
    who=$1
    shift
    inside "$@" >"$Work/run"
    read -r wall user sys state <"$Work/run"
    [ "$state" = ok ] || { echo "overhead: $who run $i did not finish the installation" >&2; exit 1; }
    awk -v w="$wall" -v u="$user" -v s="$sys" 'BEGIN { print w * 1000, (u + s) * 1000 }' \
        >>"$Work/$who.times"
    printf '  %s %s s (CPU %s + %s s)' "$who" "$wall" "$user" "$sys"
}

# Step 3: alternating, so that a change in the machine's load hits both.
i=1
while [ "$i" -le "$Runs" ]; do
    printf 'run %d:' "$i"
    run setup : ./setup
    run replay "mkdir /tmp/OrvelInstall && cd /tmp/OrvelInstall" "$Real $Work/replay.sh"
    echo
    i=$((i + 1))
done

# Step 4: the medians, of the wall clock (column 1) and of the CPU (column 2).
median() {
    awk -v c="$2" '{ print $c }' "$Work/$1.times" | sort -n | awk '{ v[NR] = $1 }
        END { print (NR % 2) ? v[(NR + 1) / 2] : (v[NR / 2] + v[NR / 2 + 1]) / 2 }'
}
awk -v sw="$(median setup 1)" -v sc="$(median setup 2)" -v rw="$(median replay 1)" \
    -v rc="$(median replay 2)" -v n="$count" -v runs="$Runs" 'BEGIN {
    printf "median of %d runs      wall         CPU\n", runs
    printf "setup             %8.1f ms  %8.1f ms\n", sw, sc
    printf "replay            %8.1f ms  %8.1f ms\n", rw, rc
    printf "setup/replay      %8.3f     %8.3f\n", sw / rw, sc / rc
    printf "setup - replay    %8.1f ms  %8.1f ms  over %d command lines\n", sw - rw, sc - rc, n
}'
