# For developers: the README's two commands (scripts/demo, scripts/test) and the rest.
# Builds go to build/<preset>/ with CMake and Ninja.

PRESET ?= default
BUILD_DIR := build/$(PRESET)
DEMO_DIR ?= build/demo
JOBS ?= $(shell nproc)
export JOBS

.PHONY: all bootstrap configure build test demo asan-test bench fuzz format tidy clean llm-helper \
	screenshots

all: build

bootstrap:
	@scripts/bootstrap

$(BUILD_DIR)/build.ninja:
	cmake --preset $(PRESET)

configure: bootstrap $(BUILD_DIR)/build.ninja

build:
	@scripts/build $(PRESET)

test:
	@scripts/test $(PRESET)

# The language model helper and llama.cpp's llama-cli it runs (scripts/fetch-llama, which
# scripts/build runs for a whole build or this target, builds that once into third_party/llama).
llm-helper:
	@scripts/build $(PRESET) orvelle-llm-helper

# Pictures of every window of the application, made without a display, in
# build/screenshots/ (over the sample take, made once in build/screenshots-take/).
screenshots:
	@scripts/screenshots

asan-test:
	$(MAKE) test PRESET=asan

demo:
	@scripts/demo $(DEMO_DIR)

bench:
	@scripts/build release
	@scripts/run-benchmarks build/release

# libFuzzer (clang) on each reader of user files for FUZZ_SECONDS each, starting from the kept
# corpus; new inputs go to build/fuzz/corpus/, crashing ones to build/fuzz/crashes/.
FUZZ_SECONDS ?= 60
FUZZERS := project_state cursor_recording project_package

fuzz:
	@scripts/build fuzz
	@mkdir -p build/fuzz/crashes
	@set -e; for name in $(FUZZERS); do \
	  echo "== $${name}_fuzzer ($(FUZZ_SECONDS) s)"; \
	  mkdir -p build/fuzz/corpus/$$name; \
	  build/fuzz/bin/$${name}_fuzzer -max_total_time=$(FUZZ_SECONDS) -print_final_stats=1 \
	    -artifact_prefix=build/fuzz/crashes/$${name}- build/fuzz/corpus/$$name fuzz/corpus/$$name; \
	done

format:
	@git ls-files '*.cpp' '*.h' | xargs clang-format -i

# clang-tidy reads the build's compile commands, less the GCC-only options clang rejects.
tidy: configure
	@mkdir -p build/tidy
	@sed 's/ -fvect-cost-model=[a-z]*//g' $(BUILD_DIR)/compile_commands.json \
	  > build/tidy/compile_commands.json
	@git ls-files 'src/*.cpp' 'tools/*.cpp' | xargs -P $(JOBS) -n 4 clang-tidy -p build/tidy --quiet

clean:
	rm -rf build
