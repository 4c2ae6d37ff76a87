# Thin wrappers around setuptools and pytest.  PYTHON defaults to CPython 3.9
# from pyenv; set PYTHON=/path/to/python3.x for another interpreter.
PYTHON ?= $(firstword $(wildcard $(HOME)/.pyenv/versions/3.9*/bin/python3) python3)
# Debian's pytest and hypothesis are pure Python and import under any 3.x.
TESTDEPS := /usr/lib/python3/dist-packages
SUDO := $(shell [ "$$(id -u)" = 0 ] || echo sudo)
RUNPATH := PYTHONPATH=$(CURDIR)/standin:$(CURDIR)

.PHONY: build test demo deps bench clean

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

clean:
	rm -rf build *.egg-info vxrcomn*.so vxrcomn*.pyd .pytest_cache .hypothesis
