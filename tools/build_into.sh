#!/bin/sh
# Builds the module for one interpreter into OUT, warnings as errors, as make
# test-all and make bench do.  An interpreter without setuptools of its own
# uses Debian's, which is pure Python.  Usage: build_into.sh PYTHON OUT
set -eu
py=$1 out=$2
if $py -c "import setuptools" 2>/dev/null; then pp=; else pp=/usr/lib/python3/dist-packages; fi
mkdir -p "$out"
PYTHONPATH=$pp VXR_WERROR=1 $py setup.py -q build_ext --build-lib "$out" --build-temp "$out/tmp"
