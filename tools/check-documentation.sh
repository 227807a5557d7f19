#!/bin/sh
# Lists the public types of headers that have no comment of documentation directly before them, and fails if there
# is one: classes that a library exports, class templates, enumerations and indexes.
#
#   tools/check-documentation.sh FOLDER...
set -eu
find "$@" -name '*.h' | sort | xargs awk '
    FNR == 1 { documented = 0; heading = 0; template = 0 }
    # Between a comment and its class there may be the head of a template, over several lines.
    /^template </ { template = 1; heading = 1 }
    /^(class|struct) / {
        declaration = $0
        isExported = /^(class|struct) [A-Z_]+_EXPORT /
        sub(/^(class|struct) ([A-Z_]+_EXPORT )?/, "", declaration)
        name = declaration
        sub(/[^A-Za-z0-9_].*/, "", name)
        # A specialization or a declaration without a body says nothing new.
        isOther = declaration ~ /^[A-Za-z0-9_:]+</ || $0 ~ /;$/
        if ((isExported || template) && !isOther) check(name)
    }
    /^(SORN_ENUM|BELMO_INDEX)\(/ {
        name = $0
        sub(/^BELMO_INDEX\([A-Za-z]+, */, "", name)
        sub(/^SORN_ENUM\(/, "", name)
        sub(/,.*/, "", name)
        check(name)
    }
    /^enum class / && !/;$/ { check($3) }
    {
        if (heading && $0 ~ /(>|>\))$|^(class|struct) /) heading = 0
        else if (!heading && $0 !~ /^ *(requires|\/\/ NOLINT)/) {
            documented = $0 ~ /\*\/$/
            template = 0
        }
    }
    function check(name) {
        ++types
        if (documented) return
        print FILENAME ":" FNR ": " name " has no documentation"
        ++missing
    }
    END {
        if (types == 0) { print "no public type was found"; exit 1 }
        if (missing) exit 1
        print types " public types, all documented"
    }'
