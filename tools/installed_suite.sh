#!/bin/sh
# make check-wheels: installs a wheel or the source distribution with pip into
# a fresh venv, without an index, then runs tests against the module as
# installed there, not the build tree.  The venv sees the interpreter's own
# packages, so that a source build finds setuptools and wheel there
# (--no-build-isolation), as a tool author's offline machine would.
# Usage: installed_suite.sh PYTHON VENV PACKAGE [PYTEST ARGS...]  (default: tests)
set -eu
py=$1 venv=$2 package=$3
shift 3
rm -rf "$venv"
$py -m venv --system-site-packages "$venv"
"$venv/bin/python" -m pip install -q --no-index --no-build-isolation --disable-pip-version-check "$package"
site=$("$venv/bin/python" -c "import sysconfig; print(sysconfig.get_paths()['platlib'])")
echo "$package installed into $site"
[ $# -gt 0 ] || set -- tests
VXR_MODULE_DIR=$site PYTHONPATH=$(pwd)/standin:/usr/lib/python3/dist-packages \
    "$venv/bin/python" -m pytest -q -W "ignore::DeprecationWarning:_pytest.assertion.rewrite" "$@"
