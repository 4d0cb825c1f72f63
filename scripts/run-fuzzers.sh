#!/usr/bin/env bash
# run-fuzzers.sh BUILD_DIR SECONDS: runs every *_fuzz binary for SECONDS, starting
# from a scratch copy of its seed corpus (the committed corpus is never rewritten).
set -euo pipefail
build=$1; secs=$2
status=0
for bin in "$build"/bin/*_fuzz; do
  [ -x "$bin" ] || continue
  name=$(basename "$bin")
  seed=$(find libs -type d -path "*/fuzz/corpus/$name" | head -n1)
  work=$(mktemp -d)
  [ -n "$seed" ] && cp -r "$seed"/. "$work"/ 2>/dev/null || true
  echo "== $name for ${secs}s"
  if ! "$bin" -max_total_time="$secs" -rss_limit_mb=2048 -artifact_prefix="$build/$name-" "$work"; then
    echo "$name found a fault: see $build/$name-*"; status=1
  fi
  rm -rf "$work"
done
exit $status
