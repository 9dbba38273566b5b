#!/usr/bin/env bash
# How ctest runs one test file of the web page. The file's needs are checked first; when one is
# missing the test is skipped (exit 77) with the reason, so a machine without a browser still
# runs everything else.
#   run_test.sh FILE.test.mjs          the page's logic: needs node only
#   run_test.sh --demo FILE.test.mjs   a browser against the demo: also playwright-core,
#                                      chromium, bubblewrap and the built host ($QRIX_BUILD_DIR)
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)

skip() { echo "SKIPPED: $*" >&2; exit 77; }

demo=0
if [[ ${1:-} == --demo ]]; then demo=1; shift; fi
(($# == 1)) || { echo "usage: run_test.sh [--demo] FILE.test.mjs" >&2; exit 2; }

command -v node >/dev/null || skip "node is not installed (scripts/bootstrap installs it)"
if ((demo)); then
  [[ -d $here/node_modules/playwright-core ]] ||
    skip "playwright-core is not installed: run scripts/bootstrap (npm ci in tests/browser)"
  chromium=${QRIX_CHROMIUM:-/usr/bin/chromium}
  [[ -x $chromium ]] || skip "no chromium at $chromium (scripts/bootstrap installs Debian's)"
  command -v bwrap >/dev/null || skip "bubblewrap is not installed (scripts/bootstrap)"
  build=${QRIX_BUILD_DIR:-}
  [[ -n $build ]] || skip "QRIX_BUILD_DIR is not set"
  for f in host/qrix-webapi module/libhaulport_setting.so platform/shares/libqrix_share_api.so \
    tests/fake_scheduler platform/volume/qrixfstool; do
    [[ -e $build/$f ]] || skip "$build/$f is not built"
  done
fi
cd "$here"
exec node --test --test-reporter=tap "$1"
