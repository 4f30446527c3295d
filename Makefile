# The two commands of the README: `make demo` and `make test`. Everything else is for
# developers. Builds go to build/<preset>/ with CMake and Ninja.

PRESET ?= default
BUILD_DIR := build/$(PRESET)
ORVELLE := $(BUILD_DIR)/bin/orvelle
DEMO_DIR ?= build/demo
JOBS ?= $(shell nproc)

.PHONY: all bootstrap configure build test demo asan-test bench format tidy clean

all: build

bootstrap:
	@scripts/bootstrap

$(BUILD_DIR)/build.ninja:
	cmake --preset $(PRESET)

configure: bootstrap $(BUILD_DIR)/build.ninja

build: configure
	cmake --build --preset $(PRESET) -j $(JOBS)

test: build
	ctest --preset $(PRESET) -j $(JOBS)

asan-test:
	$(MAKE) test PRESET=asan

demo: build
	@scripts/demo $(ORVELLE) $(DEMO_DIR)

bench:
	$(MAKE) build PRESET=release
	@scripts/run-benchmarks build/release

format:
	@git ls-files '*.cpp' '*.h' | xargs clang-format -i

tidy: configure
	@git ls-files 'src/*.cpp' 'tools/*.cpp' | xargs -P $(JOBS) -n 4 clang-tidy -p $(BUILD_DIR) --quiet

clean:
	rm -rf build
