#!/bin/sh
# run.sh BUILD_DIR SOURCE_DIR - installs the build into a fresh prefix and
# builds the example hosts against the installed files only: scan_range.c
# through pkg-config, both examples through find_package.  Runs each.
set -eu
build=$1
source=$2
tmp=$(mktemp -d)
trap 'rm -rf "$tmp"' EXIT
prefix=$tmp/prefix

cmake --install "$build" --prefix "$prefix" >/dev/null
pc=$(find "$prefix" -name rvtlsse42.pc)
examples=$prefix/share/doc/rvtlsse42/examples
test -f "$examples/scan_range.c"

echo "== pkg-config"
export PKG_CONFIG_PATH
PKG_CONFIG_PATH=$(dirname "$pc")
cc=${CC:-cc}
# shellcheck disable=SC2046
$cc -std=c11 -Wall -Wextra -pedantic -Werror $(pkg-config --cflags rvtlsse42) "$examples/scan_range.c" \
    -o "$tmp/scan_range" $(pkg-config --libs rvtlsse42)
"$tmp/scan_range" "$(pkg-config --variable=library rvtlsse42)"

echo "== find_package"
cmake -S "$source/tests/install" -B "$tmp/consumer" -DCMAKE_PREFIX_PATH="$prefix" \
    -DCMAKE_BUILD_TYPE=Release >/dev/null
cmake --build "$tmp/consumer" >/dev/null
"$tmp/consumer/scan_range"
"$tmp/consumer/hash_join"
