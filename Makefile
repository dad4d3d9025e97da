# The front door. Each target does its own set-up: missing Debian packages are installed when run
# as root, and otherwise named.

BUILD := build
JOBS := $(shell nproc)
BUILD_PACKAGES := cmake g++ make
TEST_PACKAGES := $(BUILD_PACKAGES) jq libgtest-dev nlohmann-json3-dev locales

.PHONY: all demo test configure packages-build packages-demo packages-test clean

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

configure:
	@cmake -S . -B $(BUILD) -DVOREL_BUILD_TESTS=ON >/dev/null

packages-build:
	@cmake/need-packages $(BUILD_PACKAGES)
packages-demo:
	@cmake/need-packages $(BUILD_PACKAGES) jq
packages-test:
	@cmake/need-packages $(TEST_PACKAGES)

clean:
	rm -rf $(BUILD)
