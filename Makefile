# mareplot -- the two commands: `make run` and `make test`.
# Both install what is missing (Debian packages through apt-get, npm
# packages through npm ci), configure and build into build/, then run or test.

SHELL := /bin/bash
JOBS ?= $(shell nproc)
BUILD_TYPE ?= RelWithDebInfo

# Debian packages: tools/debian-packages.txt lists them with what each is for;
# tools/deps.sh installs the missing ones and says which and why.
SUDO := $(shell [ "$$(id -u)" = 0 ] || echo sudo)

.PHONY: all deps deps-check npm build run test test-unit test-asan bench clean demo

all: build

deps:
	@tools/deps.sh

# Asks apt whether the whole package list installs together (CI runs it first,
# so a conflict shows even where everything is already installed).
deps-check:
	@tools/deps.sh --check

npm: deps
	@if [ -f package.json ]; then \
	  if [ ! -f node_modules/.package-lock.json ] || [ package-lock.json -nt node_modules/.package-lock.json ]; then \
	    npm ci --no-audit --no-fund; \
	  fi; \
	fi

build: npm
	cmake -S . -B build -DCMAKE_BUILD_TYPE=$(BUILD_TYPE)
	cmake --build build -j$(JOBS)

run: build
	@if { [ -n "$$DISPLAY" ] || [ -n "$$WAYLAND_DISPLAY" ]; } && [ -x build/mareplot ]; then \
	  if [ "$$(id -u)" = 0 ]; then \
	    echo "warning: running as root, so the web view runs without its sandbox"; \
	    export QTWEBENGINE_DISABLE_SANDBOX=1; \
	  fi; \
	  exec build/mareplot; \
	else \
	  echo "No display: starting the headless host."; \
	  echo "Open http://127.0.0.1:19999/app/marepack.html in a browser."; \
	  exec build/mareplotd; \
	fi

# A moving scene for a first look: the demo voyage replayed over TCP into
# the host (tools/demo.sh says what to open).
demo: build
	tools/demo.sh build

# No retries: a test that fails once is a fault to find. Tests that start a
# host run with a loopback of their own (tests/support/isolate.sh), so two
# run side by side: TEST_JOBS of them at a time.
# The sanitizer build's tests run with these options.
TEST_JOBS ?= 2
ASAN_ENV := ASAN_OPTIONS=detect_leaks=1:abort_on_error=1 UBSAN_OPTIONS=print_stacktrace=1 \
  LSAN_OPTIONS=suppressions=$(CURDIR)/tests/support/lsan.supp:print_suppressions=0

test-unit: build
	cd build && ctest --output-on-failure -j$(TEST_JOBS)

# The same suite built with AddressSanitizer and UndefinedBehaviorSanitizer.
test-asan: npm
	cmake -S . -B build-asan -DCMAKE_BUILD_TYPE=Debug -DMAREPLOT_SANITIZE=ON
	cmake --build build-asan -j$(JOBS)
	cd build-asan && $(ASAN_ENV) ctest --output-on-failure -j$(TEST_JOBS)

# The core, the unit tests and the black-box tests built with
# ThreadSanitizer (window off), in a loopback of their own. A race reported
# by a test process fails it (exit code 66); the black-box harness fails a
# case whose host printed a report.
.PHONY: test-tsan
test-tsan: npm
	cmake -S . -B build-tsan -DCMAKE_BUILD_TYPE=RelWithDebInfo -DMAREPLOT_WINDOW=OFF -DMAREPLOT_TSAN=ON
	cmake --build build-tsan -j$(JOBS) --target mareplotd mareplot_unit_tests mareplot_blackbox_tests \
	  mareplot-chartkit nmea_replay
	cd build-tsan && TSAN_OPTIONS="halt_on_error=0 second_deadlock_stack=1" \
	  ../tests/support/isolate.sh ctest --output-on-failure -R '^(unit|blackbox)$$'

test: test-unit test-asan

# The whole suite N times under CPU load (stress-ng on every core), one line
# "N passed, M failed" per run; test-repeat-asan does it in the sanitizer
# build. Logs go to <build dir>/test-repeat/.
N ?= 5
.PHONY: test-repeat test-repeat-asan
test-repeat: build
	tests/support/test_repeat.sh build $(N) -j$(TEST_JOBS)

test-repeat-asan: npm
	cmake -S . -B build-asan -DCMAKE_BUILD_TYPE=Debug -DMAREPLOT_SANITIZE=ON
	cmake --build build-asan -j$(JOBS)
	$(ASAN_ENV) tests/support/test_repeat.sh build-asan $(N) -j$(TEST_JOBS)

# Installs both programs, the desktop entry and the icon under PREFIX.
.PHONY: install deb
PREFIX ?= /usr/local
install: build
	cmake --install build --prefix $(PREFIX)

# The Debian package (programs, desktop entry, icon), written to build/.
deb: build
	cd build && cpack -G DEB

# Benchmarks: the core's Google Benchmark binaries, then the host from
# outside (tiles against nginx, the SQL gateway) and the page in Chromium.
bench: build
	build/bench/nav_bench
	build/bench/ais_bench
	bench/tiles.sh build
	bench/sql.sh build
	flock /tmp/mareplot-port.lock node bench/client_bench.js
	flock /tmp/mareplot-port.lock node bench/client_ais_bench.js

clean:
	rm -rf build build-asan build-tsan

# clang builds the fuzz targets with libFuzzer. `make fuzz-smoke` runs them
# for FUZZ_SECONDS.
.PHONY: fuzz-smoke
fuzz-smoke: deps
	$(MAKE) -C fuzz smoke
