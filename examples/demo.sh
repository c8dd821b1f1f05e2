#!/bin/sh
# demo.sh BUILD_DIR: makes an installation site of the demo package in
# examples/demo and installs it with that site's setup inside the rehearsal
# sandbox, showing the installer's dialogue and the change report.
#
# setup is never run on the machine itself: it rewrites /opt, /usr/bin,
# /var/spool and /etc. Whatever piece is missing (a program not built yet, no
# root for the sandbox), the demo says so, shows what it would run and ends
# with status 0. It never reads the terminal: the installer's standard input
# is the answers file, or /dev/null.

set -u

Here=`dirname "$0"`
Here=`cd "$Here" && pwd`
Package="$Here/demo"
Answers=/dev/null
[ -f "$Package/answers" ] && Answers="$Package/answers"

if [ $# -ne 1 ]; then
    echo "usage: sh examples/demo.sh BUILD_DIR" >&2
    exit 2
fi
if [ ! -d "$1" ]; then
    echo "demo: no build directory $1; build first (make build)" >&2
    exit 2
fi
Build=`cd "$1" && pwd`
Setup="$Build/setup"
Mkmedium="$Build/tools/mkmedium/mkmedium"
Rehearse="$Build/tools/rehearse/rehearse"
# Beside the build, so that one `rm -rf build` clears the demo away too.
Site="$Build/demo-site"
Kept="$Build/demo-changes"
Report="$Build/demo-report.txt"
# A stuck prompt must not hang an unattended run.
Limit=600

say() {
    printf '\n== %s\n' "$*"
}

# Prints a command line with its words quoted where needed.
show() {
    printf '   '
    for word in "$@"; do
        case $word in
        *[!A-Za-z0-9_./=:@%+-]* | '') printf " '%s'" "$word" ;;
        *) printf ' %s' "$word" ;;
        esac
    done
    printf '\n'
}

missing() {
    printf 'demo: %s\n' "$*"
}

# Ends the demo early, successfully: what is missing was said already.
stop_here() {
    printf '\ndemo: stopped before the end; the steps above show what is still missing.\n'
    exit 0
}

# The two command lines, handed to a runner: `show` or the program itself.
mkmedium_line() {
    "$@" --site -o "$Site" --setup "$Setup" --help-file "$Package/setup.hlp" "$Package"
}
rehearse_line() {
    "$@" -C "$Site" -i "$Answers" -k "$Kept" -r "$Report" -- "$Site/setup"
}

# Step 1: the installation site.
say "Making the demo installation site with mkmedium"
ready=1
if [ ! -x "$Setup" ]; then
    missing "the installer is not built yet: $Setup"
    ready=0
fi
if [ ! -x "$Mkmedium" ]; then
    missing "the medium builder is not built yet: $Mkmedium"
    ready=0
fi
if [ $ready -eq 0 ]; then
    echo "It would run:"
    mkmedium_line show mkmedium
    say "Installing the site with setup inside the rehearsal sandbox"
    [ -x "$Rehearse" ] || missing "the sandbox runner is not built yet: $Rehearse"
    echo "It would run:"
    rehearse_line show rehearse
    stop_here
fi
rm -rf "$Site"
mkmedium_line show mkmedium
if ! mkmedium_line "$Mkmedium"; then
    echo "demo: mkmedium could not make the site" >&2
    exit 1
fi
echo
ls -l "$Site"
echo
echo "disks:"
sed 's/^/    /' "$Site/disks"

# Step 2: the installation, inside the sandbox only.
say "Installing the site with setup inside the rehearsal sandbox"
if [ ! -x "$Rehearse" ]; then
    missing "the sandbox runner is not built yet: $Rehearse"
    echo "It would run:"
    rehearse_line show rehearse
    stop_here
fi
if [ "`id -u`" != 0 ]; then
    missing "the sandbox needs root; run make demo as root"
    echo "It would run:"
    rehearse_line show rehearse
    stop_here
fi
rm -rf "$Kept" "$Report"
rehearse_line show rehearse
echo
Timeout=
command -v timeout >/dev/null 2>&1 && Timeout="timeout $Limit"
rehearse_line $Timeout "$Rehearse"
status=$?

say "What the installation changed"
cat "$Report" 2>/dev/null || echo "(no change report)"

say "Result"
echo "setup inside rehearse ended with status $status"
gaps=
for path in opt/Orvel/pnzz/PelnorD opt/Orvel/pnzz/PelnorDStop \
    opt/Orvel/pnzz/OrvelPrintpnzz opt/Orvel/pnzz/OrvelKVT \
    opt/Orvel/pnzz/pnzz.conf opt/Orvel/pnzz/log/pnqadmin.log \
    usr/bin/pelnorprint usr/bin/pelnorstat; do
    [ -e "$Kept/$path" ] || gaps="$gaps /$path"
done
if [ -n "$gaps" ]; then
    missing "the installation is not complete yet; missing:$gaps"
    [ -f "$Kept/tmp/setup.log" ] && echo "The installer's command log is $Kept/tmp/setup.log."
    stop_here
fi
echo "The package is installed in /opt/Orvel/pnzz of the sandbox; the files it"
echo "changed are kept in $Kept (the machine itself is unchanged)."
echo "The queue tool's record:"
sed 's/^/    /' "$Kept/opt/Orvel/pnzz/log/pnqadmin.log"
exit 0
