#!/bin/sh
# Runs one step of the build quietly: its output goes to a log, and only a failure shows what went wrong.
#
#   tools/step.sh TITLE LOG COMMAND [ARGUMENT...]
set -u
title=$1 log=$2
shift 2

echo "$title"
mkdir -p "$(dirname "$log")"
"$@" >"$log" 2>&1 && exit
status=$?

# From the first error on, without the progress of the build and the long command behind each failure.
awk 'isCommand { isCommand = 0; next }
     /^FAILED: / { isCommand = 1 }
     /^\[[0-9]+\/[0-9]+\] / { next }
     /^FAILED: |CMake Error|[Ee]rror: / { isError = 1 }
     isError' "$log" | head -n 60 >&2
echo "$title failed; the whole output is in $log" >&2
exit $status
