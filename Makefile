# The front door. Each target does its own set-up: missing Debian packages are installed when run
# as root, and otherwise named. How each build is configured stands in CMakePresets.json: the library,
# its examples and its tests in build/, all others in folders of their own.

MAKEFLAGS += --no-print-directory
JOBS := $(shell nproc)
PREFIX := /usr/local
BUILD_PACKAGES := cmake g++ make
BENCH_PACKAGES := $(BUILD_PACKAGES) libbenchmark-dev rapidjson-dev libfmt-dev nlohmann-json3-dev \
                  valgrind
TEST_PACKAGES := $(BUILD_PACKAGES) jq libfmt-dev libgtest-dev nlohmann-json3-dev locales pkg-config \
                 python3

.PHONY: all demo test bench load docs fuzz coverage install packages-build packages-demo \
        packages-test packages-bench packages-docs packages-fuzz packages-coverage clean

all: packages-build
	@cmake --preset default >/dev/null
	@cmake --build build -j $(JOBS) --target Vorel vorel_examples

# This machine's network interfaces, by one and the same code as text and as JSON.
demo: packages-demo
	@cmake --preset default >/dev/null
	@cmake --build build -j $(JOBS) --target show >/dev/null
	build/examples/show interfaces
	build/examples/show interfaces --format json | jq .

test: packages-test
	@cmake --preset dev >/dev/null
	@cmake --build build -j $(JOBS)
	@ctest --test-dir build --output-on-failure -j $(JOBS)

# The library beside what could be used instead of it. Takes about two minutes.
bench: packages-bench
	@cmake --preset bench >/dev/null
	@cmake --build build-bench -j $(JOBS)
	@bench/run.sh build-bench/bench/vorel_bench

# The library, its headers, and what CMake and pkg-config need to find it: under DESTDIR, to be used
# from PREFIX or from wherever the folder is moved to.
install: packages-build
	@cmake --preset default >/dev/null
	@cmake --build build -j $(JOBS) --target Vorel
	@DESTDIR="$(DESTDIR)" cmake --install build --prefix "$(PREFIX)"

# The API reference, from the headers: build/docs/html/index.html.
docs: packages-docs
	@mkdir -p build/docs
	@doxygen docs/Doxyfile
	@echo "build/docs/html/index.html"

# Each fuzz target for FUZZ_SECONDS, under the sanitizers, from the seeds in tests/fuzz/corpus. What it finds
# is left in the build folder.
FUZZ_SECONDS := 60
fuzz: packages-fuzz
	@cmake --preset fuzz >/dev/null
	@cmake --build build-fuzz -j $(JOBS) >/dev/null
	@seeds=$$PWD/tests/fuzz/corpus && cd build-fuzz && for target in document format style txn; do \
	   mkdir -p corpus/$$target && \
	   tests/fuzz/$${target}_fuzz corpus/$$target $$seeds/$$target -max_total_time=$(FUZZ_SECONDS) \
	      -max_len=600 -verbosity=0 -print_funcs=0 -print_final_stats=1 || exit 1; \
	done

# How much of the library's code the tests reach, by lines and by branches.
coverage: packages-coverage
	@cmake --preset coverage >/dev/null
	@cmake --build build-coverage -j $(JOBS) >/dev/null
	@find build-coverage -name '*.gcda' -delete
	@ctest --test-dir build-coverage -j $(JOBS) --output-on-failure | tail -n 4
	@gcovr --root . --filter src/ --exclude-throw-branches build-coverage
	@gcovr --root . --filter src/ --exclude-throw-branches --branches build-coverage

# A thousand clients at once on the example poll_server, many of them unkind.
load: packages-test
	@cmake --preset dev >/dev/null
	@cmake --build build -j $(JOBS) --target poll_server >/dev/null
	tests/load/poll_server_load.py build/examples/poll_server 1000

packages-build:
	@tools/need-packages $(BUILD_PACKAGES)
packages-demo:
	@tools/need-packages $(BUILD_PACKAGES) jq
packages-test:
	@tools/need-packages $(TEST_PACKAGES)
packages-fuzz:
	@tools/need-packages $(BUILD_PACKAGES) clang libclang-rt-dev libfmt-dev nlohmann-json3-dev
packages-coverage:
	@tools/need-packages $(TEST_PACKAGES) gcovr
packages-docs:
	@tools/need-packages doxygen
packages-bench:
	@tools/need-packages $(BENCH_PACKAGES)

clean:
	rm -rf build build-*
