# The two commands of the README. Everything else is plain CMake presets:
# dev (debug, warnings as errors), release, asan (Address- and
# UndefinedBehaviorSanitizer).
.PHONY: all deps test run build-% test-% bench clean

all: build-dev

deps:
	@scripts/install-deps

build-%: deps
	cmake --preset $*
	cmake --build --preset $*

test-%: build-%
	ctest --preset $*

# Every test, once in the debug build and once under the sanitizers.
test: test-dev test-asan

bench: build-release
	build/release/bench/marquetry_bench

run: deps
	@echo "make run: the Marquetry window is not part of this build yet;" \
	      "'make test' builds and tests the engine." >&2
	@exit 1

clean:
	rm -rf build
