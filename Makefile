# Thin wrappers around setuptools and pytest.  PYTHON defaults to CPython 3.9
# from pyenv; set PYTHON=/path/to/python3.x for another interpreter.
PYTHON ?= $(firstword $(wildcard $(HOME)/.pyenv/versions/3.9*/bin/python3) python3)
# Debian's pytest and hypothesis are pure Python and import under any 3.x.
TESTDEPS := /usr/lib/python3/dist-packages
SUDO := $(shell [ "$$(id -u)" = 0 ] || echo sudo)
RUNPATH := PYTHONPATH=$(CURDIR)/standin:$(CURDIR)
PYTEST := $(RUNPATH):$(TESTDEPS) $(PYTHON) -m pytest

# `make check`: the sanitizer build lives apart from the in-place one.  The
# sanitizer runtimes must be those of the compiler the interpreter builds
# extensions with.
ASAN_DIR := $(CURDIR)/build/asan
SAN_CFLAGS := -O1 -g -fno-omit-frame-pointer -fno-wrapv -fsanitize=address,undefined -fno-sanitize-recover=all
SAN_CC = $(shell $(PYTHON) -c "import sysconfig; print(sysconfig.get_config_var('CC').split()[0])")
SAN_PRELOAD = $(shell $(SAN_CC) -print-file-name=libasan.so):$(shell $(SAN_CC) -print-file-name=libubsan.so)
# The interpreter leaks at exit by design; every Python object goes through
# malloc so that the sanitizer sees each one.  An AddressSanitizer report goes
# to its own file per process, subprocesses of the tests included.  The
# interpreter is built with -fwrapv; the module must not need it.
SAN_ENV = LD_PRELOAD="$(SAN_PRELOAD)" PYTHONMALLOC=malloc VXR_MODULE_DIR=$(ASAN_DIR) VXR_HUGE_LINE=104857600 \
	ASAN_OPTIONS=detect_leaks=0:log_path=$(ASAN_DIR)/log/asan UBSAN_OPTIONS=halt_on_error=1:print_stacktrace=1
SAN_TESTS := tests

# A subset that reaches every function on good, bad and hostile input,
# without the many-call leak loops and the generated-input tests.
VALGRIND_DIR := $(CURDIR)/build/valgrind
VALGRIND_TESTS := tests/test_module_frame.py tests/test_calls.py tests/test_examples.py
VALGRIND_SKIP := no_leak
VALGRIND := valgrind --tool=memcheck --leak-check=full --show-leak-kinds=definite \
	--errors-for-leak-kinds=definite --num-callers=40 --trace-children=yes --vgdb=no --xml=yes \
	--xml-file=$(VALGRIND_DIR)/memcheck.%p.xml --suppressions=$(CURDIR)/tools/valgrind.supp

# `make fuzz FUZZ_MINUTES=120` for a long run; FUZZ_SAN=1 runs it under the
# sanitizers.
FUZZ_MINUTES ?= 10

.PHONY: build test demo deps debian-root builddeps windeps test-all wheel sdist wheel-windows bench check check-asan check-asan-one check-leaks check-valgrind check-windows check-wheels check-wine asan-build fuzz clean

# An interpreter without setuptools of its own (pyenv's 3.12 and 3.13) builds
# with Debian's, as test-all does.
build:
	@if $(PYTHON) -c "import setuptools" 2>/dev/null; then pp=; else $(MAKE) -s builddeps && pp=$(TESTDEPS); fi; \
	  echo "VXR_WERROR=1 $(PYTHON) setup.py -q build_ext --inplace"; \
	  PYTHONPATH=$$pp VXR_WERROR=1 $(PYTHON) setup.py -q build_ext --inplace

# Installs the test tools from Debian when the interpreter cannot import them.
deps:
	@PYTHONPATH=$(TESTDEPS) $(PYTHON) -c "import pytest, hypothesis" 2>/dev/null || { \
	  echo "installing python3-pytest and python3-hypothesis from Debian"; \
	  $(SUDO) apt-get update -qq && \
	  $(SUDO) apt-get install -y -qq python3-pytest python3-hypothesis python3-exceptiongroup >/dev/null; }

test: build deps
	$(PYTEST) tests

demo: build
	$(RUNPATH) $(PYTHON) examples/demo.py

# Debian's setuptools and wheel are pure Python too: they build for the
# interpreters that have none of their own (pyenv's 3.12 and 3.13).
builddeps:
	@PYTHONPATH=$(TESTDEPS) $(PYTHON) -c "import setuptools, wheel" 2>/dev/null || { \
	  echo "installing python3-setuptools and python3-wheel from Debian"; \
	  $(SUDO) apt-get update -qq && \
	  $(SUDO) apt-get install -y -qq python3-setuptools python3-wheel >/dev/null; }

# Every CPython from 3.9 to 3.15: 3.9 to 3.13 on this host (pyenv's, else
# python3.X on PATH), 3.14 and 3.15 from a Debian unstable root that
# tools/debian_unstable.sh makes once (debootstrap from the mirror of the
# host's apt sources, about a minute) and keeps in DEBIAN_ROOT.  Each builds
# into build/pyX.Y and runs the whole suite on that build (tools/suite.sh).
PYVERSIONS := 3.9 3.10 3.11 3.12 3.13
DEBIAN_PYVERSIONS := 3.14 3.15
ALL_PYVERSIONS := $(PYVERSIONS) $(DEBIAN_PYVERSIONS)
DEBIAN_ROOT ?= $(HOME)/.cache/vxrcomn/debian-unstable
IN_DEBIAN := $(SUDO) $(CURDIR)/tools/debian_unstable.sh $(DEBIAN_ROOT) run
python_for = $(firstword $(wildcard $(HOME)/.pyenv/versions/$(1).*/bin/python3) $(shell command -v python$(1)))
INTERPRETERS := $(strip $(foreach v,$(PYVERSIONS),$(call python_for,$(v))))

debian-root:
	$(SUDO) tools/debian_unstable.sh $(DEBIAN_ROOT) ensure

# The suites run TEST_JOBS at a time (one per core), each one's output shown
# whole when it ends, then one line per interpreter.
TEST_JOBS ?= $(shell nproc 2>/dev/null || echo 1)
SUITES := $(addprefix suite-,$(ALL_PYVERSIONS))
.PHONY: $(SUITES)

test-all: deps builddeps debian-root
	@$(MAKE) --no-print-directory -k -j$(TEST_JOBS) --output-sync=target $(SUITES); status=$$?; \
	echo "==== test-all"; \
	for v in $(ALL_PYVERSIONS); do echo "  $$v: $$(tail -n 1 build/py$$v/pytest.txt 2>/dev/null)"; done; \
	exit $$status

$(addprefix suite-,$(PYVERSIONS)): suite-%:
	@echo "==== CPython $*"; py="$(call python_for,$*)"; \
	if [ -z "$$py" ]; then mkdir -p build/py$*; echo "not found" | tee build/py$*/pytest.txt; exit 1; fi; \
	tools/suite.sh $$py build/py$*

$(addprefix suite-,$(DEBIAN_PYVERSIONS)): suite-%:
	@echo "==== CPython $* (Debian unstable)"; $(IN_DEBIAN) tools/suite.sh python$* build/py$*

# bench/run.py on each interpreter that test-all knows, one after the other
# (one process each, never two at a time), each on its own build in
# build/pyX.Y, made as test-all makes it, or on the builds already in
# BENCH_MODULES/pyX.Y when that names a folder; each writes
# build/bench/pyX.Y.json, then bench/table.py lays them side by side.  The
# cases are generated under build/bench on first use.  BENCH_VERSIONS picks
# the interpreters; BENCH_ARGS=--quick is a smoke run.
BENCH_VERSIONS ?= $(ALL_PYVERSIONS)
BENCH_MODULES ?=
BENCH_HOST_PYTHONS = $(foreach v,$(PYVERSIONS),$(v)=$(call python_for,$(v)))
BENCH_RUN = VXR_BENCH_BUILT=$(if $(BENCH_MODULES),1,0) bench/interpreter.sh

bench: builddeps $(if $(filter $(DEBIAN_PYVERSIONS),$(BENCH_VERSIONS)),debian-root)
	@mkdir -p build/bench && rm -f build/bench/py*.json
	@for v in $(BENCH_VERSIONS); do \
	  out=$(or $(BENCH_MODULES),build)/py$$v json=build/bench/py$$v.json; \
	  case " $(DEBIAN_PYVERSIONS) " in \
	    *" $$v "*) $(IN_DEBIAN) "$(BENCH_RUN) python$$v $$out $$json $(BENCH_ARGS)" || exit 1 ;; \
	    *) py=; for p in $(BENCH_HOST_PYTHONS); do [ "$${p%%=*}" = $$v ] && py=$${p#*=}; done; \
	       [ -n "$$py" ] || { echo "CPython $$v not found"; exit 1; }; \
	       $(BENCH_RUN) $$py $$out $$json $(BENCH_ARGS) || exit 1 ;; \
	  esac; done
	@$(PYTHON) bench/table.py build/bench/py*.json

# Linux wheels into dist/, beside the Windows ones and the source
# distribution: one for each CPython from 3.9 to 3.15, or for PYTHON alone
# when it is given (`make wheel PYTHON=/path/to/python3.x`).  pip builds each
# without network access (Debian's setuptools where the interpreter has none)
# into build/wheelhouse; then Debian unstable's auditwheel gives it the
# lowest manylinux tag that its binary meets, with symbols stripped.  Nothing
# is grafted: the module links only the C and C++ runtimes.
WHEELHOUSE := build/wheelhouse
WHEEL_HOST_PYTHONS = $(if $(filter command line,$(origin PYTHON)),$(PYTHON),$(foreach v,$(PYVERSIONS),$(call python_for,$(v))))
WHEEL_DEBIAN_VERSIONS = $(if $(filter command line,$(origin PYTHON)),,$(DEBIAN_PYVERSIONS))
PIP_WHEEL := -m pip wheel -q --no-build-isolation --no-deps -w $(WHEELHOUSE) .

wheel: builddeps debian-root
	rm -rf $(WHEELHOUSE) && mkdir -p dist && rm -f dist/vxrcomn-*-linux_x86_64.whl $(if $(WHEEL_DEBIAN_VERSIONS),dist/vxrcomn-*manylinux*.whl)
	@for py in $(WHEEL_HOST_PYTHONS); do echo "$$py $(PIP_WHEEL)"; \
	  PYTHONPATH=$(TESTDEPS) VXR_WERROR=1 $$py $(PIP_WHEEL) || exit 1; done
	@for v in $(WHEEL_DEBIAN_VERSIONS); do echo "python$$v $(PIP_WHEEL)"; \
	  $(IN_DEBIAN) VXR_WERROR=1 python$$v $(PIP_WHEEL) || exit 1; done
	$(IN_DEBIAN) 'for w in $(WHEELHOUSE)/*.whl; do auditwheel repair --strip -w dist "$$w" 2>&1 | grep -v "^INFO:\|^$$" ; done'
	@ls -1 dist/vxrcomn-*manylinux*.whl

# The whole suite under the sanitizers, the leak sweep at full strength, a
# memcheck pass, the Windows build and the wheels; each fails on any report
# that comes from the module.
check: check-asan check-debug check-leaks check-valgrind check-windows check-wheels check-wine

# The whole suite on Debian unstable's debug builds of CPython 3.14 and 3.15,
# which assert on reference counts and on the use of the C API, two at a
# time (each built into build/pyX.Y-dbg).  The leak loops only repeat calls
# that the suite makes anyway (test-all runs them on the release builds).
DEBUG_SUITES := $(addprefix suite-dbg-,$(DEBIAN_PYVERSIONS))
.PHONY: check-debug $(DEBUG_SUITES)
check-debug: deps builddeps debian-root
	@$(MAKE) --no-print-directory -k -j$(TEST_JOBS) --output-sync=target $(DEBUG_SUITES); status=$$?; \
	for v in $(DEBIAN_PYVERSIONS); do echo "  $$v debug build: $$(tail -n 1 build/py$$v-dbg/pytest.txt 2>/dev/null)"; done; \
	exit $$status

$(DEBUG_SUITES): suite-dbg-%:
	@echo "==== CPython $* debug build (Debian unstable)"; $(IN_DEBIAN) "tools/suite.sh python$*-dbg build/py$*-dbg -k \"not no_leak\""

asan-build:
	@if $(PYTHON) -c "import setuptools" 2>/dev/null; then pp=; else $(MAKE) -s builddeps && pp=$(TESTDEPS); fi; \
	  PYTHONPATH=$$pp VXR_WERROR=1 VXR_EXTRA_CFLAGS="$(SAN_CFLAGS)" VXR_EXTRA_LDFLAGS="-fsanitize=address,undefined" \
	  $(PYTHON) setup.py -q build_ext --build-lib $(ASAN_DIR) --build-temp $(ASAN_DIR)/tmp

# The sanitizer suite on 3.9 and on 3.13, where the module watches its
# globals with a dictionary watcher (code that 3.9 does not compile), each
# built into build/asan-X.Y; `make check-asan-one` runs it for PYTHON alone.
SAN_PYTHONS = $(call python_for,3.9) $(call python_for,3.13)
check-asan:
	@test $(words $(SAN_PYTHONS)) = 2 || { echo "the sanitizer suite needs CPython 3.9 and 3.13"; exit 1; }
	@for py in $(SAN_PYTHONS); do v=$$($$py -c 'import sys; print("%d.%d" % sys.version_info[:2])'); \
	  echo "==== sanitizer suite, CPython $$v"; \
	  $(MAKE) --no-print-directory check-asan-one PYTHON=$$py ASAN_DIR=$(CURDIR)/build/asan-$$v || exit 1; done

# UBSan prints to stderr whatever its log_path says, so pytest leaves the
# descriptors alone and its output is kept to count those reports.
check-asan-one: asan-build deps
	rm -rf $(ASAN_DIR)/log && mkdir -p $(ASAN_DIR)/log
	$(SAN_ENV) $(PYTEST) -q --capture=sys $(SAN_TESTS) > $(ASAN_DIR)/pytest.out 2>&1; status=$$?; \
	  tail -n 3 $(ASAN_DIR)/pytest.out; \
	  ubsan=$$(grep -c "runtime error:" $(ASAN_DIR)/pytest.out); asan=$$(ls $(ASAN_DIR)/log | wc -l); \
	  echo "sanitizer reports: $$asan from AddressSanitizer (in $(ASAN_DIR)/log), $$ubsan from UBSan" \
	    "(test output in $(ASAN_DIR)/pytest.out)"; \
	  for f in $(ASAN_DIR)/log/*; do [ -f "$$f" ] && cat "$$f"; done; \
	  grep -A 12 "runtime error:" $(ASAN_DIR)/pytest.out; \
	  [ $$status = 0 ] && [ $$asan = 0 ] && [ $$ubsan = 0 ]

check-leaks: build deps
	VXR_LEAK_CALLS=100000 $(PYTEST) -q -k leak tests

check-valgrind: build deps
	@command -v valgrind >/dev/null || { \
	  echo "installing valgrind from Debian"; \
	  $(SUDO) apt-get update -qq && $(SUDO) apt-get install -y -qq valgrind >/dev/null; }
	rm -rf $(VALGRIND_DIR) && mkdir -p $(VALGRIND_DIR)
	PYTHONMALLOC=malloc VXR_HUGE_LINE=1000000 $(RUNPATH):$(TESTDEPS) \
	  $(VALGRIND) $(PYTHON) -m pytest -q -k "not ($(VALGRIND_SKIP))" $(VALGRIND_TESTS)
	$(PYTHON) tools/valgrind_report.py $(VALGRIND_DIR)/memcheck.*.xml

# The module built for 64-bit Windows against the headers of CPython 3.9 to
# 3.15 (tools/windows/build.py; docs/windows.md): those of the interpreters
# here for 3.9 to 3.13, those of the Debian unstable root for 3.14 and 3.15,
# whose interpreters cannot run on this host.  The Debian unstable root's
# MinGW-w64 g++ for the Universal C Runtime, with the Linux build's flags,
# into build/windows/vxrcomn.cp3X-win_amd64.pyd, which must export
# PyInit_vxrcomn alone, import python3X.dll, KERNEL32.dll and the
# interpreter's C runtime through api-ms-win-crt-*.dll and nothing else (no
# msvcrt.dll, no MinGW runtime DLL), hold no build path, and link nothing
# that THIRD_PARTY_NOTICES does not cover; then its wheel into dist/.
# Debian's setuptools writes the METADATA from setup.py, as for `make wheel`;
# this host's objdump reads the DLL.
WINDOWS_PYTHONS = $(foreach v,$(PYVERSIONS),$(call python_for,$(v)))
WINDOWS_HEADERS = $(foreach v,$(DEBIAN_PYVERSIONS),--headers $(v)=$(DEBIAN_ROOT)/usr/include/python$(v))
WINDOWS_TOOLCHAIN = --toolchain "$(IN_DEBIAN)"
WINDOWS_BUILD = @test $(words $(WINDOWS_PYTHONS)) = 5 || { echo "the Windows wheels need CPython 3.9 to 3.13"; exit 1; } \
	&& PYTHONPATH=$(TESTDEPS) $(PYTHON) tools/windows/build.py $(WINDOWS_TOOLCHAIN)

windeps:
	@command -v objdump >/dev/null || { \
	  echo "installing binutils from Debian"; \
	  $(SUDO) apt-get update -qq && $(SUDO) apt-get install -y -qq binutils >/dev/null; }

wheel-windows: windeps builddeps debian-root
	$(WINDOWS_BUILD) $(WINDOWS_PYTHONS) $(WINDOWS_HEADERS)

# The same build and wheels, and the root's clang parsing every source in
# Microsoft-compatibility mode as MSVC 19.29 with each interpreter's
# headers, over MinGW's since Microsoft's are not here
# (tools/windows/as_msvc.h): that fails on the GCC builtins and attributes it
# lists, VLAs, POSIX headers, ssize_t and 64-to-32-bit conversions (errors
# under /W3 /WX).  It is not MSVC itself; that and the suite running there
# only a Windows machine shows.
check-windows: windeps builddeps debian-root
	$(WINDOWS_BUILD) --msvc $(WINDOWS_PYTHONS) $(WINDOWS_HEADERS)

# Every wheel in dist/ (tools/wheels.py): RECORD hashes, the tags of file
# name and WHEEL, the module's suffix; for Windows what it imports and
# exports, for Linux the manylinux tag that auditwheel finds its binary meets;
# Debian's pip installs each for its own interpreter version and refuses it
# for the others.  Then the checker's own tests, on wheels spoilt one way
# each; the whole suite on the 3.9 and 3.15 wheels as pip installs them into
# fresh venvs; and the source distribution built and installed by pip,
# offline, for 3.15, with the module-frame, stub and docs tests run on it.
PY39 = $(call python_for,3.9)
check-wheels: check-windows wheel sdist build deps
	@/usr/bin/python3 -m pip --version >/dev/null 2>&1 || { \
	  echo "installing python3-pip from Debian"; \
	  $(SUDO) apt-get update -qq && $(SUDO) apt-get install -y -qq python3-pip >/dev/null; }
	$(PYTHON) tools/wheels.py --auditwheel "$(IN_DEBIAN) auditwheel" dist/vxrcomn-*.whl
	VXR_WHEEL_DIR=dist $(PYTEST) -q tests/test_wheels.py
	tools/installed_suite.sh $(PY39) build/venv-3.9 dist/vxrcomn-*-cp39-cp39-manylinux*.whl
	$(IN_DEBIAN) tools/installed_suite.sh python3.15 build/venv-3.15 dist/vxrcomn-*-cp315-cp315-manylinux*.whl
	$(IN_DEBIAN) tools/installed_suite.sh python3.15 build/venv-sdist dist/vxrcomn-*.tar.gz \
	  tests/test_module_frame.py tests/test_stub.py tests/test_docs.py

# The source distribution, dist/vxrcomn-VERSION.tar.gz: the sources, the
# stubs, the licence and notices (MANIFEST.in).
sdist: builddeps
	rm -f dist/vxrcomn-*.tar.gz
	PYTHONPATH=$(TESTDEPS) $(PYTHON) setup.py -q sdist -d dist
	@tar tzf dist/vxrcomn-*.tar.gz | sed 's/^/  /'

# The module of each Windows wheel loaded under this host's Wine as CPython
# loads it, beside a stub python3X.dll (tools/windows/load.py, which builds
# the loader and the stub with the root's MinGW-w64): the loader takes it,
# every import resolves, in Wine's ucrtbase for the Universal CRT, and its
# start-up code runs.  What that leaves unshown: docs/windows.md.
check-wine: check-windows
	@test -x /usr/lib/wine/wine64 || { \
	  echo "installing wine64 from Debian"; \
	  $(SUDO) apt-get update -qq && $(SUDO) apt-get install -y -qq wine64 >/dev/null; }
	$(PYTHON) tools/windows/load.py $(WINDOWS_TOOLCHAIN) dist/vxrcomn-*-win_amd64.whl

# Long generated-input runs: FUZZ_MINUTES in all, shared by the targets.
fuzz: deps $(if $(FUZZ_SAN),asan-build,build)
	mkdir -p $(ASAN_DIR)/log
	$(if $(FUZZ_SAN),$(SAN_ENV)) VXR_FUZZ_SECONDS=$$(( $(FUZZ_MINUTES) * 60 )) \
	  $(PYTEST) -q $(if $(FUZZ_SAN),--capture=sys) tests/test_fuzz.py

clean:
	rm -rf build dist *.egg-info vxrcomn*.so vxrcomn*.pyd .pytest_cache .hypothesis
