#!/bin/sh
# Builds the fuzz harnesses with clang and runs each for a while.
#
#   tests/fuzz/run.sh [BUILD_DIR [SECONDS [HARNESS...]]]
#
# BUILD_DIR defaults to build-fuzz, SECONDS to 60, the harnesses to all of
# them (names as in tests/fuzz/<Name>_fuzz.cpp). Each run starts from a copy
# of the committed seeds in BUILD_DIR/fuzz-work/<Name>, so the corpus grown
# there never touches the repository; a finding is written to
# BUILD_DIR/fuzz-findings/<Name>/ and makes the script fail. The log of each
# run is BUILD_DIR/fuzz-logs/<Name>.log.
set -eu
cd "$(dirname "$0")/../.."
BUILD=${1:-build-fuzz}
SECONDS_EACH=${2:-60}
[ $# -gt 2 ] && shift 2 || set --

# clang and its libFuzzer runtime: `make fuzz` installs them when missing.
if ! command -v clang++ >/dev/null 2>&1 ||
    [ ! -f "$(clang++ -print-resource-dir)/lib/linux/libclang_rt.fuzzer-$(uname -m).a" ]; then
    echo "fuzz: clang with its libFuzzer runtime is needed (make fuzz installs them)" >&2
    exit 1
fi

cmake -S tests/fuzz -B "$BUILD" -DCMAKE_CXX_COMPILER=clang++ >/dev/null
cmake --build "$BUILD" -j "$(nproc 2>/dev/null || echo 2)" >/dev/null

if [ $# -eq 0 ]; then
    for source in tests/fuzz/*_fuzz.cpp; do
        name=$(basename "$source" _fuzz.cpp)
        set -- "$@" "$name"
    done
fi

# Inputs as large as the readers take: database records reach 64 KiB; lines
# are read in pieces and joined up to 4 KiB.
max_len() {
    case $1 in
        Dbm | DbmT) echo 70000 ;;
        PkgList | MenuSettings) echo 8192 ;;
        *) echo 4096 ;;
    esac
}

passed=0
failed=0
for name in "$@"; do
    work="$BUILD/fuzz-work/$name"
    findings="$BUILD/fuzz-findings/$name"
    log="$BUILD/fuzz-logs/$name.log"
    rm -rf "$work"
    mkdir -p "$work" "$findings" "$(dirname "$log")"
    cp tests/fuzz/corpus/"$name"/* "$work"/
    if "$BUILD/${name}_fuzz" -max_total_time="$SECONDS_EACH" -timeout=25 -rss_limit_mb=2048 \
        -max_len="$(max_len "$name")" -print_final_stats=1 -artifact_prefix="$findings/" \
        "$work" >"$log" 2>&1; then
        status="no finding"
        passed=$((passed + 1))
    else
        status="FINDING: see $log and $findings/"
        failed=$((failed + 1))
    fi
    runs=$(sed -n 's/^stat::number_of_executed_units: *//p' "$log" | tail -n 1)
    echo "$name: ${runs:-?} inputs in ${SECONDS_EACH}s, $status"
done
echo "fuzz: $passed passed, $failed failed"
[ "$failed" -eq 0 ]
