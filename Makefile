# Front door of the build. `make test` is what CI runs.
GEN        := -G Ninja
BUILD      := build
BUILD_ASAN := build-asan
BUILD_TSAN := build-tsan
BUILD_REL  := build-release
BUILD_FUZZ := build-fuzz
FUZZ_SECONDS ?= 30
JOBS       ?= $(shell nproc)
CTEST      := ctest --output-on-failure -j $(JOBS) --timeout 300

.PHONY: all deps configure build test test-debug test-asan tsan bench fuzz run clean

all: build

deps:
	@bash scripts/install-deps.sh

$(BUILD)/build.ninja:
	cmake -S . -B $(BUILD) $(GEN) -DCMAKE_BUILD_TYPE=Debug

$(BUILD_ASAN)/build.ninja:
	cmake -S . -B $(BUILD_ASAN) $(GEN) -DCMAKE_BUILD_TYPE=Debug -DZEM_SANITIZE=ON

$(BUILD_TSAN)/build.ninja:
	cmake -S . -B $(BUILD_TSAN) $(GEN) -DCMAKE_BUILD_TYPE=Debug -DZEM_TSAN=ON

$(BUILD_REL)/build.ninja:
	cmake -S . -B $(BUILD_REL) $(GEN) -DCMAKE_BUILD_TYPE=Release -DZEM_BUILD_BENCH=ON -DZEM_BUILD_TESTS=OFF

build: deps $(BUILD)/build.ninja
	cmake --build $(BUILD) -j $(JOBS)

test-debug: build
	cd $(BUILD) && LP_NUM_THREADS=2 $(CTEST)

test-asan: deps $(BUILD_ASAN)/build.ninja
	cmake --build $(BUILD_ASAN) -j $(JOBS)
	cd $(BUILD_ASAN) && ASAN_OPTIONS=detect_leaks=1:abort_on_error=1 UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 \
	  LSAN_OPTIONS=suppressions=$(CURDIR)/tests/lsan.supp LP_NUM_THREADS=2 $(CTEST)

# Every test, in a normal build and again under AddressSanitizer + UBSan.
test: test-debug test-asan

# ThreadSanitizer run of the tests; slow, so not part of `make test`.
tsan: deps $(BUILD_TSAN)/build.ninja
	cmake --build $(BUILD_TSAN) -j $(JOBS)
	cd $(BUILD_TSAN) && TSAN_OPTIONS=halt_on_error=1:second_deadlock_stack=1 $(CTEST)

bench: deps $(BUILD_REL)/build.ninja
	cmake --build $(BUILD_REL) -j $(JOBS)
	@echo "benchmarks built in $(BUILD_REL)/bin (*_bench)"

$(BUILD_FUZZ)/build.ninja:
	cmake -S . -B $(BUILD_FUZZ) $(GEN) -DCMAKE_BUILD_TYPE=RelWithDebInfo -DZEM_FUZZ=ON \
	  -DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++

# Builds every libFuzzer target and runs each for FUZZ_SECONDS over a scratch copy of its corpus.
fuzz: deps
	@bash scripts/install-deps.sh fuzz
	$(MAKE) $(BUILD_FUZZ)/build.ninja
	cmake --build $(BUILD_FUZZ) -j $(JOBS)
	@bash scripts/run-fuzzers.sh $(BUILD_FUZZ) $(FUZZ_SECONDS)

# Starts zemora on the samples, remote commands on 127.0.0.1:$(RUN_PORT). It runs in
# bin/, where it finds its plugins; headless when there is no display.
RUN_PORT ?= 27921
run: build
	@echo "zemora: remote commands on 127.0.0.1:$(RUN_PORT). From another terminal:"
	@echo "  $(BUILD)/bin/zemctl --port $(RUN_PORT) Root GetRPCSingleton"
	@echo "  $(BUILD)/bin/zemctl --port $(RUN_PORT) Root GetCustomNodeHeaderDesc 0"
	@echo "Stop it with Ctrl-C, or: $(BUILD)/bin/zemctl --port $(RUN_PORT) --no-wait Root ForceQuit"
	cd $(BUILD)/bin && exec ./zemora -rpcport $(RUN_PORT) -rpcbind 127.0.0.1 -assetsRoot "$(CURDIR)/samples/SampleProject"

clean:
	rm -rf $(BUILD) $(BUILD_ASAN) $(BUILD_TSAN) $(BUILD_REL) $(BUILD_FUZZ)
