#!/bin/sh
# make test-all, for one interpreter: builds the module into OUT (warnings as
# errors) and runs the whole suite on that build; pytest's output goes to
# OUT/pytest.txt as well.  Usage: suite.sh PYTHON OUT [PYTEST ARGS...]
# Interpreters without pytest or hypothesis of their own use Debian's, which
# are pure Python.
set -u
py=$1 out=$2
shift 2
debian=/usr/lib/python3/dist-packages
"$(dirname "$0")/build_into.sh" "$py" "$out" || {
    echo "build failed" >"$out/pytest.txt"
    exit 1
}
# In development mode (its child processes too): freed memory is poisoned and
# the allocators' and the C API's debug checks are on.  pytest's assertion
# rewriting is deprecated on the newest interpreters; the warning is not the
# module's.
{
    PYTHONDEVMODE=1 VXR_MODULE_DIR=$(cd "$out" && pwd) PYTHONPATH=$(pwd)/standin:$debian \
        $py -m pytest -q -W "ignore::DeprecationWarning:_pytest.assertion.rewrite" tests "$@" 2>&1
    echo $? >"$out/rc"
} | tee "$out/pytest.txt"
exit "$(cat "$out/rc")"
