# Entry points for people and CI. Each target installs the Debian packages it needs first.
JOBS ?= $(shell nproc)
TEST_DIR := build/test
DEMO_DIR := build/release
BENCH_DIR := build/bench
FUZZ_DIR := build/fuzz
# ccache, when the machine has it, makes rebuilds in several checkouts cheap; it is optional.
LAUNCHER := $(if $(shell command -v ccache 2>/dev/null),-DCMAKE_C_COMPILER_LAUNCHER=ccache -DCMAKE_CXX_COMPILER_LAUNCHER=ccache)

.PHONY: all demo test deps format bench fuzz install clean

all: demo

deps:
	@scripts/install-deps.sh build

# The main job: build the library in release mode and run the demo program.
demo: deps
	@cmake -S . -B $(DEMO_DIR) -DCMAKE_BUILD_TYPE=Release -DQUIV_BUILD_TESTS=OFF $(LAUNCHER) >/dev/null
	@cmake --build $(DEMO_DIR) --target quiv_demo -j $(JOBS) >/dev/null
	@$(DEMO_DIR)/examples/quiv_demo
	@QUIV_LIBRARY=$(CURDIR)/$(DEMO_DIR)/src/libquiv.so PYTHONPATH=$(CURDIR)/bindings/python \
	  python3 examples/python/typical_request.py

# Every test, under AddressSanitizer and UndefinedBehaviorSanitizer, through CTest; a compiler
# warning fails the build.
test: deps
	@cmake -S . -B $(TEST_DIR) -DCMAKE_BUILD_TYPE=Debug -DQUIV_BUILD_TESTS=ON -DQUIV_SANITIZE=ON -DQUIV_WARNINGS_AS_ERRORS=ON $(LAUNCHER) >/dev/null
	@cmake --build $(TEST_DIR) -j $(JOBS)
	@cd $(TEST_DIR) && ctest --output-on-failure -j $(JOBS)

bench: deps
	@cmake -S . -B $(BENCH_DIR) -DCMAKE_BUILD_TYPE=Release -DQUIV_BUILD_TESTS=OFF -DQUIV_BUILD_BENCHMARKS=ON >/dev/null
	@cmake --build $(BENCH_DIR) -j $(JOBS)
	@for b in $(BENCH_DIR)/bench/quiv_bench_*; do [ -x "$$b" ] && "$$b"; done; true
	@python3 bench/python_call_cost.py $(BENCH_DIR)

fuzz:
	@scripts/install-deps.sh fuzz
	@CC=clang CXX=clang++ cmake -S . -B $(FUZZ_DIR) -DCMAKE_BUILD_TYPE=Debug -DQUIV_BUILD_TESTS=OFF -DQUIV_BUILD_FUZZERS=ON >/dev/null
	@cmake --build $(FUZZ_DIR) -j $(JOBS)

install: deps
	@cmake -S . -B $(DEMO_DIR) -DCMAKE_BUILD_TYPE=Release -DQUIV_BUILD_TESTS=OFF >/dev/null
	@cmake --build $(DEMO_DIR) -j $(JOBS)
	@cmake --install $(DEMO_DIR)

format:
	@git ls-files '*.cpp' '*.h' '*.hpp' '*.c' | xargs clang-format -i

clean:
	rm -rf build
