# The front door. Each target does its own set-up: missing Debian packages are installed when run
# as root, and otherwise named.

BUILD := build
JOBS := $(shell nproc)
PREFIX := /usr/local
BUILD_PACKAGES := cmake g++ make
BENCH_PACKAGES := $(BUILD_PACKAGES) libbenchmark-dev rapidjson-dev libfmt-dev nlohmann-json3-dev \
                  valgrind
TEST_PACKAGES := $(BUILD_PACKAGES) jq libgtest-dev nlohmann-json3-dev locales pkg-config python3

.PHONY: all demo test bench load docs fuzz coverage install configure packages-build \
        packages-demo packages-test packages-bench packages-docs packages-fuzz packages-coverage \
        clean

all: packages-build configure
	@cmake --build $(BUILD) -j $(JOBS)

# This machine's network interfaces, by one and the same code as text and as JSON.
demo: packages-demo
	@cmake -S . -B $(BUILD) -DVOREL_BUILD_TESTS=OFF >/dev/null
	@cmake --build $(BUILD) -j $(JOBS) --target show >/dev/null
	$(BUILD)/examples/show interfaces
	$(BUILD)/examples/show interfaces --format json | jq .

test: packages-test configure
	@cmake --build $(BUILD) -j $(JOBS)
	@ctest --test-dir $(BUILD) --output-on-failure -j $(JOBS)

# The library beside what could be used instead of it. Takes about two minutes.
bench: packages-bench
	@cmake -S . -B $(BUILD) -DVOREL_BUILD_BENCH=ON -DVOREL_BUILD_TESTS=OFF >/dev/null
	@cmake --build $(BUILD) -j $(JOBS) --target vorel_bench
	@bench/run.sh $(BUILD)/bench/vorel_bench

# The library, its headers, and what CMake and pkg-config need to find it: under DESTDIR, to be used
# from PREFIX or from wherever the folder is moved to.
install: packages-build
	@cmake -S . -B $(BUILD) -DCMAKE_INSTALL_PREFIX="$(PREFIX)" -DVOREL_BUILD_TESTS=OFF >/dev/null
	@cmake --build $(BUILD) -j $(JOBS) --target Vorel
	@DESTDIR="$(DESTDIR)" cmake --install $(BUILD)

# The API reference, from the headers: build/docs/html/index.html.
docs: packages-docs
	@mkdir -p build/docs
	@doxygen docs/Doxyfile
	@echo "build/docs/html/index.html"

# Each fuzz target for FUZZ_SECONDS, under the sanitizers, from the seeds in tests/fuzz/corpus. What it finds
# is left in the build folder.
FUZZ_SECONDS := 60
fuzz: packages-fuzz
	@cmake -S . -B $(BUILD)-fuzz -DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++ \
	   -DVOREL_SANITIZE=address,undefined -DVOREL_BUILD_FUZZ=ON -DVOREL_BUILD_TESTS=OFF \
	   -DVOREL_BUILD_EXAMPLES=OFF >/dev/null
	@cmake --build $(BUILD)-fuzz -j $(JOBS) >/dev/null
	@seeds=$$PWD/tests/fuzz/corpus && cd $(BUILD)-fuzz && for target in document format txn; do \
	   mkdir -p corpus/$$target && \
	   tests/fuzz/$${target}_fuzz corpus/$$target $$seeds/$$target -max_total_time=$(FUZZ_SECONDS) \
	      -max_len=600 -verbosity=0 -print_funcs=0 -print_final_stats=1 || exit 1; \
	done

# How much of the library's code the tests reach, by lines and by branches.
coverage: packages-coverage
	@cmake -S . -B $(BUILD)-coverage -DCMAKE_BUILD_TYPE=Debug \
	   -DCMAKE_CXX_FLAGS="--coverage -fprofile-update=atomic" >/dev/null
	@cmake --build $(BUILD)-coverage -j $(JOBS) >/dev/null
	@find $(BUILD)-coverage -name '*.gcda' -delete
	@ctest --test-dir $(BUILD)-coverage -j $(JOBS) --output-on-failure | tail -n 4
	@gcovr --root . --filter src/ --exclude-throw-branches $(BUILD)-coverage
	@gcovr --root . --filter src/ --exclude-throw-branches --branches $(BUILD)-coverage

# A thousand clients at once on the example session_server, many of them unkind.
load: packages-test configure
	@cmake --build $(BUILD) -j $(JOBS) --target session_server session_load >/dev/null
	$(BUILD)/bench/load/session_load $(BUILD)/examples/session_server 1000 50 check-memory

configure:
	@cmake -S . -B $(BUILD) -DVOREL_BUILD_TESTS=ON >/dev/null

packages-build:
	@cmake/need-packages $(BUILD_PACKAGES)
packages-demo:
	@cmake/need-packages $(BUILD_PACKAGES) jq
packages-test:
	@cmake/need-packages $(TEST_PACKAGES)
packages-fuzz:
	@cmake/need-packages $(BUILD_PACKAGES) clang libclang-rt-dev libgtest-dev nlohmann-json3-dev
packages-coverage:
	@cmake/need-packages $(TEST_PACKAGES) gcovr
packages-docs:
	@cmake/need-packages doxygen
packages-bench:
	@cmake/need-packages $(BENCH_PACKAGES)

clean:
	rm -rf $(BUILD)
