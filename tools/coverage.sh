#!/bin/sh
# Line coverage of NerioSwitchTable/ by the tests of a build with NERIO_COVERAGE.
#
#   tools/coverage.sh forget BUILD            drops what earlier runs have counted
#   tools/coverage.sh report BUILD PERCENT    prints the coverage; fails below that, and says what is missing
set -eu
cd "$(dirname "$0")/.."
build=$2

case $1 in
    forget)
        find "$build" -name '*.gcda' -delete
        ;;
    report)
        # Lines of headers count once, however many sources have them.
        gcovr --root . --filter NerioSwitchTable/ --exclude-unreachable-branches -j "$(nproc)" \
            --csv "$build/coverage.csv" "$build/NerioSwitchTable" >"$build/coverage.log" 2>&1 ||
            { cat "$build/coverage.log" >&2; exit 1; }
        awk -F, -v minimum="$3" '
            NR == 1 { next }
            { lines += $2; covered += $3; if ($3 < $2) missing[$1] = $2 - $3 }
            END {
                if (lines == 0) { print "No line of NerioSwitchTable/ was counted."; exit 1 }
                percent = 100 * covered / lines
                printf "line coverage of NerioSwitchTable/: %.1f %% (%d of %d lines)\n", percent, covered, lines
                if (percent >= minimum) exit 0
                printf "That is below %s %%. Lines that no test reaches:\n", minimum
                for (file in missing) printf "%6d  %s\n", missing[file], file | "sort -rn"
                close("sort -rn")
                exit 1
            }' "$build/coverage.csv"
        ;;
esac
