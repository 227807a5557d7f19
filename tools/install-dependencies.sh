#!/bin/sh
# Installs the Debian packages that a purpose needs and this machine lacks, and says which before it does.
# Where nothing is missing it is silent and needs no rights.
#
#   tools/install-dependencies.sh build|test|bench|lint|clang|coverage|docs ...
set -eu

packages_for() {
    case $1 in
        build) echo g++ cmake ninja-build libfmt-dev libspdlog-dev libboost-dev robin-map-dev \
                    libxxhash-dev libcli11-dev nlohmann-json3-dev zlib1g-dev ;;
        test)  echo libgtest-dev libgmock-dev librapidcheck-dev pkg-config dpkg-dev file chromium python3 bsdutils ;;
        bench) echo libbenchmark-dev ;;
        lint)  echo clang-format-14 clang-tidy-14 python3 ;;
        clang) echo clang ;;
        coverage) echo gcovr ;;
        docs)  echo doxygen ;;
        *)     echo "$0: no purpose \"$1\"; there are build, test, bench, lint, clang, coverage, docs" >&2; return 2 ;;
    esac
}

wanted=
for purpose; do
    wanted="$wanted $(packages_for "$purpose")" || exit
done

if ! command -v apt-get >/dev/null || ! command -v dpkg-query >/dev/null; then
    echo "Nothing is installed, for this machine has no apt-get. Needed, by their Debian names:$wanted"
    exit 0
fi

# Asking dpkg for a package that it has never heard of fails; that is an answer too.
installed=$(dpkg-query --show --showformat='${db:Status-Abbrev}${Package}\n' $wanted 2>/dev/null |
    sed -n 's/^ii *//p' | tr '\n' ' ')
missing=
for package in $wanted; do
    case " $installed " in
        *" $package "*) ;;
        *) missing="$missing $package" ;;
    esac
done
if [ -z "$missing" ]; then
    exit 0
fi

by_hand="apt-get update && apt-get install --no-install-recommends$missing"
as_root=
if [ "$(id -u)" -ne 0 ]; then
    if ! command -v sudo >/dev/null; then
        echo "Packages are missing, and there is no sudo to install them. As root, run:" >&2
        echo "  $by_hand" >&2
        exit 1
    fi
    as_root=sudo
fi

apt() {
    $as_root env DEBIAN_FRONTEND=noninteractive apt-get -q -o DPkg::Lock::Timeout=300 "$@" </dev/null
}
install_missing() {
    apt install --yes --no-install-recommends $missing
}

echo "This installs${as_root:+ (with sudo)}:$missing"
cd "$(dirname "$0")/.."
mkdir -p build
log=build/install.log
# The package lists are fetched only if what this machine knows is not enough.
if ! install_missing >"$log" 2>&1 && ! { apt update && install_missing; } >"$log" 2>&1; then
    tail -n 20 "$log" >&2
    echo "Installing failed; the whole output is in $log. By hand, as root, it is:" >&2
    echo "  $by_hand" >&2
    exit 1
fi
