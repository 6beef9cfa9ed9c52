# Builds, tests and runs MorvikLib. `make test` and `make demo` install whatever Debian packages
# are missing first, so both work on a fresh machine.
SHELL := /bin/bash
.DEFAULT_GOAL := test
# Steps depend on their order (deps first); the builds themselves run in parallel under Ninja.
.NOTPARALLEL:

# Everything the builds, tests, fuzzers, benchmarks and formatting need. Append; keep one list.
DEBIAN_PACKAGES := cmake ninja-build g++ clang libclang-rt-14-dev libgtest-dev libgmock-dev \
  googletest libbenchmark-dev pkg-config libxxhash-dev clang-format gnuplot-nox \
  pybind11-dev python3-pytest python3-dev python3-hypothesis libcli11-dev nlohmann-json3-dev \
  valgrind

BUILD_ROOT := build
RELEASE_DIR := $(BUILD_ROOT)/release
ASAN_DIR := $(BUILD_ROOT)/asan
TSAN_DIR := $(BUILD_ROOT)/tsan
FUZZ_DIR := $(BUILD_ROOT)/fuzz
BENCH_DIR := $(BUILD_ROOT)/bench

# What `make demo` runs once it is built.
DEMO_BIN ?= $(RELEASE_DIR)/tools/sim/morvik_sim
DEMO_ARGS ?= --plot $(BUILD_ROOT)/demo-timeline.png
# Every benchmark's figure is the median of three repetitions: the machines are shared and noisy.
# The repetitions of all a program's benchmarks run in random order, so a figure and the baseline it
# is divided by meet the same spells of load rather than one of them catching a slow one alone.
BENCH_ARGS ?= --benchmark_repetitions=3 --benchmark_report_aggregates_only=true \
  --benchmark_enable_random_interleaving=true
# Seconds each fuzz target runs.
FUZZ_TIME ?= 30
# The property test of the Python module's checked surface: `make test` runs a few batches with a
# fixed seed; PY_FUZZ_SEED=random PY_FUZZ_EXAMPLES=500 make python-fuzz searches further.
PY_FUZZ_SEED ?= 20261123
PY_FUZZ_EXAMPLES ?= 25
CTEST_JOBS ?= 2
CLANG_FORMAT ?= clang-format
FUZZ_CXX ?= clang++

CONFIGURE := cmake -G Ninja -S .
CTEST := ctest --output-on-failure --no-tests=error -j$(CTEST_JOBS)
SUDO := $(shell [ "$$(id -u)" = 0 ] || echo sudo)

ASAN_ENV := ASAN_OPTIONS=detect_leaks=1:check_initialization_order=1:strict_init_order=1 \
  UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1
# Forking death tests are unsafe once a second thread exists; re-executing the binary is not.
TSAN_ENV := TSAN_OPTIONS=halt_on_error=1:second_deadlock_stack=1 GTEST_DEATH_TEST_STYLE=threadsafe

TSAN_SOURCES := $(wildcard tests/tsan/*_test.cpp)
FUZZ_SOURCES := $(wildcard fuzz/*_fuzz.cpp)
FORMAT_DIRS := MorvikLib platform tests bench fuzz tools python
FORMAT_FILES = $(shell find $(FORMAT_DIRS) -type f \( -name '*.cpp' -o -name '*.h' \) \
  -not -path '*/corpus/*' 2>/dev/null | sort)

# The steps of `make test`, in order, and why a step is skipped when there is nothing for it yet.
TEST_STEPS := release-test python-fuzz asan-test tsan-test fuzz-run install-test
SKIP_tsan-test := $(if $(TSAN_SOURCES),,no tests/tsan/*_test.cpp yet)
SKIP_fuzz-run := $(if $(FUZZ_SOURCES),,no fuzz/*_fuzz.cpp yet)

.PHONY: all deps test demo bench fuzz format format-check clean python python-fuzz \
  release release-test install-test asan-test tsan-test fuzz-run

all: test

deps:
	@missing=""; \
	for package in $(DEBIAN_PACKAGES); do \
	  dpkg-query -W -f='$${Status}\n' "$$package" 2>/dev/null | grep -qx 'install ok installed' \
	    || missing="$$missing $$package"; \
	done; \
	if [ -z "$$missing" ]; then \
	  echo "deps: all Debian packages present"; \
	else \
	  echo "deps: installing$$missing"; \
	  $(SUDO) apt-get update -q && \
	  $(SUDO) env DEBIAN_FRONTEND=noninteractive \
	    apt-get install -y -q --no-install-recommends $$missing; \
	fi

# Runs every step even after one fails, so one run reports them all.
test: deps
	@passed=0; failed=0; skipped=0; report=""; \
	run_step() { \
	  if [ -n "$$2" ]; then \
	    echo "==== $$1: skipped ($$2)"; skipped=$$((skipped + 1)); report="$$report $$1=skipped"; \
	    return; \
	  fi; \
	  echo "==== $$1"; start=$$(date +%s); \
	  if $(MAKE) --no-print-directory $$1; then \
	    result=passed; passed=$$((passed + 1)); \
	  else \
	    result=FAILED; failed=$$((failed + 1)); \
	  fi; \
	  report="$$report $$1=$$result($$(( $$(date +%s) - start ))s)"; \
	  echo "==== $$1: $$result"; \
	}; \
	$(foreach step,$(TEST_STEPS),run_step $(step) "$(SKIP_$(step))";) \
	echo "make test:$$report"; \
	echo "steps: $$passed passed, $$failed failed$$( [ $$skipped -eq 0 ] || echo ", $$skipped skipped")"; \
	[ $$failed -eq 0 ]

release: deps
	$(CONFIGURE) -B $(RELEASE_DIR) -DCMAKE_BUILD_TYPE=RelWithDebInfo -DMORVIK_WERROR=ON
	cmake --build $(RELEASE_DIR)

# Only the Python module (and the libraries it loads), into $(RELEASE_DIR)/python.
python: deps
	$(CONFIGURE) -B $(RELEASE_DIR) -DCMAKE_BUILD_TYPE=RelWithDebInfo -DMORVIK_WERROR=ON
	cmake --build $(RELEASE_DIR) --target morvik

python-fuzz: python
	PYTHONPATH=$(RELEASE_DIR)/python /usr/bin/python3 python/tests/surface_fuzz.py \
	  --seed $(PY_FUZZ_SEED) --examples $(PY_FUZZ_EXAMPLES)

release-test: release
	$(CTEST) --test-dir $(RELEASE_DIR) -LE install

install-test: release
	$(CTEST) --test-dir $(RELEASE_DIR) -L install

# Warnings are already errors in the release build; sanitizer instrumentation only adds false ones.
asan-test:
	$(CONFIGURE) -B $(ASAN_DIR) -DCMAKE_BUILD_TYPE=Debug -DMORVIK_SANITIZE=address,undefined
	cmake --build $(ASAN_DIR)
	$(ASAN_ENV) $(CTEST) --test-dir $(ASAN_DIR)

tsan-test:
ifeq ($(TSAN_SOURCES),)
	@echo "tsan: $(SKIP_tsan-test); nothing to run"
else
	$(CONFIGURE) -B $(TSAN_DIR) -DCMAKE_BUILD_TYPE=Debug -DMORVIK_SANITIZE=thread \
	  -DMORVIK_TESTS=OFF -DMORVIK_TSAN_TESTS=ON
	cmake --build $(TSAN_DIR) --target morvik_tsan_tests
	$(TSAN_ENV) $(CTEST) --test-dir $(TSAN_DIR) -L tsan
endif

fuzz: deps fuzz-run

# Each target runs FUZZ_TIME seconds from a scratch corpus under build/, seeded from
# fuzz/corpus/<Name>/ or fuzz/corpus/<Name>_fuzz/ and fed fuzz/<Name>.dict when they exist.
fuzz-run:
ifeq ($(FUZZ_SOURCES),)
	@echo "fuzz: $(SKIP_fuzz-run); nothing to run"
else
	$(CONFIGURE) -B $(FUZZ_DIR) -DCMAKE_BUILD_TYPE=RelWithDebInfo -DCMAKE_CXX_COMPILER=$(FUZZ_CXX) \
	  -DMORVIK_TESTS=OFF -DMORVIK_FUZZ=ON
	cmake --build $(FUZZ_DIR) --target morvik_fuzzers
	@failed=""; \
	for source in $(FUZZ_SOURCES); do \
	  target=$$(basename "$$source" .cpp); name=$${target%_fuzz}; \
	  corpus=$(FUZZ_DIR)/corpus/$$target; log=$(FUZZ_DIR)/logs/$$target.log; \
	  mkdir -p "$$corpus" $(FUZZ_DIR)/logs $(FUZZ_DIR)/artifacts; \
	  seeds=""; \
	  for dir in fuzz/corpus/$$name fuzz/corpus/$$target; do [ -d "$$dir" ] && seeds="$$seeds $$dir"; done; \
	  dict=""; [ -f fuzz/$$name.dict ] && dict=-dict=fuzz/$$name.dict; \
	  echo "fuzz: $$target for $(FUZZ_TIME) s (seeds:$${seeds:- none})"; \
	  if $(ASAN_ENV) $(FUZZ_DIR)/fuzz/$$target -max_total_time=$(FUZZ_TIME) -timeout=10 \
	       -print_final_stats=1 -artifact_prefix=$(FUZZ_DIR)/artifacts/$$target- $$dict \
	       "$$corpus" $$seeds >"$$log" 2>&1; then \
	    grep -E '^Done [0-9]+ runs' "$$log" | sed "s/^/fuzz: $$target: /"; \
	  else \
	    tail -n 60 "$$log"; echo "fuzz: $$target FAILED (log $$log, inputs in $(FUZZ_DIR)/artifacts/)"; \
	    failed="$$failed $$target"; \
	  fi; \
	done; \
	[ -z "$$failed" ] || { echo "fuzz: failed:$$failed"; exit 1; }
endif

# Builds only the simulator, so a broken test elsewhere cannot stop the demo.
demo: deps
	$(CONFIGURE) -B $(RELEASE_DIR) -DCMAKE_BUILD_TYPE=RelWithDebInfo -DMORVIK_WERROR=ON
	cmake --build $(RELEASE_DIR) --target morvik_sim
	$(DEMO_BIN) $(DEMO_ARGS)

bench: deps
	$(CONFIGURE) -B $(BENCH_DIR) -DCMAKE_BUILD_TYPE=Release -DMORVIK_BENCH=ON -DMORVIK_TESTS=OFF
	cmake --build $(BENCH_DIR)
	@benches=$$(find $(BENCH_DIR)/bench -maxdepth 1 -type f -name '*_bench' -perm -u+x 2>/dev/null | sort); \
	if [ -z "$$benches" ]; then echo "bench: no bench/*_bench.cpp yet; nothing to run"; exit 0; fi; \
	for bench in $$benches; do echo "==== $$bench"; "$$bench" $(BENCH_ARGS) || exit 1; done
	@echo "==== instructions of one mirrored write (noise-free)"
	bench/write_instructions.sh $(BENCH_DIR)/bench/MorvikMemory_bench

format: deps
	$(CLANG_FORMAT) -i $(FORMAT_FILES)

format-check: deps
	$(CLANG_FORMAT) --dry-run --Werror $(FORMAT_FILES)

clean:
	rm -rf $(BUILD_ROOT)
