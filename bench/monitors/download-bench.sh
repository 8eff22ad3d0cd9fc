#!/usr/bin/env bash
# The install-package and download monitors' file work against the usual tools, in one run:
#   inventory  the package inventory (find run as the monitor runs it, output parsed) of the
#              stream-bench tree plus 50 packages, against find with the same arguments; and
#              the same inventory through the privileged helper on a private bus;
#   folders    reading the browsers' download folders from a 4 MiB Chrome Preferences file,
#              against jq -r .download.default_directory on the same file.
# Prints each time and the ratio ours / theirs (lower is better). BENCH_DIR keeps the tree.
set -euo pipefail
top="$(cd "$(dirname "$0")/../.." && pwd)"
build="${BUILD_DIR:-$top/build}"
"$top/scripts/build.sh" "$build" "" download-probe watch-probe vexa-helper >/dev/null
probe="$build/bench/download-probe"
runs="${RUNS:-5}"
work="${BENCH_DIR:-$(mktemp -d)}"
tree="$work/tree"
if [ ! -d "$tree" ]; then
  echo "making the tree in $tree ..."
  "$build/bench/watch-probe" make-tree "$tree" 20000 200000 >/dev/null
fi
for i in $(seq 50); do : > "$tree/package-$i.deb"; done

timed() {  # timed RUNS COMMAND...: seconds for RUNS runs
  local start end
  start=$(date +%s.%N)
  for _ in $(seq "$1"); do "${@:2}" >/dev/null; done
  end=$(date +%s.%N)
  echo "$end - $start" | bc -l
}
ratio() { echo "scale=3; $1 / $2" | bc -l; }

find "$tree" -type f >/dev/null  # warm the caches for both
theirs=$(timed "$runs" /usr/bin/find "$tree" -type f "(" -name '*.dmg' -o -name '*.pkg' -o \
  -name '*.deb' -o -name '*.rpm' -o -name '*.snap' -o -name '*.flatpak' -o \
  -name '*.flatpakref' -o -name '*.run' ")")
read -r found ours < <("$probe" inventory "$tree" "$runs")
echo "inventory: $found packages; ours $ours s, find $theirs s for $runs runs;" \
  "ratio $(ratio "$ours" "$theirs")"
. "$top/bench/privileged/private-helper.sh"
read -r found helped < <("$probe" inventory-helper "$tree" "$runs")
kill $helper_pids
rm -rf "$helper_work"
echo "inventory through the helper: $found packages; $helped s for $runs runs;" \
  "ratio to find $(ratio "$helped" "$theirs")"

home="$work/prefs-home"
mkdir -p "$home/.config/google-chrome/Default"
python3 - "$home/.config/google-chrome/Default/Preferences" <<'PY'
import json, sys
big = {"extensions": {"settings": {f"ext{i}": {"path": "x" * 100, "state": i, "list": [i] * 20}
                                   for i in range(15000)}},
       "download": {"default_directory": "/srv/downloads", "prompt_for_download": False}}
open(sys.argv[1], "w").write(json.dumps(big))
PY
size=$(stat -c %s "$home/.config/google-chrome/Default/Preferences")
theirs=$(timed "$runs" jq -r .download.default_directory \
  "$home/.config/google-chrome/Default/Preferences")
read -r _ ours < <("$probe" folders "$home" "$runs")
echo "folders: Preferences of $size bytes; ours $ours s, jq $theirs s for $runs runs;" \
  "ratio $(ratio "$ours" "$theirs")"
[ -n "${BENCH_DIR:-}" ] || rm -rf "$work"
