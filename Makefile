# Thin wrappers around setuptools and pytest.  PYTHON defaults to CPython 3.9
# from pyenv; set PYTHON=/path/to/python3.x for another interpreter.
PYTHON ?= $(firstword $(wildcard $(HOME)/.pyenv/versions/3.9*/bin/python3) python3)
# Debian's pytest and hypothesis are pure Python and import under any 3.x.
TESTDEPS := /usr/lib/python3/dist-packages
SUDO := $(shell [ "$$(id -u)" = 0 ] || echo sudo)
RUNPATH := PYTHONPATH=$(CURDIR)/standin:$(CURDIR)

.PHONY: build test demo deps builddeps test-all wheel bench clean

build:
	VXR_WERROR=1 $(PYTHON) setup.py -q build_ext --inplace

# Installs the test tools from Debian when the interpreter cannot import them.
deps:
	@PYTHONPATH=$(TESTDEPS) $(PYTHON) -c "import pytest, hypothesis" 2>/dev/null || { \
	  echo "installing python3-pytest and python3-hypothesis from Debian"; \
	  $(SUDO) apt-get update -qq && \
	  $(SUDO) apt-get install -y -qq python3-pytest python3-hypothesis python3-exceptiongroup >/dev/null; }

test: build deps
	$(RUNPATH):$(TESTDEPS) $(PYTHON) -m pytest tests

demo: build
	$(RUNPATH) $(PYTHON) examples/demo.py

# Generates the synthetic cases under build/bench on first use, then prints
# the timing table (BENCH_ARGS=--quick for a smoke run).
bench: build
	$(RUNPATH) $(PYTHON) bench/run.py $(BENCH_ARGS)

# Debian's setuptools and wheel are pure Python too: they build for the
# interpreters that have none of their own (pyenv's 3.12 and 3.13).
builddeps:
	@PYTHONPATH=$(TESTDEPS) $(PYTHON) -c "import setuptools, wheel" 2>/dev/null || { \
	  echo "installing python3-setuptools and python3-wheel from Debian"; \
	  $(SUDO) apt-get update -qq && \
	  $(SUDO) apt-get install -y -qq python3-setuptools python3-wheel >/dev/null; }

# Every CPython from 3.9 to 3.13 found (pyenv's, else python3.X on PATH):
# each builds into build/pyX.Y and runs the whole suite on that build.
PYVERSIONS := 3.9 3.10 3.11 3.12 3.13
python_for = $(firstword $(wildcard $(HOME)/.pyenv/versions/$(1).*/bin/python3) $(shell command -v python$(1)))
INTERPRETERS := $(strip $(foreach v,$(PYVERSIONS),$(call python_for,$(v))))

test-all: deps builddeps
	@test -n "$(INTERPRETERS)" || { echo "no CPython 3.9 to 3.13 found"; exit 1; }
	@status=0; summary=""; \
	for py in $(INTERPRETERS); do \
	  v=$$($$py -c 'import sys; print("%d.%d" % sys.version_info[:2])'); out=$(CURDIR)/build/py$$v; \
	  echo "==== CPython $$v ($$py)"; \
	  if $$py -c "import setuptools" 2>/dev/null; then pp=; else pp=$(TESTDEPS); fi; \
	  if ! PYTHONPATH=$$pp VXR_WERROR=1 $$py setup.py -q build_ext --build-lib $$out --build-temp $$out/tmp; then \
	    summary="$$summary\n  $$v: build failed"; status=1; continue; fi; \
	  { VXR_MODULE_DIR=$$out PYTHONPATH=$(CURDIR)/standin:$(TESTDEPS) $$py -m pytest -q -W "ignore::DeprecationWarning:_pytest.assertion.rewrite" tests; echo $$? >$$out/rc; } \
	    | tee $$out/pytest.txt; \
	  [ "$$(cat $$out/rc)" = 0 ] || status=1; \
	  summary="$$summary\n  $$v: $$(tail -n 1 $$out/pytest.txt)"; \
	done; \
	printf "\n==== test-all$$summary\n"; exit $$status

# A wheel for $(PYTHON), built without network access, into build/dist.
wheel: builddeps
	PYTHONPATH=$(TESTDEPS) VXR_WERROR=1 $(PYTHON) -m pip wheel --no-build-isolation --no-deps -w build/dist .
	@$(PYTHON) -c "import glob, sys, zipfile; \
	  w = glob.glob('build/dist/vxrcomn-*-cp%d%d-*.whl' % sys.version_info[:2])[0]; \
	  print(w); print('\n'.join('  ' + n for n in zipfile.ZipFile(w).namelist()))"

clean:
	rm -rf build *.egg-info vxrcomn*.so vxrcomn*.pyd .pytest_cache .hypothesis
