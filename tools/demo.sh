#!/usr/bin/env bash
# Runs the demo script through the kp120 command: `tools/demo.sh BUILD_DIR`.
# The device root and the registry of the demo live under BUILD_DIR/demo and
# are made afresh on every run, so that nothing is written outside the build.
set -eu
build=${1:-build}
here=$(cd "$(dirname "$0")/.." && pwd)
kp120="$build/kp120"
if [ ! -x "$kp120" ]; then
  echo "demo: $kp120 is missing; build first (make build)" >&2
  exit 1
fi
demo="$build/demo"
rm -rf "$demo"
mkdir -p "$demo/device/Windows"
# A program installed on the device, for the process functions.
cp /bin/echo "$demo/device/Windows/echo"
echo "demo: device root $demo/device, registry $demo/registry.sqlite3"
echo "demo: $kp120 --root $demo/device --registry $demo/registry.sqlite3 examples/demo.lua"
exec "$kp120" --root "$demo/device" --registry "$demo/registry.sqlite3" "$here/examples/demo.lua"
