#!/bin/sh
# Runs the end-to-end test binary's small-disk cases on a file system of its own, a few
# megabytes of memory mounted in a private mount namespace, so that the capture really
# meets a full disk. Exits 77 (skipped) where the machine does not allow the mount.
set -eu
test_binary=$1
if [ "${KC_IN_SMALL_DISK:-}" = "" ]; then
  if ! unshare -rm true 2>/dev/null; then
    echo "no private mount namespace here; skipped" >&2
    exit 77
  fi
  exec env KC_IN_SMALL_DISK=1 unshare -rm sh "$0" "$@"
fi
disk=$(mktemp -d)
if ! mount -t tmpfs -o size=12m tmpfs "$disk"; then
  rmdir "$disk"
  echo "no small file system can be mounted here; skipped" >&2
  exit 77
fi
status=0
KC_SMALL_DISK=$disk "$test_binary" \
  --gtest_filter='EndToEnd.ARecordingThatFillsTheDisk*:SceneTape.ASceneCaptureThatFillsTheDisk*' --gtest_also_run_disabled_tests \
  || status=$?
umount "$disk"
rmdir "$disk"
exit $status
