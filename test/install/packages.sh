#!/bin/sh
# Makes the Debian packages of a build and checks what is in them, and what they say that they need.
#
#   packages.sh BUILD_FOLDER VERSION     CPACK is in the environment
set -eu
build=$1 version=$2

folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
fail() {
    echo "$1" >&2
    exit 1
}
"$CPACK" --config "$build/CPackConfig.cmake" -B "$folder" >"$folder/log" 2>&1 ||
    { cat "$folder/log" >&2; fail "cpack fails"; }

architecture=$(dpkg --print-architecture)
for package in libnerioswitchtable0 libnerioswitchtable-dev nerio-tools; do
    deb=$folder/${package}_${version}_$architecture.deb
    [ -f "$deb" ] || fail "there is no $(basename "$deb")"
    dpkg-deb -c "$deb" | sed -n 's|^[-l].* \./|/|p' | sed 's| -> .*||' | sort >"$folder/$package.files"
done

has() {
    grep -Eq "$2" "$folder/$1.files" || { cat "$folder/$1.files" >&2; fail "$1 has no file $2"; }
}
for library in Platform SwitchTable Chip; do
    has libnerioswitchtable0 "^/usr/lib/.*libNerio$library\.so\.$version\$"
    has libnerioswitchtable-dev "^/usr/lib/.*libNerio$library\.so\$"
done
has libnerioswitchtable-dev '^/usr/lib/.*libNerioAgent\.a$'
for header in NerioSwitchApi/TableFramework NerioSwitchTable/NerioTablePortConfig chip/SimulatedChip agent/RouteAgent; do
    has libnerioswitchtable-dev "^/usr/include/nerio/$header\.h\$"
done
for file in cmake/NerioSwitchTable/NerioSwitchTableConfig.cmake pkgconfig/nerioswitchtable.pc; do
    has libnerioswitchtable-dev "^/usr/lib/.*$file\$"
done
has libnerioswitchtable-dev '^/usr/share/doc/libnerioswitchtable-dev/examples/hello_table/main\.cpp$'
has nerio-tools '^/usr/bin/nerio$'

twice=$(cat "$folder"/*.files | sort | uniq -d)
[ -z "$twice" ] || fail "in two packages: $twice"

needs() {
    depends=$(dpkg-deb -f "$folder/$1_${version}_$architecture.deb" Depends)
    case ", $depends," in
        *", $2"*) ;;
        *) fail "$1 depends on \"$depends\", not on $2" ;;
    esac
}
needs libnerioswitchtable0 'libc6 (>= '
needs libnerioswitchtable0 libfmt
needs libnerioswitchtable-dev "libnerioswitchtable0 (= $version)"
needs libnerioswitchtable-dev libfmt-dev
needs nerio-tools "libnerioswitchtable0 (= $version)"
needs nerio-tools zlib1g
wc -l "$folder"/*.files | sed "s|$folder/||"
