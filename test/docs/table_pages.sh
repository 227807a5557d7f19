#!/bin/sh
# The pages of docs/tables are made from the code: this tells when they have to be made again.
#
#   table_pages.sh NERIO PAGES
set -eu

made=$(mktemp -d)
trap 'rm -rf "$made"' EXIT
"$1" layout --docs "$made"
if ! diff -r "$2" "$made"; then
    echo "The pages in $2 are not those of this code. Make them again: nerio layout --docs docs/tables" >&2
    exit 1
fi
