#!/bin/sh
# Runs the read-only dataset test as an ordinary user. The build tree may sit
# in a folder that only root can enter, so the test binary and the sample it
# reads are copied into a folder everyone can reach.
#   run_readonly.sh SETPRIV TEST_BINARY SOURCE_DIR
set -eu
setpriv="$1" binary="$2" source="$3"
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
chmod 755 "$work"
mkdir -p "$work/source/samples/orbit" "$work/run"
cp "$binary" "$work/test"
cp "$source/samples/orbit/orbit.db" "$work/source/samples/orbit/"
chmod 777 "$work/run"
cd "$work/run"
QUORVEL_SOURCE_DIR="$work/source" HOME="$work/run" ASAN_OPTIONS=detect_leaks=0 \
    "$setpriv" --reuid=65534 --regid=65534 --clear-groups "$work/test" --gtest_filter='Loader.ReadOnly*'
