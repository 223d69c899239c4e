# The two commands of the README. Everything else is plain CMake presets:
# dev (debug, warnings as errors), release, asan (Address- and
# UndefinedBehaviorSanitizer), headless (no Qt), fuzz (libFuzzer targets,
# built with clang).
.PHONY: all deps test run build-% test-% bench fuzz screenshots install package clean

all: build-dev

deps:
	@scripts/install-deps

build-%: deps
	cmake --preset $*
	cmake --build --preset $*

test-%: build-%
	ctest --preset $*

# Every test, once in the optimised build and once under the sanitizers (both
# with warnings as errors), the engine and model once more without Qt, then
# every fuzz target for FUZZ_SECONDS.
test: test-release test-asan test-headless fuzz

# The optimised build's tests check its .deb too, so it is built first and
# must be there.
test-release: build-release package
	MARQUETRY_REQUIRE_PACKAGE=1 ctest --preset release

# The optimised build installed under PREFIX (no root needed for a prefix
# you own), or packaged as build/release/marquetry_VERSION_ARCH.deb.
PREFIX ?= /usr/local
install: build-release
	cmake --install build/release --prefix "$(PREFIX)"

package: build-release
	cmake --build --preset release --target package

# The benchmarks and their baselines; figures and how to read them are in
# bench/README.md.
bench: build-release
	build/release/bench/marquetry_bench --benchmark_repetitions=5 --benchmark_report_aggregates_only=true
	build/release/bench/marquetry_model_bench --benchmark_repetitions=3 --benchmark_report_aggregates_only=true
	build/release/bench/marquetry_stretch_bench --benchmark_repetitions=3 --benchmark_report_aggregates_only=true
	build/release/bench/marquetry_window_bench --benchmark_repetitions=3 --benchmark_report_aggregates_only=true
	build/release/bench/marquetry_tempo_bench --benchmark_repetitions=3 --benchmark_report_aggregates_only=true
	build/release/bench/marquetry_plugin_bench --benchmark_repetitions=3 --benchmark_report_aggregates_only=true
	bench/cli-peak-memory build/release

# Every libFuzzer target for FUZZ_SECONDS each, on a scratch copy of its seed
# corpus in build/fuzz/runs/TARGET (the committed corpus stays as it is).
# A crash leaves its input and log there and makes the whole target fail.
# Leaks inside third-party decoders are suppressed by name in
# fuzz/lsan-suppressions.txt.
FUZZ_SECONDS ?= 60
FUZZ_TARGETS := wav_parser generation import

fuzz: build-fuzz
	@status=0; for t in $(FUZZ_TARGETS); do \
	  run=build/fuzz/runs/$$t; rm -rf $$run; mkdir -p $$run/corpus; \
	  cp fuzz/corpus/$$t/* $$run/corpus/; \
	  echo "fuzz: $$t for $(FUZZ_SECONDS) s, log in $$run/log.txt"; \
	  if LSAN_OPTIONS=suppressions=$(CURDIR)/fuzz/lsan-suppressions.txt \
	      build/fuzz/fuzz/fuzz_$$t -max_total_time=$(FUZZ_SECONDS) -rss_limit_mb=2048 -max_len=65536 \
	      -timeout=30 -print_final_stats=1 -artifact_prefix=$$run/ $$run/corpus 2>$$run/log.txt; then \
	    grep -E '^stat::(number_of_executed_units|average_exec_per_sec)' $$run/log.txt; \
	  else \
	    status=1; tail -n 40 $$run/log.txt >&2; echo "fuzz: $$t FAILED, input saved in $$run/" >&2; \
	  fi; \
	done; exit $$status

# The window in the debug build, on a few real breaks converted into
# build/dev/demo-loops. --source-dir holds for this launch only: the stored
# default source folder is left as it is.
run: deps
	cmake --preset dev
	cmake --build --preset dev --target marquetry
	scripts/make-demo-loops build/dev/demo-loops
	build/dev/src/ui/marquetry --source-dir build/dev/demo-loops

# The main window in its typical states and the help window, as PNG files.
screenshots: build-dev
	cmake --build --preset dev --target screenshots

clean:
	rm -rf build
